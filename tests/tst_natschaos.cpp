// SPDX-License-Identifier: Apache-2.0
#include "island.h"
#include "journalfile.h"
#include "pair.h"
#include "proxy.h"
#include "testcase.h"

#include <QElapsedTimer>

namespace {

const QString Url = QStringLiteral("//w");
const QString Key = QStringLiteral("key");

QJsonObject shortly(int msecs = 500) { return {{QStringLiteral("timeout"), msecs}, {QStringLiteral("patience"), 0}}; }

} // namespace

/// Processes that stop where they are, networks in pieces, and more calls than can be answered.
class tst_NatsChaos : public TestCase
{
    Q_OBJECT

private Q_SLOTS:
    void callsThatTimedOutAreNotRunWhenTheProviderGoesOn();
    void callsGoOnWhenTheBrokerGoesOn();
    void whenTheBrokerHangsCallsAndTheEndAreInTime();
    void aPartitionIsWaitedForAndMended();
    void aNetworkThatLosesAllIsWaitedForAndMended();
    void overloadIsRefusedAndNobodyIsSlow();
    void hostsComeAndGo();
    void whoExitsWhileItConnectsEnds();
    void exitOnAnyThreadHasItsStatus();
};

void tst_NatsChaos::callsThatTimedOutAreNotRunWhenTheProviderGoesOn()
{
    const JournalFile journal;
    Pair pair(shortly());
    QVERIFY(pair.start());
    QVERIFY(pair.provider.bind(Url, journal.option()));
    QVERIFY(pair.caller.handles(Url));
    const int before = pair.provider.calls(Url);
    pair.provider.signal(SIGSTOP);
    QElapsedTimer stopped;
    stopped.start();
    QStringList timedOut;
    while (stopped.elapsed() < 3000) {
        QList<int> ids;
        for (int i = 0; i < 4; ++i) {
            timedOut << QStringLiteral("late-%1").arg(timedOut.size());
            ids << pair.caller.begin(QStringLiteral("outcome"),
                                     {{QStringLiteral("url"), Url},
                                      {QStringLiteral("in"), QJsonObject{{QStringLiteral("id"), timedOut.last()}}}});
        }
        for (int id : qAsConst(ids)) {
            const QJsonObject answer = pair.caller.answer(id);
            QCOMPARE(at(answer, "outcome", "code").toInt(), 504);
            QVERIFY(at(answer, "ms").toInt() >= 450);
        }
    }
    pair.provider.signal(SIGCONT);
    const QJsonObject answer = pair.caller.call(Url, {{QStringLiteral("id"), QStringLiteral("in time")}});
    QVERIFY2(at(answer, "handled").toBool(), qPrintable(at(answer, "outcome", "reason").toString()));
    QCOMPARE(journal.lines(), QStringList{QStringLiteral("in time")});
    QCOMPARE(pair.provider.calls(Url), before + 1);
    // They were all there.
    QTRY_COMPARE(at(pair.provider.report(), "calls", "in", "failed").toInt(), timedOut.size());
}

void tst_NatsChaos::callsGoOnWhenTheBrokerGoesOn()
{
    const JournalFile journal;
    Pair pair(shortly());
    QVERIFY(pair.start());
    QVERIFY(pair.provider.bind(Url, journal.option()));
    QVERIFY(pair.caller.handles(Url));
    pair.broker.stop();
    QElapsedTimer stopped;
    stopped.start();
    while (stopped.elapsed() < 3000) {
        const QJsonObject answer = pair.caller.call(Url, {{QStringLiteral("id"), QStringLiteral("late")}});
        QVERIFY(!at(answer, "handled").toBool());
        QVERIFY(at(answer, "ms").toInt() < 2000);
    }
    QVERIFY(pair.provider.handles(Url)); // in its own process
    pair.broker.resume();
    QTRY_VERIFY_WITH_TIMEOUT(pair.caller.handles(Url), 20000);
    QCOMPARE(journal.lines(), QStringList());
    pair.broker.stop(); // and who ends meanwhile does so in time
    const qint64 took = pair.provider.quit();
    QVERIFY2(took >= 0 && took < 5000, qPrintable(QString::number(took)));
    pair.broker.resume();
}

