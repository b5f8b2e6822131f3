// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "zdelegate.h"
#include "zscheduler.h"

/// Stands for a `ZScheduler`.
class ZDEFAULT_EXPORT ZSchedulerDelegate : public ZDelegate, public ZScheduler
{
public:
    explicit ZSchedulerDelegate(QObject *object);
    explicit ZSchedulerDelegate(QSharedPointer<QObject> object);

    bool schedule0(QSharedPointer<ZScheduledActivity> activity) override;
};
