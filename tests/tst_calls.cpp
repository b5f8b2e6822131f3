// SPDX-License-Identifier: Apache-2.0
#include "calls/counter.h"
#include "program.h"
#include "testcase.h"

#include <QElapsedTimer>
#include <QPointer>
#include <QSemaphore>
#include <QThread>

#include <cstdlib>
#include <memory>
#include <new>
#include <random>
#include <stdexcept>
#include <thread>
#include <vector>

#include <pthread.h>

namespace {

constexpr int LongTime = 30000;
constexpr int Deeper = 20; // than a thread has notes
constexpr int Many = 40;   // threads, more than have their notes side by side

std::atomic_int aligned{0};      // pieces of memory with an alignment of their own that were asked for
std::atomic_bool isShort{false}; // they are refused

/// A component that holds calls up.
class Held
{
public:
    QSharedPointer<ZReference> reference(int number)
    {
        return counting(number, [this](int) {
            m_inside.release();
            m_goOn.tryAcquire(1, LongTime);
        });
    }
    bool waitFor(int calls) { return m_inside.tryAcquire(calls, LongTime); }
    void release(int calls) { m_goOn.release(calls); }

private:
    QSemaphore m_inside, m_goOn;
};

/// Fails while it is asked for its interface.
class Thrower : public QObject
{
public:
    void *qt_metacast(const char *) override { throw std::runtime_error("not now"); }
};

} // namespace

// Threads' notes are the only memory here that is asked for with an alignment.
void *operator new(std::size_t size, std::align_val_t alignment, const std::nothrow_t &) noexcept
{
    ++aligned;
    return isShort ? nullptr : std::aligned_alloc(std::size_t(alignment), size);
}
void operator delete(void *memory, std::align_val_t) noexcept { std::free(memory); }

/// Calls and exchanges that meet on many threads, in each other, and at the ends of threads and programs.
class tst_Calls : public TestCase
{
    Q_OBJECT

private Q_SLOTS:
    void anExchangeLeavesStandingCallsAlone_data();
    void anExchangeLeavesStandingCallsAlone();
    void callsInCallsKeepWhatTheyCall_data();
    void callsInCallsKeepWhatTheyCall();
    void eachOfNestedCallsKeepsItsOwn();
    void aDelegateMayEndUnderItsCalls();
    void aComponentMayPutAnotherInItsPlaceAsTheDelegateEnds();
    void aReferenceMayBeBehindTwoDelegates();
    void aReferenceMayComeBack();
    void aComponentThatThrowsWhileItIsAskedIsLetGo();
    void threadsThatHaveEndedTakeNoMemory_data();
    void threadsThatHaveEndedTakeNoMemory();
    void callsAreAnsweredThoughThereIsNoMemoryForNotes();
    void idleThreadsKeepNothing();
    void everybodyCallsAndExchanges();
    void programsCallAsTheyEnd_data();
    void programsCallAsTheyEnd();
    void cleanupTestCase();
};

void tst_Calls::anExchangeLeavesStandingCallsAlone_data()
{
    QTest::addColumn<int>("callers");
    for (const int callers : {0, 1, 2, 8, 40})
        QTest::addRow("%d", callers) << callers;
}

void tst_Calls::anExchangeLeavesStandingCallsAlone()
{
    QFETCH(int, callers);
    Held held;
    CounterDelegate delegate({});
    delegate.replace(held.reference(1));
    std::atomic_int answers{0};
    std::vector<std::thread> threads;
    for (int i = 0; i < callers; ++i)
        threads.emplace_back([&] { answers += delegate.count(0); });
    QVERIFY(held.waitFor(callers));

    auto before = delegate.replace(counting(2));
    QCOMPARE(delegate.count(0), 2);
    before.clear();
    for (int i = callers; i > 0; --i) {
        QCOMPARE(Component::alive.load(), 2);
        held.release(1);
        QTRY_COMPARE_WITH_TIMEOUT(answers.load(), callers - i + 1, LongTime);
    }
    for (std::thread &thread : threads)
        thread.join();
    QCOMPARE(Component::alive.load(), 1);
}

void tst_Calls::callsInCallsKeepWhatTheyCall_data()
{
    QTest::addColumn<int>("depth");
    for (const int depth : {0, 1, 2, 6, 7, 8, 9, Deeper})
        QTest::addRow("%d", depth) << depth;
}

void tst_Calls::callsInCallsKeepWhatTheyCall()
{
    QFETCH(int, depth);
    CounterDelegate delegate({});
    int aliveAtTheBottom = 0;
    QVector<int> aliveOnTheWayOut;
    delegate.replace(counting(1, [&](int left) {
        if (left > 0) {
            delegate.count(left - 1);
        } else {
            delegate.replace(counting(2));
            aliveAtTheBottom = Component::alive;
        }
        aliveOnTheWayOut << Component::alive;
    }));
    QCOMPARE(delegate.count(depth), 1);
    QCOMPARE(aliveAtTheBottom, 2);
    QCOMPARE(aliveOnTheWayOut, QVector<int>(depth + 1, 2)); // the outermost call has not returned yet
    QCOMPARE(Component::alive.load(), 1);
    QCOMPARE(delegate.count(0), 2);
}