/// Also those whose requests do not fit into the socket any more.
void tst_NatsChaos::whenTheBrokerHangsCallsAndTheEndAreInTime()
{
    constexpr int Timeout = 500;
    constexpr int Later = 4000; // it takes some of that to write nine megabytes as JSON
    Pair pair(shortly(Timeout));
    QVERIFY(pair.start());
    QVERIFY(pair.provider.bind(Url));
    QVERIFY(pair.caller.handles(Url));
    pair.broker.stop();
    for (int round = 0; round < 3; ++round) {
        QList<int> ids;
        for (int i = 0; i < 12; ++i) {
            QJsonObject question{{QStringLiteral("url"), Url}, {QStringLiteral("out"), QJsonObject()}};
            if (i < 9) // the others have little to say, but wait for them
                question.insert(QStringLiteral("bytes"), 1000000);
            ids << pair.caller.begin(QStringLiteral("outcome"), question);
        }
        ids << pair.caller.begin(QStringLiteral("find"), {{QStringLiteral("url"), Url}});
        ids << pair.caller.begin(QStringLiteral("outcome"), {{QStringLiteral("url"), QStringLiteral("//nats/hosts")},
                                                             {QStringLiteral("out"), QJsonObject()}});
        for (int id : qAsConst(ids)) {
            const QJsonObject answer = pair.caller.answer(id, 30000);
            const int took = at(answer, "ms").toInt(-1);
            QVERIFY2(took >= 0 && took < Timeout + Later,
                     qPrintable(QStringLiteral("%1: %2").arg(id - ids.constFirst()).arg(took)));
        }
        QVERIFY(pair.caller.loopDelay() < 1000);
    }
    QElapsedTimer timer;
    timer.start();
    pair.caller.report();
    QVERIFY(timer.elapsed() < 2000);
    pair.caller.ask(
        QStringLiteral("load"),
        {{QStringLiteral("url"), Url}, {QStringLiteral("threads"), 6}, {QStringLiteral("bytes"), 1000000}, {Key, Key}});
    QTest::qWait(1000); // it is in the middle of them
    const int under = at(pair.caller.report(), "calls", "out", "under way").toInt();
    QVERIFY(under > 0);
    pair.broker.resume();
    QTRY_VERIFY_WITH_TIMEOUT(pair.caller.handles(Url), 20000);
    QVERIFY(pair.caller.ask(QStringLiteral("unload"), {{Key, Key}}).size() > 0);
    // And who ends, once more while it hangs.
    pair.broker.stop();
    QList<int> ids;
    for (int i = 0; i < 9; ++i)
        ids << pair.caller.begin(QStringLiteral("outcome"),
                                 {{QStringLiteral("url"), Url}, {QStringLiteral("bytes"), 1000000}});
    for (int id : qAsConst(ids))
        QVERIFY(!at(pair.caller.answer(id), "handled").toBool());
    for (int i = 0; i < 3; ++i)
        pair.caller.begin(QStringLiteral("outcome"), {{QStringLiteral("url"), Url}});
    const qint64 took = pair.caller.quit();
    QVERIFY2(took >= 0 && took < 3000, qPrintable(QString::number(took)));
    const qint64 others = pair.provider.quit();
    QVERIFY2(others >= 0 && others < 3000, qPrintable(QString::number(others)));
    for (NodeProcess *each : {&pair.caller, &pair.provider})
        QVERIFY2(!each->hasLogged(QStringLiteral("stays in memory")), qPrintable(each->log().join(QLatin1Char('\n'))));
}

void tst_NatsChaos::aPartitionIsWaitedForAndMended()
{
    Broker broker;
    QVERIFY(broker.start());
    Proxy network(broker.port());
    const JournalFile journal;
    NodeProcess caller(QStringLiteral("caller"), sectionFor(broker.url(), shortly()));
    NodeProcess provider(QStringLiteral("provider"), sectionFor(network.url()));
    QVERIFY(caller.startConnected());
    QVERIFY(provider.startConnected());
    QVERIFY(provider.bind(Url, journal.option()));
    QVERIFY(caller.handles(Url));
    network.cut();
    for (int i = 0; i < 3; ++i) {
        const QJsonObject answer = caller.call(Url, {{QStringLiteral("id"), QStringLiteral("late-%1").arg(i)}});
        QCOMPARE(at(answer, "outcome", "code").toInt(), 504);
    }
    QTest::qWait(1000); // all of them are past their time for certain
    network.mend();
    QTRY_VERIFY_WITH_TIMEOUT(caller.handles(Url), 20000);
    QVERIFY2(journal.lines().isEmpty(), qPrintable(journal.lines().join(QLatin1Char(' '))));
}

/// The system's own, while its connections stay.
void tst_NatsChaos::aNetworkThatLosesAllIsWaitedForAndMended()
{
    Island island;
    if (!island.isReached())
        return QTest::qSkip("only root has networks to lose", __FILE__, __LINE__);
    const JournalFile journal;
    Pair pair(shortly());
    QVERIFY(pair.start());
    QVERIFY(pair.provider.bind(Url, journal.option()));
    QVERIFY(pair.caller.handles(Url));
    island.setConnected(false);
    for (int i = 0; i < 6; ++i) {
        const QJsonObject answer = pair.caller.call(Url, {{QStringLiteral("id"), QStringLiteral("late-%1").arg(i)}});
        QCOMPARE(at(answer, "outcome", "code").toInt(), 504);
    }
    island.setConnected(true);
    QTRY_VERIFY_WITH_TIMEOUT(pair.caller.handles(Url), 60000); // the system tries again ever more seldom
    QVERIFY2(journal.lines().isEmpty(), qPrintable(journal.lines().join(QLatin1Char(' '))));
}

