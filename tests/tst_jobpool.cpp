// SPDX-License-Identifier: Apache-2.0
#include "testcase.h"

#include <QMutex>
#include <QMutexLocker>
#include <QSemaphore>
#include <QStringList>
#include <QThread>

#include <zjobpool.h>

#include <atomic>
#include <chrono>
#include <functional>
#include <future>
#include <memory>
#include <type_traits>
#include <vector>

static_assert(std::is_abstract_v<ZJob> && std::is_base_of_v<QRunnable, ZJob>);
static_assert(sizeof(ZJob) == sizeof(QRunnable) + 2 * sizeof(ZJob::Counter));
static_assert(!std::is_polymorphic_v<ZJobPool>);
static_assert(!std::is_copy_constructible_v<ZJobPool> && !std::is_copy_assignable_v<ZJobPool>);

namespace {

constexpr int LongTime = 30000;
constexpr int Moment = 50; // for what must not happen: too short never fails a good pool

/// Does what a test wants, on a thread of a pool.
class Job : public ZJob
{
public:
    using Work = std::function<void()>;

    explicit Job(Work work, Counter first = {}, Counter second = {})
        : ZJob(std::move(first), std::move(second)), m_work(std::move(work))
    {}
    ~Job() override
    {
        if (m_ended)
            ++*m_ended;
    }

    void run() override { m_work(); }

    Counter first() const { return m_first; }
    Counter second() const { return m_second; }

    std::atomic_int *m_ended = nullptr; // counts who is deleted

private:
    const Work m_work;
};

/// A job that is held, so that the pool must not delete it.
QSharedPointer<Job> held(Job::Work work)
{
    const auto job = QSharedPointer<Job>::create(std::move(work));
    job->setAutoDelete(false);
    return job;
}

/// A job that is the pool's once it is handed in.
QSharedPointer<Job> left(Job::Work work, std::atomic_int *ended)
{
    auto *job = new Job(std::move(work));
    job->m_ended = ended;
    return QSharedPointer<Job>(job, [](Job *) {});
}

/// Holds jobs on their threads until a test lets them go, at the latest as it goes out of scope. Comes after its pool,
/// or a test that fails would not come to its end.
class Gate
{
public:
    explicit Gate(ZJobPool &pool) : m_pool(&pool) {}
    ~Gate()
    {
        open();
        if (m_pool)
            m_pool->waitAll(-1, false);
    }

    /// A job that comes to the gate and waits there.
    QSharedPointer<Job> visitor()
    {
        m_visitors.push_back(held([this] {
            m_reached.release();
            while (!m_isOpen)
                m_leave.tryAcquire(1, 1);
        }));
        return m_visitors.back();
    }
    bool isReachedBy(int visitors) { return m_reached.tryAcquire(visitors, LongTime); }
    void open() { m_isOpen = true; }
    void close() { m_isOpen = false; }
    void forgetPool() { m_pool = nullptr; }

private:
    Q_DISABLE_COPY(Gate)
    ZJobPool *m_pool;
    std::vector<QSharedPointer<Job>> m_visitors;
    QSemaphore m_reached;
    QSemaphore m_leave;
    std::atomic_bool m_isOpen{false};
};

/// How many jobs `pool` runs at once. It must be idle, and is so again afterwards.
int capacity(ZJobPool &pool)
{
    Gate gate(pool);
    int count = 0;
    while (pool.tryStart(gate.visitor()))
        ++count;
    return count;
}

/// The thread on which `pool` runs a job.
QThread *worker(
    ZJobPool &pool, const Job::Work &work = [] {})
{
    std::promise<QThread *> thread;
    const auto job = held([&] {
        work();
        thread.set_value(QThread::currentThread());
    });
    pool.start(job, false, 0);
    QThread *answer = thread.get_future().get();
    while (pool)
        QThread::yieldCurrentThread();
    return answer;
}

/// Lets `ended` know when the current thread finishes.
void tellEnd(QSemaphore &ended)
{
    QThread *thread = QThread::currentThread();
    QObject::connect(
        thread, &QThread::finished, thread, [&] { ended.release(); }, Qt::DirectConnection);
}

template <class Work>
auto elsewhere(Work work)
{
    return std::async(std::launch::async, std::move(work));
}

template <class Result>
bool isDone(const std::future<Result> &future, int time = LongTime)
{
    return future.wait_for(std::chrono::milliseconds(time)) == std::future_status::ready;
}

} // namespace

