// SPDX-License-Identifier: Apache-2.0
#include "testcase.h"

#include <QDeadlineTimer>
#include <QElapsedTimer>
#include <QJsonArray>
#include <QJsonObject>
#include <QMetaMethod>
#include <QPointer>
#include <QSemaphore>
#include <QSet>
#include <QThread>

#include <zthreadpool.h>

#include <dlfcn.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <climits>
#include <cstring>
#include <functional>
#include <future>
#include <memory>
#include <new>
#include <vector>

namespace {

constexpr unsigned long LongTime = 30000;
constexpr unsigned long Forever = ULONG_MAX;
constexpr unsigned long Moment = 50; // for what must not happen: too short never fails a good registry

/// What this thread does each time it has asked whether a thread has finished, before it learns the answer.
thread_local std::function<void()> afterLook;

/// Runs until a test lets it go. It neither heeds a request for interruption nor can it be terminated.
class Runner : public QThread
{
public:
    void letGo() { m_leave.release(); }
    int finishedReceivers() const { return receivers(SIGNAL(finished())); }

    QSemaphore m_begun;
    std::atomic_int m_runs{0};
    std::function<void()> m_atConnect; // when somebody wants to know that it has finished

protected:
    void run() override
    {
        setTerminationEnabled(false);
        ++m_runs;
        m_begun.release();
        m_leave.acquire();
    }
    void connectNotify(const QMetaMethod &signal) override
    {
        if (m_atConnect && signal == QMetaMethod::fromSignal(&QThread::finished))
            m_atConnect();
    }

private:
    QSemaphore m_leave;
};

/// Ends when it is asked to.
class Willing : public QThread
{
protected:
    void run() override
    {
        while (!isInterruptionRequested())
            yieldCurrentThread();
    }
};

/// Ends by force only.
class Sleeper : public QThread
{
public:
    QSemaphore m_begun;

protected:
    void run() override
    {
        m_begun.release();
        for (;;) {
            pthread_testcancel();
            yieldCurrentThread();
        }
    }
};

/// Ends as soon as it runs.
class Brief : public QThread
{
protected:
    void run() override {}
};

/// Holds a thread in the middle of telling that it has finished, among the receivers that there are by then.
class Hold
{
public:
    explicit Hold(QThread *thread)
    {
        QObject::connect(
            thread, &QThread::finished, thread,
            [this] {
                m_entered.release();
                m_leave.acquire();
            },
            Qt::DirectConnection);
    }

    bool isReached() { return m_entered.tryAcquire(1, int(LongTime)); }
    void letGo() { m_leave.release(); }

private:
    Q_DISABLE_COPY(Hold)
    QSemaphore m_entered;
    QSemaphore m_leave;
};

/// A registry that lets go of its runners in the end, or a test that fails would not come to it.
class Pool : public ZThreadPool
{
public:
    ~Pool() override
    {
        listAll(
            [](QThread *thread, void *) {
                if (auto *runner = dynamic_cast<Runner *>(thread))
                    runner->letGo();
            },
            nullptr);
    }
};

template <class Work>
auto elsewhere(Work work)
{
    return std::async(std::launch::async, std::move(work));
}

template <class Result>
bool isDone(const std::future<Result> &future, unsigned long time = LongTime)
{
    return future.wait_for(std::chrono::milliseconds(time)) == std::future_status::ready;
}

QString addressOf(const void *object) { return QString::number(reinterpret_cast<quintptr>(object), 16); }

void append(QThread *thread, void *list) { static_cast<QList<QThread *> *>(list)->append(thread); }

QList<QThread *> threadsOf(ZThreadPool &pool)
{
    QList<QThread *> threads;
    pool.listAll(append, &threads);
    return threads;
}

bool isEmpty(ZThreadPool &pool) { return pool.printd().isEmpty(); }

/// A runner that `pool` has started, and that runs by now.
Runner *running(ZThreadPool &pool)
{
    auto *runner = new Runner;
    if (!pool.poolAndStart(runner, QThread::InheritPriority))
        qFatal("not started");
    runner->m_begun.acquire();
    return runner;
}

/// Lets `runner` finish and waits until it tells so.
void finish(Runner *runner)
{
    runner->letGo();
    while (!runner->isFinished())
        QThread::yieldCurrentThread();
}

/// Stopping one thread.
struct Stop
{
    const char *name;
    bool (ZThreadPool::*stop)(QThread *, unsigned long);
};

const Stop stops[] = {{"interrupt", &ZThreadPool::interruptAndWait}, {"terminate", &ZThreadPool::terminateAndWait}};

/// Waiting for all.
struct Wait
{
    const char *name;
    bool (ZThreadPool::*wait)(unsigned long);
};

const Wait waits[] = {{"wait", &ZThreadPool::waitAll},
                      {"interrupt", &ZThreadPool::interruptAndWaitAll},
                      {"terminate", &ZThreadPool::terminateAndWaitAll}};

/// Destroys a registry, and sees who writes into the place where it was.
class Grave
{
public:
    ZThreadPool *dig() { return new (m_place) ZThreadPool; }
    void bury(ZThreadPool *pool)
    {
        pool->~ZThreadPool();
        std::memset(m_place, Earth, sizeof m_place);
    }
    bool isQuiet() const
    {
        for (const unsigned char byte : m_place) {
            if (byte != Earth)
                return false;
        }
        return true;
    }

private:
    static constexpr unsigned char Earth = 0xa5;
    alignas(ZThreadPool) unsigned char m_place[sizeof(ZThreadPool)];
};

} // namespace

