// SPDX-License-Identifier: Apache-2.0
#include "journal.h"
#include "testcase.h"

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QJsonArray>
#include <QJsonObject>
#include <QPointer>
#include <QProcess>
#include <QSemaphore>
#include <QThread>

#include <zdefaultconfig.h>
#include <zdefaultdbus.h>
#include <zdefaultemitter.h>
#include <zdefaultpoolset.h>
#include <zdefaultscheduler.h>

#include <pthread.h>
#include <sys/resource.h>
#include <unistd.h>

#include <atomic>
#include <future>
#include <vector>

namespace {

constexpr int LongTime = 30000;
constexpr int TenMinutes = 10 * 60 * 1000;

const char FewDescriptors[] = "--few-descriptors";
const char NoApplication[] = "--no-application";

QString poolName() { return QStringLiteral("Pool-ZSchedulerThread"); }

/// Does what a test wants each time its schedule says so, and counts who cancels it.
class Activity : public ZScheduledActivity
{
public:
    using Work = std::function<bool()>;

    explicit Activity(
        int period, Work work = [] { return true; })
        : ZScheduledActivity(QSharedPointer<ZPeriodicSchedule>::create(period)), m_work(std::move(work))
    {}

    QString name() const override { return m_name.isNull() ? ZScheduledActivity::name() : m_name; }
    bool wait() override
    {
        ++m_waits;
        return ZScheduledActivity::wait();
    }
    void cancel() override
    {
        ++m_cancels;
        ZScheduledActivity::cancel();
    }
    bool run() override { return m_work(); }

    QString m_name;
    std::atomic_int m_waits{0};
    std::atomic_int m_cancels{0};

private:
    const Work m_work;
};

template <class... Args>
QSharedPointer<Activity> activity(Args &&...args)
{
    return QSharedPointer<Activity>::create(std::forward<Args>(args)...);
}

/// Ends at once, and counts in `astray` the threads that are not deleted where the application's event loop runs.
class Brief : public ZScheduledActivity
{
public:
    Brief(std::atomic_int *astray, QSharedPointer<int> token)
        : ZScheduledActivity({}), m_astray(astray), m_token(std::move(token))
    {}

    bool wait() override
    {
        if (QThread::currentThread()->thread() != QCoreApplication::instance()->thread())
            ++*m_astray;
        return false;
    }
    bool run() override { return false; }

private:
    std::atomic_int *const m_astray;
    const QSharedPointer<int> m_token;
};

/// A set that has what a test gives it, and writes down what it is asked for.
class Pools : public ZThreadPoolSet
{
public:
    explicit Pools(QSharedPointer<ZThreadPool> pool = {}) : m_pool(std::move(pool)) {}

    QSharedPointer<ZThreadPool> find0(const QString &name) override
    {
        m_asked << name;
        return m_pool;
    }

    QSharedPointer<ZThreadPool> m_pool;
    QStringList m_asked;
};

/// Cancels an activity in the end, since a registry waits for its threads.
class Stopper
{
public:
    explicit Stopper(QWeakPointer<ZScheduledActivity> activity) : m_activity(std::move(activity)) {}
    ~Stopper()
    {
        if (const auto activity = m_activity.toStrongRef())
            activity->cancel();
    }

private:
    Q_DISABLE_COPY(Stopper)
    const QWeakPointer<ZScheduledActivity> m_activity;
};

QUrl url(const char *text) { return QUrl(QString::fromUtf8(text)); }

bool call(ZDbus *bus, const char *text, QJsonObject *out = nullptr) { return bus->invoke0(url(text), nullptr, out); }

QString addressOf(const void *object) { return QString::number(reinterpret_cast<quintptr>(object), 16); }

/// Who described itself in `out`.
QString describedAddress(const QJsonObject &out)
{
    return out[QLatin1String("ZScheduler")].toObject()[QLatin1String("ZDefaultScheduler")].toString();
}

} // namespace

/// Uses the services as any component does.
class Services : public QObject
{
    Q_OBJECT
    Q_PROPERTY(ZThreadPoolSet *pools MEMBER pools)
    Q_PROPERTY(ZDbus *dbus MEMBER dbus)
    Q_PROPERTY(ZScheduler *scheduler MEMBER scheduler)

public:
    ZThreadPoolSet *pools = nullptr;
    ZDbus *dbus = nullptr;
    ZScheduler *scheduler = nullptr;
};

/// A logger that writes down which categories it is asked for.
class Registrar : public Journal
{
    Q_OBJECT

public:
    using Journal::log0;
    int log0(const QString &name) override
    {
        m_asked << name;
        return 0;
    }

    QStringList m_asked;
};

/// An emitter and a bus that write down, in one list, what is bound.
class DiaryEmitter : public ZDefaultEmitter
{
    Q_OBJECT

public:
    explicit DiaryEmitter(QStringList *diary) : m_diary(diary) {}

    QSharedPointer<ZReference> bind0(QSharedPointer<ZDelegate> delegate) override
    {
        m_diary->append(QString::fromLatin1(static_cast<QVariant>(*delegate).typeName()));
        return ZDefaultEmitter::bind0(delegate);
    }

private:
    QStringList *const m_diary;
};