class tst_JobPool : public TestCase
{
    Q_OBJECT

private Q_SLOTS:
    void jobSharesItsCounters();
    void jobIsThePoolsUnlessItSaysOtherwise();
    void countersAreTheJobsAffair();

    void numbersGoToThePool_data();
    void numbersGoToThePool();
    void poolHasThreadsOfItsOwn();
    void threadsExpireAsAsked();
    void threadsDoNotExpireAtOnceByDefault_data();
    void threadsDoNotExpireAtOnceByDefault();

    void startRunsAJob();
    void startQueuesByPriority();
    void startDoesNotGrowThePool();
    void forcedStartRunsAJobAtOnce();
    void forcedStartGrowsAFullPoolByOne();
    void forcedStartDoesNotGrowAPoolWithAFreeThread();
    void forcedStartDoesNotWaitForTheQueue();
    void forcedStartsGrowThePoolOneAtATime();
    void tryStartTakesAFreeThread();
    void tryStartQueuesNothing();
    void nothingIsNotStarted();

    void heldJobIsNotDeleted();
    void heldJobMayRunAgain();
    void leftJobIsDeletedAsItHasRun();
    void leftJobIsDeletedAsItIsCancelled();
    void leftJobIsDeletedAsTheQueueIsCleared();
    void leftJobThatIsNotTakenIsNotDeleted();

    void cancelTakesAJobOutOfTheQueue();
    void cancelLeavesARunningJobAlone();
    void cancelOfAnUnknownJobDoesNothing();
    void clearEmptiesTheQueue();

    void idlePoolIsNotWaitedFor();
    void waitAllGivesUpInTime();
    void waitAllWaitsForTheQueueToo();
    void waitAllEndsThePoolsThreads();
    void stopCounterStartsAtZero();
    void stopCounterGoesUpWithEachStop();
    void stopIsSignalledBeforeTheWait();
    void stopIsSignalledThoughTheWaitFails();
    void stopCounterOutlivesThePool();
    void numberOfThePoolIsHowManyJobsRun();
    void destructorWaitsForRunningJobs();
};

void tst_JobPool::jobSharesItsCounters()
{
    const auto first = ZJob::Counter::create(1);
    const auto second = ZJob::Counter::create(2);
    const Job job([] {}, first, second);
    QCOMPARE(job.first(), first);
    QCOMPARE(job.second(), second);
    const Job without([] {});
    QVERIFY(!without.first());
    QVERIFY(!without.second());
}

void tst_JobPool::jobIsThePoolsUnlessItSaysOtherwise()
{
    QVERIFY(Job([] {}).autoDelete());
}

void tst_JobPool::countersAreTheJobsAffair()
{
    const auto first = ZJob::Counter::create(1);
    const auto second = ZJob::Counter::create(2);
    ZJobPool pool(1, 0);
    const auto job = QSharedPointer<Job>::create([] {}, first, second);
    job->setAutoDelete(false);
    pool.start(job, false, 0);
    pool.start(job, true, 0);
    QVERIFY(pool.waitAll(LongTime, true));
    QCOMPARE(first->loadRelaxed(), 1);
    QCOMPARE(second->loadRelaxed(), 2);
}

void tst_JobPool::numbersGoToThePool_data()
{
    QTest::addColumn<int>("maxThreads");
    QTest::addColumn<int>("expected");
    QTest::newRow("one") << 1 << 1;
    QTest::newRow("more than there are processors")
        << 2 * QThread::idealThreadCount() + 1 << 2 * QThread::idealThreadCount() + 1;
    QTest::newRow("none") << 0 << QThread::idealThreadCount();
    QTest::newRow("less than none") << -1 << QThread::idealThreadCount();
}

void tst_JobPool::numbersGoToThePool()
{
    QFETCH(int, maxThreads);
    ZJobPool pool(maxThreads, 0);
    QTEST(capacity(pool), "expected");
}

void tst_JobPool::poolHasThreadsOfItsOwn()
{
    ZJobPool pool(1, 0);
    ZJobPool another(1, 0);
    Gate gate(pool);
    pool.start(gate.visitor(), false, 0);
    QVERIFY(gate.isReachedBy(1));
    QCOMPARE(QThreadPool::globalInstance()->activeThreadCount(), 0);
    QCOMPARE(capacity(another), 1);
}