/// Takes the place of Qt's.
bool QThread::isFinished() const
{
    static const auto next =
        reinterpret_cast<bool (*)(const QThread *)>(dlsym(RTLD_NEXT, "_ZNK7QThread10isFinishedEv")); // NOLINT
    const bool answer = next(this);
    if (const auto deed = std::exchange(afterLook, {})) {
        deed();
        afterLook = deed;
    }
    return answer;
}

Q_DECLARE_METATYPE(const Stop *)
Q_DECLARE_METATYPE(const Wait *)

class tst_ThreadPool : public TestCase
{
    Q_OBJECT

private:
    static void eachStop();
    static void eachWait();

private Q_SLOTS:
    void metaObjectHasOneSlotAndNothingElse();
    void answersForItsClass();
    void parentIsTheCallersChoice();

    void noThreadIsRefused();
    void finishedThreadIsRefused();
    void finishingThreadIsRefused();
    void threadThatFinishesMeanwhileIsRefused();
    void lastThreadThatFinishesMeanwhileLeavesTheRegistryEmpty();
    void threadThatCannotStartIsRefused();
    void threadIsStarted_data();
    void threadIsStarted();
    void runningThreadIsNotStartedAgain();
    void registeredFinishingThreadIsRefusedAndStillDeleted();
    void registeredThreadThatFinishesMeanwhileIsRefusedAndStillDeleted();
    void threadHandedInTwiceIsOne();
    void threadHandedInTwiceTellsItsEndOnce();
    void threadMayBeRegisteredInTwoRegistries();
    void threadThatEndsAsItIsHandedInIsEitherKeptOrRefused();
    void threadThatSomebodyElseStartsMeanwhileRunsOnce_data();
    void threadThatSomebodyElseStartsMeanwhileRunsOnce();

    void finishedThreadIsForgottenAndDeletedLater();
    void finishedThreadIsDeletedWhereItLives();
    void finishedSlotConcernsTheCurrentThread();
    void finishedSlotDeletesAThreadThatIsNotRegistered();

    void emptyRegistryIsNotWaitedFor_data() { eachWait(); }
    void emptyRegistryIsNotWaitedFor();
    void waitForAllGivesUpInTime_data() { eachWait(); }
    void waitForAllGivesUpInTime();
    void waitForAllEndsWithTheLastThread_data() { eachWait(); }
    void waitForAllEndsWithTheLastThread();
    void lastThreadWakesEveryone();
    void waitForAllLeavesTheRegistryUsable_data() { eachWait(); }
    void waitForAllLeavesTheRegistryUsable();
    void noWakeUpIsLost();
    void waitAllDisturbsNobody();
    void interruptAndWaitAllAsksEveryThread();
    void interruptAndWaitAllEndsTheWilling();
    void terminateAndWaitAllEndsTheUnwilling();

    void stopOfNoThreadIsFalse_data() { eachStop(); }
    void stopOfNoThreadIsFalse();
    void stopOfAThreadThatDoesNotRunIsTrue_data() { eachStop(); }
    void stopOfAThreadThatDoesNotRunIsTrue();
    void stopOfARegisteredThreadThatHasStoppedIsTrue_data() { eachStop(); }
    void stopOfARegisteredThreadThatHasStoppedIsTrue();
    void stopOfAnUnregisteredThreadDoesNothing();
    void terminationOfAnUnregisteredThreadDoesNothing();
    void stopGivesUpInTime_data() { eachStop(); }
    void stopGivesUpInTime();
    void interruptAndWaitEndsTheWilling();
    void interruptAndWaitAsksNobodyElse();
    void terminateAndWaitEndsTheUnwilling();
    void stopHoldsNoLockAsItWaits_data() { eachStop(); }
    void stopHoldsNoLockAsItWaits();
    void threadIsNotDeletedUnderWhoWaitsForIt_data() { eachStop(); }
    void threadIsNotDeletedUnderWhoWaitsForIt();
    void threadIsNotDeletedUnderWhoWaitsLonger();

    void listAllWithoutACallbackDoesNothing();
    void listAllNamesEachThread();
    void listAllHoldsTheRegistry();
    void printdDescribesAThread_data();
    void printdDescribesAThread();
    void printdIsInTheOrderOfListAll();

    void destructorWaitsForEveryThread();
    void destructorLeavesTheLastThreadItsLock();
    void destructorLeavesAThreadHandedInTwiceItsLock();
    void destructorLeavesARefusedThreadItsLock();
};