class DiaryDbus : public ZDefaultDbus
{
    Q_OBJECT

public:
    explicit DiaryDbus(QStringList *diary) : m_diary(diary) {}

    bool bind0(const QUrl &url, QWeakPointer<ZDbusSubscriber> subscriber) override
    {
        m_diary->append(url.toString());
        return ZDefaultDbus::bind0(url, subscriber);
    }

private:
    QStringList *const m_diary;
};

namespace {

/// The scheduler and what it needs, wired as in an application.
class Application
{
public:
    Application()
    {
        m_wiring->zemit0(ZDefaultThreadPoolSet::TypeName);
        m_wiring->zemit0(ZDefaultDbus::TypeName);
        scheduler = qobject_cast<ZDefaultScheduler *>(m_wiring->zemit0(ZDefaultScheduler::TypeName));
        m_wiring->inject0(&services);
    }
    ~Application()
    {
        for (const auto &started : qAsConst(m_started))
            Stopper{started};
    }

    const Wiring &wiring() const { return m_wiring; }
    QSharedPointer<ZThreadPool> pool() const { return services.pools->find0(poolName()); }
    bool schedule(const QSharedPointer<ZScheduledActivity> &activity)
    {
        m_started.append(activity);
        return services.scheduler->schedule0(activity);
    }

    QPointer<ZDefaultScheduler> scheduler;
    Services services;

private:
    Q_DISABLE_COPY(Application)
    Wiring m_wiring;
    QList<QWeakPointer<ZScheduledActivity>> m_started;
};

} // namespace

class tst_Scheduler : public TestCase
{
    Q_OBJECT

private Q_SLOTS:
    void answersForItsBusSideToo();
    void hasNoSignalsAndNoSlots();
    void keepsItsFirstServices();
    void takesEachLogger();
    void announcesItselfOnceAndOnTheBusFirst();
    void isNotOnABusThatComesAfterTheEmitter();
    void livesAsLongAsItIsHeld();

    void schedulesNothingWithoutAPoolSet();
    void schedulesNothingWithoutAPool();
    void schedulesNoNothing();
    void schedulesIntoOnePool();
    void eachActivityHasAThreadOfItsOwn();
    void theThreadIsAsItShouldBe();
    void anActivityThatEndsAtOnceHasRun();
    void anActivityThatHasEndedAlreadyIsFalse();
    void anActivityIsKeptUntilItsThreadIsDeleted();
    void aThreadThatCannotStartIsRefused();
    void aCallIsMadeOnItsTimetable();
    void activitiesGoOnWithoutTheScheduler();
    void threadsMayScheduleAtOnce();
    void threadsMayScheduleWhatEndsAtOnce();
    void threadsDoNotPileUpWhereNoEventLoopRuns();
    void schedulesBeforeThereIsAnApplication();
    void refusesWhenDescriptorsRunOut();

    void describesItself_data();
    void describesItself();
    void describesItsThreads();
    void describesItselfAlone();
    void describesNothingToNobody();
    void ignoresWhatItDoesNotKnow_data();
    void ignoresWhatItDoesNotKnow();
    void readsNoRequest();

    void shutdownWithdrawsItFromEveryone();
    void shutdownEndsItUnlessItIsHeld_data();
    void shutdownEndsItUnlessItIsHeld();
    void shutdownLeavesActivitiesAlone();
    void shutdownWaitsForTheEndOfActivities();
    void shutdownWithoutAPoolIsFalse();
    void shutdownMayBeScheduled();
    void anotherSchedulerMayFollow();

    void writesNoLines();
};

void tst_Scheduler::answersForItsBusSideToo()
{
    ZDefaultScheduler scheduler;
    QCOMPARE(scheduler.qt_metacast("ZDbusSubscriber"), static_cast<ZDbusSubscriber *>(&scheduler));
    QCOMPARE(scheduler.qt_metacast("ZScheduler"), static_cast<ZScheduler *>(&scheduler));
    QCOMPARE(scheduler.qt_metacast("zdefault::ZScheduler"), static_cast<ZScheduler *>(&scheduler));
    QCOMPARE(scheduler.qt_metacast("ZDefaultScheduler"), &scheduler);
    QCOMPARE(scheduler.qt_metacast("zdefault::ZDbusSubscriber"), nullptr);
    QCOMPARE(scheduler.qt_metacast(nullptr), nullptr);
}

void tst_Scheduler::hasNoSignalsAndNoSlots()
{
    QCOMPARE(ZDefaultScheduler::staticMetaObject.methodCount(), QObject::staticMetaObject.methodCount());
}

