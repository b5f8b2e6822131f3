// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QJsonObject>
#include <QMetaType>
#include <QObject>
#include <QUrl>
#include <QWeakPointer>

/**
 * Is told what came of a call that it has begun with `ZDbusAsync`.
 *
 * Ownership: its user's; it is held weakly while its calls are under way.
 * Thread:    if it is a `QObject`, the thread in which it lives, by its event loop; else any.
 * Failure:   exceptions are logged.
 */
class ZDbusReceiver
{
public:
    virtual ~ZDbusReceiver() {}
    /// The call with this number has come back. `answer` has "handled", a boolean; "in" and "out" as they are after the
    /// call, if the request had them; and "outcome", as `ZDbusOutcome` says it.
    virtual void answered(qint64 call, const QJsonObject &answer) = 0;
};

/**
 * Calls the bus for those who must not wait, such as an event loop.
 *
 * Ownership: holds receivers weakly: one that is gone is told nothing, but its call is made all the same.
 * Thread:    any; endpoints are called on threads of the service's.
 * Failure:   0.
 */
class ZDbusAsync
{
public:
    /// Has `url` called. `request` has "in" and "out", each as `ZDbus::invoke0` takes it; what is missing is null.
    /// Returns the number of the call, which is greater than 0; 0 if too many calls wait already, or the service ends.
    /// The answer may come before this returns.
    virtual qint64 begin0(const QUrl &url, const QJsonObject &request, QWeakPointer<ZDbusReceiver> receiver) = 0;
    // Plugins that are built elsewhere rely on the order of the operations: a new ability is a new interface.
    virtual ~ZDbusAsync() {}
};
Q_DECLARE_INTERFACE(ZDbusAsync, "zdefault::ZDbusAsync")
Q_DECLARE_METATYPE(ZDbusAsync *)
