// SPDX-License-Identifier: Apache-2.0
#include "broker.h"
#include "journalfile.h"
#include "nodeprocess.h"
#include "testcase.h"

#include <QDateTime>
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

} // namespace

/// Calls under load, while parts of the way are exchanged, stopped, or killed.
class tst_NatsExchange : public TestCase
{
    Q_OBJECT

private Q_SLOTS:
    void componentsAreExchangedAndNoCallIsLost();
    void thePluginIsExchangedAndNoCallIsLost_data();
    void thePluginIsExchangedAndNoCallIsLost();
    void aProviderStopsAndNoCallIsLost();
    void aProviderIsKilledAndOnlyItsCallsAreLost();
    void aBrokerIsALameDuckAndNoCallIsLost();
    void aBrokerOfTwoIsKilledAndOnlyCallsUnderWayAreLost();
    void theBrokerIsKilledAndComesBack();

private:
    void startCallers(NodeProcess &caller, const QString &prefix = QStringLiteral("load"));
    QJsonObject stopCallers(NodeProcess &caller, const QString &prefix = QStringLiteral("load"));
    /// Waits until so many more calls have been handled.
    void waitForCalls(NodeProcess &caller, int count, const QString &prefix = QStringLiteral("load"));
};

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

void tst_NatsExchange::componentsAreExchangedAndNoCallIsLost()
{
    Broker broker;
    QVERIFY(broker.start());
    const JournalFile journal;
    NodeProcess caller(QStringLiteral("caller"), sectionFor(broker.url()));
    NodeProcess provider(QStringLiteral("provider"), sectionFor(broker.url()));
    QVERIFY(caller.startConnected());
    QVERIFY(provider.startConnected());
    QVERIFY(provider.bind(Url, journal.option()));
    provider.ask(QStringLiteral("swap"), {{QStringLiteral("ms"), 1}});
    startCallers(caller);
    waitForCalls(caller, 3000);
    const QJsonObject report = stopCallers(caller);
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
    Broker broker;
    QVERIFY(broker.start());
    const JournalFile journal;
    NodeProcess caller(QStringLiteral("caller"), sectionFor(broker.url()));
    NodeProcess provider(QStringLiteral("provider"), sectionFor(broker.url()));
    caller.setMask(0xff & ~8);
    provider.setMask(0xff & ~8);
    QVERIFY(caller.startConnected());
    QVERIFY(provider.startConnected());
    QVERIFY(provider.bind(Url, journal.option()));
    startCallers(caller);
    waitForCalls(caller, 100);
    NodeProcess &exchanged = isCallers ? caller : provider;
    for (int version = 1; version <= 10; ++version) {
        const QString file = QStringLiteral("libznats.%1.so").arg(version);
        QVERIFY(exchanged.drop(file));
        QTRY_VERIFY_WITH_TIMEOUT(exchanged.mappedVersions().join(QLatin1Char(' ')).endsWith(file) &&
                                     exchanged.mappedVersions().size() == 1,
                                 30000);
        QTRY_VERIFY_WITH_TIMEOUT(exchanged.isConnected(), 10000);
        waitForCalls(caller, 100);
    }
    const QJsonObject report = stopCallers(caller);
    QVERIFY2(failed(report).isEmpty(), qPrintable(told(report)));
    QCOMPARE(at(report, "wrong").toInt(), 0);
    QCOMPARE(journal.size(), handled(report));
    QCOMPARE(journal.twice(), QStringList());
    QVERIFY(caller.quit() >= 0);
    QVERIFY(provider.quit() >= 0);
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
    const QJsonObject both{{QStringLiteral("servers"), QJsonArray{brokers[0]->url(), brokers[1]->url()}}};
    const JournalFile journal;
    NodeProcess caller(QStringLiteral("caller"), sectionFor(brokers[0]->url(), both));
    NodeProcess provider(QStringLiteral("provider"), sectionFor(brokers[0]->url(), both));
    QVERIFY(caller.startConnected());
    QVERIFY(provider.startConnected());
    QVERIFY(provider.bind(Url, journal.option()));
    QTRY_VERIFY_WITH_TIMEOUT(caller.handles(Url), 10000);
    startCallers(caller);
    waitForCalls(caller, 300);
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

void tst_NatsExchange::aBrokerOfTwoIsKilledAndOnlyCallsUnderWayAreLost()
{
    const auto brokers = cluster(2);
    const QJsonObject both{{QStringLiteral("servers"), QJsonArray{brokers[0]->url(), brokers[1]->url()}}};
    const JournalFile journal;
    NodeProcess caller(QStringLiteral("caller"), sectionFor(brokers[0]->url(), both));
    NodeProcess provider(QStringLiteral("provider"), sectionFor(brokers[0]->url(), both));
    QVERIFY(caller.startConnected());
    QVERIFY(provider.startConnected());
    QVERIFY(provider.bind(Url, journal.option()));
    QTRY_VERIFY_WITH_TIMEOUT(caller.handles(Url), 10000);
    startCallers(caller);
    waitForCalls(caller, 300);
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
    Broker broker;
    QVERIFY(broker.start());
    const JournalFile journal;
    NodeProcess caller(QStringLiteral("caller"), sectionFor(broker.url(), {{QStringLiteral("patience"), 3000},
                                                                           {QStringLiteral("timeout"), 5000}}));
    NodeProcess provider(QStringLiteral("provider"), sectionFor(broker.url()));
    QVERIFY(caller.startConnected());
    QVERIFY(provider.startConnected());
    QVERIFY(provider.bind(Url, journal.option()));
    startCallers(caller);
    waitForCalls(caller, 300);
    broker.kill();
    QVERIFY(broker.start());
    const qint64 back = QDateTime::currentMSecsSinceEpoch();
    waitForCalls(caller, 300);
    const QJsonObject report = stopCallers(caller);
    QVERIFY2(at(report, "most").toInt() <= 1, qPrintable(told(report)));
    QVERIFY2(at(report, "handled-at").toDouble() - double(back) < 2000, qPrintable(told(report)));
    QCOMPARE(at(report, "wrong").toInt(), 0);
    QCOMPARE(journal.twice(), QStringList());
}

QTEST_GUILESS_MAIN(tst_NatsExchange)
#include "tst_natsexchange.moc"
