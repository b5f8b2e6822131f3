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
    explicit Endpoint(bool answer = true)
        : Endpoint([answer](const QUrl &, QJsonObject *, QJsonObject *) { return answer; })
    {}
    ~Endpoint() override
    {
        if (m_end)
            m_end();
    }

    bool invoked(const QUrl &url, QJsonObject *in, QJsonObject *out) override
    {
        ++m_calls;
        return m_work(url, in, out);
    }

    int takeCalls() { return m_calls.exchange(0); }

    std::function<void()> m_end;

private:
    const Work m_work;
    std::atomic_int m_calls{0};
};

using Shared = QSharedPointer<Endpoint>;

template <class... Args>
Shared endpoint(Args &&...args)
{
    return Shared::create(std::forward<Args>(args)...);
}

/// An endpoint that does `work` and answers true.
Shared doing(std::function<void()> work)
{
    return endpoint([work = std::move(work)](const QUrl &, QJsonObject *, QJsonObject *) {
        work();
        return true;
    });
}

QUrl url(const char *text) { return QUrl(QString::fromUtf8(text)); }

bool call(ZDbus &bus, const char *text) { return bus.invoke0(url(text), nullptr, nullptr); }

/// Binds an endpoint that is dead from now on.
bool bindDead(ZDbus &bus, const char *text) { return bus.bind0(url(text), endpoint()); }

QStringList sorted(QStringList texts)
{
    texts.sort();
    return texts;
}

/// What is bound and alive, as texts; the dead are forgotten by that.
QStringList alive(ZDbus &bus, const QString &pattern = QString())
{
    QStringList texts;
    const QList<QUrl> urls = bus.findAll0(QRegularExpression(pattern));
    for (const QUrl &found : urls)
        texts << found.toString();
    return sorted(texts);
}

/// The lines since the last time, as "4 (+) //w".
QStringList lines(Journal &journal)
{
    return journal.take().replaceInStrings(QRegularExpression(QStringLiteral("^zdefault (\\d+):")),
                                           QStringLiteral("\\1"));
}

using Operation = void (*)(ZDbus &bus);

} // namespace

Q_DECLARE_METATYPE(Operation)

/// Uses the bus as any component does.
class Caller : public QObject
{
    Q_OBJECT
    Q_PROPERTY(ZDbus *zDbus MEMBER m_bus)

public:
    ZDbus *m_bus = nullptr;
};

class tst_Dbus : public TestCase
{
    Q_OBJECT

private Q_SLOTS:
    void hasNoSignalsAndNoSlots();
    void readingAPropertyYieldsNull();
    void aNullServiceChangesNothing();
    void isAnnouncedUnderItsDelegate();
    void announcesItselfEachTime();
    void linesGoToTheLoggerThatCameLast();

    void anAddressIsTheHostAndThePath_data();
    void anAddressIsTheHostAndThePath();
    void addressesDifferByHostAndPath_data();
    void addressesDifferByHostAndPath();
    void bindNeedsAHost_data();
    void bindNeedsAHost();
    void bindKeepsNobodyAlive();
    void theLastBindingWins();
    void bindingNobodyIsABindingToTheDead();
    void bindLeavesTheOtherDeadAlone();

    void findAsksForJustThisAddress();
    void findCountsTheDeadAndLeavesThem();
    void findAllMatchesTheAddress_data();
    void findAllMatchesTheAddress();
    void findAllAnswersTheAddressAsAUrl_data();
    void findAllAnswersTheAddressAsAUrl();
    void findAllForgetsTheDeadWhateverThePattern();
    void findAllOfAnInvalidPatternDoesNothing();

    void aCallHandsOverWhatItWasGiven_data();
    void aCallHandsOverWhatItWasGiven();
    void aCallAnswersWhatTheSubscriberAnswers();
    void aCallTriesTheAddressAndThenTheHost_data();
    void aCallTriesTheAddressAndThenTheHost();
    void aCallToNobodyIsFalse();
    void aCallToTheDeadIsFalseAndForgetsThem();
    void aCallToADeadAddressDoesNotReachTheHost();
    void aCallForgetsOnlyWhomItMeets();

    void aUrlWithoutAHostCallsEverybody_data();
    void aUrlWithoutAHostCallsEverybody();
    void aBroadcastIsHandledWhenAnybodyHandlesIt();
    void aBroadcastCallsASubscriberForEachOfItsAddresses();
    void aBroadcastHandsOverWhatItWasGiven();
    void aBroadcastForgetsTheDead();

    void aCallIsLoggedUnlessItHasAFragment_data();
    void aCallIsLoggedUnlessItHasAFragment();
    void aBroadcastIsLoggedUnlessItHasAFragment();
    void aBroadcastLogsEachCallBeforeItIsMade();
    void theDeadAreLoggedInAQuietCallToo();
    void placeholdersInAUrlStay();
    void linesAreWrittenOnlyForTheirKind_data();
    void linesAreWrittenOnlyForTheirKind();
    void withoutALoggerNothingIsWritten();

    void aCallToOneHoldsNoLock();
    void oneSubscriberMayBeCalledSeveralTimesAtOnce();
    void aBroadcastHoldsTheLock_data();
    void aBroadcastHoldsTheLock();
    void aCallIsLoggedBeforeItWaitsForTheLock();
    void whatFailsAtOnceTakesNoLock();
    void aSubscriberLivesThroughItsCall_data();
    void aSubscriberLivesThroughItsCall();
    void aSubscriberMayUseTheBusAsItEnds_data();
    void aSubscriberMayUseTheBusAsItEnds();
    void whatASubscriberThrowsPassesThrough_data();
    void whatASubscriberThrowsPassesThrough();
    void whatIsToldToBeGoneIsGoneWhateverIsThrown();
    void theEndOfTheBusSparesItsSubscribers();
    void threadsMayDoAnythingAtOnce();
};

