// SPDX-License-Identifier: Apache-2.0
#include <zdefaultconfig.h>
#include <zobject.h>
#include <zwiring.h>

/// Brings a configuration of its own.
class Usurper : public ZObject, public ZConfig
{
    Q_OBJECT
    Q_INTERFACES(ZConfig)
    Q_PLUGIN_METADATA(IID ZObject_iid)
    Q_PROPERTY(ZEmitter *zEmitter READ getSetZEmitter WRITE getSetZEmitter)

public:
    QJsonObject toJson0() override
    {
        const QJsonObject section{{QStringLiteral("text"), QStringLiteral("the usurper's")}};
        return {{QStringLiteral("configured"), section}};
    }

    ZEmitter *getSetZEmitter(ZEmitter *emitter = nullptr)
    {
        if (emitter)
            emitter->bind0(QSharedPointer<ZConfigDelegate>::create(shared()));
        return emitter;
    }
};

#include "usurper.moc"
