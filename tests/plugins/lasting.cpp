// SPDX-License-Identifier: Apache-2.0
#include <zdefaultfilesystem.h>
#include <zemitter.h>
#include <zlogger.h>
#include <zobject.h>
#include <zscheduledactivity.h>
#include <zscheduler.h>
#include <zthreadpool.h>
#include <zthreadpoolset.h>

#include <QCoreApplication>
#include <QSemaphore>
#include <QTemporaryFile>
#include <QThread>
#include <QTimer>

namespace {

using Share = QSharedPointer<QObject>;

/// Told after the application's event loop has ended: until then, something runs.
using End = QSharedPointer<QSemaphore>;

/// What may hold the plugin, in which its own code lies.

class Activity : public ZScheduledActivity
{
public:
    Activity(Share plugin, End end)
        : ZScheduledActivity(QSharedPointer<ZPeriodicSchedule>::create(1)), m_plugin(std::move(plugin)),
          m_end(std::move(end))
    {}
    bool run() override
    {
        m_end->acquire();
        return false;
    }

private:
    const Share m_plugin;
    const End m_end;
};

class Thread : public QThread
{
public:
    Thread(Share plugin, End end) : m_plugin(std::move(plugin)), m_end(std::move(end)) {}

protected:
    void run() override { m_end->acquire(); }

private:
    const Share m_plugin;
    const End m_end;
};

/// Is deleted later, and so are those that come after it.
class Remnant : public QObject
{
public:
    Remnant(ZLogger *logger, int more) : m_logger(logger), m_more(more) {}
    ~Remnant() override
    {
        m_logger->info0(QString("lasting: %1 more").arg(m_more));
        if (m_more > 0)
            (new Remnant(m_logger, m_more - 1))->deleteLater();
    }

private:
    ZLogger *const m_logger;
    const int m_more;
};

} // namespace

/// Is held by what the environment's LASTING names, up to the end. With "remnants" in it there is a timer that runs,
/// and the destructor leaves objects behind that are deleted later.
class Lasting : public ZObject, public ZTempFile
{
    Q_OBJECT
    Q_INTERFACES(ZTempFile)
    Q_PLUGIN_METADATA(IID ZObject_iid)
    Q_PROPERTY(ZLogger *zLogger MEMBER m_logger)
    Q_PROPERTY(ZScheduler *zScheduler MEMBER m_scheduler)
    Q_PROPERTY(ZThreadPoolSet *zThreadPoolSet MEMBER m_threadPools)
    Q_PROPERTY(ZEmitter *zEmitter READ getSetZEmitter WRITE getSetZEmitter)

public:
    ~Lasting() override
    {
        if (!m_logger)
            return;
        m_logger->info0(QString("lasting: gone"));
        if (m_kind.contains("remnants"))
            (new Remnant(m_logger, 3))->deleteLater();
    }

    ZEmitter *getSetZEmitter(ZEmitter *emitter = nullptr)
    {
        if (!emitter)
            return emitter;
        const Share plugin = shared();
        const auto end = End::create();
        connect(
            qApp, &QCoreApplication::aboutToQuit, this, [end] { end->release(); }, Qt::QueuedConnection);
        if (m_kind.contains("activity"))
            m_scheduler->schedule0(QSharedPointer<Activity>::create(plugin, end));
        if (m_kind.contains("thread"))
            m_threadPools->find0(QString("lasting"))->poolAndStart(new Thread(plugin, end), QThread::NormalPriority);
        if (m_kind.contains("service"))
            emitter->bind0(QSharedPointer<ZTempFileDelegate>::create(plugin));
        if (m_kind.contains("remnants")) {
            connect(&m_timer, &QTimer::timeout, this, [this] { ++m_ticks; });
            m_timer.start(1);
        }
        return emitter;
    }

    QSharedPointer<QTemporaryFile> newFile0() override { return {}; }

private:
    const QByteArray m_kind = qgetenv("LASTING");
    ZLogger *m_logger = nullptr;
    ZScheduler *m_scheduler = nullptr;
    ZThreadPoolSet *m_threadPools = nullptr;
    QTimer m_timer;
    int m_ticks = 0;
};

#include "lasting.moc"
