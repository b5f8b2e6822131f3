// SPDX-License-Identifier: Apache-2.0
#include "elsewhere.h"
#include "journal.h"
#include "testcase.h"

#include <QSemaphore>
#include <QThread>

#include <zdefaultdbus.h>
#include <zdefaultemitter.h>

#include <atomic>
#include <functional>
#include <memory>
#include <stdexcept>
#include <vector>

namespace {

constexpr int LongTime = 30000;
constexpr int TimeToGoWrong = 100;

/// An endpoint that counts its calls, and does in each what a test wants.
class Endpoint : public ZDbusSubscriber
{
public:
    using Work = std::function<bool(const QUrl &url, QJsonObject *in, QJsonObject *out)>;

    explicit Endpoint(Work work) : m_work(std::move(work)) {}

    bool invoked(const QUrl &url, QJsonObject *in, QJsonObject *out) override
    {
        ++m_calls;
        return m_work(url, in, out);
    }

    int takeCalls() { return m_calls.exchange(0); }

private:
    const Work m_work;
    std::atomic_int m_calls{0};
};

using Shared = QSharedPointer<Endpoint>;
using Reached = ZDbusReach::Reached;
using Work = std::function<bool()>;

Shared doing(Work work)
{
    return Shared::create([work = std::move(work)](const QUrl &, QJsonObject *, QJsonObject *) { return work(); });
}

Shared endpoint(bool answer)
{
    return doing([answer] { return answer; });
}

QUrl url(const char *text) { return QUrl(QString::fromUtf8(text)); }

QRegularExpression pattern(const char *text) { return QRegularExpression(QString::fromUtf8(text)); }

Reached reach(ZDbusReach &bus, const char *text) { return bus.reach0(url(text), nullptr, nullptr); }

Reached reachAll(ZDbusReach &bus, const char *re, const char *text = "/x")
{
    return bus.reachAll0(pattern(re), url(text), nullptr, nullptr);
}

void bindDead(ZDbus &bus, const char *text) { bus.bind0(url(text), endpoint(true)); }

/// The lines since the last time, sorted, as "4 (+) //w".
QStringList lines(Journal &journal)
{
    QStringList lines =
        journal.take().replaceInStrings(QRegularExpression(QStringLiteral("^zdefault (\\d+):")), QStringLiteral("\\1"));
    lines.sort();
    return lines;
}

/// A bus whose calls are changed by a test.
class Derived : public ZDefaultDbus
{
    Q_OBJECT

public:
    bool invoke0(const QUrl &url, QJsonObject *in, QJsonObject *out) override { return m_work(url, in, out); }

    Endpoint::Work m_work;
};

/// A bus that cannot tell what its calls reach.
class PlainBus : public QObject, public ZDbus
{
    Q_OBJECT
    Q_INTERFACES(ZDbus)

public:
    bool bind0(const QUrl &, QWeakPointer<ZDbusSubscriber>) override { return ++m_calls; }
    bool find0(const QUrl &) override { return ++m_calls; }
    QList<QUrl> findAll0(const QRegularExpression &) override { return {QUrl(QString::number(++m_calls))}; }
    bool invoke0(const QUrl &, QJsonObject *, QJsonObject *) override { return ++m_calls; }

    int m_calls = 0;
};

} // namespace

Q_DECLARE_METATYPE(ZDbusReach::Reached)

/// Uses the bus as any component does.
class Caller : public QObject
{
    Q_OBJECT
    Q_PROPERTY(ZDbus *zDbus MEMBER m_bus)

public:
    ZDbus *m_bus = nullptr;
};

class tst_DbusReach : public TestCase
{
    Q_OBJECT

private Q_SLOTS:
    void aCallTellsWhatItHasReached_data();
    void aCallTellsWhatItHasReached();
    void aCallIsMadeAsAnyOther();
    void aCallKeepsNobodyAlive();
    void aDeadAddressIsNobodyAndTheNextCallReachesTheHost();
    void whoLeavesDuringItsCallWasReached_data();
    void whoLeavesDuringItsCallWasReached();
    void aBroadcastTellsWhatItHasReached();

