// SPDX-License-Identifier: Apache-2.0
#include "versioned.h"

#include <zdbus.h>
#include <zdbussubscriber.h>
#include <zemitter.h>
#include <zjob.h>
#include <zjobpool.h>
#include <zlibrary.h>
#include <zobject.h>
#include <zscheduledactivity.h>
#include <zscheduler.h>

#include <QCoreApplication>
#include <QFileInfo>
#include <QJsonObject>
#include <QSemaphore>
#include <QUrl>

#include <utility>

#include <dlfcn.h>

namespace {

/// 7 in a file that is called "libversion.7.so", and 0 in "libversion.so": many versions need one build.
int ownVersion()
{
    Dl_info file;
    dladdr(reinterpret_cast<void *>(ownVersion), &file);
    const QString base = QFileInfo(QFile::decodeName(file.dli_fname)).completeBaseName();
    return base.section(QLatin1Char('.'), 1).toInt();
}

/// What is scheduled. Keeps the library, since its code lies there, but not the root, which cancels it.
class Work : public ZScheduledActivity
{
public:
    Work(Census *census, int version, QSharedPointer<ZLibrary> library)
        : ZScheduledActivity(QSharedPointer<ZPeriodicSchedule>::create(1)), m_census(census), m_version(version),
          m_library(std::move(library))
    {
        m_census->isBorn(Census::Activity);
    }
    ~Work() override { m_census->dies(Census::Activity); }

    bool run() override
    {
        m_census->works(Census::Activity, m_version);
        return true;
    }

private:
    Census *const m_census;
    const int m_version;
    const QSharedPointer<ZLibrary> m_library;
};

/// What runs until it is told to end.
class Job : public ZJob
{
public:
    Job(Census *census, int version) : ZJob({}, {}), m_census(census), m_version(version)
    {
        setAutoDelete(false);
        m_census->isBorn(Census::Job);
    }
    ~Job() override { m_census->dies(Census::Job); }

    void run() override
    {
        do {
            m_census->works(Census::Job, m_version);
        } while (!m_end.tryAcquire(1, 1));
    }
    void end() { m_end.release(); }

private:
    Census *const m_census;
    const int m_version;
    QSemaphore m_end;
};

} // namespace

/// Tells its version, as a service and, given a bus, at "//version". Given a scheduler, it has an activity scheduled
/// and a job running as well. It lives as long as it serves.
class Version : public ZObject, public Versioned, public ZDbusSubscriber
{
    Q_OBJECT
    Q_INTERFACES(Versioned)
    Q_PLUGIN_METADATA(IID ZObject_iid)
    Q_PROPERTY(ZDbus *zDbus READ getSetZDbus WRITE getSetZDbus)
    Q_PROPERTY(ZScheduler *zScheduler READ getSetZScheduler WRITE getSetZScheduler)
    Q_PROPERTY(ZEmitter *zEmitter READ getSetZEmitter WRITE getSetZEmitter)

public:
    Version() { m_census->isBorn(Census::Root); }
    ~Version() override
    {
        m_canary = 0;
        if (m_work) {
            m_work->cancel();
            m_job->end();
        }
        m_census->dies(Census::Root);
    }

    int version() override { return m_canary == Alive ? m_version : Dead; }
    int versionSlowly() override
    {
        m_census->lingers();
        return version();
    }

    bool invoked(const QUrl &, QJsonObject *, QJsonObject *out) override
    {
        out->insert(QString("version"), version());
        return true;
    }

    ZDbus *getSetZDbus(ZDbus *dbus = nullptr)
    {
        if (dbus) {
            m_self = shared(); // the bus holds it weakly
            dbus->bind0(QUrl(QStringLiteral("//version")), qSharedPointerDynamicCast<ZDbusSubscriber>(m_self));
        }
        return dbus;
    }

    ZScheduler *getSetZScheduler(ZScheduler *scheduler = nullptr)
    {
        if (scheduler) {
            m_work = QSharedPointer<Work>::create(m_census, m_version, *this);
            scheduler->schedule0(m_work);
            m_job = QSharedPointer<Job>::create(m_census, m_version);
            m_jobs.start(m_job, false, 0);
        }
        return scheduler;
    }

    ZEmitter *getSetZEmitter(ZEmitter *emitter = nullptr)
    {
        if (emitter) {
            const QSharedPointer<QObject> self = m_self ? std::exchange(m_self, {}) : shared();
            emitter->bind0(QSharedPointer<VersionedDelegate>::create(self));
        }
        return emitter;
    }

private:
    static constexpr quint32 Alive = 0xa11fe;

    volatile quint32 m_canary = Alive;
    const int m_version = ownVersion();
    Census *const m_census = Census::of(qApp);
    QSharedPointer<QObject> m_self;
    QSharedPointer<Work> m_work;
    QSharedPointer<Job> m_job;
    ZJobPool m_jobs{1, 0}; // our own, and last: its destructor waits until the job has left our code
};

#include "version.moc"
