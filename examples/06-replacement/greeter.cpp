// SPDX-License-Identifier: Apache-2.0
// A plugin that serves an interface, and gives way to its next version.
#include "greeter.h"

#include <zemitter.h>
#include <zobject.h>

class GreeterPlugin : public ZObject, public Greeter
{
    Q_OBJECT
    Q_INTERFACES(Greeter)
    Q_PLUGIN_METADATA(IID ZObject_iid)
    Q_PROPERTY(ZEmitter *zEmitter READ getSetZEmitter WRITE getSetZEmitter)

public:
    ZEmitter *getSetZEmitter(ZEmitter *emitter = nullptr)
    {
        // shared() holds this object and its library: both stay until the last call has ended.
        if (emitter)
            emitter->bind0(QSharedPointer<GreeterDelegate>::create(shared()));
        return emitter;
    }

    // What a plugin hands out must not point into it: QStringLiteral would, and the text may outlive the plugin.
    QString greet() override { return QString::fromUtf8(GREETING); }
};

#include "greeter.moc"
