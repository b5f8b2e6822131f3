// SPDX-License-Identifier: Apache-2.0
#include "system.h"

#include <QJsonObject>
#include <QTemporaryFile>

#include <zdefaultconfig.h>
#include <zdefaultcontext.h>
#include <zdefaultdbus.h>
#include <zdefaultfilesystem.h>
#include <zdefaultloader.h>
#include <zdefaultlogger.h>
#include <zdefaultpoolset.h>
#include <zdefaultscheduler.h>
#include <zjobpool.h>
#include <zthreadpool.h>

#include <mutex>

namespace {

constexpr int Hour = 3600 * 1000;

/// An endpoint that uses all there is.
class Visitor : public ZDbusSubscriber
{
public:
    explicit Visitor(System *system) : m_system(system) {}

    bool invoked(const QUrl &url, QJsonObject *, QJsonObject *) override
    {
        QVariant value = url;
        m_system->context->save0(value);
        m_system->config->toJson0();
        m_system->logger->debug0(QStringLiteral("visited"));
        m_system->jobPools->find0(QStringLiteral("jobs"), 2, -1);
        m_system->threadPools->find0(QStringLiteral("others")); // not its own, of which it might be the last holder
        m_system->loader->loaded0(QStringLiteral("farewell"));
        // Once: Qt's own codec for the names of files goes as main() returns, and a thread that asks for it at this
        // very moment ends the process.
        std::call_once(m_makesFile, [this] { m_system->tempFiles->newFile0(); });
        m_system->visited.release();
        return true;
    }

private:
    System *const m_system;
    std::once_flag m_makesFile;
};

/// Tells when its thread is there and waits.
class HourlySchedule : public ZPeriodicSchedule
{
public:
    explicit HourlySchedule(QSemaphore *running) : ZPeriodicSchedule(Hour), m_running(running) {}

    bool wait() override
    {
        m_running->release();
        return ZPeriodicSchedule::wait();
    }

private:
    QSemaphore *const m_running;
};

class Deed : public ZScheduledActivity
{
public:
    explicit Deed(std::function<void()> deed)
        : ZScheduledActivity(QSharedPointer<ZPeriodicSchedule>::create(1)), m_deed(std::move(deed))
    {}

    bool run() override
    {
        m_deed();
        return false;
    }

private:
    const std::function<void()> m_deed;
};

class Job : public ZJob
{
public:
    explicit Job(std::function<void()> deed) : ZJob({}, {}), m_deed(std::move(deed)) { setAutoDelete(false); }
    void run() override { m_deed(); }

private:
    const std::function<void()> m_deed;
};

template <class Delegate>
QSharedPointer<ZDelegate> empty()
{
    return QSharedPointer<Delegate>::create(QSharedPointer<QObject>());
}

} // namespace

System::System(const QString &deployed, const QString &hotDeploy, bool holdDelegates)
    : emitter(QSharedPointer<ZDefaultEmitter>::create()), m_visitor(new Visitor(this))
{
    if (holdDelegates) {
        m_delegates = {empty<ZConfigDelegate>(),    empty<ZLoggerDelegate>(),     empty<ZContextDelegate>(),
                       empty<ZDbusDelegate>(),      empty<ZJobPoolSetDelegate>(), empty<ZLoaderDelegate>(),
                       empty<ZSchedulerDelegate>(), empty<ZTempFileDelegate>(),   empty<ZThreadPoolSetDelegate>()};
        for (const QSharedPointer<ZDelegate> &delegate : qAsConst(m_delegates))
            emitter->bind0(delegate);
    }
    const QJsonObject loaderSection{{QStringLiteral("deployed"), deployed}, {QStringLiteral("hot-deploy"), hotDeploy}};
    const QJsonObject loggerSection{{QStringLiteral("debug"), 0},
                                    {QStringLiteral("log"), QJsonObject{{QStringLiteral("zdefault"), 15}}}};
    const QJsonObject sections{{QStringLiteral("loader"), loaderSection}, {QStringLiteral("logger"), loggerSection}};
    emitter->install(emitter);
    emitter->zemit0(ZDefaultConfig::TypeName, Q_ARG(QJsonObject, sections));
    for (const char *const service : {ZDefaultLogger::TypeName, ZDefaultLoader::TypeName, ZDefaultTempFile::TypeName,
                                      ZDefaultJobPoolSet::TypeName, ZDefaultThreadPoolSet::TypeName,
                                      ZDefaultDbus::TypeName, ZDefaultContext::TypeName, ZDefaultScheduler::TypeName})
        emitter->zemit0(service);
    emitter->inject0(this);
    dbus->bind0(QUrl(QStringLiteral("//visitor")), m_visitor);
}

System::~System() { letGo(); }

void System::use()
{
    loader->load0(QStringLiteral("farewell"));
    const QUrl url(QStringLiteral("//visitor"));
    keep(QSharedPointer<ZDbusActivity>::create(QSharedPointer<HourlySchedule>::create(&m_running), dbus, url, true));
    keep(QSharedPointer<ZDbusActivity>::create(QSharedPointer<ZPeriodicSchedule>::create(1), dbus, url, true));
    for (int i = 0; i < 4; ++i) // two of which can run
        start([this] {
            m_running.release();
            m_door.acquire();
        });
    m_running.acquire(3); // a thread asks Qt for the codec of its own name as well
    visited.acquire(3);
}

void System::rest()
{
    for (const QSharedPointer<ZScheduledActivity> &activity : qAsConst(m_activities))
        activity->cancel();
    m_door.release(m_jobs.size());
}

void System::letGo()
{
    if (!emitter)
        return;
    logger->warning0(QStringLiteral("the system ends"));
    emitter->install({});
    emitter.clear();
}

bool System::isSilent()
{
    QVariant value = 1;
    return config->toJson0().isEmpty() && !context->save0(value) && !dbus->invoke0(QUrl(), nullptr, nullptr) &&
           !jobPools->find0(QString(), 1, 1) && !loader->load0(QStringLiteral("farewell")) && !logger->warning0() &&
           !scheduler->schedule0(m_activities.first()) && !tempFiles->newFile0() && !threadPools->find0(QString());
}

void System::schedule(std::function<void()> deed) { keep(QSharedPointer<Deed>::create(std::move(deed))); }

void System::start(std::function<void()> deed) { start(QStringLiteral("jobs"), std::move(deed)); }

void System::startBeside(std::function<void()> deed) { start(QStringLiteral("others"), std::move(deed)); }

QSharedPointer<ZThreadPool> System::activities() { return threadPools->find0(QStringLiteral("Pool-ZSchedulerThread")); }

void System::keep(QSharedPointer<ZScheduledActivity> activity)
{
    m_activities.append(activity);
    scheduler->schedule0(activity);
}

void System::start(const QString &pool, std::function<void()> deed)
{
    m_jobs.append(QSharedPointer<Job>::create(std::move(deed)));
    jobPools->find0(pool, 2, -1)->start(m_jobs.last(), false, 0);
}