void tst_Dbus::hasNoSignalsAndNoSlots()
{
    QCOMPARE(ZDefaultDbus::staticMetaObject.methodCount(), QObject::staticMetaObject.methodCount());
}

void tst_Dbus::readingAPropertyYieldsNull()
{
    const Wiring wiring;
    const auto journal = Journal::bind(wiring.emitter());
    QObject *const bus = wiring->zemit0(ZDefaultDbus::TypeName);
    QCOMPARE(bus->property("zLogger"), QVariant::fromValue<ZLogger *>(nullptr));
    QCOMPARE(bus->property("zEmitter"), QVariant::fromValue<ZEmitter *>(nullptr));
}

void tst_Dbus::aNullServiceChangesNothing()
{
    Journal journal;
    ZDefaultDbus bus; // on the stack: nobody may take it over
    QCOMPARE(bus.getSetZEmitter(), nullptr);
    QCOMPARE(bus.getSetZLogger(&journal), &journal);
    QCOMPARE(bus.getSetZLogger(), nullptr);
    QVERIFY(bus.setProperty("zLogger", QVariant::fromValue<ZLogger *>(nullptr)));
    bindDead(bus, "//w");
    QCOMPARE(lines(journal), QStringList{"4 (+) //w"});
}

void tst_Dbus::isAnnouncedUnderItsDelegate()
{
    const Wiring wiring;
    auto *bus = qobject_cast<ZDefaultDbus *>(wiring->zemit0(ZDefaultDbus::TypeName));
    QVERIFY(bus);
    Caller caller;
    wiring->inject0(&caller);
    QVERIFY(dynamic_cast<ZDbusDelegate *>(caller.m_bus));

    const Shared worker = endpoint();
    QVERIFY(caller.m_bus->bind0(url("//w"), worker));
    QVERIFY(bus->find0(url("//w")));
    QVERIFY(caller.m_bus->find0(url("//w")));
    QCOMPARE(alive(*caller.m_bus), QStringList{"//w"});
    QVERIFY(call(*caller.m_bus, "//w/x"));
    QCOMPARE(worker->takeCalls(), 1);

    bus->setProperty("zEmitter", QVariant::fromValue<ZEmitter *>(nullptr));
    wiring->bind0(QSharedPointer<ZDbusDelegate>::create(nullptr));
    QVERIFY(!caller.m_bus->bind0(url("//w"), worker));
    QVERIFY(!caller.m_bus->find0(url("//w")));
    QCOMPARE(alive(*caller.m_bus), QStringList());
    QVERIFY(!call(*caller.m_bus, "//w"));
}

void tst_Dbus::announcesItselfEachTime()
{
    const Wiring first;
    const Wiring second;
    const auto bus = QSharedPointer<ZDefaultDbus>::create();
    QCOMPARE(bus->getSetZEmitter(first.emitter()), first.emitter());
    QCOMPARE(bus->getSetZEmitter(second.emitter()), second.emitter());
    bindDead(*bus, "//w");
    for (const Wiring *wiring : {&first, &second}) {
        Caller caller;
        (*wiring)->inject0(&caller);
        QVERIFY(caller.m_bus);
        QVERIFY(caller.m_bus->find0(url("//w")));
    }
}

void tst_Dbus::linesGoToTheLoggerThatCameLast()
{
    Journal first;
    Journal second;
    ZDefaultDbus bus;
    bus.getSetZLogger(&first);
    QCOMPARE(bus.getSetZLogger(&second), &second);
    bindDead(bus, "//w");
    QVERIFY(first.isEmpty());
    QCOMPARE(lines(second), QStringList{"4 (+) //w"});
}

void tst_Dbus::anAddressIsTheHostAndThePath_data()
{
    QTest::addColumn<QUrl>("given");
    QTest::addColumn<QString>("key");
    QUrl noSeparator;
    noSeparator.setHost(QStringLiteral("w"));
    noSeparator.setPath(QStringLiteral("x"));

    QTest::newRow("host and path") << url("//w/x") << "//w/x";
    QTest::newRow("empty path") << url("//w") << "//w";
    QTest::newRow("all there is") << url("scheme://user:Pass@W:80/x?q=1#f") << "//w/x";
    QTest::newRow("scheme") << url("scheme://w/x") << "//w/x";
    QTest::newRow("scheme of files") << url("file://w/x") << "//w/x";
    QTest::newRow("user") << url("//user@w/x") << "//w/x";
    QTest::newRow("port") << url("//w:80/x") << "//w/x";
    QTest::newRow("query") << url("//w/x?q=1") << "//w/x";
    QTest::newRow("query on a bare host") << url("//w?q=1") << "//w";
    QTest::newRow("fragment") << url("//w/x#f") << "//w/x";
    QTest::newRow("host in upper case") << url("//WORKER/run") << "//worker/run";
    QTest::newRow("path in upper case") << url("//w/Run") << "//w/Run";
    QTest::newRow("slash at the end") << url("//w/") << "//w/";
    QTest::newRow("encoded host") << url("//%57%6Frker/x") << "//worker/x";
    QTest::newRow("encoded path") << url("//w/a%20b%41") << "//w/a bA";
    QTest::newRow("encoded slash") << url("//w/a%2Fb") << "//w/a/b";
    QTest::newRow("encoded delimiters") << url("//w/a%3Fb%23c%25d") << "//w/a?b#c%d";
    QTest::newRow("letters") << url("//w/%C3%BC") << QString::fromUtf8("//w/\xc3\xbc");
    QTest::newRow("host with letters") << url("//xn--bcher-kva.de/x")
                                       << QString::fromUtf8("//b\xc3\xbc"
                                                            "cher.de/x");
    QTest::newRow("no separator") << noSeparator << "//wx";
}

