// SPDX-License-Identifier: Apache-2.0
// Looks at the components behind the services. Any of them may be withdrawn at any time: then its operations return
// their neutral results, which are null for shared pointers.
#pragma once

#include <QJsonArray>
#include <QVector>

#include <zdelegate.h>
#include <zservices.h>
#include <zthreadpool.h>

/// The component behind `service` at the moment; null if there is none.
template <class Service>
QSharedPointer<ZReference> behind(Service *service)
{
    auto *delegate = dynamic_cast<ZDelegate *>(service);
    const QSharedPointer<ZReference> reference = delegate ? *delegate : QSharedPointer<ZReference>();
    return reference && !reference->isNull() ? reference : QSharedPointer<ZReference>();
}

inline bool canSchedule(const ZServices &services)
{
    return behind(services.scheduler) && services.threadPoolSet->find0(QStringLiteral("Pool-ZSchedulerThread"));
}

/// An object for each thread in `registries`.
inline QJsonArray threadsIn(const QVector<QSharedPointer<ZThreadPool>> &registries)
{
    QJsonArray threads;
    for (const QSharedPointer<ZThreadPool> &registry : registries) {
        const QJsonArray some = registry->printd();
        for (const auto &thread : some)
            threads.append(thread);
    }
    return threads;
}
