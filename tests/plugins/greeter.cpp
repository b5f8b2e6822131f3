// SPDX-License-Identifier: Apache-2.0
#include "greeter.h"
#include "gate.h"

#include <zobject.h>
#include <zwiring.h>

/// Serves `Greeter` and tells its version: "2: hello, Ann".
class GreeterPlugin : public ZObject, public Greeter
{
    Q_OBJECT
    Q_INTERFACES(Greeter)
    Q_PLUGIN_METADATA(IID ZObject_iid)
    Q_PROPERTY(ZEmitter *zEmitter READ getSetZEmitter WRITE getSetZEmitter)

public:
    QString greet(const QString &name) override
    {
        Gate::pass(this);
        return QStringLiteral(GREETER_VERSION ": hello, %1").arg(name);
    }

    ZEmitter *getSetZEmitter(ZEmitter *emitter = nullptr) { return zAnnounce<GreeterDelegate>(this, emitter); }
};

#include "greeter.moc"
