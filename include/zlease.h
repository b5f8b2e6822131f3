// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QMetaType>
#include <QObject>
#include <QString>

/**
 * Lets one of several processes do what is to be done once: the one that has the lease.
 *
 * Work is numbered: each piece of it is a slot, such as the minute in which it is due. No slot is begun twice, even if
 * the lease changes hands in the middle of one.
 *
 * Ownership: keeps copies of the names.
 * Thread:    any.
 * Failure:   false: then the work must not be done.
 */
class ZLease
{
public:
    /// Wants the lease called `name` from now on: takes it as soon as nobody has it, and renews it. If this process dies,
    /// another one may take it after `msecs`. Returns at once. Wanted twice, it has to be let go twice.
    /// A service that takes over from another one knows what that was asked; who asks it again is not counted again.
    virtual bool want0(const QString &name, int msecs) = 0;
    /// Does not want it any more. Another process can take it at once.
    virtual void forget0(const QString &name) = 0;
    /// Whether this process may do `slot` now: it has the lease, and nobody has begun this slot, or a later one. Then it
    /// is noted that the slot has begun. Otherwise `reason` says why not. Waits for the answer, half of the lease's time
    /// at most.
    virtual bool begin0(const QString &name, qint64 slot, QString &reason) = 0;
    // Plugins that are built elsewhere rely on the order of the operations: a new ability is a new interface.
    virtual ~ZLease() {}
};
Q_DECLARE_INTERFACE(ZLease, "zdefault::ZLease")
Q_DECLARE_METATYPE(ZLease *)
