// SPDX-License-Identifier: Apache-2.0
// Functions as jobs of a pool, and as activities.
#include "testcase.h"

#include <QPointer>
#include <QSemaphore>

#include <zfunction.h>
#include <zjobpool.h>

#include <functional>
#include <stdexcept>

using Function = std::function<void()>;
Q_DECLARE_METATYPE(Function)

class tst_Function : public TestCase
{
    Q_OBJECT

private Q_SLOTS:
    void jobRuns();
    void jobThatThrowsIsTold_data() { addThrowing(); }
    void jobThatThrowsIsTold();
    void poolGoesOnAfterAJobThatThrows();
    void withoutAPoolOrAFunctionNothingHappens();
    void jobHoldsItsOwnerUntilItHasRun();
    void jobThatIsClearedLetsItsOwnerGo();
    void activityIsCalledAsItWasNamed();
    void activityAnswersWhatItsFunctionAnswers();
    void activityThatThrowsIsToldAndGoesOn_data() { addThrowing(); }
    void activityThatThrowsIsToldAndGoesOn();
    void activityWithoutAFunctionEnds();
    void activityWaitsForItsSchedule();
    void activityHoldsItsOwnerUntilItsFunctionIsGone();

private:
    static void addThrowing();
};

namespace {

/// Says whether `owner` was there when this was destroyed.
class Captured
{
public:
    Captured(const QPointer<QObject> &owner, bool *wasOwned) : m_owner(owner), m_wasOwned(wasOwned) {}
    ~Captured() { *m_wasOwned = m_owner; }

private:
    Q_DISABLE_COPY(Captured)
    const QPointer<QObject> m_owner;
    bool *const m_wasOwned;
};

ZFunctionActivity activity(const Function &function, const char *name = "sweep")
{
    return {{}, QString::fromLatin1(name), {}, [function] {
                function();
                return false;
            }};
}

} // namespace

void tst_Function::addThrowing()
{
    QTest::addColumn<Function>("function");
    QTest::addColumn<QString>("told");
    QTest::newRow("in words") << Function([] { throw std::runtime_error("no more"); }) << "no more";
    QTest::newRow("without a word") << Function([] { throw std::runtime_error(""); }) << "an exception without a word";
    QTest::newRow("of another type") << Function([] { throw 1; }) << "an exception of an unknown type";
}

void tst_Function::jobRuns()
{
    QSemaphore ran;
    ZJobPool pool(1, -1);
    ZFunctionJob::start(&pool, {}, [&] { ran.release(); });
    ran.acquire();
}

void tst_Function::jobThatThrowsIsTold()
{
    QFETCH(Function, function);
    QFETCH(QString, told);
    ZJobPool pool(1, -1);
    ZFunctionJob::start(&pool, {}, function);
    QVERIFY(pool.waitAll(-1, false));
    QCOMPARE(messages().take(QtWarningMsg), QStringList{QStringLiteral("a job has thrown an exception: ") + told});
}

void tst_Function::poolGoesOnAfterAJobThatThrows()
{
    QSemaphore ran;
    ZJobPool pool(1, -1);
    ZFunctionJob::start(&pool, {}, [] { throw std::runtime_error("no more"); });
    ZFunctionJob::start(&pool, {}, [&] { ran.release(); });
    ran.acquire();
    messages().takeAll();
}

void tst_Function::withoutAPoolOrAFunctionNothingHappens()
{
    ZJobPool pool(1, -1);
    auto owner = QSharedPointer<QObject>::create();
    const QPointer<QObject> owned = owner.data();
    bool hasRun = false;
    ZFunctionJob::start(nullptr, owner, [&] { hasRun = true; });
    ZFunctionJob::start(&pool, owner, nullptr);
    QVERIFY(pool.waitAll(-1, false));
    QVERIFY(!hasRun);
    owner.clear();
    QVERIFY(!owned);
}

void tst_Function::jobHoldsItsOwnerUntilItHasRun()
{
    QSemaphore begun, end;
    auto owner = QSharedPointer<QObject>::create();
    const QPointer<QObject> owned = owner.data();
    bool wasOwned = false;
    ZJobPool pool(1, -1);
    ZFunctionJob::start(&pool, owner, [&, captured = QSharedPointer<Captured>::create(owned, &wasOwned)] {
        begun.release();
        end.acquire();
    });
    begun.acquire();
    owner.clear();
    const bool isHeld = owned;
    end.release();
    QVERIFY(pool.waitAll(-1, false));
    QVERIFY(isHeld && !owned);
    QVERIFY(wasOwned); // when what the function holds was destroyed
}

void tst_Function::jobThatIsClearedLetsItsOwnerGo()
{
    QSemaphore begun, end;
    ZJobPool pool(1, -1);
    ZFunctionJob::start(&pool, {}, [&] {
        begun.release();
        end.acquire();
    });
    begun.acquire();
    auto owner = QSharedPointer<QObject>::create();
    const QPointer<QObject> owned = owner.data();
    bool hasRun = false;
    ZFunctionJob::start(&pool, std::move(owner), [&] { hasRun = true; });
    const bool isHeld = owned;
    pool.clear();
    const bool isGone = !owned;
    end.release();
    QVERIFY(pool.waitAll(-1, false));
    QVERIFY(isHeld && isGone && !hasRun);
}

void tst_Function::activityIsCalledAsItWasNamed()
{
    QCOMPARE(activity([] {}).name(), QStringLiteral("sweep"));
    QCOMPARE(activity([] {}, "").name(), QString());
}

void tst_Function::activityAnswersWhatItsFunctionAnswers()
{
    bool goesOn = true;
    ZFunctionActivity activity({}, QString(), {}, [&] { return goesOn; });
    QVERIFY(activity.run());
    goesOn = false;
    QVERIFY(!activity.run());
}

void tst_Function::activityThatThrowsIsToldAndGoesOn()
{
    QFETCH(Function, function);
    QFETCH(QString, told);
    QVERIFY(activity(function).run());
    QCOMPARE(messages().take(QtWarningMsg), QStringList{QStringLiteral("sweep has thrown an exception: ") + told});
}

void tst_Function::activityWithoutAFunctionEnds()
{
    QVERIFY(!ZFunctionActivity({}, QStringLiteral("sweep"), {}, nullptr).run());
}

void tst_Function::activityWaitsForItsSchedule()
{
    ZFunctionActivity activity(QSharedPointer<ZPeriodicSchedule>::create(1), QString(), {}, [] { return true; });
    QVERIFY(activity.wait());
    activity.cancel();
    QVERIFY(!activity.wait());
}

void tst_Function::activityHoldsItsOwnerUntilItsFunctionIsGone()
{
    auto owner = QSharedPointer<QObject>::create();
    const QPointer<QObject> owned = owner.data();
    bool wasOwned = false;
    {
        ZFunctionActivity activity({}, QString(), owner,
                                   [captured = QSharedPointer<Captured>::create(owned, &wasOwned)] { return false; });
        owner.clear();
        QVERIFY(!activity.run());
        QVERIFY(owned);
    }
    QVERIFY(!owned);
    QVERIFY(wasOwned);
}

QTEST_GUILESS_MAIN(tst_Function)
#include "tst_function.moc"