    void ofAllThoseAreCalledWhoseAddressMatches_data();
    void ofAllThoseAreCalledWhoseAddressMatches();
    void aCallToAllTellsWhatItHasReached();
    void aCallToAllHandsOverWhatItWasGiven();
    void aCallToAllForgetsTheDeadWhateverThePattern();
    void aCallToAllIsLoggedUnlessItHasAFragment();
    void aCallToAllHoldsTheLock();
    void anInvalidExpressionReachesNobody();

    void aDerivedBusIsAsked();
    void anotherBusDoesNotCount();
    void aCallWithinACallIsItsOwn();
    void whatAnEndpointThrowsPassesThrough_data();
    void whatAnEndpointThrowsPassesThrough();
    void threadsDoNotSeeEachOther();
    void manyThreadsMayCallAtOnce();

    void isReachedThroughTheDelegateOfTheBus();
    void aBusThatCannotTellIsUnsupportedAndNotCalled();
    void isUnsupportedWithoutAComponent();
};

void tst_DbusReach::aCallTellsWhatItHasReached_data()
{
    QTest::addColumn<QUrl>("called");
    QTest::addColumn<Reached>("expected");
    QTest::newRow("handled") << url("//good/a") << ZDbusReach::Handled;
    QTest::newRow("handled by the bare host") << url("//bare/any/path") << ZDbusReach::Handled;
    QTest::newRow("refused") << url("//bad/a") << ZDbusReach::Refused;
    QTest::newRow("refused, with all that takes no part") << url("x://me@BAD:7/a?q#f") << ZDbusReach::Refused;
    QTest::newRow("refused by the bare host") << url("//badbare/any/path") << ZDbusReach::Refused;
    QTest::newRow("the path's refusal is not the host's") << url("//bare/bad") << ZDbusReach::Refused;
    QTest::newRow("nobody at the path") << url("//bad/b") << ZDbusReach::Nobody;
    QTest::newRow("nobody at the bare host") << url("//bad") << ZDbusReach::Nobody;
    QTest::newRow("nobody at the host") << url("//none/a") << ZDbusReach::Nobody;
    QTest::newRow("nobody any more") << url("//dead") << ZDbusReach::Nobody;
    QTest::newRow("all, and some handle it") << url("/any") << ZDbusReach::Handled;
    QTest::newRow("no URL, which is all") << QUrl() << ZDbusReach::Handled;
}

void tst_DbusReach::aCallTellsWhatItHasReached()
{
    QFETCH(QUrl, called);
    ZDefaultDbus bus;
    const Shared good = endpoint(true), bad = endpoint(false);
    for (const char *each : {"//good/a", "//bare"})
        bus.bind0(url(each), good);
    for (const char *each : {"//bad/a", "//badbare", "//bare/bad"})
        bus.bind0(url(each), bad);
    bindDead(bus, "//dead");
    QTEST(bus.reach0(called, nullptr, nullptr), "expected");
}

void tst_DbusReach::aCallIsMadeAsAnyOther()
{
    Journal journal;
    ZDefaultDbus bus;
    bool isSame = false;
    QJsonObject in{{QStringLiteral("x"), 1}}, out;
    const Shared worker = Shared::create([&](const QUrl &called, QJsonObject *given, QJsonObject *answer) {
        isSame = called == url("x://W/x?q") && given == &in && answer == &out;
        answer->insert(QStringLiteral("y"), 2);
        return true;
    });
    bus.bind0(url("//w"), worker);
    bindDead(bus, "//dead");
    bus.getSetZLogger(&journal);
    QCOMPARE(bus.reach0(url("x://W/x?q"), &in, &out), ZDbusReach::Handled);
    QVERIFY(isSame);
    QCOMPARE(out, (QJsonObject{{QStringLiteral("y"), 2}}));
    QCOMPARE(lines(journal), QStringList{"8 (>) x://w/x?q"});
    QCOMPARE(bus.reach0(url("//w/y#quiet"), &in, &out), ZDbusReach::Handled);
    QCOMPARE(lines(journal), QStringList());
    QCOMPARE(reach(bus, "//none"), ZDbusReach::Nobody);
    QCOMPARE(lines(journal), QStringList{"8 (>) //none"});
    QCOMPARE(reach(bus, "//dead"), ZDbusReach::Nobody);
    QCOMPARE(lines(journal), QStringList({"4 (-) //dead", "8 (>) //dead"}));
    QVERIFY(!bus.find0(url("//dead")));
    QCOMPARE(worker->takeCalls(), 2);
}

