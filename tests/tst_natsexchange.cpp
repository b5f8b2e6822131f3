// SPDX-License-Identifier: Apache-2.0
#include "journalfile.h"
#include "pair.h"
#include "testcase.h"

#include <QDateTime>
#include <QElapsedTimer>
#include <QJsonDocument>

#include <memory>

namespace {

const QString Url = QStringLiteral("//w");
const QString Key = QStringLiteral("key");
constexpr int Callers = 4;

QJsonObject load(int callers = Callers, const QString &prefix = QStringLiteral("load"))
{
    return {{QStringLiteral("url"), Url},
            {QStringLiteral("threads"), callers},
            {QStringLiteral("prefix"), prefix},
            {Key, prefix}};
}

int handled(const QJsonObject &report) { return at(report, "handled").toInt(); }

QJsonArray failed(const QJsonObject &report) { return at(report, "failed").toArray(); }

QString told(const QJsonObject &report) { return QString::fromUtf8(QJsonDocument(report).toJson().left(4000)); }

QJsonObject sectionOf(const std::vector<std::unique_ptr<Broker>> &brokers)
{
    QJsonArray servers;
    for (const auto &broker : brokers)
        servers.append(broker->url());
    return sectionFor(brokers.front()->url(), {{QStringLiteral("servers"), servers}});
}

} // namespace

/// Calls under load, while parts of the way are exchanged, stopped, or killed.
class tst_NatsExchange : public TestCase
{
    Q_OBJECT

private Q_SLOTS:
    void componentsAreExchangedAndNoCallIsLost();
    void thePluginIsExchangedAndNoCallIsLost_data();
    void thePluginIsExchangedAndNoCallIsLost();
    void aVersionThatIsReplacedAnswersItsCalls();
    void whoQuitsWithAVersionThatAnswersEndsInTime();
    void aVersionIsReplacedWhileTheBrokerHangs();
    void aProviderStopsAndNoCallIsLost();
    void aProviderIsKilledAndOnlyItsCallsAreLost();
    void aBrokerIsALameDuckAndNoCallIsLost();
    void theOnlyBrokerIsALameDuckAndNoCallIsLostBeforeItIsGone();
    void aBrokerOfTwoIsKilledAndOnlyCallsUnderWayAreLost();
    void theBrokerIsKilledAndComesBack();

private:
    /// Has one call the other.
    void begin(NodeProcess &caller, NodeProcess &provider, const JournalFile &journal);
    void startCallers(NodeProcess &caller, const QString &prefix = QStringLiteral("load"));
    QJsonObject stopCallers(NodeProcess &caller, const QString &prefix = QStringLiteral("load"));
    /// Waits until so many more calls have been handled.
    void waitForCalls(NodeProcess &caller, int count, const QString &prefix = QStringLiteral("load"));
    /// Waits until this is so. The longest time for which the event loop of the node was held up meanwhile; -1 if that
    /// does not come.
    template <class Condition>
    qint64 loopDelayUntil(NodeProcess &node, Condition condition);
};

void tst_NatsExchange::begin(NodeProcess &caller, NodeProcess &provider, const JournalFile &journal)
{
    QVERIFY(caller.startConnected());
    QVERIFY(provider.startConnected());
    QVERIFY(provider.bind(Url, journal.option()));
    QTRY_VERIFY_WITH_TIMEOUT(caller.handles(Url), 10000);
    startCallers(caller);
    waitForCalls(caller, 300);
}

void tst_NatsExchange::startCallers(NodeProcess &caller, const QString &prefix)
{
    caller.ask(QStringLiteral("load"), load(Callers, prefix));
}

QJsonObject tst_NatsExchange::stopCallers(NodeProcess &caller, const QString &prefix)
{
    return caller.ask(QStringLiteral("unload"), {{Key, prefix}});
}

void tst_NatsExchange::waitForCalls(NodeProcess &caller, int count, const QString &prefix)
{
    const auto now = [&] { return handled(caller.ask(QStringLiteral("report"), {{Key, prefix}})); };
    const int goal = now() + count;
    QTRY_VERIFY_WITH_TIMEOUT(now() >= goal, 60000);
}

