// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QObject>
#include <QSemaphore>
#include <QSharedPointer>
#include <QVector>

#include <functional>

#include <zconfig.h>
#include <zcontext.h>
#include <zdbus.h>
#include <zdbussubscriber.h>
#include <zdefaultemitter.h>
#include <zjob.h>
#include <zjobpoolset.h>
#include <zlibrary.h>
#include <zloader.h>
#include <zlogger.h>
#include <zscheduledactivity.h>
#include <zscheduler.h>
#include <ztempfile.h>
#include <zthreadpoolset.h>

/// All services. The emitter holds itself, and ends with this object.
class System : public QObject
{
    Q_OBJECT
    Q_PROPERTY(ZConfig *config MEMBER config)
    Q_PROPERTY(ZContext *context MEMBER context)
    Q_PROPERTY(ZDbus *dbus MEMBER dbus)
    Q_PROPERTY(ZJobPoolSet *jobPools MEMBER jobPools)
    Q_PROPERTY(ZLoader *loader MEMBER loader)
    Q_PROPERTY(ZLogger *logger MEMBER logger)
    Q_PROPERTY(ZScheduler *scheduler MEMBER scheduler)
    Q_PROPERTY(ZTempFile *tempFiles MEMBER tempFiles)
    Q_PROPERTY(ZThreadPoolSet *threadPools MEMBER threadPools)

public:
    /// With `holdDelegates` the services' delegates outlive the emitter.
    System(const QString &deployed, const QString &hotDeploy, bool holdDelegates = false);
    ~System() override;

    /// Takes everything into use: a plugin, activities that sleep and that run, jobs that run and that are queued.
    void use();
    /// Has the activities and the jobs end.
    void rest();

    /// Drops the last share in the emitter.
    void letGo();
    /// Whether all services are gone.
    bool isSilent();

    /// Has `deed` done by an activity, by a job, or by a job in a pool of its own.
    void schedule(std::function<void()> deed);
    void start(std::function<void()> deed);
    void startBeside(std::function<void()> deed);
    /// The threads of what is scheduled.
    QSharedPointer<ZThreadPool> activities();

    QSharedPointer<ZDefaultEmitter> emitter;
    ZConfig *config = nullptr;
    ZContext *context = nullptr;
    ZDbus *dbus = nullptr;
    ZJobPoolSet *jobPools = nullptr;
    ZLoader *loader = nullptr;
    ZLogger *logger = nullptr;
    ZScheduler *scheduler = nullptr;
    ZTempFile *tempFiles = nullptr;
    ZThreadPoolSet *threadPools = nullptr;

    QSemaphore visited; // by whoever calls "//visitor"

private:
    void keep(QSharedPointer<ZScheduledActivity> activity);

    void start(const QString &pool, std::function<void()> deed);

    QVector<QSharedPointer<ZDelegate>> m_delegates;
    QSharedPointer<ZDbusSubscriber> m_visitor;
    QVector<QSharedPointer<ZScheduledActivity>> m_activities;
    QVector<QSharedPointer<ZJob>> m_jobs;
    QSemaphore m_door;    // at which the jobs wait
    QSemaphore m_running; // by each of their threads, and of what sleeps
};