void tst_ThreadPool::eachStop()
{
    QTest::addColumn<const Stop *>("stop");
    for (const Stop &stop : stops)
        QTest::newRow(stop.name) << &stop;
}

void tst_ThreadPool::eachWait()
{
    QTest::addColumn<const Wait *>("wait");
    for (const Wait &wait : waits)
        QTest::newRow(wait.name) << &wait;
}

void tst_ThreadPool::metaObjectHasOneSlotAndNothingElse()
{
    const QMetaObject &meta = ZThreadPool::staticMetaObject;
    QCOMPARE(meta.className(), "ZThreadPool");
    QCOMPARE(meta.superClass(), &QObject::staticMetaObject);
    QCOMPARE(meta.methodCount(), meta.methodOffset() + 1);
    const QMetaMethod slot = meta.method(meta.methodOffset());
    QCOMPARE(slot.methodSignature(), QByteArray("finishedSlot()"));
    QCOMPARE(slot.methodType(), QMetaMethod::Slot);
    QCOMPARE(slot.returnType(), int(QMetaType::Void));
    QCOMPARE(meta.propertyCount(), meta.propertyOffset());
}

void tst_ThreadPool::answersForItsClass()
{
    ZThreadPool pool;
    QCOMPARE(pool.qt_metacast("ZThreadPool"), static_cast<void *>(&pool));
    QCOMPARE(pool.qt_metacast("QObject"), static_cast<void *>(static_cast<QObject *>(&pool)));
    QCOMPARE(pool.qt_metacast("ZThreadPoolSet"), nullptr);
    QCOMPARE(pool.qt_metacast(nullptr), nullptr);
}

void tst_ThreadPool::parentIsTheCallersChoice()
{
    QCOMPARE(ZThreadPool(nullptr).parent(), nullptr);
    QObject parent;
    QPointer<ZThreadPool> pool = new ZThreadPool(&parent);
    QCOMPARE(pool->parent(), &parent);
    delete pool;
}

void tst_ThreadPool::noThreadIsRefused()
{
    Pool pool;
    QVERIFY(!pool.poolAndStart(nullptr, QThread::NormalPriority));
    QVERIFY(isEmpty(pool));
}

void tst_ThreadPool::finishedThreadIsRefused()
{
    Pool pool;
    Runner *other = running(pool);
    QPointer<QThread> thread = new Brief;
    thread->start();
    QVERIFY(thread->wait(LongTime));
    QVERIFY(!pool.poolAndStart(thread, QThread::NormalPriority));
    QCOMPARE(threadsOf(pool), QList<QThread *>{other});
    settle();
    QVERIFY(thread); // nor deleted
    QVERIFY(thread->isFinished());
    delete thread;
}

void tst_ThreadPool::finishingThreadIsRefused()
{
    Pool pool;
    QPointer<QThread> thread = new Brief;
    Hold hold(thread);
    thread->start();
    QVERIFY(hold.isReached());
    QVERIFY(!pool.poolAndStart(thread, QThread::NormalPriority));
    QVERIFY(isEmpty(pool));
    hold.letGo();
    QVERIFY(thread->wait(LongTime));
    settle();
    QVERIFY(thread);
    delete thread;
}

void tst_ThreadPool::threadThatFinishesMeanwhileIsRefused()
{
    Pool pool;
    Runner *other = running(pool);
    QPointer<Runner> thread = new Runner;
    thread->m_atConnect = [&] { finish(thread); };
    thread->start();
    QVERIFY(thread->m_begun.tryAcquire(1, int(LongTime)));
    QVERIFY(!pool.poolAndStart(thread, QThread::NormalPriority));
    QCOMPARE(threadsOf(pool), QList<QThread *>{other});
    QVERIFY(thread->wait(LongTime));
    settle();
    QVERIFY(thread);
    QCOMPARE(thread->finishedReceivers(), 0);
    delete thread;
}

void tst_ThreadPool::lastThreadThatFinishesMeanwhileLeavesTheRegistryEmpty()
{
    Pool pool;
    Runner thread;
    thread.m_atConnect = [&] { finish(&thread); };
    thread.start();
    QVERIFY(thread.m_begun.tryAcquire(1, int(LongTime)));
    QVERIFY(!pool.poolAndStart(&thread, QThread::NormalPriority));
    QVERIFY(pool.waitAll(0));
    QVERIFY(thread.wait(LongTime));
}

void tst_ThreadPool::threadThatCannotStartIsRefused()
{
    Pool pool;
    QPointer<Runner> thread = new Runner;
    thread->setStackSize(1); // less than any system gives
    QVERIFY(!pool.poolAndStart(thread, QThread::NormalPriority));
    QCOMPARE(messages().take(QtCriticalMsg).size(), 1); // Qt's
    QVERIFY(isEmpty(pool));
    QVERIFY(pool.waitAll(0));
    settle();
    QVERIFY(thread);
    QCOMPARE(thread->finishedReceivers(), 0);

    thread->setStackSize(0);
    QVERIFY(pool.poolAndStart(thread, QThread::NormalPriority));
    thread->letGo();
    QTRY_VERIFY(!thread);
}