void tst_Dbus::anAddressIsTheHostAndThePath()
{
    QFETCH(QUrl, given);
    QFETCH(QString, key);
    QUrl plain;
    plain.setHost(given.host());
    plain.setPath(given.path(QUrl::FullyDecoded), QUrl::DecodedMode);
    Journal journal;
    ZDefaultDbus bus;
    bus.getSetZLogger(&journal);
    const Shared worker = endpoint();
    QVERIFY(bus.bind0(given, worker));
    QCOMPARE(lines(journal), QStringList{"4 (+) " + key});
    QVERIFY(bus.find0(given));
    QVERIFY(bus.find0(plain));
    QVERIFY(bus.invoke0(given, nullptr, nullptr));
    QVERIFY(bus.invoke0(plain, nullptr, nullptr));
    QCOMPARE(worker->takeCalls(), 2);
    QCOMPARE(bus.findAll0(QRegularExpression(QString())), QList<QUrl>{QUrl(key)});
}

void tst_Dbus::addressesDifferByHostAndPath_data()
{
    QTest::addColumn<QUrl>("bound");
    QTest::addColumn<QUrl>("other");
    QTest::newRow("host") << url("//w/x") << url("//v/x");
    QTest::newRow("path") << url("//w/x") << url("//w/y");
    QTest::newRow("case of the path") << url("//w/x") << url("//w/X");
    QTest::newRow("encoded case of the path") << url("//w/x") << url("//w/%58");
    QTest::newRow("slash at the end") << url("//w/x") << url("//w/x/");
    QTest::newRow("slash only") << url("//w/") << url("//w");
    QTest::newRow("two slashes") << url("//w/x") << url("//w//x");
    QTest::newRow("a part of the path") << url("//w/x/y") << url("//w/x");
    QTest::newRow("more of the path") << url("//w/x") << url("//w/x/y");
    QTest::newRow("dots") << url("//w/x") << url("//w/y/../x");
}

void tst_Dbus::addressesDifferByHostAndPath()
{
    QFETCH(QUrl, bound);
    QFETCH(QUrl, other);
    ZDefaultDbus bus;
    const Shared worker = endpoint();
    QVERIFY(bus.bind0(bound, worker));
    QVERIFY(!bus.find0(other));
    QVERIFY(!bus.invoke0(other, nullptr, nullptr));
    QCOMPARE(worker->takeCalls(), 0);
}

void tst_Dbus::bindNeedsAHost_data()
{
    QTest::addColumn<QUrl>("given");
    QTest::newRow("nothing") << QUrl();
    QTest::newRow("word") << url("x");
    QTest::newRow("path") << url("/x");
    QTest::newRow("scheme and path") << url("scheme:/x");
    QTest::newRow("empty host") << url("scheme:///x");
    QTest::newRow("query") << url("?q");
}

void tst_Dbus::bindNeedsAHost()
{
    QFETCH(QUrl, given);
    Journal journal;
    ZDefaultDbus bus;
    bus.getSetZLogger(&journal);
    const Shared worker = endpoint();
    QVERIFY(!bus.bind0(given, worker));
    QVERIFY(!bus.find0(given));
    QCOMPARE(alive(bus), QStringList());
    QVERIFY(journal.isEmpty());
}

void tst_Dbus::bindKeepsNobodyAlive()
{
    ZDefaultDbus bus;
    Shared worker = endpoint();
    const QWeakPointer<Endpoint> watched = worker;
    bus.bind0(url("//w"), worker);
    call(bus, "//w");
    call(bus, "/x");
    alive(bus);
    worker.clear();
    QVERIFY(!watched);
}

void tst_Dbus::theLastBindingWins()
{
    Journal journal;
    ZDefaultDbus bus;
    bus.getSetZLogger(&journal);
    const Shared first = endpoint();
    const Shared last = endpoint();
    QVERIFY(bus.bind0(url("//w/x"), first));
    QVERIFY(bus.bind0(url("//W/x?again"), last));
    QCOMPARE(lines(journal), QStringList({"4 (+) //w/x", "4 (+) //w/x"}));
    QCOMPARE(alive(bus), QStringList{"//w/x"});
    QVERIFY(call(bus, "//w/x"));
    QCOMPARE(first->takeCalls(), 0);
    QCOMPARE(last->takeCalls(), 1);
}

void tst_Dbus::bindingNobodyIsABindingToTheDead()
{
    Journal journal;
    ZDefaultDbus bus;
    bus.getSetZLogger(&journal);
    const Shared worker = endpoint();
    QVERIFY(bus.bind0(url("//w"), worker));
    QVERIFY(bus.bind0(url("//w"), {}));
    QVERIFY(bus.find0(url("//w")));
    QVERIFY(!call(bus, "//w#quiet"));
    QCOMPARE(lines(journal), QStringList({"4 (+) //w", "4 (+) //w", "4 (-) //w"}));
    QVERIFY(!bus.find0(url("//w")));
    QCOMPARE(worker->takeCalls(), 0);
}

void tst_Dbus::bindLeavesTheOtherDeadAlone()
{
    Journal journal;
    ZDefaultDbus bus;
    bus.getSetZLogger(&journal);
    bindDead(bus, "//w");
    bindDead(bus, "//w/x");
    const Shared worker = endpoint();
    bus.bind0(url("//w/x"), worker); // comes back to life
    QCOMPARE(lines(journal), QStringList({"4 (+) //w", "4 (+) //w/x", "4 (+) //w/x"}));
    QVERIFY(bus.find0(url("//w")));
    QCOMPARE(alive(bus), QStringList{"//w/x"});
}