void tst_DbusReach::aCallKeepsNobodyAlive()
{
    ZDefaultDbus bus;
    Shared worker = endpoint(true);
    const QWeakPointer<Endpoint> watched = worker;
    bus.bind0(url("//w"), worker);
    reach(bus, "//w");
    reach(bus, "/x");
    reachAll(bus, "");
    worker.clear();
    QVERIFY(!watched);
}

void tst_DbusReach::aDeadAddressIsNobodyAndTheNextCallReachesTheHost()
{
    ZDefaultDbus bus;
    const Shared host = endpoint(false);
    bus.bind0(url("//w"), host);
    bindDead(bus, "//w/x");
    QCOMPARE(reach(bus, "//w/x"), ZDbusReach::Nobody);
    QCOMPARE(host->takeCalls(), 0);
    QCOMPARE(reach(bus, "//w/x"), ZDbusReach::Refused);
    QCOMPARE(host->takeCalls(), 1);
}

void tst_DbusReach::whoLeavesDuringItsCallWasReached_data()
{
    QTest::addColumn<QUrl>("called");
    QTest::addColumn<bool>("dies");
    QTest::newRow("it unbinds its address") << url("//w") << false;
    QTest::newRow("it dies") << url("//w") << true;
    QTest::newRow("the host unbinds its own") << url("//w/x") << false;
    QTest::newRow("the host dies") << url("//w/x") << true;
    QTest::newRow("it dies in a call to all") << url("/x") << true;
}

void tst_DbusReach::whoLeavesDuringItsCallWasReached()
{
    QFETCH(QUrl, called);
    QFETCH(bool, dies);
    ZDefaultDbus bus;
    Shared worker;
    worker = doing([&] {
        if (dies)
            worker.clear();
        else
            bus.bind0(url("//w"), {});
        return false;
    });
    bus.bind0(url("//w"), worker);
    QCOMPARE(bus.reach0(called, nullptr, nullptr), ZDbusReach::Refused);
    QCOMPARE(bus.reach0(called, nullptr, nullptr), ZDbusReach::Nobody);
}

void tst_DbusReach::aBroadcastTellsWhatItHasReached()
{
    ZDefaultDbus bus;
    QCOMPARE(reach(bus, "/x"), ZDbusReach::Nobody);
    bindDead(bus, "//dead");
    QCOMPARE(reach(bus, "/x"), ZDbusReach::Nobody);
    const Shared bad = endpoint(false);
    for (const char *each : {"//a", "//b", "//c"})
        bus.bind0(url(each), bad);
    QCOMPARE(reach(bus, "/x"), ZDbusReach::Refused);
    const Shared good = endpoint(true);
    bus.bind0(url("//b"), good);
    QCOMPARE(reach(bus, "/x"), ZDbusReach::Handled);
    QCOMPARE(good->takeCalls(), 1);
    QCOMPARE(bad->takeCalls(), 3 + 2);
}

void tst_DbusReach::ofAllThoseAreCalledWhoseAddressMatches_data()
{
    QTest::addColumn<QString>("re");
    QTest::addColumn<QUrl>("called");
    QTest::addColumn<QStringList>("keys");
    const QUrl all = url("/x");
    QTest::newRow("everybody") << "" << all << QStringList{"//a", "//a/b", "//b/a b"};
    QTest::newRow("a host") << "^//a(/|$)" << all << QStringList{"//a", "//a/b"};
    QTest::newRow("one address") << "^//a/b$" << all << QStringList{"//a/b"};
    QTest::newRow("somewhere in it") << "b" << all << QStringList{"//a/b", "//b/a b"};
    QTest::newRow("a decoded path") << "a b$" << all << QStringList{"//b/a b"};
    QTest::newRow("a host in upper case") << "A" << all << QStringList();
    QTest::newRow("the URL takes no part") << "^//a$" << url("//b/a%20b") << QStringList{"//a"};
    QTest::newRow("a URL that nobody has bound") << "^//a$" << url("//none") << QStringList{"//a"};
}