void tst_JobPool::threadsExpireAsAsked()
{
    QSemaphore ended;
    ZJobPool pool(1, 1);
    worker(pool, [&] { tellEnd(ended); });
    QVERIFY(ended.tryAcquire(1, LongTime));
}

void tst_JobPool::threadsDoNotExpireAtOnceByDefault_data()
{
    QTest::addColumn<int>("expiryTimeout");
    QTest::newRow("none") << 0;
    QTest::newRow("less than none") << -1; // which Qt would take for never
}

void tst_JobPool::threadsDoNotExpireAtOnceByDefault()
{
    QFETCH(int, expiryTimeout);
    QSemaphore ended;
    ZJobPool pool(1, expiryTimeout);
    QThread *thread = worker(pool, [&] { tellEnd(ended); });
    QVERIFY(!ended.tryAcquire(1, Moment));
    QCOMPARE(worker(pool), thread);
}

void tst_JobPool::startRunsAJob()
{
    ZJobPool pool(1, 0);
    std::atomic_int runs{0};
    const auto job = held([&] { ++runs; });
    pool.start(job, false, 0);
    QVERIFY(pool.waitAll(LongTime, false));
    QCOMPARE(int(runs), 1);
    QVERIFY(worker(pool) != QThread::currentThread());
}

void tst_JobPool::startQueuesByPriority()
{
    ZJobPool pool(1, 0);
    QStringList order; // of one thread
    std::vector<QSharedPointer<Job>> jobs;
    Gate gate(pool);
    pool.start(gate.visitor(), false, 0);
    QVERIFY(gate.isReachedBy(1));
    const QList<QPair<QString, int>> given{{QStringLiteral("low"), -1},
                                           {QStringLiteral("first"), 0},
                                           {QStringLiteral("high"), 5},
                                           {QStringLiteral("second"), 0},
                                           {QStringLiteral("higher"), 6}};
    for (const auto &[name, priority] : given) {
        jobs.push_back(held([&order, name = name] { order << name; }));
        pool.start(jobs.back(), false, priority);
    }
    gate.open();
    QVERIFY(pool.waitAll(LongTime, false));
    QCOMPARE(order.join(QLatin1Char(' ')), QStringLiteral("higher high first second low"));
}

void tst_JobPool::startDoesNotGrowThePool()
{
    ZJobPool pool(1, 0);
    {
        Gate gate(pool);
        for (int i = 0; i < 3; ++i)
            pool.start(gate.visitor(), false, 0);
        QVERIFY(gate.isReachedBy(1));
        QCOMPARE(static_cast<unsigned long>(pool), 1ul);
    }
    QCOMPARE(capacity(pool), 1);
}

void tst_JobPool::forcedStartRunsAJobAtOnce()
{
    ZJobPool pool(1, 0);
    Gate gate(pool);
    pool.start(gate.visitor(), false, 0);
    QVERIFY(gate.isReachedBy(1));
    pool.start(gate.visitor(), true, -100); // whatever its priority
    QVERIFY(gate.isReachedBy(1));
    QCOMPARE(static_cast<unsigned long>(pool), 2ul);
}

void tst_JobPool::forcedStartGrowsAFullPoolByOne()
{
    ZJobPool pool(2, 0);
    {
        Gate gate(pool);
        for (int i = 0; i < 2; ++i)
            pool.start(gate.visitor(), false, 0);
        QVERIFY(gate.isReachedBy(2));
        pool.start(gate.visitor(), true, 0);
        QVERIFY(gate.isReachedBy(1));
        QVERIFY(!pool.tryStart(gate.visitor()));
    }
    QCOMPARE(capacity(pool), 3); // it stays so
}

void tst_JobPool::forcedStartDoesNotGrowAPoolWithAFreeThread()
{
    ZJobPool pool(2, 0);
    {
        Gate gate(pool);
        for (int i = 0; i < 2; ++i)
            pool.start(gate.visitor(), true, 0);
        QVERIFY(gate.isReachedBy(2));
    }
    QCOMPARE(capacity(pool), 2);
}

void tst_JobPool::forcedStartDoesNotWaitForTheQueue()
{
    ZJobPool pool(1, 0);
    QSemaphore runs;
    const auto forced = held([&] { runs.release(); });
    Gate gate(pool);
    pool.start(gate.visitor(), false, 0);
    QVERIFY(gate.isReachedBy(1));
    for (int i = 0; i < 3; ++i)
        pool.start(gate.visitor(), false, 100);
    pool.start(forced, true, 0);
    QVERIFY(runs.tryAcquire(1, LongTime));
}