void tst_Dbus::findAsksForJustThisAddress()
{
    ZDefaultDbus bus;
    const Shared worker = endpoint();
    bus.bind0(url("//w"), worker);
    QVERIFY(bus.find0(url("//w")));
    QVERIFY(!bus.find0(url("//w/x"))); // although a call would reach it
    QVERIFY(!bus.find0(url("//v")));
    QVERIFY(!bus.find0(QUrl()));
    QVERIFY(!bus.find0(url("/x")));
}

void tst_Dbus::findCountsTheDeadAndLeavesThem()
{
    Journal journal;
    ZDefaultDbus bus;
    bus.getSetZLogger(&journal);
    bindDead(bus, "//w");
    QVERIFY(bus.find0(url("//w")));
    QVERIFY(bus.find0(url("//w")));
    QCOMPARE(lines(journal), QStringList{"4 (+) //w"});
}

void tst_Dbus::findAllMatchesTheAddress_data()
{
    QTest::addColumn<QString>("pattern");
    QTest::addColumn<QStringList>("found");
    QTest::newRow("everything") << "" << QStringList({"//v/X", "//zscheduler", "//zscheduler/printd"});
    QTest::newRow("start") << "^//zsched" << QStringList({"//zscheduler", "//zscheduler/printd"});
    QTest::newRow("end") << "er$" << QStringList{"//zscheduler"};
    QTest::newRow("anywhere") << "print" << QStringList{"//zscheduler/printd"};
    QTest::newRow("whole") << "^//v/X$" << QStringList{"//v/X"};
    QTest::newRow("another case") << "x" << QStringList();
    QTest::newRow("case ignored by the pattern") << "(?i)x" << QStringList{"//v/X"};
    QTest::newRow("scheme") << "scheme" << QStringList();
    QTest::newRow("query") << "query" << QStringList();
    QTest::newRow("no slashes before it") << "^zsched" << QStringList();
}

void tst_Dbus::findAllMatchesTheAddress()
{
    QFETCH(QString, pattern);
    ZDefaultDbus bus;
    const Shared worker = endpoint();
    bus.bind0(url("scheme://ZScheduler?query"), worker);
    bus.bind0(url("scheme://ZScheduler/printd"), worker);
    bus.bind0(url("scheme://v/X"), worker);
    QTEST(alive(bus, pattern), "found");
}

void tst_Dbus::findAllAnswersTheAddressAsAUrl_data()
{
    QTest::addColumn<QUrl>("bound");
    QTest::addColumn<QUrl>("found");
    QTest::newRow("bare host") << url("scheme://W") << url("//w");
    QTest::newRow("host and path") << url("scheme://W/x?q#f") << url("//w/x");
    QTest::newRow("space") << url("//w/a%20b") << url("//w/a b");
    QTest::newRow("mark of a query") << url("//w/a%3Fb") << url("//w/a?b"); // read anew, as any text
    QTest::newRow("percent sign") << url("//w/50%25") << url("//w/50%25");
}

void tst_Dbus::findAllAnswersTheAddressAsAUrl()
{
    QFETCH(QUrl, bound);
    QFETCH(QUrl, found);
    ZDefaultDbus bus;
    const Shared worker = endpoint();
    bus.bind0(bound, worker);
    const QList<QUrl> urls = bus.findAll0(QRegularExpression(QString()));
    QCOMPARE(urls, QList<QUrl>{found});
    QVERIFY(urls.first().scheme().isEmpty());
}

void tst_Dbus::findAllForgetsTheDeadWhateverThePattern()
{
    Journal journal;
    ZDefaultDbus bus;
    const Shared worker = endpoint();
    bindDead(bus, "//u");
    bus.bind0(url("//v"), worker);
    bindDead(bus, "//w/x");
    bus.getSetZLogger(&journal);
    QCOMPARE(alive(bus, QStringLiteral("nothing")), QStringList());
    QCOMPARE(sorted(lines(journal)), QStringList({"4 (-) //u", "4 (-) //w/x"}));
    QVERIFY(!bus.find0(url("//u")));
    QVERIFY(!bus.find0(url("//w/x")));
    QCOMPARE(alive(bus), QStringList{"//v"});
    QVERIFY(journal.isEmpty()); // once
}

void tst_Dbus::findAllOfAnInvalidPatternDoesNothing()
{
    Journal journal;
    ZDefaultDbus bus;
    const Shared worker = endpoint();
    bus.bind0(url("//v"), worker);
    bindDead(bus, "//w");
    bus.getSetZLogger(&journal);
    QCOMPARE(alive(bus, QStringLiteral("(")), QStringList());
    QVERIFY(journal.isEmpty());
    QVERIFY(bus.find0(url("//w")));
}

void tst_Dbus::aCallHandsOverWhatItWasGiven_data()
{
    QTest::addColumn<QUrl>("given");
    QTest::addColumn<bool>("withIn");
    QTest::addColumn<bool>("withOut");
    QTest::newRow("both") << url("scheme://user:pass@W:80/x%20y?q=1#f") << true << true;
    QTest::newRow("no question") << url("//w/x") << false << true;
    QTest::newRow("no answer") << url("//w") << true << false;
    QTest::newRow("neither") << url("//w/%2F") << false << false;
}

void tst_Dbus::aCallHandsOverWhatItWasGiven()
{
    QFETCH(QUrl, given);
    QFETCH(bool, withIn);
    QFETCH(bool, withOut);
    QJsonObject question{{QStringLiteral("number"), 1}};
    QJsonObject answer;
    QJsonObject *const in = withIn ? &question : nullptr;
    QJsonObject *const out = withOut ? &answer : nullptr;
    ZDefaultDbus bus;
    const Shared worker = endpoint([&](const QUrl &url, QJsonObject *i, QJsonObject *o) {
        if (o)
            o->insert(QStringLiteral("answered"), true);
        return url == given && url.toString() == given.toString() && i == in && o == out;
    });
    bus.bind0(url("//w"), worker);
    QVERIFY(bus.invoke0(given, in, out));
    QCOMPARE(question, QJsonObject({{QStringLiteral("number"), 1}}));
    QCOMPARE(answer.contains(QStringLiteral("answered")), withOut);
}