void tst_ThreadPool::threadIsStarted_data()
{
    QTest::addColumn<int>("priority");
    QTest::newRow("lowest") << int(QThread::LowestPriority);
    QTest::newRow("normal") << int(QThread::NormalPriority);
    QTest::newRow("highest") << int(QThread::HighestPriority);
    QTest::newRow("its starter's") << int(QThread::InheritPriority);
}

void tst_ThreadPool::threadIsStarted()
{
    QFETCH(int, priority);
    Pool pool;
    auto *thread = new Runner;
    QVERIFY(pool.poolAndStart(thread, QThread::Priority(priority)));
    QVERIFY(thread->m_begun.tryAcquire(1, int(LongTime)));
    QCOMPARE(int(thread->priority()), priority);
    QCOMPARE(threadsOf(pool), QList<QThread *>{thread});
    thread->letGo();
    QVERIFY(pool.waitAll(LongTime));
}

void tst_ThreadPool::runningThreadIsNotStartedAgain()
{
    Pool pool;
    QPointer<Runner> thread = new Runner;
    thread->start(QThread::LowPriority);
    QVERIFY(thread->m_begun.tryAcquire(1, int(LongTime)));
    QVERIFY(pool.poolAndStart(thread, QThread::HighPriority));
    QCOMPARE(threadsOf(pool), QList<QThread *>{thread});
    QCOMPARE(thread->priority(), QThread::LowPriority);
    thread->letGo();
    QVERIFY(pool.waitAll(LongTime));
    QVERIFY(thread->wait(LongTime));
    QCOMPARE(int(thread->m_runs), 1);
    settle();
    QVERIFY(!thread);
}

void tst_ThreadPool::registeredFinishingThreadIsRefusedAndStillDeleted()
{
    Pool pool;
    QPointer<QThread> thread = new Brief;
    Hold hold(thread);
    QVERIFY(pool.poolAndStart(thread, QThread::NormalPriority));
    QVERIFY(hold.isReached());
    QVERIFY(!pool.poolAndStart(thread, QThread::NormalPriority));
    QCOMPARE(threadsOf(pool), QList<QThread *>{thread}); // as it was
    hold.letGo();
    QVERIFY(pool.waitAll(LongTime));
    QTRY_VERIFY(!thread);
}

void tst_ThreadPool::registeredThreadThatFinishesMeanwhileIsRefusedAndStillDeleted()
{
    Pool pool;
    QPointer<Runner> thread = running(pool);
    auto waiting = elsewhere([&] { return pool.waitAll(Forever); });
    QVERIFY(!isDone(waiting, Moment));
    thread->m_atConnect = [&] { finish(thread); };
    QVERIFY(!pool.poolAndStart(thread, QThread::NormalPriority));
    QVERIFY(isDone(waiting));
    QVERIFY(waiting.get());
    QVERIFY(isEmpty(pool));
    QVERIFY(thread->wait(LongTime));
    settle();
    QVERIFY(!thread);
}

void tst_ThreadPool::threadHandedInTwiceIsOne()
{
    Pool pool;
    QPointer<Runner> thread = running(pool);
    QVERIFY(pool.poolAndStart(thread, QThread::NormalPriority));
    QCOMPARE(threadsOf(pool), QList<QThread *>{thread});
    QCOMPARE(thread->finishedReceivers(), 2);
    thread->letGo();
    QVERIFY(pool.waitAll(LongTime));
    QVERIFY(thread->wait(LongTime));
    QVERIFY(isEmpty(pool));
    QCOMPARE(int(thread->m_runs), 1);
    settle();
    QVERIFY(!thread);
}

void tst_ThreadPool::threadHandedInTwiceTellsItsEndOnce()
{
    Pool pool;
    Runner *thread = running(pool);
    Hold hold(thread);
    QVERIFY(pool.poolAndStart(thread, QThread::NormalPriority));
    thread->letGo();
    QVERIFY(hold.isReached()); // between the two connections
    QVERIFY(isEmpty(pool));
    QCOMPARE(thread->finishedReceivers(), 1); // who holds it: the registry may be gone by now
    hold.letGo();
    QVERIFY(thread->wait(LongTime));
}

void tst_ThreadPool::threadMayBeRegisteredInTwoRegistries()
{
    Pool first;
    Pool second;
    QPointer<Runner> thread = running(first);
    QVERIFY(second.poolAndStart(thread, QThread::NormalPriority));
    QCOMPARE(threadsOf(first), threadsOf(second));
    thread->letGo();
    QVERIFY(first.waitAll(LongTime));
    QVERIFY(second.waitAll(LongTime));
    QTRY_VERIFY(!thread);
}