void tst_JobPool::forcedStartsGrowThePoolOneAtATime()
{
    constexpr int Starters = 8;
    for (int round = 0; round < 100; ++round) {
        ZJobPool pool(1, 0);
        Gate gate(pool);
        pool.start(gate.visitor(), false, 0);
        QVERIFY(gate.isReachedBy(1));
        QSemaphore go;
        std::vector<std::future<void>> starters;
        for (int i = 0; i < Starters; ++i) {
            starters.push_back(elsewhere([&go, &pool, job = gate.visitor()] {
                go.acquire();
                pool.start(job, true, 0);
            }));
        }
        go.release(Starters);
        QVERIFY(gate.isReachedBy(Starters));
        QVERIFY(!pool.tryStart(gate.visitor()));
    }
}

void tst_JobPool::tryStartTakesAFreeThread()
{
    ZJobPool pool(1, 0);
    Gate gate(pool);
    QVERIFY(pool.tryStart(gate.visitor()));
    QVERIFY(gate.isReachedBy(1));
}

void tst_JobPool::tryStartQueuesNothing()
{
    ZJobPool pool(1, 0);
    std::atomic_int runs{0};
    const auto job = held([&] { ++runs; });
    {
        Gate gate(pool);
        QVERIFY(pool.tryStart(gate.visitor()));
        QVERIFY(!pool.tryStart(job));
    }
    QCOMPARE(int(runs), 0);
    QVERIFY(pool.tryStart(job));
    QVERIFY(pool.waitAll(LongTime, false));
    QCOMPARE(int(runs), 1);
}

void tst_JobPool::nothingIsNotStarted()
{
    ZJobPool pool(1, 0);
    pool.start({}, false, 0);
    pool.start({}, true, 0);
    QVERIFY(!pool.tryStart({}));
    pool.cancel({});
    QCOMPARE(static_cast<unsigned long>(pool), 0ul);
    QCOMPARE(capacity(pool), 1);
}

void tst_JobPool::heldJobIsNotDeleted()
{
    std::atomic_int ended{0};
    ZJobPool pool(1, 0);
    auto job = held([] {});
    job->m_ended = &ended;
    pool.start(job, false, 0);
    pool.start(job, true, 0);
    QVERIFY(pool.waitAll(LongTime, false));
    {
        Gate gate(pool);
        pool.start(gate.visitor(), false, 0);
        QVERIFY(gate.isReachedBy(1));
        for (int i = 0; i < 2; ++i) {
            pool.start(job, false, 0);
            pool.start(job, false, 0);
            pool.cancel(job);
            pool.clear();
        }
    }
    QCOMPARE(int(ended), 0);
    job.clear(); // the pool keeps none
    QCOMPARE(int(ended), 1);
}

void tst_JobPool::heldJobMayRunAgain()
{
    ZJobPool pool(1, 0);
    std::atomic_int runs{0};
    const auto job = held([&] { ++runs; });
    for (int i = 1; i <= 3; ++i) {
        pool.start(job, i % 2 == 0, 0);
        QVERIFY(pool.waitAll(LongTime, false));
        QCOMPARE(int(runs), i);
    }
}

void tst_JobPool::leftJobIsDeletedAsItHasRun()
{
    std::atomic_int ended{0};
    ZJobPool pool(1, 0);
    pool.start(left([] {}, &ended), false, 0);
    QVERIFY(pool.waitAll(LongTime, false));
    QCOMPARE(int(ended), 1);
    pool.start(left([] {}, &ended), true, 0);
    QVERIFY(pool.waitAll(LongTime, false));
    QCOMPARE(int(ended), 2);
    QVERIFY(pool.tryStart(left([] {}, &ended)));
    QVERIFY(pool.waitAll(LongTime, false));
    QCOMPARE(int(ended), 3);
}

void tst_JobPool::leftJobIsDeletedAsItIsCancelled()
{
    std::atomic_int ended{0};
    ZJobPool pool(1, 0);
    Gate gate(pool);
    pool.start(gate.visitor(), false, 0);
    QVERIFY(gate.isReachedBy(1));
    const auto job = left([] {}, &ended);
    pool.start(job, false, 0);
    QCOMPARE(int(ended), 0);
    pool.cancel(job);
    QCOMPARE(int(ended), 1);
}

