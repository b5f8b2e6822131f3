// SPDX-License-Identifier: Apache-2.0
#include "greeter.h"

#include <zobject.h>
#include <zwiring.h>

/// Provides nothing: its author forgot to say of what it is a delegate.
class Forgetful : public ZDelegate, public Greeter
{
public:
    explicit Forgetful(QObject *object) : ZDelegate(refer(object)) {}

    QString greet(const QString &name) override { return forward(&Greeter::greet, {}, name); }
};

/// Announces itself by a delegate that provides nothing.
class Unprovided : public ZObject, public Greeter
{
    Q_OBJECT
    Q_INTERFACES(Greeter)
    Q_PLUGIN_METADATA(IID ZObject_iid)
    Q_PROPERTY(ZEmitter *zEmitter READ getSetZEmitter WRITE getSetZEmitter)

public:
    QString greet(const QString &name) override { return QStringLiteral("hello, %1").arg(name); }

    ZEmitter *getSetZEmitter(ZEmitter *emitter = nullptr) { return zAnnounce<Forgetful>(this, emitter); }
};

#include "unprovided.moc"