void tst_Scheduler::keepsItsFirstServices()
{
    ZDefaultScheduler scheduler; // on the stack: nobody may take it over
    ZDefaultConfig config{QJsonObject()};
    ZDefaultConfig otherConfig{QJsonObject()};
    Pools pools;
    Pools otherPools;
    ZDefaultDbus bus;
    ZDefaultDbus otherBus;

    QCOMPARE(scheduler.getSetZConfig(), nullptr);
    QCOMPARE(scheduler.getSetZPoolSet(), nullptr);
    QCOMPARE(scheduler.getSetZDbus(), nullptr);
    QCOMPARE(scheduler.getSetZEmitter(), nullptr);
    QCOMPARE(scheduler.getSetZConfig(&config), &config);
    QCOMPARE(scheduler.getSetZPoolSet(&pools), &pools);
    QCOMPARE(scheduler.getSetZDbus(&bus), &bus);
    QCOMPARE(scheduler.getSetZConfig(&otherConfig), &config);
    QCOMPARE(scheduler.getSetZPoolSet(&otherPools), &pools);
    QCOMPARE(scheduler.getSetZDbus(&otherBus), &bus);
    QCOMPARE(scheduler.getSetZConfig(), &config);
    QCOMPARE(scheduler.property("zConfig"), QVariant::fromValue<ZConfig *>(&config));
    QCOMPARE(scheduler.property("zPoolSet"), QVariant::fromValue<ZThreadPoolSet *>(&pools));
    QCOMPARE(scheduler.property("zDbus"), QVariant::fromValue<ZDbus *>(&bus));

    scheduler.schedule0(activity(0));
    QCOMPARE(pools.m_asked.size(), 1);
    QVERIFY(otherPools.m_asked.isEmpty());
}

void tst_Scheduler::takesEachLogger()
{
    ZDefaultScheduler scheduler;
    Registrar first;
    Registrar second;
    QCOMPARE(scheduler.getSetZLogger(), nullptr);
    QCOMPARE(scheduler.getSetZLogger(&first), &first);
    QCOMPARE(scheduler.getSetZLogger(&second), &second);
    QCOMPARE(scheduler.getSetZLogger(&second), &second);
    QCOMPARE(scheduler.getSetZLogger(), nullptr);
    QCOMPARE(first.m_asked, QStringList{"zscheduler"});
    QCOMPARE(second.m_asked, QStringList({"zscheduler", "zscheduler"}));
    QCOMPARE(scheduler.property("zLogger"), QVariant::fromValue<ZLogger *>(nullptr));
}

void tst_Scheduler::announcesItselfOnceAndOnTheBusFirst()
{
    QStringList diary;
    DiaryDbus bus(&diary);
    DiaryEmitter first(&diary);
    DiaryEmitter second(&diary);
    const QPointer<ZDefaultScheduler> scheduler = new ZDefaultScheduler;
    scheduler->getSetZDbus(&bus);
    QVERIFY(diary.isEmpty());
    QCOMPARE(scheduler->getSetZEmitter(&first), &first);
    QCOMPARE(diary, QStringList({"//zscheduler", "ZScheduler*"}));
    QCOMPARE(scheduler->getSetZEmitter(&first), &first);
    QCOMPARE(scheduler->getSetZEmitter(&second), &second);
    QCOMPARE(scheduler->getSetZEmitter(), nullptr);
    QCOMPARE(scheduler->property("zEmitter"), QVariant::fromValue<ZEmitter *>(nullptr));
    QCOMPARE(diary.size(), 2);
    QVERIFY(scheduler);

    QJsonObject out;
    QVERIFY(call(&bus, "//ZScheduler/printd", &out));
    QCOMPARE(describedAddress(out), addressOf(scheduler));
    Services services;
    first.inject0(&services);
    QVERIFY(dynamic_cast<ZSchedulerDelegate *>(services.scheduler));
    services.scheduler = nullptr;
    second.inject0(&services);
    QVERIFY(!services.scheduler);
}

void tst_Scheduler::isNotOnABusThatComesAfterTheEmitter()
{
    QStringList diary;
    DiaryDbus bus(&diary);
    DiaryEmitter emitter(&diary);
    const QPointer<ZDefaultScheduler> scheduler = new ZDefaultScheduler;
    scheduler->getSetZEmitter(&emitter);
    QCOMPARE(scheduler->getSetZDbus(&bus), &bus);
    QCOMPARE(scheduler->getSetZEmitter(&emitter), &emitter);
    QCOMPARE(diary, QStringList{"ZScheduler*"});
    QJsonObject out;
    QVERIFY(!call(&bus, "//zscheduler/printd", &out));
    QVERIFY(scheduler);
}

void tst_Scheduler::livesAsLongAsItIsHeld()
{
    ZDefaultDbus bus;
    QPointer<ZDefaultScheduler> scheduler = new ZDefaultScheduler;
    {
        ZDefaultEmitter emitter;
        scheduler->getSetZDbus(&bus);
        scheduler->getSetZEmitter(&emitter);
        QVERIFY(scheduler);
    }
    QVERIFY(!scheduler); // the bus does not hold it
    QVERIFY(bus.find0(url("//zscheduler")));
    QJsonObject out;
    QVERIFY(!call(&bus, "//zscheduler/printd", &out));
}

void tst_Scheduler::schedulesNothingWithoutAPoolSet()
{
    ZDefaultScheduler scheduler;
    auto shared = activity(0);
    const QWeakPointer<Activity> weak = shared;
    QVERIFY(!scheduler.schedule0(shared));
    QCOMPARE(shared->m_waits.load(), 0);
    shared.clear();
    QVERIFY(!weak);
}