template <class Condition>
qint64 tst_NatsExchange::loopDelayUntil(NodeProcess &node, Condition condition)
{
    qint64 longest = 0;
    const bool isSo = QTest::qWaitFor(
        [&] {
            longest = qMax(longest, node.loopDelay());
            return condition();
        },
        30000);
    return isSo ? longest : -1;
}

void tst_NatsExchange::componentsAreExchangedAndNoCallIsLost()
{
    const JournalFile journal;
    Pair pair;
    QVERIFY(pair.start());
    QVERIFY(pair.provider.bind(Url, journal.option()));
    pair.provider.ask(QStringLiteral("swap"), {{QStringLiteral("ms"), 1}});
    startCallers(pair.caller);
    waitForCalls(pair.caller, 3000);
    const QJsonObject report = stopCallers(pair.caller);
    QVERIFY2(failed(report).isEmpty(), qPrintable(told(report)));
    QCOMPARE(at(report, "wrong").toInt(), 0);
    QCOMPARE(journal.size(), handled(report));
    QCOMPARE(journal.twice(), QStringList());
}

void tst_NatsExchange::thePluginIsExchangedAndNoCallIsLost_data()
{
    QTest::addColumn<bool>("isCallers");
    QTest::newRow("of the caller") << true;
    QTest::newRow("of the provider") << false;
}

void tst_NatsExchange::thePluginIsExchangedAndNoCallIsLost()
{
    QFETCH(bool, isCallers);
    const JournalFile journal;
    Pair pair;
    pair.caller.setMask(0xff & ~8);
    pair.provider.setMask(0xff & ~8);
    QVERIFY(pair.start());
    QVERIFY(pair.provider.bind(Url, journal.option()));
    startCallers(pair.caller);
    waitForCalls(pair.caller, 100);
    NodeProcess &exchanged = isCallers ? pair.caller : pair.provider;
    for (int version = 1; version <= 10; ++version) {
        const QString file = QStringLiteral("libznats.%1.so").arg(version);
        QVERIFY(exchanged.drop(file));
        QTRY_VERIFY_WITH_TIMEOUT(exchanged.hasMappedOnly(file), 30000);
        QTRY_VERIFY_WITH_TIMEOUT(exchanged.isConnected(), 10000);
        waitForCalls(pair.caller, 100);
    }
    const QJsonObject report = stopCallers(pair.caller);
    QVERIFY2(failed(report).isEmpty(), qPrintable(told(report)));
    QCOMPARE(at(report, "wrong").toInt(), 0);
    QCOMPARE(journal.size(), handled(report));
    QCOMPARE(journal.twice(), QStringList());
    QVERIFY(pair.caller.quit() >= 0);
    QVERIFY(pair.provider.quit() >= 0);
}