void tst_ThreadPool::threadThatEndsAsItIsHandedInIsEitherKeptOrRefused()
{
    Pool pool;
    for (int round = 0; round < 5000; ++round) {
        QPointer<QThread> thread = new Brief;
        thread->start();
        const bool isKept = pool.poolAndStart(thread, QThread::NormalPriority);
        QVERIFY(thread->wait(LongTime));
        QVERIFY(isEmpty(pool));
        settle();
        QCOMPARE(thread.isNull(), isKept);
        delete thread;
    }
}

void tst_ThreadPool::threadThatSomebodyElseStartsMeanwhileRunsOnce_data()
{
    QTest::addColumn<int>("look");
    QTest::addColumn<bool>("isAccepted");
    QTest::newRow("before it is registered") << 1 << false;
    QTest::newRow("as it is registered") << 2 << true;
    QTest::newRow("as it is to be started") << 3 << true;
}

void tst_ThreadPool::threadThatSomebodyElseStartsMeanwhileRunsOnce()
{
    QFETCH(int, look);
    QFETCH(bool, isAccepted);
    Pool pool;
    QPointer<Runner> thread = new Runner;
    thread->letGo();
    auto answer = elsewhere([&, looks = 0]() mutable {
        afterLook = [&] {
            if (++looks != look)
                return;
            thread->start();
            for (QDeadlineTimer end(isAccepted ? Moment : LongTime); !end.hasExpired() && !thread->isFinished();)
                QThread::yieldCurrentThread();
        };
        const bool result = pool.poolAndStart(thread, QThread::InheritPriority);
        afterLook = {};
        return result;
    });
    if (!isDone(answer))
        qFatal("the registry and the thread wait for each other");
    QCOMPARE(answer.get(), isAccepted);
    QVERIFY(pool.waitAll(LongTime));
    QVERIFY(thread->wait(LongTime));
    QCOMPARE(thread->m_runs, 1);
    settle();
    QCOMPARE(thread.isNull(), isAccepted);
    delete thread;
}

void tst_ThreadPool::finishedThreadIsForgottenAndDeletedLater()
{
    Pool pool;
    Runner *other = running(pool);
    QPointer<Runner> thread = running(pool);
    thread->letGo();
    QVERIFY(thread->wait(LongTime));
    QCOMPARE(threadsOf(pool), QList<QThread *>{other});
    QVERIFY(thread); // nobody has handled an event yet
    settle();
    QVERIFY(!thread);
}

void tst_ThreadPool::finishedThreadIsDeletedWhereItLives()
{
    QThread home;
    home.start();
    Pool pool;
    auto *thread = new Brief;
    std::promise<QThread *> where;
    connect(
        thread, &QObject::destroyed, thread, [&] { where.set_value(QThread::currentThread()); }, Qt::DirectConnection);
    thread->moveToThread(&home);
    QVERIFY(pool.poolAndStart(thread, QThread::NormalPriority));
    auto answer = where.get_future();
    QVERIFY(isDone(answer));
    QCOMPARE(answer.get(), &home);
    home.quit();
    QVERIFY(home.wait(LongTime));
}

void tst_ThreadPool::finishedSlotConcernsTheCurrentThread()
{
    Pool pool;
    QPointer<Runner> registered = running(pool);
    QPointer<QThread> current =
        QThread::create([&] { QMetaObject::invokeMethod(registered, "finished", Qt::DirectConnection); });
    current->start();
    QVERIFY(current->wait(LongTime));
    settle();
    QVERIFY(!current);
    QVERIFY(registered);
    QCOMPARE(threadsOf(pool), QList<QThread *>{registered});
    registered->letGo();
    QVERIFY(pool.waitAll(LongTime));
    QTRY_VERIFY(!registered);
}

void tst_ThreadPool::finishedSlotDeletesAThreadThatIsNotRegistered()
{
    Pool pool;
    QPointer<QThread> thread = QThread::create([&] { pool.finishedSlot(); });
    thread->start();
    QVERIFY(thread->wait(LongTime));
    QVERIFY(thread);
    settle();
    QVERIFY(!thread);
}

void tst_ThreadPool::emptyRegistryIsNotWaitedFor()
{
    QFETCH(const Wait *, wait);
    Pool pool;
    for (const unsigned long time : {0ul, 1ul, Forever})
        QVERIFY((pool.*wait->wait)(time));
}

void tst_ThreadPool::waitForAllGivesUpInTime()
{
    QFETCH(const Wait *, wait);
    Pool pool;
    Runner *thread = running(pool);
    for (const unsigned long time : {0ul, 1ul, Moment}) {
        QElapsedTimer timer;
        timer.start();
        QVERIFY(!(pool.*wait->wait)(time));
        QVERIFY(timer.elapsed() >= qint64(time) - 1);
    }
    QCOMPARE(threadsOf(pool), QList<QThread *>{thread});
    QVERIFY(thread->isRunning());
}

void tst_ThreadPool::waitForAllEndsWithTheLastThread()
{
    QFETCH(const Wait *, wait);
    Pool pool;
    Runner *first = running(pool);
    Runner *last = running(pool);
    auto waiting = elsewhere([&] { return (pool.*wait->wait)(Forever); });
    first->letGo();
    QTRY_COMPARE(threadsOf(pool), QList<QThread *>{last});
    QVERIFY(!isDone(waiting, Moment));
    last->letGo();
    QVERIFY(isDone(waiting));
    QVERIFY(waiting.get());
    QVERIFY(isEmpty(pool));
}