void tst_Scheduler::schedulesNothingWithoutAPool()
{
    Pools pools;
    ZDefaultScheduler scheduler;
    scheduler.getSetZPoolSet(&pools);
    auto shared = activity(0);
    const QWeakPointer<Activity> weak = shared;
    QVERIFY(!scheduler.schedule0(shared));
    QCOMPARE(shared->m_waits.load(), 0);
    QCOMPARE(pools.m_asked, QStringList{poolName()});
    shared.clear();
    QVERIFY(!weak);
}

void tst_Scheduler::schedulesNoNothing()
{
    Application application;
    QVERIFY(!application.services.scheduler->schedule0({}));
    QCOMPARE(application.pool()->printd(), QJsonArray());
}

void tst_Scheduler::schedulesIntoOnePool()
{
    Application application;
    for (const char *name : {"first", "second"}) {
        const auto shared = activity(TenMinutes);
        shared->m_name = QString::fromLatin1(name);
        QVERIFY(application.schedule(shared));
    }
    const QJsonArray threads = application.pool()->printd();
    QStringList names;
    for (const QJsonValue &thread : threads)
        names << thread[QLatin1String("Name")].toString();
    names.sort();
    QCOMPARE(names, QStringList({"ZSchedulerThread-first", "ZSchedulerThread-second"}));
}

void tst_Scheduler::eachActivityHasAThreadOfItsOwn()
{
    QSemaphore running;
    QSemaphore leave;
    std::atomic<QThread *> threads[2] = {};
    Application application;
    for (auto &thread : threads) {
        QVERIFY(application.schedule(activity(1, [&] {
            thread = QThread::currentThread();
            running.release();
            leave.tryAcquire(1, LongTime);
            return false;
        })));
    }
    const bool together = running.tryAcquire(2, LongTime);
    leave.release(2);
    QVERIFY(together);
    QVERIFY(threads[0] != threads[1]);
    QVERIFY(threads[0] != thread());
    QVERIFY(threads[1] != thread());
}

void tst_Scheduler::theThreadIsAsItShouldBe()
{
    QSemaphore done;
    QByteArray className;
    QString name;
    QObject *parent = this;
    QThread::Priority priority = QThread::IdlePriority;
    Application application;
    QVERIFY(application.schedule(activity(1, [&] {
        const QThread *current = QThread::currentThread();
        className = current->metaObject()->className();
        name = current->objectName();
        parent = current->parent();
        priority = current->priority();
        done.release();
        return false;
    })));
    QVERIFY(done.tryAcquire(1, LongTime));
    QCOMPARE(className, QByteArray("ZSchedulerThread"));
    QCOMPARE(name, QStringLiteral("ZSchedulerThread-ZPeriodicSchedule(1)"));
    QCOMPARE(parent, nullptr);
    QCOMPARE(priority, QThread::NormalPriority);
}

void tst_Scheduler::anActivityThatEndsAtOnceHasRun()
{
    Application application;
    const auto shared = activity(0);
    application.schedule(shared); // true or false: it may have ended already
    QVERIFY(application.pool()->waitAll(LongTime));
    QCOMPARE(shared->m_waits.load(), 1);
}

void tst_Scheduler::anActivityThatHasEndedAlreadyIsFalse()
{
    Application application;
    bool running = true;
    QElapsedTimer timer;
    for (timer.start(); running && !timer.hasExpired(LongTime);) // until one of them is quick enough
        running = application.schedule(activity(0));
    QVERIFY(!running);
}

void tst_Scheduler::anActivityIsKeptUntilItsThreadIsDeleted()
{
    Application application;
    auto shared = activity(TenMinutes);
    const QWeakPointer<Activity> weak = shared;
    QVERIFY(application.schedule(shared));
    Activity *const raw = shared.data();
    shared.clear();
    QVERIFY(weak); // by its thread, and by nobody else
    raw->cancel();
    QVERIFY(application.pool()->waitAll(LongTime));
    QVERIFY(weak); // its thread is deleted later
    QTRY_VERIFY_WITH_TIMEOUT(!weak, LongTime);
}

void tst_Scheduler::aThreadThatCannotStartIsRefused()
{
    Application application;
    auto shared = activity(1);
    const QWeakPointer<Activity> weak = shared;

    pthread_attr_t attributes;
    QCOMPARE(pthread_getattr_default_np(&attributes), 0);
    std::size_t before = 0;
    QCOMPARE(pthread_attr_getstacksize(&attributes, &before), 0);
    QCOMPARE(pthread_attr_setstacksize(&attributes, std::size_t(1) << 50), 0); // more than there are addresses
    QCOMPARE(pthread_setattr_default_np(&attributes), 0);
    const bool scheduled = application.schedule(shared);
    pthread_attr_setstacksize(&attributes, before);
    QCOMPARE(pthread_setattr_default_np(&attributes), 0);
    pthread_attr_destroy(&attributes);

    QCOMPARE(messages().take(QtCriticalMsg).size(), 1); // by Qt
    QVERIFY(!scheduled);
    QCOMPARE(shared->m_waits.load(), 0);
    QCOMPARE(application.pool()->printd(), QJsonArray());
    shared.clear();
    QVERIFY(!weak); // the thread is deleted at once
    QVERIFY(application.schedule(activity(TenMinutes)));
}