void tst_Calls::eachOfNestedCallsKeepsItsOwn()
{
    CounterDelegate delegate({});
    QVector<int> alive;
    const auto next = [&](int number, auto &self) -> QSharedPointer<ZReference> {
        return counting(number, [&, number](int depth) {
            delegate.replace(self(number + 1, self));
            if (depth > 0)
                delegate.count(depth - 1);
            alive << Component::alive;
        });
    };
    delegate.replace(next(1, next));
    QCOMPARE(delegate.count(Deeper), 1);
    QVector<int> expected; // each call that returns takes its component along
    for (int left = Deeper + 2; left >= 2; --left)
        expected << left;
    QCOMPARE(alive, expected);
    QCOMPARE(Component::alive.load(), 1);
}

void tst_Calls::aDelegateMayEndUnderItsCalls()
{
    Held held;
    auto delegate = std::make_unique<CounterDelegate>(QSharedPointer<QObject>());
    delegate->replace(held.reference(1));
    std::atomic_int answers{0};
    std::vector<std::thread> threads;
    for (int i = 0; i < 3; ++i)
        threads.emplace_back([&, counter = delegate.get()] { answers += counter->count(0); });
    QVERIFY(held.waitFor(3));
    delegate.reset();
    QCOMPARE(Component::alive.load(), 1);
    held.release(3);
    for (std::thread &thread : threads)
        thread.join();
    QCOMPARE(answers.load(), 3);
    QCOMPARE(Component::alive.load(), 0);
}

void tst_Calls::aComponentMayPutAnotherInItsPlaceAsTheDelegateEnds()
{
    auto delegate = std::make_unique<CounterDelegate>(QSharedPointer<QObject>());
    auto *component = new Component(1);
    connect(component, &QObject::destroyed, this,
            [end = static_cast<ZDelegate *>(delegate.get())] { end->replace(counting(2)); });
    delegate->replace(QSharedPointer<ZReference>::create(QSharedPointer<QObject>(component)));
    delegate.reset();
    QCOMPARE(Component::alive.load(), 0);
}

void tst_Calls::aReferenceMayBeBehindTwoDelegates()
{
    Held held;
    CounterDelegate one({});
    CounterDelegate other({});
    one.replace(held.reference(1));
    other.replace(one);
    int first = 0;
    int second = 0;
    std::thread caller([&] { first = one.count(0); });
    std::thread another([&] { second = other.count(0); });
    QVERIFY(held.waitFor(2));
    one.replace({});
    QCOMPARE(one.count(0), 0);
    other.replace({});
    QCOMPARE(Component::alive.load(), 1);
    held.release(2);
    caller.join();
    another.join();
    QCOMPARE(first + second, 2);
}

void tst_Calls::aReferenceMayComeBack()
{
    CounterDelegate delegate({});
    delegate.replace(counting(1, [&](int depth) {
        if (depth == 0)
            return;
        auto before = delegate.replace({});
        QCOMPARE(delegate.count(0), 0);
        delegate.replace(before);
        QCOMPARE(delegate.count(depth - 1), 1);
    }));
    QCOMPARE(delegate.count(Deeper), 1);
    QCOMPARE(Component::alive.load(), 1);
}

void tst_Calls::aComponentThatThrowsWhileItIsAskedIsLetGo()
{
    QPointer<QObject> thrower = new Thrower;
    CounterDelegate delegate(QSharedPointer<QObject>(thrower.data()));
    for (int i = 0; i < Deeper; ++i) // each with a note of its own, if it were kept
        QVERIFY_EXCEPTION_THROWN(delegate.count(0), std::runtime_error);
    delegate.replace({});
    QVERIFY(!thrower);
}

void tst_Calls::threadsThatHaveEndedTakeNoMemory_data()
{
    QTest::addColumn<bool>("callsFirstAsItEnds");
    QTest::newRow("called while they ran") << false;
    QTest::newRow("called first as they ended") << true;
}

void tst_Calls::threadsThatHaveEndedTakeNoMemory()
{
    QFETCH(bool, callsFirstAsItEnds);
    static CounterDelegate delegate({}); // for the key's destructor, which can be given but one pointer
    delegate.replace(counting(1));
    pthread_key_t key;
    QCOMPARE(pthread_key_create(&key, [](void *) { delegate.count(0); }), 0);
    const auto run = [&] {
        QSemaphore started, goOn;
        std::vector<std::thread> threads;
        for (int i = 0; i < Many; ++i) {
            threads.emplace_back([&] {
                if (callsFirstAsItEnds)
                    pthread_setspecific(key, &delegate);
                else
                    delegate.count(0);
                started.release();
                goOn.acquire();
            });
        }
        started.acquire(Many);
        goOn.release(Many);
        for (std::thread &thread : threads)
            thread.join();
    };
    run();
    const int before = aligned;
    QVERIFY(before > 0);
    for (int i = 0; i < 20; ++i)
        run();
    QCOMPARE(aligned.load(), before);
    pthread_key_delete(key);
    delegate.replace({});
}