void tst_Dbus::aCallAnswersWhatTheSubscriberAnswers()
{
    ZDefaultDbus bus;
    const Shared willing = endpoint(true);
    const Shared unwilling = endpoint(false);
    bus.bind0(url("//w"), willing);
    bus.bind0(url("//w/x"), unwilling);
    QVERIFY(call(bus, "//w"));
    QVERIFY(!call(bus, "//w/x"));
    QCOMPARE(unwilling->takeCalls(), 1);
    QCOMPARE(willing->takeCalls(), 1); // a refusal is not handed on to the host
}

void tst_Dbus::aCallTriesTheAddressAndThenTheHost_data()
{
    QTest::addColumn<QStringList>("bound");
    QTest::addColumn<QUrl>("called");
    QTest::addColumn<QString>("reached");
    const QStringList both{"//w", "//w/x"};
    QTest::newRow("its own") << both << url("//w/x") << "//w/x";
    QTest::newRow("its own, in other words") << both << url("scheme://W/x?q=1#f") << "//w/x";
    QTest::newRow("another path") << both << url("//w/y") << "//w";
    QTest::newRow("host") << both << url("//w") << "//w";
    QTest::newRow("slash") << both << url("//w/") << "//w";
    QTest::newRow("more of the path") << both << url("//w/x/y") << "//w";
    QTest::newRow("less of the path") << QStringList({"//w", "//w/x/y"}) << url("//w/x") << "//w";
    QTest::newRow("another host") << both << url("//v/x") << "";
    QTest::newRow("path above it") << QStringList({"//app/task", "//app/"}) << url("//app/task/sub") << "";
    QTest::newRow("host without its own") << QStringList{"//w/x"} << url("//w") << "";
    QTest::newRow("host above it") << QStringList({"//example", "//w.example/x"}) << url("//w.example") << "";
}

void tst_Dbus::aCallTriesTheAddressAndThenTheHost()
{
    QFETCH(QStringList, bound);
    QFETCH(QUrl, called);
    ZDefaultDbus bus;
    QStringList reached;
    QList<Shared> held;
    for (const QString &text : qAsConst(bound)) {
        held << doing([&reached, text] { reached << text; });
        QVERIFY(bus.bind0(QUrl(text), held.last()));
    }
    QCOMPARE(alive(bus).size(), bound.size());
    const bool handled = bus.invoke0(called, nullptr, nullptr);
    QCOMPARE(handled, !reached.isEmpty());
    QTEST(reached.join(QLatin1Char(' ')), "reached");
}

void tst_Dbus::aCallToNobodyIsFalse()
{
    Journal journal;
    ZDefaultDbus bus;
    bus.getSetZLogger(&journal);
    QVERIFY(!call(bus, "//w/x"));
    QCOMPARE(lines(journal), QStringList{"8 (>) //w/x"});
    QVERIFY(!call(bus, "//w/x#quiet"));
    QVERIFY(journal.isEmpty());
}

void tst_Dbus::aCallToTheDeadIsFalseAndForgetsThem()
{
    Journal journal;
    ZDefaultDbus bus;
    bindDead(bus, "//w/x");
    bindDead(bus, "//v");
    bus.getSetZLogger(&journal);
    QVERIFY(!call(bus, "//w/x"));
    QCOMPARE(lines(journal), QStringList({"8 (>) //w/x", "4 (-) //w/x"}));
    QVERIFY(!bus.find0(url("//w/x")));
    QVERIFY(!call(bus, "//w/x"));
    QCOMPARE(lines(journal), QStringList{"8 (>) //w/x"});

    QVERIFY(!call(bus, "//v/y")); // which reaches the host
    QCOMPARE(lines(journal), QStringList({"8 (>) //v/y", "4 (-) //v"}));
    QVERIFY(!bus.find0(url("//v")));
}

void tst_Dbus::aCallToADeadAddressDoesNotReachTheHost()
{
    ZDefaultDbus bus;
    const Shared host = endpoint();
    bus.bind0(url("//w"), host);
    bindDead(bus, "//w/x");
    QVERIFY(!call(bus, "//w/x"));
    QCOMPARE(host->takeCalls(), 0);
    QVERIFY(call(bus, "//w/x")); // the next one does
    QCOMPARE(host->takeCalls(), 1);
}

void tst_Dbus::aCallForgetsOnlyWhomItMeets()
{
    Journal journal;
    ZDefaultDbus bus;
    const Shared worker = endpoint();
    bindDead(bus, "//w");
    bindDead(bus, "//w/x");
    bus.bind0(url("//w/y"), worker);
    bus.getSetZLogger(&journal);
    QVERIFY(call(bus, "//w/y#quiet"));
    QVERIFY(journal.isEmpty());
    QVERIFY(!call(bus, "//w/x#quiet"));
    QCOMPARE(lines(journal), QStringList{"4 (-) //w/x"});
    QVERIFY(bus.find0(url("//w")));
}

void tst_Dbus::aUrlWithoutAHostCallsEverybody_data()
{
    QTest::addColumn<QUrl>("called");
    QTest::newRow("nothing") << QUrl();
    QTest::newRow("word") << url("x");
    QTest::newRow("path") << url("/x");
    QTest::newRow("scheme and path") << url("scheme:/x");
    QTest::newRow("quiet") << url("/x#f");
}