void tst_NatsExchange::aVersionThatIsReplacedAnswersItsCalls()
{
    constexpr int Lasts = 4000;
    const JournalFile journal;
    const QJsonObject patient{{QStringLiteral("timeout"), 10000}};
    Pair pair(patient, patient);
    QVERIFY(pair.start());
    QJsonObject slow = journal.option();
    slow.insert(QStringLiteral("kind"), QStringLiteral("slow"));
    slow.insert(QStringLiteral("ms"), Lasts);
    QVERIFY(pair.provider.bind(Url, slow));
    QVERIFY(pair.provider.bind(QStringLiteral("//quick")));
    QList<int> ids;
    for (int i = 0; i < 2; ++i) {
        ids << pair.caller.begin(QStringLiteral("outcome"),
                                 {{QStringLiteral("url"), Url},
                                  {QStringLiteral("in"), QJsonObject{{QStringLiteral("id"), QString::number(i)}}},
                                  {QStringLiteral("out"), QJsonObject()}});
    }
    QTRY_COMPARE(journal.size(), 2);
    QElapsedTimer sinceCalled;
    sinceCalled.start();
    QVERIFY(pair.provider.drop(QStringLiteral("libznats.1.so")));
    const qint64 longest = loopDelayUntil(pair.provider, [&] { return pair.caller.hasAnswered(ids.constLast()); });
    QVERIFY2(longest >= 0 && longest < 1000, qPrintable(QString::number(longest)));
    for (int id : qAsConst(ids)) {
        const QJsonObject answer = pair.caller.answer(id);
        QVERIFY2(at(answer, "handled").toBool(), qPrintable(at(answer, "outcome", "reason").toString()));
        QCOMPARE(at(answer, "out", "name").toString(), QStringLiteral("provider"));
        QVERIFY2(at(answer, "ms").toInt() < Lasts + 2000, qPrintable(QString::number(at(answer, "ms").toInt())));
    }
    QTRY_VERIFY_WITH_TIMEOUT(pair.provider.hasMappedOnly(QStringLiteral("libznats.1.so")), 10000);
    QVERIFY(pair.caller.handles(QStringLiteral("//quick")));
    QCOMPARE(journal.size(), 2);
    QVERIFY(!pair.provider.hasLogged(QStringLiteral("stays in memory")));
    QVERIFY(pair.provider.quit() >= 0);
}

void tst_NatsExchange::whoQuitsWithAVersionThatAnswersEndsInTime()
{
    const JournalFile journal;
    const QJsonObject patient{{QStringLiteral("timeout"), 30000}};
    Pair pair(patient, patient);
    QVERIFY(pair.start());
    QJsonObject slow = journal.option();
    slow.insert(QStringLiteral("kind"), QStringLiteral("slow"));
    slow.insert(QStringLiteral("ms"), 20000);
    QVERIFY(pair.provider.bind(Url, slow));
    const int id =
        pair.caller.begin(QStringLiteral("outcome"),
                          {{QStringLiteral("url"), Url},
                           {QStringLiteral("in"), QJsonObject{{QStringLiteral("id"), QStringLiteral("one")}}}});
    QTRY_COMPARE(journal.size(), 1);
    QVERIFY(pair.provider.drop(QStringLiteral("libznats.1.so")));
    QTRY_VERIFY_WITH_TIMEOUT(pair.provider.hasMapped(QStringLiteral("libznats.1.so")), 10000);
    QVERIFY(loopDelayUntil(pair.provider, [&] { return pair.provider.isConnected(); }) < 1000);
    QVERIFY(!pair.caller.hasAnswered(id)); // the version before is about it
    const qint64 took = pair.provider.quit();
    QVERIFY2(took >= 0 && took <= 3000, qPrintable(QString::number(took)));
    QVERIFY(pair.caller.quit() >= 0);
}

void tst_NatsExchange::aVersionIsReplacedWhileTheBrokerHangs()
{
    const QJsonObject hasty{{QStringLiteral("timeout"), 1000}};
    Pair pair(hasty, hasty);
    QVERIFY(pair.start());
    QVERIFY(pair.provider.bind(Url));
    startCallers(pair.caller);
    waitForCalls(pair.caller, 100);
    pair.broker.stop();
    qint64 longest = 0;
    for (const char *file : {"libznats.1.so", "libznats.2.so", "libznats.3.so"}) {
        QVERIFY(pair.caller.drop(QLatin1String(file)));
        const qint64 took = loopDelayUntil(pair.caller, [&] { return pair.caller.hasMapped(QLatin1String(file)); });
        QVERIFY(took >= 0);
        longest = qMax(longest, took);
    }
    // The versions before go although the pair.broker says nothing.
    const qint64 took =
        loopDelayUntil(pair.caller, [&] { return pair.caller.hasMappedOnly(QStringLiteral("libznats.3.so")); });
    QVERIFY2(took >= 0, qPrintable((pair.caller.mappedVersions() + pair.caller.log().filter(QStringLiteral("memory")))
                                       .join(QLatin1Char('\n'))));
    QVERIFY2(qMax(longest, took) < 1000, qPrintable(QString::number(qMax(longest, took))));
    pair.broker.resume();
    waitForCalls(pair.caller, 300);
    stopCallers(pair.caller);
    QVERIFY2(!pair.caller.hasLogged(QStringLiteral("stays in memory")),
             qPrintable(pair.caller.log().join(QLatin1Char('\n'))));
    QVERIFY(pair.caller.quit() >= 0);
}