void tst_DbusReach::ofAllThoseAreCalledWhoseAddressMatches()
{
    QFETCH(QString, re);
    QFETCH(QUrl, called);
    ZDefaultDbus bus;
    QStringList keys;
    std::vector<Shared> workers;
    for (const char *each : {"//A", "//a/b", "//b/a%20b"}) {
        const QUrl bound = url(each);
        const QString key = QStringLiteral("//") + bound.host() + bound.path(QUrl::FullyDecoded);
        workers.push_back(Shared::create([&keys, called, key](const QUrl &with, QJsonObject *, QJsonObject *) {
            keys << (with == called ? key : with.toString());
            return true;
        }));
        bus.bind0(bound, workers.back());
    }
    const Reached reached = bus.reachAll0(QRegularExpression(re), called, nullptr, nullptr);
    keys.sort();
    QCOMPARE(reached, keys.isEmpty() ? ZDbusReach::Nobody : ZDbusReach::Handled);
    QTEST(keys, "keys");
}

void tst_DbusReach::aCallToAllTellsWhatItHasReached()
{
    ZDefaultDbus bus;
    const Shared good = endpoint(true), bad = endpoint(false);
    QCOMPARE(reachAll(bus, ""), ZDbusReach::Nobody);
    bindDead(bus, "//bad/dead");
    bus.bind0(url("//good"), good);
    for (const char *each : {"//bad/1", "//bad/2", "//bad/3"})
        bus.bind0(url(each), bad);
    QCOMPARE(reachAll(bus, "dead"), ZDbusReach::Nobody);
    QCOMPARE(reachAll(bus, "none"), ZDbusReach::Nobody);
    QCOMPARE(reachAll(bus, "^//bad"), ZDbusReach::Refused);
    QCOMPARE(bad->takeCalls(), 3);
    QCOMPARE(reachAll(bus, "^//good"), ZDbusReach::Handled);
    QCOMPARE(reachAll(bus, ""), ZDbusReach::Handled);
    QCOMPARE(good->takeCalls(), 2);
    QCOMPARE(bad->takeCalls(), 3);
}

void tst_DbusReach::aCallToAllHandsOverWhatItWasGiven()
{
    ZDefaultDbus bus;
    QJsonObject in{{QStringLiteral("x"), 1}}, out;
    int same = 0;
    const Shared worker = Shared::create([&](const QUrl &, QJsonObject *given, QJsonObject *answer) {
        same += given == &in && answer == &out;
        return true;
    });
    bus.bind0(url("//a"), worker);
    bus.bind0(url("//b"), worker);
    QCOMPARE(bus.reachAll0(pattern("^//a"), url("/x"), &in, &out), ZDbusReach::Handled);
    QCOMPARE(same, 1);
}

void tst_DbusReach::aCallToAllForgetsTheDeadWhateverThePattern()
{
    Journal journal;
    ZDefaultDbus bus;
    bindDead(bus, "//dead");
    bus.getSetZLogger(&journal);
    QCOMPARE(reachAll(bus, "none", "/x#quiet"), ZDbusReach::Nobody);
    QCOMPARE(lines(journal), QStringList{"4 (-) //dead"});
    QVERIFY(!bus.find0(url("//dead")));
}

void tst_DbusReach::aCallToAllIsLoggedUnlessItHasAFragment()
{
    Journal journal;
    ZDefaultDbus bus;
    const Shared worker = endpoint(true);
    for (const char *each : {"//a/b", "//a", "//b"})
        bus.bind0(url(each), worker);
    bus.getSetZLogger(&journal);
    reachAll(bus, "^//a", "scheme:/do?it");
    QCOMPARE(lines(journal), QStringList({"8 (>) scheme:/do?it (//a)", "8 (>) scheme:/do?it (//a/b)"}));
    reachAll(bus, "^//a", "scheme:/do?it#f");
    QVERIFY(journal.isEmpty());
    QCOMPARE(worker->takeCalls(), 4);
}

