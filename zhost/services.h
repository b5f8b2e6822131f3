// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QJsonArray>
#include <QObject>
#include <QVector>

#include <zconfig.h>
#include <zcontext.h>
#include <zdbus.h>
#include <zdelegate.h>
#include <zemitter.h>
#include <zjobpoolset.h>
#include <zloader.h>
#include <zlogger.h>
#include <zscheduler.h>
#include <ztempfile.h>
#include <zthreadpool.h>
#include <zthreadpoolset.h>

/// All services, as a component gets them from an emitter in which each has its place. Any of them may be withdrawn at
/// any time: then its operations answer what they answer without a component, which for what is shared is null.
class Services : public QObject
{
    Q_OBJECT
    Q_PROPERTY(ZConfig *config MEMBER config)
    Q_PROPERTY(ZContext *context MEMBER context)
    Q_PROPERTY(ZDbus *dbus MEMBER dbus)
    Q_PROPERTY(ZEmitter *emitter MEMBER emitter)
    Q_PROPERTY(ZJobPoolSet *jobPoolSet MEMBER jobPoolSet)
    Q_PROPERTY(ZLoader *loader MEMBER loader)
    Q_PROPERTY(ZLogger *logger MEMBER logger)
    Q_PROPERTY(ZScheduler *scheduler MEMBER scheduler)
    Q_PROPERTY(ZTempFile *tempFile MEMBER tempFile)
    Q_PROPERTY(ZThreadPoolSet *threadPoolSet MEMBER threadPoolSet)

public:
    ZConfig *config = nullptr;
    ZContext *context = nullptr;
    ZDbus *dbus = nullptr;
    ZEmitter *emitter = nullptr;
    ZJobPoolSet *jobPoolSet = nullptr;
    ZLoader *loader = nullptr;
    ZLogger *logger = nullptr;
    ZScheduler *scheduler = nullptr;
    ZTempFile *tempFile = nullptr;
    ZThreadPoolSet *threadPoolSet = nullptr;

    /// What is behind `service` at the moment; null if there is nothing.
    template <class Service>
    static QSharedPointer<ZReference> behind(Service *service)
    {
        auto *delegate = dynamic_cast<ZDelegate *>(service);
        const QSharedPointer<ZReference> reference = delegate ? *delegate : QSharedPointer<ZReference>();
        return reference && !reference->isNull() ? reference : QSharedPointer<ZReference>();
    }

    /// Where the host's own scheduler registers its threads. Held, for a registry waits for its threads when it goes: a
    /// plugin that takes the place of those who made it would have to wait for all that is scheduled.
    QSharedPointer<ZThreadPool> ownActivities;

    /// The registry for what is scheduled from now on; null if nobody has one.
    QSharedPointer<ZThreadPool> activities() const
    {
        return threadPoolSet->find0(QStringLiteral("Pool-ZSchedulerThread"));
    }

    bool canSchedule() const { return behind(scheduler) && activities(); }

    /// The registries of all that is scheduled, the host's own one first.
    QVector<QSharedPointer<ZThreadPool>> allActivities() const
    {
        QVector<QSharedPointer<ZThreadPool>> all{ownActivities};
        if (const QSharedPointer<ZThreadPool> now = activities(); now && now != ownActivities)
            all.append(now);
        return all;
    }
};

/// One object for each thread in `registries`.
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
