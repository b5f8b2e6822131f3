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

/// Returns "ZDefaultScheduler*", and registers that type as a metatype.
ZDEFAULT_EXPORT const char *zDefaultSchedulerTypeName();

/**
 * Runs one activity: waits until it is due, runs it, and begins again, until `wait()` or `run()` returns false.
 *
 * Ownership: shares the activity.
 * Thread:    its own.
 * Failure:   the thread ends.
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
 * Runs activities on threads of the registry "Pool-ZSchedulerThread". If it was given the bus before the emitter, it
 * answers "/printd" and "/shutdown" at "//ZScheduler" on the bus.
 *
 * Ownership: the emitter owns it, once it is announced, until it is shut down. The activities belong to their threads,
 *            which go on without it.
 * Thread:    any.
 * Failure:   false. If the process has no descriptors left, an activity is refused too.
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

    /// "/printd" describes the scheduler and its threads in `out`. "/shutdown" withdraws the scheduler from all who
    /// hold it, and says whether all activities ended within 100 milliseconds; it cancels none.
    bool invoked(const QUrl &url, QJsonObject *in, QJsonObject *out) override;

    /// Takes the first configuration that comes, and no other; reads nothing from it.
    ZConfig *getSetZConfig(ZConfig *config = nullptr);
    /// Logs to `logger`, under the category "zscheduler", from now on. Returns its argument.
    ZLogger *getSetZLogger(ZLogger *logger = nullptr);
    /// Takes the first set that comes, and no other.
    ZThreadPoolSet *getSetZPoolSet(ZThreadPoolSet *poolSet = nullptr);
    /// Takes the first bus that comes, and no other.
    ZDbus *getSetZDbus(ZDbus *dbus = nullptr);
    /// Takes the first emitter that comes, and no other, and announces the scheduler there, and on the bus. Returns its
    /// argument.
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

/// The delegate of a `ZScheduler`. Otherwise as `ZDelegate`.
class ZDEFAULT_EXPORT ZSchedulerDelegate : public ZDelegate, public ZScheduler
{
public:
    explicit ZSchedulerDelegate(QObject *object);
    explicit ZSchedulerDelegate(QSharedPointer<QObject> object);

    bool schedule0(QSharedPointer<ZScheduledActivity> activity) override;
};