void tst_DbusReach::aCallToAllHoldsTheLock()
{
    ZDefaultDbus bus;
    QSemaphore inside, leave;
    const Shared worker = doing([&] {
        inside.release();
        return leave.tryAcquire(1, LongTime);
    });
    bus.bind0(url("//w"), worker);
    Reached reached = ZDbusReach::Unsupported;
    const Elsewhere broadcast([&] { reached = reachAll(bus, ""); });
    QVERIFY(inside.tryAcquire(1, LongTime));
    const Elsewhere other([&] { reach(bus, "//none"); });
    const bool early = other.ended(TimeToGoWrong);
    leave.release();
    QVERIFY(broadcast.ended());
    QVERIFY(other.ended());
    QCOMPARE(reached, ZDbusReach::Handled);
    QVERIFY(!early);
}

void tst_DbusReach::anInvalidExpressionReachesNobody()
{
    Journal journal;
    ZDefaultDbus bus;
    const Shared worker = endpoint(true);
    bus.bind0(url("//w"), worker);
    bindDead(bus, "//dead");
    bus.getSetZLogger(&journal);
    QCOMPARE(reachAll(bus, "("), ZDbusReach::Nobody);
    QVERIFY(journal.isEmpty());
    QCOMPARE(worker->takeCalls(), 0);
    QVERIFY(bus.find0(url("//dead")));
}

void tst_DbusReach::aDerivedBusIsAsked()
{
    Derived bus;
    const Shared good = endpoint(true), bad = endpoint(false);
    bus.bind0(url("//good"), good);
    bus.bind0(url("//bad"), bad);
    bus.m_work = [](const QUrl &, QJsonObject *, QJsonObject *) { return true; };
    QCOMPARE(reach(bus, "//bad"), ZDbusReach::Handled); // by the bus itself
    bus.m_work = [](const QUrl &, QJsonObject *, QJsonObject *) { return false; };
    QCOMPARE(reach(bus, "//good"), ZDbusReach::Nobody);
    QCOMPARE(good->takeCalls() + bad->takeCalls(), 0);

    QUrl instead = url("//bad");
    bus.m_work = [&](const QUrl &, QJsonObject *in, QJsonObject *out) {
        return bus.ZDefaultDbus::invoke0(instead, in, out);
    };
    QCOMPARE(reach(bus, "//good"), ZDbusReach::Refused);
    QCOMPARE(bad->takeCalls(), 1);
    instead = url("//good");
    QCOMPARE(reach(bus, "//none"), ZDbusReach::Handled);
    bus.m_work = [&](const QUrl &called, QJsonObject *in, QJsonObject *out) {
        return bus.reachAll0(pattern("bad"), called, in, out) == ZDbusReach::Handled;
    };
    QCOMPARE(reach(bus, "//none"), ZDbusReach::Refused);
    QCOMPARE(bad->takeCalls(), 1);
}

void tst_DbusReach::anotherBusDoesNotCount()
{
    Derived bus;
    ZDefaultDbus other;
    const Shared good = endpoint(true), bad = endpoint(false);
    for (ZDefaultDbus *each : {static_cast<ZDefaultDbus *>(&bus), &other}) {
        each->bind0(url("//good"), good);
        each->bind0(url("//bad"), bad);
    }
    bus.m_work = [&](const QUrl &, QJsonObject *, QJsonObject *) {
        return other.invoke0(url("//bad"), nullptr, nullptr) || reach(other, "//bad") != ZDbusReach::Refused ||
               reach(other, "//good") != ZDbusReach::Handled || reachAll(other, "bad") != ZDbusReach::Refused;
    };
    QCOMPARE(reach(bus, "//bad"), ZDbusReach::Nobody);
    QCOMPARE(bad->takeCalls(), 3);
}

