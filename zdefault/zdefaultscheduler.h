// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "zconfig.h"
#include "zdbus.h"
#include "zdbussubscriber.h"
#include "zdelegate.h"
#include "zemitter.h"
#include "zlogger.h"
#include "znamedlogger.h"
#include "zowned.h"
#include "zscheduledactivity.h"
#include "zscheduler.h"
#include "zthreadpoolset.h"

#include <QThread>

/// "ZDefaultScheduler*", registered as a metatype.
ZDEFAULT_EXPORT const char *zDefaultSchedulerTypeName();

/**
 * Runs one activity: waits until it is due, runs it, and begins again, until either says stop.
 *
 * Ownership: shares the activity.
 * Thread:    its own.
 * Failure:   ends.
 */
class ZDEFAULT_EXPORT ZSchedulerThread : public QThread
{
    Q_OBJECT

public:
    explicit ZSchedulerThread(QSharedPointer<ZScheduledActivity> activity, QObject *parent = nullptr);
    ~ZSchedulerThread() override;

protected:
    void run() override;

private:
    const QSharedPointer<ZScheduledActivity> m_activity;
};

/**
 * Runs activities on threads of the registry "Pool-ZSchedulerThread", and answers "/printd" and "/shutdown" at
 * "//ZScheduler" on the bus, if it was given the bus before the emitter.
 *
 * Ownership: the emitter's, once announced, until it is shut down. The activities belong to their threads, which go on
 *            without it.
 * Thread:    any.
 * Failure:   false. An activity for which the process has no descriptors left is refused too.
 */
class ZDEFAULT_EXPORT ZDefaultScheduler : public QObject, public ZScheduler, public ZDbusSubscriber, public ZOwned
{
    Q_OBJECT
    Q_INTERFACES(ZScheduler)
    Q_PROPERTY(ZConfig *zConfig READ getSetZConfig WRITE getSetZConfig)
    Q_PROPERTY(ZLogger *zLogger READ getSetZLogger WRITE getSetZLogger)
    Q_PROPERTY(ZThreadPoolSet *zPoolSet READ getSetZPoolSet WRITE getSetZPoolSet)
    Q_PROPERTY(ZDbus *zDbus READ getSetZDbus WRITE getSetZDbus)
    Q_PROPERTY(ZEmitter *zEmitter READ getSetZEmitter WRITE getSetZEmitter)

public:
    static const char *const TypeName;

    Q_INVOKABLE ZDefaultScheduler();

    bool schedule0(QSharedPointer<ZScheduledActivity> activity) override;

    /// "/printd" describes the scheduler and its threads in `out`. "/shutdown" withdraws the scheduler from everyone
    /// who holds it, and answers whether all activities ended within 100 milliseconds; it cancels none.
    bool invoked(const QUrl &url, QJsonObject *in, QJsonObject *out) override;

    /// Keeps to the first configuration that comes; reads nothing from it.
    ZConfig *getSetZConfig(ZConfig *config = nullptr);
    /// Belongs to `logger`'s category "zscheduler" from now on. Answers its argument.
    ZLogger *getSetZLogger(ZLogger *logger = nullptr);
    /// Keeps to the first set that comes.
    ZThreadPoolSet *getSetZPoolSet(ZThreadPoolSet *poolSet = nullptr);
    /// Keeps to the first bus that comes.
    ZDbus *getSetZDbus(ZDbus *dbus = nullptr);
    /// Keeps to the first emitter that comes, and announces the scheduler there, and on the bus. Answers its argument.
    ZEmitter *getSetZEmitter(ZEmitter *emitter = nullptr);

private:
    QSharedPointer<ZThreadPool> pool();
    bool printd(QJsonObject *out);
    bool shutdown();

    ZConfig *m_config = nullptr;
    ZThreadPoolSet *m_poolSet = nullptr;
    ZDbus *m_dbus = nullptr;
    ZEmitter *m_emitter = nullptr;
    ZNamedLogger m_log;
};

/// Stands for a `ZScheduler`. Otherwise as `ZDelegate`.
class ZDEFAULT_EXPORT ZSchedulerDelegate : public ZDelegate, public ZScheduler
{
public:
    explicit ZSchedulerDelegate(QObject *object);
    explicit ZSchedulerDelegate(QSharedPointer<QObject> object);

    bool schedule0(QSharedPointer<ZScheduledActivity> activity) override;
};
