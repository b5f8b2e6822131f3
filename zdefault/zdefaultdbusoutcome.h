// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "zdbus.h"
#include "zdbusoutcome.h"
#include "zdbusreach.h"
#include "zdelegateof.h"
#include "zemitter.h"
#include "zowned.h"

/// Returns "ZDefaultDbusOutcome*", and registers that type as a metatype.
ZDEFAULT_EXPORT const char *zDefaultDbusOutcomeTypeName();

/**
 * Calls any bus. A bus behind a delegate that is a `ZDbusReach`, too, tells why a call was not handled, and that is
 * exact. Of any other this looks afterwards whether an endpoint is bound, and what is bound or destroyed at that moment
 * may be mistaken.
 *
 * Ownership: the emitter owns it, once it is announced.
 * Thread:    any.
 * Failure:   false, with the reason. What an endpoint throws reaches the caller.
 */
class ZDEFAULT_EXPORT ZDefaultDbusOutcome : public QObject, public ZDbusOutcome, public ZOwned
{
    Q_OBJECT
    Q_INTERFACES(ZDbusOutcome)
    Q_PROPERTY(ZDbus *zDbus READ getSetZDbus WRITE getSetZDbus)
    Q_PROPERTY(ZEmitter *zEmitter READ getSetZEmitter WRITE getSetZEmitter)

public:
    static const char *const TypeName;

    Q_INVOKABLE ZDefaultDbusOutcome();

    bool call0(const QUrl &url, QJsonObject *in, QJsonObject *out, QJsonObject *outcome) override;

    /// Takes the first bus that comes, and no other. As long as there is none, nobody is bound.
    ZDbus *getSetZDbus(ZDbus *dbus = nullptr);
    /// Announces itself, again at each call. Returns its argument.
    ZEmitter *getSetZEmitter(ZEmitter *emitter = nullptr);

private:
    ZDbusReach::Reached reach(const QUrl &url, QJsonObject *in, QJsonObject *out) const;
    bool isBound(const QUrl &url) const;

    ZDbus *m_dbus = nullptr;
};

/// The delegate of a `ZDbusOutcome`. Otherwise as `ZDelegate`.
class ZDEFAULT_EXPORT ZDbusOutcomeDelegate : public ZDelegateOf<ZDbusOutcome>
{
public:
    using ZDelegateOf::ZDelegateOf;

    bool call0(const QUrl &url, QJsonObject *in, QJsonObject *out, QJsonObject *outcome) override;
};