void tst_Scheduler::aCallIsMadeOnItsTimetable()
{
    class Endpoint : public ZDbusSubscriber
    {
    public:
        bool invoked(const QUrl &, QJsonObject *, QJsonObject *) override
        {
            m_thread = QThread::currentThread();
            m_called.release();
            return true;
        }
        QSemaphore m_called;
        std::atomic<QThread *> m_thread{nullptr};
    };
    const auto endpoint = QSharedPointer<Endpoint>::create();
    Application application;
    application.services.dbus->bind0(url("//w"), endpoint);
    const auto schedule = QSharedPointer<ZPeriodicSchedule>::create(1);
    application.schedule(
        QSharedPointer<ZDbusActivity>::create(schedule, application.services.dbus, url("//w/x"), true));
    QVERIFY(endpoint->m_called.tryAcquire(3, LongTime));
    QVERIFY(endpoint->m_thread != thread());
}

void tst_Scheduler::activitiesGoOnWithoutTheScheduler()
{
    QSemaphore ran;
    const auto shared = activity(1, [&] {
        ran.release();
        return true;
    });
    ZDefaultThreadPoolSet pools;
    const Stopper stopper{shared};
    {
        ZDefaultScheduler scheduler;
        scheduler.getSetZPoolSet(&pools);
        scheduler.schedule0(shared);
    }
    QVERIFY(ran.tryAcquire(ran.available() + 3, LongTime));
    QCOMPARE(shared->m_cancels.load(), 0);
}

void tst_Scheduler::threadsMayScheduleAtOnce()
{
    constexpr int Threads = 4;
    constexpr int Activities = 50;
    std::atomic_int runs{0};
    auto token = QSharedPointer<int>::create();
    const QWeakPointer<int> held = token;
    Application application;
    {
        std::vector<std::future<void>> threads;
        for (int t = 0; t < Threads; ++t) {
            threads.push_back(std::async(std::launch::async, [&application, &runs, token] {
                for (int i = 0; i < Activities; ++i)
                    application.services.scheduler->schedule0(activity(1, [&runs, token] {
                        ++runs;
                        return false;
                    }));
            }));
        }
    }
    token.clear();
    QVERIFY(application.pool()->waitAll(LongTime));
    QCOMPARE(runs.load(), Threads * Activities);
    QTRY_VERIFY_WITH_TIMEOUT(!held, LongTime); // each of them is deleted
}

void tst_Scheduler::threadsMayScheduleWhatEndsAtOnce()
{
    constexpr int Threads = 2;
    constexpr int Activities = 1000;
    std::atomic_int astray{0};
    auto token = QSharedPointer<int>::create();
    const QWeakPointer<int> held = token;
    Application application;
    std::vector<std::future<void>> threads;
    for (int t = 0; t < Threads; ++t) {
        threads.push_back(std::async(std::launch::async, [&application, &astray, token] {
            for (int i = 0; i < Activities; ++i) {
                application.services.scheduler->schedule0(QSharedPointer<Brief>::create(&astray, token));
                application.pool()->waitAll(LongTime); // not too many at once
            }
        }));
    }
    for (const auto &thread : threads) // while the event loop deletes what has ended
        QTRY_VERIFY_WITH_TIMEOUT(thread.wait_for(std::chrono::seconds(0)) == std::future_status::ready, 4 * LongTime);
    threads.clear();
    token.clear();
    QTRY_VERIFY_WITH_TIMEOUT(!held, LongTime);
    QCOMPARE(astray.load(), 0);
}

void tst_Scheduler::threadsDoNotPileUpWhereNoEventLoopRuns()
{
    QSemaphore ended;
    QSemaphore leave;
    QWeakPointer<Activity> inner;
    Application application;
    auto outer = activity(1, [&] {
        auto shared = activity(1, [] { return false; });
        inner = shared;
        application.services.scheduler->schedule0(shared);
        shared.clear();
        ended.release();
        leave.tryAcquire(1, LongTime);
        return false;
    });
    QVERIFY(application.schedule(outer));
    QVERIFY(ended.tryAcquire(1, LongTime));
    const bool isGone = QTest::qWaitFor([&] { return inner.isNull(); }, LongTime);
    const int threads = application.pool()->printd().size(); // those that run
    leave.release();
    QVERIFY(isGone);
    QCOMPARE(threads, 1);
}

/// Runs this program with `argument`, and fails if it does not end well.
#define VERIFY_OWN_PROCESS(argument)                                                                                   \
    do {                                                                                                               \
        QProcess child;                                                                                                \
        child.setProcessChannelMode(QProcess::MergedChannels);                                                         \
        child.start(QCoreApplication::applicationFilePath(), {QString::fromLatin1(argument)});                         \
        QVERIFY(child.waitForFinished(2 * LongTime));                                                                  \
        const QByteArray output = child.readAll();                                                                     \
        QVERIFY2(child.exitStatus() == QProcess::NormalExit && child.exitCode() == 0, output.constData());             \
    } while (false)