void tst_JobPool::leftJobIsDeletedAsTheQueueIsCleared()
{
    std::atomic_int ended{0};
    ZJobPool pool(1, 0);
    Gate gate(pool);
    pool.start(gate.visitor(), false, 0);
    QVERIFY(gate.isReachedBy(1));
    pool.start(left([] {}, &ended), false, 0);
    pool.start(left([] {}, &ended), false, 1);
    pool.clear();
    QCOMPARE(int(ended), 2);
}

void tst_JobPool::leftJobThatIsNotTakenIsNotDeleted()
{
    std::atomic_int ended{0};
    ZJobPool pool(1, 0);
    Gate gate(pool);
    QVERIFY(pool.tryStart(gate.visitor()));
    const auto job = left([] {}, &ended);
    QVERIFY(!pool.tryStart(job));
    QCOMPARE(int(ended), 0);
    pool.start(job, true, 0); // although it was not taken at once
    gate.open();
    QVERIFY(pool.waitAll(LongTime, false));
    QCOMPARE(int(ended), 1);
}

void tst_JobPool::cancelTakesAJobOutOfTheQueue()
{
    ZJobPool pool(1, 0);
    std::atomic_int runs{0};
    std::atomic_int others{0};
    const auto job = held([&] { ++runs; });
    const auto other = held([&] { ++others; });
    {
        Gate gate(pool);
        pool.start(gate.visitor(), false, 0);
        QVERIFY(gate.isReachedBy(1));
        pool.start(job, false, 0);
        pool.start(other, false, 0);
        pool.cancel(job);
    }
    QCOMPARE(int(runs), 0);
    QCOMPARE(int(others), 1);
}

void tst_JobPool::cancelLeavesARunningJobAlone()
{
    ZJobPool pool(1, 0);
    Gate gate(pool);
    const auto job = gate.visitor();
    pool.start(job, false, 0);
    QVERIFY(gate.isReachedBy(1));
    pool.cancel(job);
    pool.clear();
    QVERIFY(!pool.waitAll(0, false));
    gate.open();
    QVERIFY(pool.waitAll(LongTime, false));
}

void tst_JobPool::cancelOfAnUnknownJobDoesNothing()
{
    std::atomic_int ended{0};
    ZJobPool pool(1, 0);
    const auto job = left([] {}, &ended);
    pool.cancel(job);
    QCOMPARE(int(ended), 0);
    delete job.data();
}

void tst_JobPool::clearEmptiesTheQueue()
{
    ZJobPool pool(1, 0);
    std::atomic_int runs{0};
    const auto job = held([&] { ++runs; });
    {
        Gate gate(pool);
        pool.start(gate.visitor(), false, 0);
        QVERIFY(gate.isReachedBy(1));
        for (int priority = -1; priority <= 1; ++priority)
            pool.start(job, false, priority);
        pool.clear();
        pool.clear();
        QCOMPARE(static_cast<unsigned long>(pool), 1ul);
    }
    QCOMPARE(int(runs), 0);
    pool.start(job, false, 0); // and the pool goes on
    QVERIFY(pool.waitAll(LongTime, false));
    QCOMPARE(int(runs), 1);
}

void tst_JobPool::idlePoolIsNotWaitedFor()
{
    ZJobPool pool(1, 0);
    for (const int msecs : {0, 1, -1}) {
        QVERIFY(pool.waitAll(msecs, false));
        QVERIFY(pool.waitAll(msecs, true));
    }
}

void tst_JobPool::waitAllGivesUpInTime()
{
    ZJobPool pool(1, 0);
    Gate gate(pool);
    pool.start(gate.visitor(), false, 0);
    QVERIFY(gate.isReachedBy(1));
    for (const int msecs : {0, 1, Moment}) {
        QVERIFY(!pool.waitAll(msecs, false));
        QVERIFY(!pool.waitAll(msecs, true));
    }
}

void tst_JobPool::waitAllWaitsForTheQueueToo()
{
    ZJobPool pool(1, 0);
    std::atomic_int runs{0};
    const auto job = held([&] { ++runs; });
    Gate gate(pool);
    pool.start(gate.visitor(), false, 0);
    QVERIFY(gate.isReachedBy(1));
    for (int i = 0; i < 3; ++i)
        pool.start(job, false, 0);
    auto waiting = elsewhere([&] { return pool.waitAll(-1, false); });
    QVERIFY(!isDone(waiting, Moment));
    gate.open();
    QVERIFY(isDone(waiting));
    QVERIFY(waiting.get());
    QCOMPARE(int(runs), 3);
}