void tst_NatsChaos::overloadIsRefusedAndNobodyIsSlow()
{
    const JournalFile journal;
    Pair pair(shortly(3000), {{QStringLiteral("workers"), 2}, {QStringLiteral("queue"), 8}});
    pair.caller.setMask(0); // it fails by the thousand
    QVERIFY(pair.start());
    QJsonObject options = journal.option();
    options.insert(QStringLiteral("kind"), QStringLiteral("slow"));
    options.insert(QStringLiteral("ms"), 50);
    QVERIFY(pair.provider.bind(Url, options));
    pair.caller.ask(
        QStringLiteral("load"),
        {{QStringLiteral("url"), Url}, {QStringLiteral("threads"), 32}, {QStringLiteral("pause"), 2}, {Key, Url}});
    QTRY_VERIFY_WITH_TIMEOUT(
        at(pair.caller.ask(QStringLiteral("report"), {{Key, Url}}), "failed").toArray().size() > 30, 60000);
    QVERIFY(at(pair.provider.report(), "queue", "running").toInt() <= 2);
    const QJsonObject report = pair.caller.ask(QStringLiteral("unload"), {{Key, Url}});
    QVERIFY(at(report, "handled").toInt() > 0);
    const QJsonArray failed = at(report, "failed").toArray();
    for (const auto &failure : failed)
        QCOMPARE(at(failure, "reason").toString(), QStringLiteral("busy"));
    QCOMPARE(journal.twice(), QStringList());
    QCOMPARE(journal.size(), at(report, "handled").toInt());
    QVERIFY2(!pair.broker.log().contains(QLatin1String("Slow Consumer")), qPrintable(pair.broker.log()));
    QVERIFY(at(pair.caller.call(Url), "handled").toBool()); // it is itself again
}

/// In short; NATS_CYCLES says how often.
void tst_NatsChaos::hostsComeAndGo()
{
    bool isGiven = false;
    const int given = qEnvironmentVariableIntValue("NATS_CYCLES", &isGiven);
    Broker broker;
    QVERIFY(broker.start());
    NodeProcess stays(QStringLiteral("stays"), sectionFor(broker.url()));
    QVERIFY(stays.startConnected());
    QVERIFY(stays.bind(Url));
    for (int i = 0; i < (isGiven ? given : 50); ++i) {
        NodeProcess comes(QStringLiteral("comes"), sectionFor(broker.url()));
        QVERIFY(comes.startConnected());
        QVERIFY(comes.bind(QStringLiteral("//comes")));
        QVERIFY(comes.handles(Url));
        QVERIFY(stays.handles(QStringLiteral("//comes")));
        if (i % 2) // in the middle of calls
            comes.ask(QStringLiteral("load"),
                      {{QStringLiteral("url"), Url}, {QStringLiteral("threads"), 2}, {Key, Url}});
        const qint64 took = comes.quit();
        QVERIFY2(took >= 0 && took < 10000, qPrintable(QStringLiteral("cycle %1: %2").arg(i).arg(took)));
    }
}

void tst_NatsChaos::whoExitsWhileItConnectsEnds()
{
    Broker broker;
    QVERIFY(broker.start());
    broker.stop();
    for (int i = 0; i < 3; ++i) {
        NodeProcess comes(QStringLiteral("comes"), sectionFor(broker.url()));
        QVERIFY(comes.start());
        const qint64 took = comes.quit();
        QVERIFY2(took >= 0 && took < 5000, qPrintable(QString::number(took)));
    }
    broker.resume();
}

void tst_NatsChaos::exitOnAnyThreadHasItsStatus()
{
    Broker broker;
    QVERIFY(broker.start());
    NodeProcess stays(QStringLiteral("stays"), sectionFor(broker.url()));
    QVERIFY(stays.startConnected());
    QVERIFY(stays.bind(Url));
    for (int i = 0; i < 30; ++i) {
        NodeProcess ends(QStringLiteral("ends"), sectionFor(broker.url()));
        QVERIFY(ends.start());
        if (i % 3 == 1)
            QVERIFY(ends.handles(Url));
        if (i % 3 == 2) // in the middle of calls, and of answers
            ends.ask(QStringLiteral("load"),
                     {{QStringLiteral("url"), Url}, {QStringLiteral("threads"), 2}, {Key, Url}});
        // While the event loop is busy with endpoints that come and go.
        for (int each = 0; each < 30; ++each)
            QVERIFY(ends.bind(QStringLiteral("//a/%1").arg(each), {{QStringLiteral("object"), true}}));
        ends.ask(QStringLiteral("swap"), {{QStringLiteral("ms"), 0}});
        ends.begin(QStringLiteral("exit"), {{QStringLiteral("status"), 3}});
        const int status = ends.waitForExit();
        QVERIFY2(status == 3, qPrintable(QStringLiteral("%1, the time number %2").arg(status).arg(i)));
    }
    QVERIFY(stays.handles(Url));
}

QTEST_GUILESS_MAIN(tst_NatsChaos)
#include "tst_natschaos.moc"