void tst_ThreadPool::lastThreadWakesEveryone()
{
    Pool pool;
    Runner *thread = running(pool);
    std::vector<std::future<bool>> waiting;
    for (const Wait &wait : waits) {
        for (int i = 0; i < 2; ++i)
            waiting.push_back(elsewhere([&pool, &wait] { return (pool.*wait.wait)(Forever); }));
    }
    for (const auto &one : waiting)
        QVERIFY(!isDone(one, Moment));
    thread->letGo();
    for (auto &one : waiting) {
        QVERIFY(isDone(one));
        QVERIFY(one.get());
    }
}

void tst_ThreadPool::waitForAllLeavesTheRegistryUsable()
{
    QFETCH(const Wait *, wait);
    Pool pool;
    Runner *thread = running(pool);
    auto waiting = elsewhere([&] { return (pool.*wait->wait)(Forever); });
    QVERIFY(!isDone(waiting, Moment));
    Runner *another = nullptr;
    auto meanwhile = elsewhere([&] {
        another = running(pool);
        another->moveToThread(thread->thread());
        return threadsOf(pool).size();
    });
    QVERIFY(isDone(meanwhile));
    QCOMPARE(meanwhile.get(), 2);
    thread->letGo();
    QVERIFY(!isDone(waiting, Moment)); // for the new one, too
    another->letGo();
    QVERIFY(isDone(waiting));
}

void tst_ThreadPool::noWakeUpIsLost()
{
    Pool pool;
    for (int round = 0; round < 5000; ++round) {
        auto *thread = new Brief;
        QVERIFY(pool.poolAndStart(thread, QThread::InheritPriority));
        QVERIFY((pool.*waits[round % 2].wait)(LongTime)); // whichever comes first, the end or the wait
        QVERIFY(thread->wait(LongTime));
        settle();
    }
}

void tst_ThreadPool::waitAllDisturbsNobody()
{
    Pool pool;
    Runner *thread = running(pool);
    QVERIFY(!pool.waitAll(0));
    QVERIFY(!thread->isInterruptionRequested());
}

void tst_ThreadPool::interruptAndWaitAllAsksEveryThread()
{
    Pool pool;
    const QList<Runner *> threads{running(pool), running(pool), running(pool)};
    for (int i = 0; i < 2; ++i) // asking again changes nothing
        QVERIFY(!pool.interruptAndWaitAll(0));
    QCOMPARE(threadsOf(pool).size(), threads.size());
    for (Runner *thread : threads) {
        QVERIFY(thread->isInterruptionRequested());
        QVERIFY(thread->isRunning());
    }
}

void tst_ThreadPool::interruptAndWaitAllEndsTheWilling()
{
    Pool pool;
    for (int i = 0; i < 4; ++i)
        QVERIFY(pool.poolAndStart(new Willing, QThread::InheritPriority));
    QVERIFY(pool.interruptAndWaitAll(LongTime));
    QVERIFY(isEmpty(pool));
}

void tst_ThreadPool::terminateAndWaitAllEndsTheUnwilling()
{
    Pool pool;
    QList<QPointer<Sleeper>> threads;
    for (int i = 0; i < 4; ++i) {
        auto *thread = new Sleeper;
        QVERIFY(pool.poolAndStart(thread, QThread::InheritPriority));
        QVERIFY(thread->m_begun.tryAcquire(1, int(LongTime)));
        threads.append(thread);
    }
    QVERIFY(!pool.interruptAndWaitAll(0));
    QVERIFY(pool.terminateAndWaitAll(LongTime));
    QVERIFY(isEmpty(pool));
    for (const QPointer<Sleeper> &thread : threads)
        QTRY_VERIFY(!thread);
}

void tst_ThreadPool::stopOfNoThreadIsFalse()
{
    QFETCH(const Stop *, stop);
    Pool pool;
    QVERIFY(!(pool.*stop->stop)(nullptr, 0));
    QVERIFY(!(pool.*stop->stop)(nullptr, Forever));
}

void tst_ThreadPool::stopOfAThreadThatDoesNotRunIsTrue()
{
    QFETCH(const Stop *, stop);
    Pool pool;
    Brief thread;
    QVERIFY((pool.*stop->stop)(&thread, 0)); // not yet
    thread.start();
    QVERIFY(thread.wait(LongTime));
    QVERIFY((pool.*stop->stop)(&thread, 0)); // not any more
}

void tst_ThreadPool::stopOfARegisteredThreadThatHasStoppedIsTrue()
{
    QFETCH(const Stop *, stop);
    Pool pool;
    auto *thread = new Brief;
    Hold hold(thread);
    QVERIFY(pool.poolAndStart(thread, QThread::InheritPriority));
    QVERIFY(hold.isReached());
    QCOMPARE(threadsOf(pool), QList<QThread *>{thread});
    QVERIFY((pool.*stop->stop)(thread, 0)); // although it has not come to its end
    hold.letGo();
    QVERIFY(pool.waitAll(LongTime));
}