void tst_NatsExchange::aProviderStopsAndNoCallIsLost()
{
    Broker broker;
    QVERIFY(broker.start());
    const JournalFile journal;
    NodeProcess caller(QStringLiteral("caller"), sectionFor(broker.url()));
    NodeProcess stays(QStringLiteral("stays"), sectionFor(broker.url()));
    QVERIFY(caller.startConnected());
    QVERIFY(stays.startConnected());
    QVERIFY(stays.bind(Url, journal.option()));
    startCallers(caller);
    for (int i = 0; i < 3; ++i) {
        NodeProcess stops(QStringLiteral("stops"), sectionFor(broker.url()));
        QVERIFY(stops.startConnected());
        QVERIFY(stops.bind(Url, journal.option()));
        QTRY_VERIFY_WITH_TIMEOUT(stops.calls(Url) > 50, 30000);
        const qint64 took = stops.quit();
        QVERIFY2(took >= 0 && took < 5000, qPrintable(QString::number(took)));
        waitForCalls(caller, 100);
    }
    const QJsonObject report = stopCallers(caller);
    QVERIFY2(failed(report).isEmpty(), qPrintable(told(report)));
    QCOMPARE(journal.size(), handled(report));
    QCOMPARE(journal.twice(), QStringList());
}

void tst_NatsExchange::aProviderIsKilledAndOnlyItsCallsAreLost()
{
    Broker broker;
    QVERIFY(broker.start());
    const JournalFile journal;
    NodeProcess caller(QStringLiteral("caller"), sectionFor(broker.url(), {{QStringLiteral("timeout"), 1000}}));
    NodeProcess stays(QStringLiteral("stays"), sectionFor(broker.url()));
    NodeProcess dies(QStringLiteral("dies"), sectionFor(broker.url()));
    QVERIFY(caller.startConnected());
    QVERIFY(stays.startConnected());
    QVERIFY(dies.startConnected());
    QVERIFY(stays.bind(Url, journal.option()));
    QVERIFY(dies.bind(Url, journal.option()));
    startCallers(caller);
    waitForCalls(caller, 300);
    dies.kill();
    waitForCalls(caller, 300);
    const QJsonObject report = stopCallers(caller);
    QVERIFY2(at(report, "most").toInt() <= 1, qPrintable(told(report)));
    const QJsonArray all = failed(report);
    for (const auto &failure : all)
        QCOMPARE(at(failure, "reason").toString(), QStringLiteral("no answer in time"));
    QCOMPARE(journal.twice(), QStringList());
}

void tst_NatsExchange::aBrokerIsALameDuckAndNoCallIsLost()
{
    const auto brokers = cluster(2, QStringLiteral("lame_duck_grace_period: \"1s\"\nlame_duck_duration: \"30s\"\n"));
    const JournalFile journal;
    const QJsonObject both = sectionOf(brokers);
    NodeProcess caller(QStringLiteral("caller"), both);
    NodeProcess provider(QStringLiteral("provider"), both);
    begin(caller, provider, journal);
    // Whom they are connected to is left to them: first the one goes, and later, when it is back, the other.
    for (const auto &broker : brokers) {
        broker->beLameDuck();
        QTRY_VERIFY_WITH_TIMEOUT(!broker->isRunning(), 60000);
        waitForCalls(caller, 300);
        QVERIFY(broker->start());
        QTest::qWait(2000); // they find each other again within this, which nobody tells
    }
    const QJsonObject report = stopCallers(caller);
    QVERIFY2(failed(report).isEmpty(), qPrintable(told(report)));
    QCOMPARE(journal.size(), handled(report));
    QCOMPARE(journal.twice(), QStringList());
}