void tst_Dbus::aUrlWithoutAHostCallsEverybody()
{
    QFETCH(QUrl, called);
    ZDefaultDbus bus;
    QVERIFY(!bus.invoke0(called, nullptr, nullptr)); // there is nobody
    const Shared host = endpoint();
    const Shared path = endpoint();
    const Shared other = endpoint();
    bus.bind0(url("//w"), host);
    bus.bind0(url("//w/x"), path);
    bus.bind0(url("//v/y"), other);
    QVERIFY(bus.invoke0(called, nullptr, nullptr));
    QCOMPARE(host->takeCalls(), 1);
    QCOMPARE(path->takeCalls(), 1);
    QCOMPARE(other->takeCalls(), 1);
}

void tst_Dbus::aBroadcastIsHandledWhenAnybodyHandlesIt()
{
    constexpr int Count = 4;
    const char *const texts[Count] = {"//u", "//v", "//w", "//x"};
    for (int willing = 0; willing <= Count; ++willing) { // each place in the order, and nobody
        ZDefaultDbus bus;
        QList<Shared> held;
        for (int i = 0; i < Count; ++i) {
            held << endpoint(i == willing);
            bus.bind0(url(texts[i]), held.last());
        }
        QCOMPARE(call(bus, "/x"), willing < Count);
        for (const Shared &each : qAsConst(held))
            QCOMPARE(each->takeCalls(), 1);
    }
}

void tst_Dbus::aBroadcastCallsASubscriberForEachOfItsAddresses()
{
    ZDefaultDbus bus;
    const Shared worker = endpoint();
    bus.bind0(url("//w"), worker);
    bus.bind0(url("//w/x"), worker);
    QVERIFY(call(bus, "/x"));
    QCOMPARE(worker->takeCalls(), 2);
}

void tst_Dbus::aBroadcastHandsOverWhatItWasGiven()
{
    const QUrl given = url("scheme:/x%20y?q=1#f");
    QJsonObject in;
    QJsonObject out;
    int equal = 0;
    const auto compare = [&](const QUrl &url, QJsonObject *i, QJsonObject *o) {
        equal += url == given && i == &in && o == &out;
        return true;
    };
    ZDefaultDbus bus;
    const Shared first = endpoint(compare);
    const Shared second = endpoint(compare);
    bus.bind0(url("//v"), first);
    bus.bind0(url("//w"), second);
    QVERIFY(bus.invoke0(given, &in, &out));
    QCOMPARE(equal, 2);
}

void tst_Dbus::aBroadcastForgetsTheDead()
{
    Journal journal;
    ZDefaultDbus bus;
    bindDead(bus, "//u");
    bindDead(bus, "//v/x");
    bus.getSetZLogger(&journal);
    QVERIFY(!call(bus, "/x"));
    QCOMPARE(sorted(lines(journal)), QStringList({"4 (-) //u", "4 (-) //v/x", "8 (>) /x"}));
    QVERIFY(!bus.find0(url("//u")));
    QVERIFY(!bus.find0(url("//v/x")));
}

void tst_Dbus::aCallIsLoggedUnlessItHasAFragment_data()
{
    QTest::addColumn<QUrl>("called");
    QTest::addColumn<QStringList>("written");
    QTest::newRow("plain") << url("//w/x") << QStringList{"8 (>) //w/x"};
    QTest::newRow("all but a fragment") << url("scheme://user@W:80/x?q=1")
                                        << QStringList{"8 (>) scheme://user@w:80/x?q=1"};
    QTest::newRow("readable") << url("//w/a%20b%3F") << QStringList{"8 (>) //w/a b%3F"};
    QTest::newRow("fragment") << url("//w/x#f") << QStringList();
    QTest::newRow("empty fragment") << url("//w/x#") << QStringList();
}

void tst_Dbus::aCallIsLoggedUnlessItHasAFragment()
{
    QFETCH(QUrl, called);
    Journal journal;
    ZDefaultDbus bus;
    const Shared worker = endpoint();
    bus.bind0(url("//w"), worker);
    bus.getSetZLogger(&journal);
    QVERIFY(bus.invoke0(called, nullptr, nullptr));
    QTEST(lines(journal), "written");
}

void tst_Dbus::aBroadcastIsLoggedUnlessItHasAFragment()
{
    Journal journal;
    ZDefaultDbus bus;
    const Shared worker = endpoint();
    bus.bind0(url("//v"), worker);
    bus.bind0(url("//w/x"), worker);
    bindDead(bus, "//x");
    bus.getSetZLogger(&journal);
    call(bus, "scheme:/do?it");
    const QStringList written = lines(journal);
    QCOMPARE(written.first(), QStringLiteral("8 (>) scheme:/do?it"));
    QCOMPARE(sorted(written), QStringList({"4 (-) //x", "8 (>) scheme:/do?it", "8 (>) scheme:/do?it (//v)",
                                           "8 (>) scheme:/do?it (//w/x)"}));
    call(bus, "scheme:/do?it#f");
    QVERIFY(journal.isEmpty());
}

void tst_Dbus::aBroadcastLogsEachCallBeforeItIsMade()
{
    Journal journal;
    ZDefaultDbus bus;
    bus.getSetZLogger(&journal);
    const Shared first = doing([&] { journal.info0(QStringLiteral("//v")); });
    const Shared second = doing([&] { journal.info0(QStringLiteral("//w")); });
    bus.bind0(url("//v"), first);
    bus.bind0(url("//w"), second);
    lines(journal);
    call(bus, "/x");
    const QStringList written = lines(journal);
    QCOMPARE(written.size(), 5);
    for (int i : {1, 3}) {
        const QString who = written[i + 1].mid(int(qstrlen("info: ")));
        QCOMPARE(written[i], QStringLiteral("8 (>) /x (%1)").arg(who));
    }
}

