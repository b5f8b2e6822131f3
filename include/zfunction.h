// SPDX-License-Identifier: Apache-2.0
// Functions as jobs and as activities.
#pragma once

#include "zglobal.h"
#include "zjob.h"
#include "zscheduledactivity.h"

#include <QSharedPointer>
#include <QString>

#include <functional>
#include <utility>

class ZJobPool;

/**
 * A job that is a function.
 *
 * Ownership: the pool owns the job, and deletes it when the job has run, or the pool is cleared. The job holds `owner`,
 *            which is what `shared()` of a plugin's root gives, until the function is destroyed: so the code of both
 *            stays in memory.
 * Thread:    `start` may be called on any; the function runs on a thread of the pool.
 * Failure:   what the function throws is reported as a warning of Qt's.
 */
class ZDEFAULT_EXPORT ZFunctionJob : public ZJob
{
public:
    /// Queues `function` in `pool`, which runs it as soon as a thread is free. `owner` may be null outside of plugins.
    static void start(ZJobPool *pool, QSharedPointer<QObject> owner, std::function<void()> function);
    ~ZFunctionJob() override;

    void run() override;

private:
    ZFunctionJob(QSharedPointer<QObject> owner, std::function<void()> function);

    const QSharedPointer<QObject> m_owner; // destroyed after the function
    const std::function<void()> m_function;
};

/**
 * Holds an owner. Make it the first base of a class: then the owner is released after all members of the class.
 *
 * Ownership: shares the owner.
 * Thread:    any.
 * Failure:   none.
 */
class ZOwnerHolder
{
protected:
    explicit ZOwnerHolder(QSharedPointer<QObject> owner) : m_owner(std::move(owner)) {}
    ~ZOwnerHolder() = default;

private:
    const QSharedPointer<QObject> m_owner;
};

/**
 * An activity that is a function.
 *
 * Ownership: as `ZScheduledActivity`. The activity holds `owner`, which is what `shared()` of a plugin's root gives,
 *            until the function is destroyed: so the code of both stays in memory.
 * Thread:    as `ZScheduledActivity`.
 * Failure:   what the function throws is reported as a warning of Qt's, and the activity goes on.
 */
class ZDEFAULT_EXPORT ZFunctionActivity : private ZOwnerHolder, public ZScheduledActivity
{
public:
    /// `function` answers whether it wants to run again. `owner` may be null outside of plugins.
    ZFunctionActivity(QSharedPointer<ZSchedule> schedule, const QString &name, QSharedPointer<QObject> owner,
                      std::function<bool()> function);
    ~ZFunctionActivity() override;

    QString name() const override;
    bool run() override;

private:
    const QString m_name;
    const std::function<bool()> m_function;
};
