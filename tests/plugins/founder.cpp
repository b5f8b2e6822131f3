// SPDX-License-Identifier: Apache-2.0
#include <zdelegate.h>
#include <zemitter.h>
#include <zobject.h>

/// An interface that no application knows.
class Secret
{
public:
    virtual int number() = 0;
    virtual ~Secret() {}
};
Q_DECLARE_INTERFACE(Secret, "test::Secret")
Q_DECLARE_METATYPE(Secret *)

class SecretDelegate : public ZDelegate, public Secret
{
public:
    explicit SecretDelegate(QObject *object) : ZDelegate(refer(object)) { provide<Secret>(this); }

    int number() override { return forward(&Secret::number, 0); }
};

/// Declares an interface of its own, which it should have left to the application.
class Founder : public ZObject
{
    Q_OBJECT
    Q_PLUGIN_METADATA(IID ZObject_iid)
    Q_PROPERTY(ZEmitter *zEmitter READ getSetZEmitter WRITE getSetZEmitter)

public:
    ZEmitter *getSetZEmitter(ZEmitter *emitter = nullptr)
    {
        if (emitter)
            emitter->bind0(QSharedPointer<SecretDelegate>::create(nullptr));
        return emitter;
    }
};

#include "founder.moc"