void tst_Dbus::theDeadAreLoggedInAQuietCallToo()
{
    Journal journal;
    ZDefaultDbus bus;
    bindDead(bus, "//v");
    bindDead(bus, "//w");
    bus.getSetZLogger(&journal);
    call(bus, "//v#f");
    QCOMPARE(lines(journal), QStringList{"4 (-) //v"});
    call(bus, "/x#f");
    QCOMPARE(lines(journal), QStringList{"4 (-) //w"});
}

void tst_Dbus::placeholdersInAUrlStay()
{
    Journal journal;
    ZDefaultDbus bus;
    bus.getSetZLogger(&journal);
    const Shared worker = endpoint();
    bus.bind0(url("//w/%251%252"), worker);
    call(bus, "/%01");
    QCOMPARE(lines(journal), QStringList({"4 (+) //w/%1%2", "8 (>) /%01", "8 (>) /%01 (//w/%1%2)"}));
}

void tst_Dbus::linesAreWrittenOnlyForTheirKind_data()
{
    QTest::addColumn<int>("mask");
    QTest::addColumn<QString>("category");
    QTest::addColumn<QStringList>("written");
    const QStringList table{"4 (+) //w", "4 (-) //w"};
    const QStringList calls{"8 (>) //w"};
    QTest::newRow("table") << 4 << "zdefault" << table;
    QTest::newRow("calls") << 8 << "zdefault" << calls;
    QTest::newRow("neither") << ~12 << "zdefault" << QStringList();
    QTest::newRow("nothing") << 0 << "zdefault" << QStringList();
    QTest::newRow("another category") << 12 << "zscheduler" << QStringList();
}

void tst_Dbus::linesAreWrittenOnlyForTheirKind()
{
    QFETCH(int, mask);
    QFETCH(QString, category);
    Journal journal(mask, true, category);
    ZDefaultDbus bus;
    bus.getSetZLogger(&journal);
    bindDead(bus, "//w");
    call(bus, "//w");
    QTEST(lines(journal), "written");
}

void tst_Dbus::withoutALoggerNothingIsWritten()
{
    ZDefaultDbus bus;
    bindDead(bus, "//w");
    call(bus, "//w");
    call(bus, "/x");
    QVERIFY(messages().takeAll().isEmpty());
}

void tst_Dbus::aCallToOneHoldsNoLock()
{
    ZDefaultDbus bus;
    const Shared inner = endpoint();
    bool done = false;
    const Shared outer = doing([&] {
        done = bus.bind0(url("//inner"), inner) && bus.find0(url("//inner")) && call(bus, "//inner") &&
               alive(bus) == QStringList({"//inner", "//outer"});
    });
    bus.bind0(url("//outer"), outer);
    const Elsewhere caller([&] { call(bus, "//outer/x"); });
    QVERIFY(caller.ended());
    QVERIFY(done);
    QCOMPARE(inner->takeCalls(), 1);
}

void tst_Dbus::oneSubscriberMayBeCalledSeveralTimesAtOnce()
{
    ZDefaultDbus bus;
    QSemaphore inside;
    QSemaphore leave;
    const Shared worker = doing([&] {
        inside.release();
        leave.tryAcquire(1, LongTime);
    });
    bus.bind0(url("//w"), worker);
    const Elsewhere first([&] { call(bus, "//w/x"); });
    const Elsewhere second([&] { call(bus, "//w/x"); });
    const bool together = inside.tryAcquire(2, LongTime);
    leave.release(2);
    QVERIFY(first.ended());
    QVERIFY(second.ended());
    QVERIFY(together);
}

void tst_Dbus::aBroadcastHoldsTheLock_data()
{
    QTest::addColumn<Operation>("operation");
    QTest::newRow("bind") << Operation([](ZDbus &bus) { bindDead(bus, "//new"); });
    QTest::newRow("find") << Operation([](ZDbus &bus) { bus.find0(url("//w")); });
    QTest::newRow("find all") << Operation([](ZDbus &bus) { alive(bus); });
    QTest::newRow("call to one") << Operation([](ZDbus &bus) { call(bus, "//nobody"); });
    QTest::newRow("call to everybody") << Operation([](ZDbus &bus) { call(bus, "/y"); });
}

void tst_Dbus::aBroadcastHoldsTheLock()
{
    QFETCH(Operation, operation);
    ZDefaultDbus bus;
    QSemaphore inside;
    QSemaphore leave;
    const Shared worker = endpoint([&](const QUrl &called, QJsonObject *, QJsonObject *) {
        if (called != url("/x"))
            return true;
        inside.release();
        return leave.tryAcquire(1, LongTime);
    });
    bus.bind0(url("//w"), worker);
    bool handled = false;
    const Elsewhere broadcast([&] { handled = call(bus, "/x"); });
    QVERIFY(inside.tryAcquire(1, LongTime));
    const Elsewhere other([&] { operation(bus); });
    const bool early = other.ended(TimeToGoWrong);
    leave.release();
    QVERIFY(broadcast.ended());
    QVERIFY(other.ended());
    QVERIFY(handled);
    QVERIFY(!early);
}

void tst_Dbus::aCallIsLoggedBeforeItWaitsForTheLock()
{
    Journal journal;
    ZDefaultDbus bus;
    bus.getSetZLogger(&journal);
    QSemaphore inside;
    QSemaphore leave;
    const Shared worker = doing([&] {
        inside.release();
        leave.tryAcquire(1, LongTime);
    });
    bus.bind0(url("//w"), worker);
    const Elsewhere broadcast([&] { call(bus, "/x"); });
    QVERIFY(inside.tryAcquire(1, LongTime));
    lines(journal);
    const Elsewhere other([&] { call(bus, "//nobody"); });
    const bool logged = QTest::qWaitFor([&] { return !journal.isEmpty(); }, LongTime);
    leave.release();
    QVERIFY(broadcast.ended());
    QVERIFY(other.ended());
    QVERIFY(logged);
    QCOMPARE(lines(journal), QStringList{"8 (>) //nobody"});
}