void tst_JobPool::waitAllEndsThePoolsThreads()
{
    QSemaphore ended;
    ZJobPool pool(1, 0);
    worker(pool, [&] { tellEnd(ended); });
    QVERIFY(pool.waitAll(LongTime, false));
    QVERIFY(ended.tryAcquire());
    QVERIFY(worker(pool)); // more come as they are needed
}

void tst_JobPool::stopCounterStartsAtZero()
{
    ZJobPool pool(1, 0);
    QVERIFY(pool.stopCounter());
    QCOMPARE(pool.stopCounter()->loadRelaxed(), 0);
    QCOMPARE(pool.stopCounter(), pool.stopCounter());
    QVERIFY(ZJobPool(1, 0).stopCounter() != pool.stopCounter());
}

void tst_JobPool::stopCounterGoesUpWithEachStop()
{
    ZJobPool pool(1, 0);
    for (int i = 1; i <= 3; ++i) {
        QVERIFY(pool.waitAll(LongTime, false));
        QCOMPARE(pool.stopCounter()->loadRelaxed(), i - 1);
        QVERIFY(pool.waitAll(LongTime, true));
        QCOMPARE(pool.stopCounter()->loadRelaxed(), i);
    }
}

void tst_JobPool::stopIsSignalledBeforeTheWait()
{
    ZJobPool pool(2, 0);
    pool.waitAll(0, true);
    QSemaphore begun;
    std::atomic_bool isOver{false}; // if the test fails
    const auto job = held([&, stop = pool.stopCounter()] {
        const int before = stop->loadAcquire();
        begun.release();
        while (stop->loadAcquire() == before && !isOver)
            QThread::yieldCurrentThread();
    });
    pool.start(job, false, 0);
    pool.start(job, false, 0);
    QVERIFY(begun.tryAcquire(2, LongTime));
    const bool unasked = pool.waitAll(Moment, false);
    const bool asked = pool.waitAll(LongTime, true);
    isOver = true;
    pool.waitAll(-1, false);
    QVERIFY(!unasked);
    QVERIFY(asked);
}

void tst_JobPool::stopIsSignalledThoughTheWaitFails()
{
    ZJobPool pool(1, 0);
    Gate gate(pool);
    pool.start(gate.visitor(), false, 0);
    QVERIFY(gate.isReachedBy(1));
    QVERIFY(!pool.waitAll(0, true));
    QCOMPARE(pool.stopCounter()->loadRelaxed(), 1);
}

void tst_JobPool::stopCounterOutlivesThePool()
{
    auto pool = QSharedPointer<ZJobPool>::create(1, 0);
    const ZJob::Counter stop = pool->stopCounter();
    pool->waitAll(0, true);
    pool.clear();
    QCOMPARE(stop->loadRelaxed(), 1);
}

void tst_JobPool::numberOfThePoolIsHowManyJobsRun()
{
    ZJobPool pool(3, 0);
    const ZJobPool &constant = pool;
    QCOMPARE(static_cast<unsigned long>(constant), 0ul);
    Gate gate(pool);
    for (unsigned long i = 1; i <= 3; ++i) {
        pool.start(gate.visitor(), false, 0);
        QVERIFY(gate.isReachedBy(1));
        QCOMPARE(static_cast<unsigned long>(constant), i);
    }
    pool.start(gate.visitor(), false, 0); // queued
    QCOMPARE(static_cast<unsigned long>(constant), 3ul);
    gate.open();
    QTRY_COMPARE(static_cast<unsigned long>(constant), 0ul);
}

void tst_JobPool::destructorWaitsForRunningJobs()
{
    auto pool = std::make_unique<ZJobPool>(2, 0);
    Gate gate(*pool);
    for (int i = 0; i < 2; ++i)
        pool->start(gate.visitor(), false, 0);
    QVERIFY(gate.isReachedBy(2));
    gate.forgetPool();
    auto end = elsewhere([&] { pool.reset(); });
    QVERIFY(!isDone(end, Moment));
    gate.open();
    QVERIFY(isDone(end));
}

QTEST_GUILESS_MAIN(tst_JobPool)

#include "tst_jobpool.moc"
