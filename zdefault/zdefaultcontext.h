// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "zcontext.h"
#include "zdelegate.h"
#include "zemitter.h"
#include "zowned.h"

/// Returns "ZDefaultContext*", and registers that type as a metatype.
ZDEFAULT_EXPORT const char *zDefaultContextTypeName();

/**
 * Values that belong to the running thread, one of each type. Contexts do not see each other's.
 *
 * Ownership: the emitter owns it, once it is announced. Values go with their thread, not with the context.
 * Thread:    any; each sees only its own values.
 * Failure:   false.
 */
class ZDEFAULT_EXPORT ZDefaultContext : public QObject, public ZContext, public ZOwned
{
    Q_OBJECT
    Q_INTERFACES(ZContext)
    Q_PROPERTY(ZEmitter *zEmitter READ getSetZEmitter WRITE getSetZEmitter)

public:
    static const char *const TypeName;

    Q_INVOKABLE ZDefaultContext();
    ~ZDefaultContext() override;

    bool load0(QVariant &value) override;
    bool save0(QVariant &value) override;

    /// Announces the context, again at each call. Returns its argument.
    ZEmitter *getSetZEmitter(ZEmitter *emitter = nullptr);

private:
    const quint64 m_id; // no other context ever has the same
};

/// The delegate of a `ZContext`. Otherwise as `ZDelegate`.
class ZDEFAULT_EXPORT ZContextDelegate : public ZDelegate, public ZContext
{
public:
    explicit ZContextDelegate(QObject *object);
    explicit ZContextDelegate(QSharedPointer<QObject> object);

    bool load0(QVariant &value) override;
    bool save0(QVariant &value) override;
};