void tst_Dbus::whatFailsAtOnceTakesNoLock()
{
    ZDefaultDbus bus;
    bool failed = false;
    const Shared worker = doing(
        [&] { failed = !bus.bind0(url("/x"), {}) && bus.findAll0(QRegularExpression(QStringLiteral("("))).isEmpty(); });
    bus.bind0(url("//w"), worker);
    const Elsewhere broadcast([&] { call(bus, "/x"); });
    QVERIFY(broadcast.ended());
    QVERIFY(failed);
}

void tst_Dbus::aSubscriberLivesThroughItsCall_data()
{
    QTest::addColumn<QUrl>("called");
    QTest::newRow("call to one") << url("//w/x");
    QTest::newRow("call to everybody") << url("/x");
}

void tst_Dbus::aSubscriberLivesThroughItsCall()
{
    QFETCH(QUrl, called);
    ZDefaultDbus bus;
    Shared worker;
    bool ended = false;
    bool endedInside = true;
    worker = doing([&] {
        worker.clear();
        endedInside = ended;
    });
    worker->m_end = [&] { ended = true; };
    bus.bind0(url("//w"), worker);
    QVERIFY(bus.invoke0(called, nullptr, nullptr));
    QVERIFY(!endedInside);
    QVERIFY(ended);
}

void tst_Dbus::aSubscriberMayUseTheBusAsItEnds_data() { aSubscriberLivesThroughItsCall_data(); }

void tst_Dbus::aSubscriberMayUseTheBusAsItEnds()
{
    QFETCH(QUrl, called);
    ZDefaultDbus bus;
    bool found = false;
    Shared worker;
    worker = doing([&] { worker.clear(); });
    worker->m_end = [&] { found = bus.find0(url("//w")) && !call(bus, "//w"); };
    bus.bind0(url("//w"), worker);
    const Elsewhere caller([&] { bus.invoke0(called, nullptr, nullptr); });
    QVERIFY(caller.ended());
    QVERIFY(found);
}

void tst_Dbus::whatASubscriberThrowsPassesThrough_data() { aSubscriberLivesThroughItsCall_data(); }

void tst_Dbus::whatASubscriberThrowsPassesThrough()
{
    QFETCH(QUrl, called);
    ZDefaultDbus bus;
    const Shared worker = doing([] { throw std::runtime_error("no"); });
    bus.bind0(url("//w"), worker);
    QVERIFY_EXCEPTION_THROWN(bus.invoke0(called, nullptr, nullptr), std::runtime_error);
    bool found = false;
    const Elsewhere other([&] { found = bus.find0(url("//w")); }); // the bus goes on
    QVERIFY(other.ended());
    QVERIFY(found);
}

void tst_Dbus::whatIsToldToBeGoneIsGoneWhateverIsThrown()
{
    Journal journal;
    ZDefaultDbus bus;
    const Shared worker = doing([] { throw std::runtime_error("no"); });
    bus.bind0(url("//w"), worker);
    QStringList keys;
    for (int i = 0; i < 20; ++i) { // some of which are met before the one that throws
        keys << QStringLiteral("//w/%1").arg(i);
        bus.bind0(QUrl(keys.last()), endpoint());
    }
    bus.getSetZLogger(&journal);
    QVERIFY_EXCEPTION_THROWN(bus.invoke0(url("/#quiet"), nullptr, nullptr), std::runtime_error);
    const QStringList told = lines(journal);
    for (const QString &key : keys)
        QCOMPARE(bus.find0(QUrl(key)), !told.contains(QStringLiteral("4 (-) ") + key));
    QCOMPARE(alive(bus), QStringList{"//w"});
    QCOMPARE(sorted(told + lines(journal)).size(), keys.size()); // each once
}

void tst_Dbus::theEndOfTheBusSparesItsSubscribers()
{
    const Shared worker = endpoint();
    {
        ZDefaultDbus bus;
        bus.bind0(url("//w"), worker);
    }
    QVERIFY(worker->invoked(url("//w"), nullptr, nullptr));
}

void tst_Dbus::threadsMayDoAnythingAtOnce()
{
    constexpr int Threads = 4;
    constexpr int Rounds = 300;
    ZDefaultDbus bus;
    const Shared shared = endpoint();
    bus.bind0(url("//shared"), shared);
    std::atomic_int handled{0};
    QSemaphore start;
    {
        std::vector<std::unique_ptr<Elsewhere>> threads;
        for (int t = 0; t < Threads; ++t) {
            threads.push_back(std::make_unique<Elsewhere>([&, t] {
                const QByteArray own = "//w" + QByteArray::number(t);
                start.acquire();
                for (int i = 0; i < Rounds; ++i) {
                    const Shared worker = endpoint();
                    bus.bind0(url(own), worker);
                    handled += call(bus, own);
                    handled += call(bus, "//shared/x");
                    bus.find0(url("//shared"));
                    if (i % 10 == 0) {
                        call(bus, "/everybody");
                        alive(bus);
                    }
                }
            }));
        }
        start.release(Threads);
        for (const auto &thread : threads)
            QVERIFY(thread->ended());
    }
    QCOMPARE(handled.load(), Threads * Rounds * 2);
    QCOMPARE(shared->takeCalls(), Threads * Rounds + Threads * Rounds / 10);
    QCOMPARE(alive(bus), QStringList{"//shared"});
}

QTEST_GUILESS_MAIN(tst_Dbus)

#include "tst_dbus.moc"
