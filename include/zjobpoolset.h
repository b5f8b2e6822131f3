// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QMetaType>
#include <QObject>
#include <QSharedPointer>
#include <QString>

class ZJobPool;

/**
 * Job pools by name.
 *
 * Ownership: the set and its callers share a pool; it lives as long as the longest of them.
 * Thread:    any.
 * Failure:   null when there is no such service.
 */
class ZJobPoolSet
{
public:
    /// The job pool called `name`. If there is none yet, it is made with the two numbers; else they are ignored.
    /// `maxThreads` and `expiryTimeout` (milliseconds) of 0 or less mean Qt's defaults.
    virtual QSharedPointer<ZJobPool> find0(const QString &name, int maxThreads, int expiryTimeout) = 0;
    // Plugins that are built elsewhere rely on the order of the operations: a new ability is a new interface.
    virtual ~ZJobPoolSet() {}
};
Q_DECLARE_INTERFACE(ZJobPoolSet, "zdefault::ZJobPoolSet")
Q_DECLARE_METATYPE(ZJobPoolSet *)
