// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QMetaType>
#include <QObject>
#include <QSharedPointer>
#include <QString>

class ZThreadPool;

/**
 * Registries of running threads by name.
 *
 * Ownership: the set and its callers share a registry; it lives as long as the longest of them.
 * Thread:    any.
 * Failure:   null when there is no such service.
 */
class ZThreadPoolSet
{
public:
    /// The registry called `name`. If there is none yet, it is made.
    virtual QSharedPointer<ZThreadPool> find0(const QString &name) = 0;
    // Plugins that are built elsewhere rely on the order of the operations: a new ability is a new interface.
    virtual ~ZThreadPoolSet() {}
};
Q_DECLARE_INTERFACE(ZThreadPoolSet, "zdefault::ZThreadPoolSet")
Q_DECLARE_METATYPE(ZThreadPoolSet *)
