// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "zconfig.h"
#include "zdelegate.h"
#include "zemitter.h"
#include "zowned.h"

/// Returns "ZDefaultConfig*", and registers that type as a metatype.
ZDEFAULT_EXPORT const char *zDefaultConfigTypeName();

/**
 * The application's configuration as it was given at construction; it never changes.
 *
 * Ownership: the emitter owns it, once it is announced.
 * Thread:    any.
 * Failure:   none.
 */
class ZDEFAULT_EXPORT ZDefaultConfig : public QObject, public ZConfig, public ZOwned
{
    Q_OBJECT
    Q_INTERFACES(ZConfig)
    Q_PROPERTY(ZEmitter *zEmitter READ getSetZEmitter WRITE getSetZEmitter)

public:
    static const char *const TypeName;

    Q_INVOKABLE explicit ZDefaultConfig(QJsonObject jsonObject = QJsonObject());

    QJsonObject toJson0() override;

    /// Announces the configuration, again at each call. Returns its argument.
    ZEmitter *getSetZEmitter(ZEmitter *emitter = nullptr);

private:
    const QJsonObject m_jsonObject;
};

/// The delegate of a `ZConfig`. Otherwise as `ZDelegate`.
class ZDEFAULT_EXPORT ZConfigDelegate : public ZDelegate, public ZConfig
{
public:
    explicit ZConfigDelegate(QObject *object);
    explicit ZConfigDelegate(QSharedPointer<QObject> object);

    QJsonObject toJson0() override;
};