void tst_Scheduler::refusesWhenDescriptorsRunOut() { VERIFY_OWN_PROCESS(FewDescriptors); }

void tst_Scheduler::schedulesBeforeThereIsAnApplication() { VERIFY_OWN_PROCESS(NoApplication); }

void tst_Scheduler::describesItself_data()
{
    QTest::addColumn<QUrl>("address");
    QTest::newRow("plain") << url("//zscheduler/printd");
    QTest::newRow("host in capitals") << url("//ZScheduler/printd");
    QTest::newRow("everything") << url("scheme://user@zscheduler:7/printd?q=1#f");
    QTest::newRow("encoded") << url("//zscheduler/%70rintd");
    QTest::newRow("to everybody") << url("/printd");
}

void tst_Scheduler::describesItself()
{
    QFETCH(QUrl, address);
    const Application application;
    QJsonObject out{{"ZScheduler", "before"}, {"other", 1}};
    QVERIFY(application.services.dbus->invoke0(address, nullptr, &out));
    const QJsonObject description{{"ZDefaultScheduler", addressOf(application.scheduler)}, {poolName(), QJsonArray()}};
    QCOMPARE(out, QJsonObject({{"ZScheduler", description}, {"other", 1}}));
}

void tst_Scheduler::describesItsThreads()
{
    Application application;
    QVERIFY(application.schedule(activity(TenMinutes)));
    QThread *scheduled = nullptr;
    application.pool()->listAll([](QThread *thread, void *context) { *static_cast<QThread **>(context) = thread; },
                                &scheduled);
    QJsonObject out;
    QVERIFY(call(application.services.dbus, "//zscheduler/printd", &out));
    const QJsonObject described{{"Thread", addressOf(scheduled)},
                                {"Name", "ZSchedulerThread-ZPeriodicSchedule(600000)"}};
    const QJsonObject description{{"ZDefaultScheduler", addressOf(application.scheduler)},
                                  {poolName(), QJsonArray{described}}};
    QCOMPARE(out, QJsonObject({{"ZScheduler", description}}));
}

void tst_Scheduler::describesItselfAlone()
{
    ZDefaultScheduler scheduler;
    const QJsonObject alone{{"ZScheduler", QJsonObject{{"ZDefaultScheduler", addressOf(&scheduler)}}}};
    QJsonObject withoutSet;
    QVERIFY(scheduler.invoked(url("//zscheduler/printd"), nullptr, &withoutSet));
    QCOMPARE(withoutSet, alone);

    Pools pools;
    scheduler.getSetZPoolSet(&pools);
    QJsonObject withoutPool;
    QVERIFY(scheduler.invoked(url("//zscheduler/printd"), nullptr, &withoutPool));
    QCOMPARE(withoutPool, alone);
    QCOMPARE(pools.m_asked, QStringList{poolName()});
}

void tst_Scheduler::describesNothingToNobody()
{
    const Application application;
    QVERIFY(!call(application.services.dbus, "//zscheduler/printd"));
}

void tst_Scheduler::ignoresWhatItDoesNotKnow_data()
{
    QTest::addColumn<QUrl>("address");
    for (const char *address :
         {"//ZScheduler", "//zscheduler/", "//zscheduler/other", "//zscheduler/PRINTD", "//zscheduler/printd/",
          "//zscheduler/printd/x", "//zscheduler/x/printd", "//zscheduler//printd", "//zscheduler/Shutdown",
          "//zscheduler/shutdown/", "//zscheduler/?printd", "//zscheduler#/shutdown", "printd", "shutdown", ""})
        QTest::newRow(address) << url(address);
}

void tst_Scheduler::ignoresWhatItDoesNotKnow()
{
    QFETCH(QUrl, address);
    Application application;
    QJsonObject out{{"ZScheduler", "before"}};
    QVERIFY(!application.services.dbus->invoke0(address, nullptr, &out));
    QCOMPARE(out, QJsonObject({{"ZScheduler", "before"}}));
    QVERIFY(application.schedule(activity(TenMinutes))); // it is still there
}

void tst_Scheduler::readsNoRequest()
{
    const Application application;
    QJsonObject in{{"command", "shutdown"}};
    const QJsonObject before = in;
    QJsonObject out;
    QVERIFY(application.services.dbus->invoke0(url("//zscheduler/printd"), &in, &out));
    QCOMPARE(in, before);
    QVERIFY(application.services.dbus->invoke0(url("//zscheduler/shutdown"), &in, nullptr));
    QCOMPARE(in, before);
}

void tst_Scheduler::shutdownWithdrawsItFromEveryone()
{
    Application application;
    QVERIFY(application.schedule(activity(1, [] { return false; })));
    QVERIFY(application.pool()->waitAll(LongTime));
    QJsonObject out;
    QVERIFY(call(application.services.dbus, "//zscheduler/shutdown", &out));
    QVERIFY(out.isEmpty());

    const auto shared = activity(0);
    QVERIFY(!application.schedule(shared));
    Services later;
    application.wiring()->inject0(&later);
    QCOMPARE(later.scheduler, application.services.scheduler);
    QVERIFY(!later.scheduler->schedule0(shared));
    QCOMPARE(shared->m_waits.load(), 0);
    QCOMPARE(application.pool()->printd(), QJsonArray());
}