void tst_DbusReach::aCallWithinACallIsItsOwn()
{
    ZDefaultDbus bus;
    std::vector<Reached> inner;
    const Shared good = endpoint(true);
    const Shared bad = endpoint(false);
    const Shared outer = doing([&] {
        for (const char *each : {"//none", "//bad", "//good", "//none"})
            inner.push_back(reach(bus, each));
        return false;
    });
    const Shared outermost = doing([&] {
        inner.push_back(reach(bus, "//outer"));
        return true;
    });
    bus.bind0(url("//good"), good);
    bus.bind0(url("//bad"), bad);
    bus.bind0(url("//outer"), outer);
    bus.bind0(url("//outermost"), outermost);
    QCOMPARE(reach(bus, "//outermost"), ZDbusReach::Handled);
    QCOMPARE(inner, std::vector<Reached>({ZDbusReach::Nobody, ZDbusReach::Refused, ZDbusReach::Handled,
                                          ZDbusReach::Nobody, ZDbusReach::Refused}));
    QCOMPARE(reach(bus, "//none"), ZDbusReach::Nobody);
}

void tst_DbusReach::whatAnEndpointThrowsPassesThrough_data()
{
    QTest::addColumn<QString>("re"); // null: no call to all that match
    QTest::addColumn<QUrl>("called");
    QTest::newRow("call to one") << QString() << url("//throwing");
    QTest::newRow("call to everybody") << QString() << url("/x");
    QTest::newRow("call to all that match") << "throwing" << url("/x");
}

void tst_DbusReach::whatAnEndpointThrowsPassesThrough()
{
    QFETCH(QString, re);
    QFETCH(QUrl, called);
    ZDefaultDbus bus;
    const Shared throwing = doing([]() -> bool { throw std::runtime_error("no"); });
    const Shared bad = endpoint(false);
    bus.bind0(url("//throwing"), throwing);
    QVERIFY_EXCEPTION_THROWN(re.isNull() ? bus.reach0(called, nullptr, nullptr)
                                         : bus.reachAll0(QRegularExpression(re), called, nullptr, nullptr),
                             std::runtime_error);
    QCOMPARE(throwing->takeCalls(), 1);
    bool isCalled = true;
    const Elsewhere other([&] { // the bus goes on
        bus.bind0(url("//bad"), bad);
        isCalled = bus.invoke0(url("//bad"), nullptr, nullptr);
    });
    QVERIFY(other.ended());
    QVERIFY(!isCalled);
    QVERIFY(!bus.invoke0(url("//bad"), nullptr, nullptr)); // writes nothing where the call was that has thrown
    QCOMPARE(reach(bus, "//none"), ZDbusReach::Nobody);
    QCOMPARE(reach(bus, "//bad"), ZDbusReach::Refused);
}

void tst_DbusReach::threadsDoNotSeeEachOther()
{
    Derived bus;
    QSemaphore inside, leave;
    bus.m_work = [&](const QUrl &called, QJsonObject *in, QJsonObject *out) {
        if (called != url("//waits"))
            return bus.ZDefaultDbus::invoke0(called, in, out);
        inside.release();
        leave.tryAcquire(1, LongTime);
        return false;
    };
    const Shared bad = endpoint(false);
    const Shared holding = doing([&] {
        inside.release();
        leave.tryAcquire(1, LongTime);
        return false;
    });
    bus.bind0(url("//bad"), bad);
    bus.bind0(url("//holding"), holding);
    Reached waits = ZDbusReach::Unsupported, holds = ZDbusReach::Unsupported;
    const Elsewhere first([&] { waits = reach(bus, "//waits"); });
    const Elsewhere second([&] { holds = reach(bus, "//holding"); });
    QVERIFY(inside.tryAcquire(2, LongTime));
    QCOMPARE(reach(bus, "//bad"), ZDbusReach::Refused);
    QCOMPARE(reach(bus, "//none"), ZDbusReach::Nobody);
    leave.release(2);
    QVERIFY(first.ended());
    QVERIFY(second.ended());
    QCOMPARE(waits, ZDbusReach::Nobody);
    QCOMPARE(holds, ZDbusReach::Refused);
}