void tst_ThreadPool::stopOfAnUnregisteredThreadDoesNothing()
{
    Pool pool;
    Pool another;
    Runner *thread = running(another);
    QVERIFY(!pool.interruptAndWait(thread, Forever));
    QVERIFY(!thread->isInterruptionRequested());
}

void tst_ThreadPool::terminationOfAnUnregisteredThreadDoesNothing()
{
    Pool pool;
    Sleeper thread;
    thread.start();
    QVERIFY(thread.m_begun.tryAcquire(1, int(LongTime)));
    QVERIFY(!pool.terminateAndWait(&thread, Forever));
    QVERIFY(!thread.wait(Moment));
    thread.terminate();
    QVERIFY(thread.wait(LongTime));
}

void tst_ThreadPool::stopGivesUpInTime()
{
    QFETCH(const Stop *, stop);
    Pool pool;
    QPointer<Runner> thread = running(pool);
    QVERIFY(!(pool.*stop->stop)(thread, 0));
    QVERIFY(!(pool.*stop->stop)(thread, Moment));
    QCOMPARE(threadsOf(pool), QList<QThread *>{thread});
    thread->letGo();
    QVERIFY((pool.*stop->stop)(thread, Forever));
    QTRY_VERIFY(!thread); // in the end it is deleted nevertheless
}

void tst_ThreadPool::interruptAndWaitEndsTheWilling()
{
    Pool pool;
    QPointer<Willing> thread = new Willing;
    QVERIFY(pool.poolAndStart(thread, QThread::InheritPriority));
    QVERIFY(pool.interruptAndWait(thread, LongTime));
    QVERIFY(thread->isFinished());
    QVERIFY(isEmpty(pool));
    settle();
    QVERIFY(!thread);
}

void tst_ThreadPool::interruptAndWaitAsksNobodyElse()
{
    Pool pool;
    Runner *asked = running(pool);
    Runner *other = running(pool);
    QVERIFY(!pool.interruptAndWait(asked, 0));
    QVERIFY(asked->isInterruptionRequested());
    QVERIFY(!other->isInterruptionRequested());
    asked->letGo();
}

void tst_ThreadPool::terminateAndWaitEndsTheUnwilling()
{
    Pool pool;
    QPointer<Sleeper> thread = new Sleeper;
    QVERIFY(pool.poolAndStart(thread, QThread::InheritPriority));
    QVERIFY(thread->m_begun.tryAcquire(1, int(LongTime)));
    QVERIFY(!pool.interruptAndWait(thread, 0));
    QVERIFY(pool.terminateAndWait(thread, LongTime));
    QVERIFY(thread->isFinished());
    QVERIFY(isEmpty(pool));
    settle();
    QVERIFY(!thread);
}

void tst_ThreadPool::stopHoldsNoLockAsItWaits()
{
    QFETCH(const Stop *, stop);
    Pool pool;
    Runner *thread = running(pool);
    auto stopping = elsewhere([&] { return (pool.*stop->stop)(thread, Forever); });
    QVERIFY(!isDone(stopping, Moment));
    auto listing = elsewhere([&] { return threadsOf(pool); });
    QVERIFY(isDone(listing));
    QCOMPARE(listing.get(), QList<QThread *>{thread});
    thread->letGo();
    QVERIFY(isDone(stopping));
    QVERIFY(stopping.get());
}

void tst_ThreadPool::threadIsNotDeletedUnderWhoWaitsForIt()
{
    QFETCH(const Stop *, stop);
    Pool pool;
    QPointer<Runner> thread = running(pool);
    Hold hold(thread); // behind the registry's connection
    auto stopping = elsewhere([&] { return (pool.*stop->stop)(thread, Forever); });
    QVERIFY(!isDone(stopping, Moment));
    thread->letGo();
    QVERIFY(hold.isReached());
    QVERIFY(isEmpty(pool));
    settle();
    QVERIFY(thread);
    QVERIFY(!isDone(stopping, 0));
    hold.letGo();
    QVERIFY(isDone(stopping));
    QVERIFY(stopping.get());
    settle();
    QVERIFY(!thread);
}

void tst_ThreadPool::threadIsNotDeletedUnderWhoWaitsLonger()
{
    Pool pool;
    QPointer<Runner> thread = running(pool);
    Hold hold(thread); // behind the registry's connection
    auto stopping = elsewhere([&] { return pool.interruptAndWait(thread, Forever); });
    QTRY_VERIFY(thread->isInterruptionRequested()); // so it is waiting already
    QVERIFY(!pool.interruptAndWait(thread, 0));
    thread->letGo();
    QVERIFY(hold.isReached());
    settle();
    QVERIFY(thread);
    hold.letGo();
    QVERIFY(isDone(stopping));
    QVERIFY(stopping.get());
    settle();
    QVERIFY(!thread);
}