void tst_Scheduler::shutdownEndsItUnlessItIsHeld_data()
{
    QTest::addColumn<QUrl>("address");
    QTest::addColumn<bool>("isHeld");
    QTest::newRow("nobody holds it") << url("//zscheduler/shutdown") << false;
    QTest::newRow("nobody holds it, to everybody") << url("/shutdown") << false;
    QTest::newRow("somebody holds it") << url("//zscheduler/shutdown") << true;
}

void tst_Scheduler::shutdownEndsItUnlessItIsHeld()
{
    QFETCH(QUrl, address);
    QFETCH(bool, isHeld);
    Application application;
    QSharedPointer<QObject> holder;
    if (isHeld)
        holder = application.scheduler->shared();
    QVERIFY(application.services.dbus->invoke0(address, nullptr, nullptr));
    QCOMPARE(!application.scheduler.isNull(), isHeld);
    QJsonObject out;
    QCOMPARE(call(application.services.dbus, "//zscheduler/printd", &out), isHeld);
    holder.clear();
    QVERIFY(!application.scheduler);
}

void tst_Scheduler::shutdownLeavesActivitiesAlone()
{
    QSemaphore ran;
    std::atomic_bool interrupted{false};
    const auto shared = activity(1, [&] {
        interrupted = QThread::currentThread()->isInterruptionRequested();
        ran.release();
        return true;
    });
    Application application;
    QVERIFY(application.schedule(shared));
    QElapsedTimer timer;
    timer.start();
    QVERIFY(!call(application.services.dbus, "//zscheduler/shutdown"));
    QVERIFY2(timer.elapsed() >= 99, qPrintable(QString::number(timer.elapsed())));
    QVERIFY(timer.elapsed() < LongTime);
    QVERIFY(!application.scheduler);
    QVERIFY(ran.tryAcquire(ran.available() + 3, LongTime));
    QCOMPARE(application.pool()->printd().size(), 1);
    QCOMPARE(shared->m_cancels.load(), 0);
    QVERIFY(!interrupted);
}

void tst_Scheduler::shutdownWaitsForTheEndOfActivities()
{
    /// Lets an activity go as the scheduler is withdrawn, and so before the wait.
    class Releasing : public DiaryEmitter
    {
    public:
        using DiaryEmitter::DiaryEmitter;
        QSharedPointer<ZReference> bind0(QSharedPointer<ZDelegate> delegate) override
        {
            leave.release();
            return DiaryEmitter::bind0(delegate);
        }
        QSemaphore leave;
    };
    bool ended = false;
    for (int i = 0; i < 10 && !ended; ++i) { // on a busy machine even a short end may take long
        QStringList diary;
        Releasing emitter(&diary);
        QSemaphore running;
        ZDefaultThreadPoolSet pools;
        const auto scheduler = QSharedPointer<ZDefaultScheduler>::create();
        scheduler->getSetZPoolSet(&pools);
        scheduler->getSetZEmitter(&emitter);
        QVERIFY(emitter.leave.tryAcquire(1, LongTime));
        scheduler->schedule0(activity(1, [&] {
            running.release();
            emitter.leave.tryAcquire(1, LongTime);
            return false;
        }));
        QVERIFY(running.tryAcquire(1, LongTime));
        ended = scheduler->invoked(url("//zscheduler/shutdown"), nullptr, nullptr);
        QCOMPARE(diary, QStringList({"ZScheduler*", "ZScheduler*"}));
    }
    QVERIFY(ended);
}

void tst_Scheduler::shutdownWithoutAPoolIsFalse()
{
    const QUrl shutdown = url("//zscheduler/shutdown");
    ZDefaultScheduler scheduler;
    QVERIFY(!scheduler.invoked(shutdown, nullptr, nullptr));
    Pools pools;
    scheduler.getSetZPoolSet(&pools);
    QVERIFY(!scheduler.invoked(shutdown, nullptr, nullptr));
    QCOMPARE(pools.m_asked, QStringList{poolName()});
    pools.m_pool = QSharedPointer<ZThreadPool>::create();
    QVERIFY(scheduler.invoked(shutdown, nullptr, nullptr)); // without an emitter too

    ZDefaultDbus bus; // withdrawn all the same
    ZDefaultEmitter emitter;
    const QPointer<ZDefaultScheduler> announced = new ZDefaultScheduler;
    announced->getSetZDbus(&bus);
    announced->getSetZEmitter(&emitter);
    QVERIFY(!call(&bus, "//zscheduler/shutdown"));
    QVERIFY(!announced);
}

void tst_Scheduler::shutdownMayBeScheduled()
{
    Application application;
    const auto schedule = QSharedPointer<ZPeriodicSchedule>::create(1);
    application.schedule(
        QSharedPointer<ZDbusActivity>::create(schedule, application.services.dbus, url("//zscheduler/shutdown"), true));
    QVERIFY(application.pool()->waitAll(LongTime)); // the call waited for its own thread, and so was not handled
    QVERIFY(!application.scheduler);
    QVERIFY(!application.services.scheduler->schedule0(activity(0)));
}