void tst_DbusReach::manyThreadsMayCallAtOnce()
{
    constexpr int Threads = 4;
    constexpr int Rounds = 300;
    ZDefaultDbus bus;
    const Shared good = endpoint(true), bad = endpoint(false);
    bus.bind0(url("//good"), good);
    bus.bind0(url("//bad"), bad);
    std::atomic_int wrong{0};
    QSemaphore start;
    {
        std::vector<std::unique_ptr<Elsewhere>> threads;
        for (int t = 0; t < Threads; ++t) {
            threads.push_back(std::make_unique<Elsewhere>([&, t] {
                const QByteArray own = "//w" + QByteArray::number(t);
                start.acquire();
                for (int i = 0; i < Rounds; ++i) {
                    bus.bind0(url(own), {}); // one that died would be alive while another thread calls all
                    wrong += reach(bus, own) != ZDbusReach::Nobody;
                    wrong += reach(bus, "//good/x") != ZDbusReach::Handled;
                    wrong += reach(bus, "//bad") != ZDbusReach::Refused;
                    if (i % 10 == 0)
                        wrong += reachAll(bus, "bad") != ZDbusReach::Refused;
                }
            }));
        }
        start.release(Threads);
        for (const auto &thread : threads)
            QVERIFY(thread->ended());
    }
    QCOMPARE(wrong.load(), 0);
    QCOMPARE(good->takeCalls(), Threads * Rounds);
    QCOMPARE(bad->takeCalls(), Threads * Rounds + Threads * Rounds / 10);
}

void tst_DbusReach::isReachedThroughTheDelegateOfTheBus()
{
    const Wiring wiring;
    QObject *const bus = wiring->zemit0(ZDefaultDbus::TypeName);
    QVERIFY(bus);
    QCOMPARE(qobject_cast<ZDbusReach *>(bus), static_cast<ZDbusReach *>(qobject_cast<ZDefaultDbus *>(bus)));
    Caller caller;
    wiring->inject0(&caller);
    const Shared bad = endpoint(false), good = endpoint(true);
    caller.m_bus->bind0(url("//bad"), bad);
    caller.m_bus->bind0(url("//good"), good);
    ZDbusReachDelegate service(nullptr);
    service.replace(dynamic_cast<ZDelegate &>(*caller.m_bus));
    QCOMPARE(reach(service, "//none"), ZDbusReach::Nobody);
    QCOMPARE(reach(service, "//bad"), ZDbusReach::Refused);
    QCOMPARE(reach(service, "//good"), ZDbusReach::Handled);
    QCOMPARE(reachAll(service, "none"), ZDbusReach::Nobody);
    QCOMPARE(reachAll(service, "bad"), ZDbusReach::Refused);
    QCOMPARE(reachAll(service, "good"), ZDbusReach::Handled);
}

void tst_DbusReach::aBusThatCannotTellIsUnsupportedAndNotCalled()
{
    const auto bus = QSharedPointer<PlainBus>::create();
    ZDbusReachDelegate service{QSharedPointer<QObject>(bus)};
    const QJsonObject given{{QStringLiteral("x"), 1}};
    QJsonObject in = given, out = given;
    QCOMPARE(service.reach0(url("//w"), &in, &out), ZDbusReach::Unsupported);
    QCOMPARE(service.reach0(url("/x"), &in, &out), ZDbusReach::Unsupported);
    QCOMPARE(service.reachAll0(pattern(""), url("/x"), &in, &out), ZDbusReach::Unsupported);
    QCOMPARE(bus->m_calls, 0);
    QCOMPARE(in, given);
    QCOMPARE(out, given);
}

void tst_DbusReach::isUnsupportedWithoutAComponent()
{
    ZDbusReachDelegate empty(nullptr);
    QCOMPARE(reach(empty, "//w"), ZDbusReach::Unsupported);
    QCOMPARE(reachAll(empty, ""), ZDbusReach::Unsupported);
}

QTEST_GUILESS_MAIN(tst_DbusReach)

#include "tst_dbusreach.moc"
