// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QMetaType>
#include <QObject>
#include <QVariant>

/**
 * Values that belong to the running thread: one of each type.
 *
 * Ownership: keeps copies until the thread ends.
 * Thread:    any; each sees only its own values.
 * Failure:   false.
 */
class ZContext
{
public:
    /// Overwrites `value` with this thread's value of the same type. False if there is none; `value` stays as it was.
    virtual bool load0(QVariant &value) = 0;
    /// Keeps a copy of `value` as this thread's value of its type. False for an invalid one.
    virtual bool save0(QVariant &value) = 0;
    // Plugins that are built elsewhere rely on the order of the operations: a new ability is a new interface.
    virtual ~ZContext() {}
};
Q_DECLARE_INTERFACE(ZContext, "zdefault::ZContext")
Q_DECLARE_METATYPE(ZContext *)