void tst_Scheduler::anotherSchedulerMayFollow()
{
    Application application;
    QVERIFY(call(application.services.dbus, "//zscheduler/shutdown"));
    const QObject *next = application.wiring()->zemit0(ZDefaultScheduler::TypeName);
    QVERIFY(application.schedule(activity(TenMinutes)));
    QJsonObject out;
    QVERIFY(call(application.services.dbus, "//zscheduler/printd", &out));
    QCOMPARE(describedAddress(out), addressOf(next));
}

void tst_Scheduler::writesNoLines()
{
    Journal journal(0xff, true, QStringLiteral("zscheduler"));
    Pools pools;
    ZDefaultScheduler scheduler;
    scheduler.getSetZLogger(&journal);
    scheduler.getSetZPoolSet(&pools);
    scheduler.schedule0(activity(1));
    pools.m_pool = QSharedPointer<ZThreadPool>::create();
    scheduler.schedule0(activity(0));
    scheduler.schedule0({});
    QJsonObject out;
    for (const char *path : {"/printd", "/shutdown", "/other"}) {
        scheduler.invoked(url(path), nullptr, &out);
        scheduler.invoked(url(path), nullptr, nullptr);
    }
    QVERIFY(journal.isEmpty());
    QVERIFY(messages().takeAll().isEmpty());
}

namespace {

/// A schedule that ends as often as it is cancelled, and never runs.
class Door : public ZSchedule
{
public:
    QString name() const override { return {}; }
    bool wait() override
    {
        m_waiting.release();
        m_open.acquire();
        return false;
    }
    void cancel() override { m_open.release(); }

    QSemaphore m_waiting;

private:
    QSemaphore m_open;
};

QSharedPointer<ZScheduledActivity> behind(const QSharedPointer<ZSchedule> &door)
{
    return QSharedPointer<ZDbusActivity>::create(door, nullptr, QUrl(), false);
}

/// Schedules from several threads until each is refused. How many activities were not.
int scheduleAll(ZScheduler *scheduler, const QSharedPointer<ZSchedule> &door)
{
    std::atomic_int scheduled{0};
    {
        std::vector<std::future<void>> threads;
        for (int t = 0; t < 3; ++t) {
            threads.push_back(std::async(std::launch::async, [&] {
                while (scheduled < 1000 && scheduler->schedule0(behind(door)))
                    ++scheduled;
            }));
        }
    }
    return scheduled;
}

/// A process that has few descriptors schedules until they run out, twice.
int withFewDescriptors()
{
    constexpr int Limit = 100;
    const Application application;
    const rlimit limit{Limit, Limit};
    if (setrlimit(RLIMIT_NOFILE, &limit) != 0)
        qFatal("cannot limit the descriptors");
    for (int round = 0; round < 2; ++round) {
        const auto door = QSharedPointer<Door>::create();
        const int scheduled = scheduleAll(application.services.scheduler, door);
        qInfo("%d activities", scheduled);
        if (scheduled < Limit / 2 || scheduled >= Limit)
            return 1;
        if (!door->m_waiting.tryAcquire(scheduled, LongTime)) // now each thread has the descriptor that it needs
            return 2;
        QVector<int> left; // to others
        for (int descriptor = dup(0); descriptor >= 0; descriptor = dup(0))
            left.append(descriptor);
        qInfo("%d descriptors left", left.size());
        bool refused = !left.isEmpty();
        for (int i = 0; i < Limit; ++i) // refusals do not add up
            refused &= !application.services.scheduler->schedule0(behind(door));
        if (!refused)
            return 3;
        for (const int descriptor : qAsConst(left))
            close(descriptor);
        if (application.pool()->printd().size() != scheduled)
            return 4;
        for (int i = 0; i < scheduled; ++i)
            door->cancel();
        if (!application.pool()->waitAll(LongTime))
            return 5;
        settle();
    }
    return 0;
}

/// A process that schedules before it makes its application.
int withoutAnApplication(int argc, char **argv)
{
    ZDefaultThreadPoolSet pools;
    ZDefaultScheduler scheduler;
    scheduler.getSetZPoolSet(&pools);
    auto door = QSharedPointer<Door>::create();
    const QWeakPointer<Door> watched = door;
    const bool scheduled = scheduler.schedule0(behind(door));
    door->cancel();
    door.clear();
    if (!scheduled || !pools.find0(poolName())->waitAll(LongTime))
        return 1;
    const QCoreApplication application(argc, argv);
    return QTest::qWaitFor([&] { return watched.isNull(); }, LongTime) ? 0 : 2; // with its thread
}

} // namespace

int main(int argc, char **argv)
{
    if (argc == 2 && qstrcmp(argv[1], NoApplication) == 0)
        return withoutAnApplication(argc, argv);
    QCoreApplication application(argc, argv);
    if (argc == 2 && qstrcmp(argv[1], FewDescriptors) == 0)
        return withFewDescriptors();
    tst_Scheduler test;
    return QTest::qExec(&test, argc, argv);
}

#include "tst_scheduler.moc"