void tst_NatsExchange::theOnlyBrokerIsALameDuckAndNoCallIsLostBeforeItIsGone()
{
    Broker broker(QStringLiteral("lame_duck_grace_period: \"6s\"\nlame_duck_duration: \"30s\"\n"));
    QVERIFY(broker.start());
    const JournalFile journal;
    NodeProcess caller(QStringLiteral("caller"), sectionFor(broker.url()));
    NodeProcess provider(QStringLiteral("provider"), sectionFor(broker.url()));
    for (NodeProcess *each : {&caller, &provider}) {
        each->setMask(0xff & ~8);
        QVERIFY(each->startConnected());
    }
    QVERIFY(provider.bind(Url, journal.option()));
    startCallers(caller);
    waitForCalls(caller, 300);
    broker.beLameDuck();
    for (NodeProcess *each : {&caller, &provider})
        QTRY_VERIFY(each->hasLogged(QStringLiteral("the broker is about to stop")));
    QElapsedTimer timer;
    timer.start();
    while (timer.elapsed() < 3000) // of the six seconds in which it cuts nobody off
        waitForCalls(caller, 100);
    const QJsonObject report = stopCallers(caller);
    QVERIFY(timer.elapsed() < 5500);
    QVERIFY2(failed(report).isEmpty(), qPrintable(told(report)));
    QCOMPARE(journal.size(), handled(report));
    QCOMPARE(journal.twice(), QStringList());
    QTRY_VERIFY_WITH_TIMEOUT(!broker.isRunning(), 60000);
    QVERIFY(broker.start());
    QTRY_VERIFY_WITH_TIMEOUT(caller.handles(Url), 20000);
}

void tst_NatsExchange::aBrokerOfTwoIsKilledAndOnlyCallsUnderWayAreLost()
{
    const auto brokers = cluster(2);
    const JournalFile journal;
    const QJsonObject both = sectionOf(brokers);
    NodeProcess caller(QStringLiteral("caller"), both);
    NodeProcess provider(QStringLiteral("provider"), both);
    begin(caller, provider, journal);
    const QString server = at(provider.report(), "connection", "server").toString();
    const int one = server.contains(QString::number(brokers[0]->port())) ? 0 : 1;
    brokers[static_cast<std::size_t>(one)]->kill();
    waitForCalls(caller, 300);
    const QJsonObject report = stopCallers(caller);
    QVERIFY2(at(report, "most").toInt() <= 1, qPrintable(told(report)));
    const QJsonArray all = failed(report);
    for (const auto &failure : all) {
        const QString reason = at(failure, "reason").toString();
        QVERIFY2(reason == QLatin1String("connection lost") || reason == QLatin1String("no answer in time"),
                 qPrintable(reason));
    }
    QCOMPARE(journal.twice(), QStringList());
}

void tst_NatsExchange::theBrokerIsKilledAndComesBack()
{
    const JournalFile journal;
    Pair pair({{QStringLiteral("patience"), 3000}, {QStringLiteral("timeout"), 5000}});
    QVERIFY(pair.start());
    QVERIFY(pair.provider.bind(Url, journal.option()));
    startCallers(pair.caller);
    waitForCalls(pair.caller, 300);
    pair.broker.kill();
    QVERIFY(pair.broker.start());
    const qint64 back = QDateTime::currentMSecsSinceEpoch();
    waitForCalls(pair.caller, 300);
    const QJsonObject report = stopCallers(pair.caller);
    QVERIFY2(at(report, "most").toInt() <= 1, qPrintable(told(report)));
    QVERIFY2(at(report, "handled-at").toDouble() - double(back) < 2000, qPrintable(told(report)));
    QCOMPARE(at(report, "wrong").toInt(), 0);
    QCOMPARE(journal.twice(), QStringList());
}

QTEST_GUILESS_MAIN(tst_NatsExchange)
#include "tst_natsexchange.moc"