void tst_Calls::callsAreAnsweredThoughThereIsNoMemoryForNotes()
{
    constexpr int moreThanEver = 4 * Many;
    Held held;
    CounterDelegate delegate({});
    delegate.replace(held.reference(1));
    isShort = true;
    std::atomic_int answers{0};
    std::vector<std::thread> threads;
    for (int i = 0; i < moreThanEver; ++i)
        threads.emplace_back([&] { answers += delegate.count(0); });
    const bool allInside = held.waitFor(moreThanEver);
    isShort = false;
    delegate.replace({});
    QCOMPARE(Component::alive.load(), 1);
    held.release(moreThanEver);
    for (std::thread &thread : threads)
        thread.join();
    QVERIFY(allInside);
    QCOMPARE(answers.load(), moreThanEver);
    QCOMPARE(Component::alive.load(), 0);
}

void tst_Calls::idleThreadsKeepNothing()
{
    CounterDelegate delegate({});
    delegate.replace(counting(1));
    QSemaphore called, goOn;
    std::thread idle([&] {
        delegate.count(0);
        called.release();
        goOn.acquire();
        delegate.count(0);
    });
    called.acquire();
    delegate.replace(counting(2));
    QCOMPARE(Component::alive.load(), 1);
    goOn.release();
    idle.join();
}

void tst_Calls::everybodyCallsAndExchanges()
{
    constexpr qint64 runMs = 2000;
    CounterDelegate inner({});
    CounterDelegate outer({});
    CounterDelegate recursive({});
    const auto toInner = [&](int depth) {
        if (depth > 0)
            inner.count(depth - 1);
    };
    const auto toItself = [&](int depth) {
        if (depth > 0)
            recursive.count(depth - 1);
    };
    inner.replace(counting(1));
    outer.replace(counting(1, toInner));
    recursive.replace(counting(1, toItself));

    std::atomic_bool isOver{false};
    std::atomic_int wrong{0};
    const auto check = [&](int answer) { wrong += answer != 1; };
    const auto endlessly = [&](auto &&work) {
        return std::thread([&isOver, work] {
            while (!isOver)
                work();
        });
    };
    std::vector<std::thread> threads;
    for (int i = 0; i < 3; ++i)
        threads.push_back(endlessly([&] { check(outer.count(1)); }));
    threads.push_back(endlessly([&] {
        check(recursive.count(Deeper));
        recursive.replace(counting(1, toItself));
    }));
    threads.push_back(endlessly([&] { outer.replace(counting(1, toInner)); }));
    threads.push_back(endlessly([&] {
        const auto before = inner.replace(counting(1));
        check(inner.count(0));
    }));
    threads.push_back(endlessly([&] { std::thread([&] { check(outer.count(1)); }).join(); }));
    threads.push_back(endlessly([&] { // whose delegates end while others have just called them
        CounterDelegate shortLived({});
        shortLived.replace(counting(1));
        std::thread other([&] { check(shortLived.count(0)); });
        check(shortLived.count(0));
        other.join();
    }));
    QElapsedTimer timer;
    timer.start();
    QTRY_VERIFY_WITH_TIMEOUT(timer.elapsed() > runMs, LongTime);
    isOver = true;
    for (std::thread &thread : threads)
        thread.join();
    QCOMPARE(wrong.load(), 0);
    QCOMPARE(Component::alive.load(), 3);
}

void tst_Calls::programsCallAsTheyEnd_data()
{
    QTest::addColumn<QString>("out");
    QTest::newRow("static objects") << QStringLiteral("now 1\nthread-local of the program 1\nstatic 2\n");
    QTest::newRow("objects of a thread") << QStringLiteral("made after it 1\nmade before the first call 2\nnow 3\n");
    QTest::newRow("keys of a thread") << QStringLiteral("key 1\nnow 2\n");
    QTest::newRow("exit within a call") << QStringLiteral("static 1\nleft 2\n"); // whose call never returns
    QTest::newRow("exit under calls") << QString();
    QTest::newRow("fork") << QStringLiteral("child 232\nstatus of the child 0\nnow 1\n");
}

void tst_Calls::programsCallAsTheyEnd()
{
    QFETCH(QString, out);
    const Result result = runProgram(QStringLiteral(CALLS), {QString::fromLatin1(QTest::currentDataTag())});
    QCOMPARE(result.err, QString());
    QCOMPARE(result.out, out);
    QCOMPARE(result.exitCode, 0);
}

void tst_Calls::cleanupTestCase()
{
    QCOMPARE(Component::alive.load(), 0);
    QVERIFY(!Component::hasFailed);
}

QTEST_GUILESS_MAIN(tst_Calls)
#include "tst_calls.moc"