void tst_ThreadPool::listAllWithoutACallbackDoesNothing()
{
    Pool pool;
    Runner *thread = running(pool);
    pool.listAll(nullptr, nullptr);
    QCOMPARE(threadsOf(pool), QList<QThread *>{thread});
}

void tst_ThreadPool::listAllNamesEachThread()
{
    Pool pool;
    QVERIFY(threadsOf(pool).isEmpty());
    const QSet<QThread *> threads{running(pool), running(pool), running(pool)};
    const QList<QThread *> listed = threadsOf(pool);
    QCOMPARE(listed.size(), 3); // each once
    QCOMPARE(QSet<QThread *>(listed.begin(), listed.end()), threads);
}

void tst_ThreadPool::listAllHoldsTheRegistry()
{
    struct Context
    {
        Pool pool;
        std::future<bool> other;
        bool isHeld = false;
    };
    Context context;
    running(context.pool);
    context.pool.listAll(
        [](QThread *, void *given) {
            auto *here = static_cast<Context *>(given);
            here->other = elsewhere([here] { return here->pool.waitAll(0); });
            here->isHeld = !isDone(here->other, Moment);
        },
        &context);
    QVERIFY(context.isHeld);
    QVERIFY(isDone(context.other));
    QVERIFY(!context.other.get());
}

void tst_ThreadPool::printdDescribesAThread_data()
{
    QTest::addColumn<QString>("name");
    QTest::newRow("no name") << QString();
    QTest::newRow("empty name") << QStringLiteral("");
    QTest::newRow("name") << QStringLiteral("worker 1");
    QTest::newRow("name beyond ASCII") << QString::fromUtf8("größer als %1");
}

void tst_ThreadPool::printdDescribesAThread()
{
    QFETCH(QString, name);
    Pool pool;
    QCOMPARE(pool.printd(), QJsonArray());
    Runner *thread = running(pool);
    thread->setObjectName(name);
    QJsonObject expected{{QStringLiteral("Thread"), addressOf(thread)}};
    if (!name.isEmpty())
        expected.insert(QStringLiteral("Name"), name);
    QCOMPARE(pool.printd(), QJsonArray{expected});
    thread->letGo();
    QVERIFY(pool.waitAll(LongTime));
    QCOMPARE(pool.printd(), QJsonArray());
}

void tst_ThreadPool::printdIsInTheOrderOfListAll()
{
    Pool pool;
    QList<Runner *> threads;
    for (int i = 0; i < 10; ++i)
        threads.append(running(pool));
    QStringList listed;
    for (QThread *thread : threadsOf(pool))
        listed.append(addressOf(thread));
    QStringList printed;
    for (const QJsonValue thread : pool.printd())
        printed.append(thread[QLatin1String("Thread")].toString());
    QCOMPARE(printed, listed);
}

void tst_ThreadPool::destructorWaitsForEveryThread()
{
    auto pool = std::make_unique<ZThreadPool>();
    Runner *first = running(*pool);
    Runner *last = running(*pool);
    auto end = elsewhere([&] { pool.reset(); });
    first->letGo();
    QVERIFY(first->wait(LongTime));
    QVERIFY(!isDone(end, Moment));
    QVERIFY(last->isRunning());
    QVERIFY(!last->isInterruptionRequested()); // it only waits
    last->letGo();
    QVERIFY(isDone(end));
}

void tst_ThreadPool::destructorLeavesTheLastThreadItsLock()
{
    Grave grave;
    for (int round = 0; round < 5000; ++round) {
        ZThreadPool *pool = grave.dig();
        auto *thread = new Brief;
        QVERIFY(pool->poolAndStart(thread, QThread::InheritPriority));
        grave.bury(pool);
        QVERIFY(thread->wait(LongTime));
        QVERIFY(grave.isQuiet());
        settle();
    }
}

void tst_ThreadPool::destructorLeavesAThreadHandedInTwiceItsLock()
{
    Grave grave;
    for (int round = 0; round < 5000; ++round) {
        ZThreadPool *pool = grave.dig();
        Runner *thread = running(*pool);
        QVERIFY(pool->poolAndStart(thread, QThread::InheritPriority));
        thread->letGo();
        grave.bury(pool);
        QVERIFY(thread->wait(LongTime));
        QVERIFY(grave.isQuiet());
        settle();
    }
}

void tst_ThreadPool::destructorLeavesARefusedThreadItsLock()
{
    Grave grave;
    for (int round = 0; round < 5000; ++round) {
        ZThreadPool *pool = grave.dig();
        Runner *thread = running(*pool);
        thread->m_atConnect = [&] { finish(thread); };
        QVERIFY(!pool->poolAndStart(thread, QThread::InheritPriority));
        grave.bury(pool);
        QVERIFY(thread->wait(LongTime));
        QVERIFY(grave.isQuiet());
        settle();
    }
}

QTEST_GUILESS_MAIN(tst_ThreadPool)

#include "tst_threadpool.moc"
