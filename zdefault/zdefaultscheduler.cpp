// SPDX-License-Identifier: Apache-2.0
#include "zdefaultscheduler.h"

ZSchedulerDelegate::ZSchedulerDelegate(QObject *object) : ZDelegate(refer(object)) { provide<ZScheduler>(this); }

ZSchedulerDelegate::ZSchedulerDelegate(QSharedPointer<QObject> object) : ZDelegate(refer(std::move(object)))
{
    provide<ZScheduler>(this);
}

bool ZSchedulerDelegate::schedule0(QSharedPointer<ZScheduledActivity> activity)
{
    return forward(&ZScheduler::schedule0, false, activity);
}
