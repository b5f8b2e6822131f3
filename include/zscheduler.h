// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QMetaType>
#include <QObject>
#include <QSharedPointer>

class ZScheduledActivity;

/**
 * Runs activities on their timetables, each on a thread of its own.
 *
 * Ownership: shares the activity until its thread has ended.
 * Thread:    any.
 * Failure:   false.
 */
class ZScheduler
{
public:
    /// Starts `activity`. True when its thread is running as the call returns. So an activity that ends at once may
    /// give false although it ran.
    virtual bool schedule0(QSharedPointer<ZScheduledActivity> activity) = 0;
    // Plugins that are built elsewhere rely on the order of the operations: a new ability is a new interface.
    virtual ~ZScheduler() {}
};
Q_DECLARE_INTERFACE(ZScheduler, "zdefault::ZScheduler")
Q_DECLARE_METATYPE(ZScheduler *)
