// SPDX-License-Identifier: Apache-2.0
#include "zdefaultscheduler.h"

#include "zthreadpool.h"
#include "ztypename.h"
#include "zwiring.h"

#include <QCoreApplication>
#include <QJsonArray>
#include <QJsonObject>

#include <climits>
#include <fcntl.h>
#include <sys/prctl.h>
#include <sys/resource.h>

namespace {

QString poolName() { return QStringLiteral("Pool-ZSchedulerThread"); }

/// Whether so many descriptors could be opened now. Opens none, since a thread that is just starting may need the last
/// one.
bool descriptorsLeft(int count)
{
    rlimit limit;
    getrlimit(RLIMIT_NOFILE, &limit);
    // From the highest down, since the system gives out the lowest first.
    for (int descriptor = static_cast<int>(qMin<rlim_t>(limit.rlim_cur, INT_MAX)) - 1; descriptor >= 0 && count > 0;
         --descriptor) {
        if (fcntl(descriptor, F_GETFD) < 0)
            --count;
    }
    return count <= 0;
}

/// How many threads were started, but have not opened their descriptor yet. If one cannot open it, Qt ends the process.
QAtomicInt startingThreads;

/// So many descriptors are left for others when activities are refused.
constexpr int SpareDescriptors = 8;

} // namespace

const char *zDefaultSchedulerTypeName() { return zTypeName<ZDefaultScheduler>("ZDefaultScheduler*"); }

const char *const ZDefaultScheduler::TypeName = zDefaultSchedulerTypeName();

ZSchedulerThread::ZSchedulerThread(QSharedPointer<ZScheduledActivity> activity, QObject *parent)
    : QThread(parent), m_activity(std::move(activity))
{
    setObjectName(QStringLiteral("ZSchedulerThread-%1").arg(m_activity ? m_activity->name() : QString()));
}

ZSchedulerThread::~ZSchedulerThread() = default;

void ZSchedulerThread::run()
{
    prctl(PR_SET_TIMERSLACK, 1); // else the kernel may wake us 50 us late, to wake others at the same time
    while (m_activity && m_activity->wait() && m_activity->run()) {
    }
}

ZDefaultScheduler::ZDefaultScheduler() = default;

bool ZDefaultScheduler::schedule0(QSharedPointer<ZScheduledActivity> activity)
{
    const QSharedPointer<ZThreadPool> threads = pool();
    if (!threads || !activity)
        return false;

    startingThreads.ref();
    auto *thread = new ZSchedulerThread(std::move(activity));
    connect(
        thread, &QThread::started, thread, [] { startingThreads.deref(); }, Qt::DirectConnection);
    const auto isOver = QSharedPointer<QAtomicInteger<bool>>::create(false); // used when the thread may be deleted
    connect(
        thread, &QThread::finished, thread, [isOver] { isOver->storeRelease(true); }, Qt::DirectConnection);
    // An activity may schedule another one, on a thread without an event loop: there `deleteLater()` would delete
    // nothing. So the thread object is moved to the application's thread; before it starts, since it may be posted for
    // deletion at any time after that.
    if (QCoreApplication *application = QCoreApplication::instance())
        thread->moveToThread(application->thread());
    if (!descriptorsLeft(startingThreads.loadAcquire() + SpareDescriptors) ||
        !threads->poolAndStart(thread, QThread::NormalPriority)) {
        startingThreads.deref();
        delete thread;
        return false;
    }
    return !isOver->loadAcquire();
}

bool ZDefaultScheduler::invoked(const QUrl &url, QJsonObject *, QJsonObject *out)
{
    const QString command = url.path(QUrl::FullyDecoded);
    if (command == QLatin1String("/printd"))
        return printd(out);
    if (command == QLatin1String("/shutdown"))
        return shutdown();
    return false;
}

ZConfig *ZDefaultScheduler::getSetZConfig(ZConfig *config)
{
    zKeepFirst(m_config, config);
    return m_config;
}

ZLogger *ZDefaultScheduler::getSetZLogger(ZLogger *logger)
{
    if (logger)
        m_log = ZNamedLogger(logger, QStringLiteral("zscheduler"));
    return logger;
}

ZThreadPoolSet *ZDefaultScheduler::getSetZPoolSet(ZThreadPoolSet *poolSet)
{
    zKeepFirst(m_poolSet, poolSet);
    return m_poolSet;
}

ZDbus *ZDefaultScheduler::getSetZDbus(ZDbus *dbus)
{
    zKeepFirst(m_dbus, dbus);
    return m_dbus;
}

ZEmitter *ZDefaultScheduler::getSetZEmitter(ZEmitter *emitter)
{
    if (zKeepFirst(m_emitter, emitter)) {
        const QSharedPointer<QObject> self = owned();
        if (m_dbus)
            m_dbus->bind0(QUrl(QStringLiteral("//ZScheduler")), qSharedPointerDynamicCast<ZDbusSubscriber>(self));
        emitter->bind0(QSharedPointer<ZSchedulerDelegate>::create(self));
    }
    return emitter;
}

QSharedPointer<ZThreadPool> ZDefaultScheduler::pool()
{
    return m_poolSet ? m_poolSet->find0(poolName()) : QSharedPointer<ZThreadPool>();
}

bool ZDefaultScheduler::printd(QJsonObject *out)
{
    if (!out)
        return false;
    QJsonObject description{
        {QStringLiteral("ZDefaultScheduler"), QString::number(reinterpret_cast<quintptr>(this), 16)}};
    if (const QSharedPointer<ZThreadPool> threads = pool())
        description.insert(poolName(), threads->printd());
    out->insert(QStringLiteral("ZScheduler"), description);
    return true;
}

bool ZDefaultScheduler::shutdown()
{
    const QSharedPointer<ZThreadPool> threads = pool();
    if (m_emitter) { // this may drop all shares of this object but the one that is held here
        const QSharedPointer<QObject> self = owned();
        m_emitter->bind0(QSharedPointer<ZSchedulerDelegate>::create(QSharedPointer<QObject>()));
    }
    return threads && threads->waitAll(100);
}

ZSchedulerDelegate::ZSchedulerDelegate(QObject *object) : ZDelegate(refer(object)) { provide<ZScheduler>(this); }

ZSchedulerDelegate::ZSchedulerDelegate(QSharedPointer<QObject> object) : ZDelegate(refer(std::move(object)))
{
    provide<ZScheduler>(this);
}

bool ZSchedulerDelegate::schedule0(QSharedPointer<ZScheduledActivity> activity)
{
    return forward(&ZScheduler::schedule0, false, activity);
}
