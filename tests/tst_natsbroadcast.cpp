// SPDX-License-Identifier: Apache-2.0
#include "broker.h"
#include "journalfile.h"
#include "nodeprocess.h"
#include "rawclient.h"
#include "testcase.h"

#include <QJsonDocument>

#include <memory>

namespace {

const QByteArray All = "z1.default.all";
const QString Url = QStringLiteral("//w");
const QString Key = QStringLiteral("key");

QJsonObject toAll(const QJsonArray &serve = {QStringLiteral("*")}, const QJsonArray &servers = {})
{
    QJsonObject more{{QStringLiteral("broadcast"), QStringLiteral("all")}, {QStringLiteral("serve"), serve}};
    if (!servers.isEmpty())
        more.insert(QStringLiteral("servers"), servers);
    return more;
}

/// Publishes broadcasts that have numbers, one each millisecond or so.
class Publisher
{
public:
    explicit Publisher(const QString &url) : m_client(url) {}

    bool isConnected() const { return m_client.isConnected(); }
    void publish(int count)
    {
        for (int i = 0; i < count; ++i) {
            const QJsonObject in{{QStringLiteral("id"), QStringLiteral("raw-%1").arg(m_count++)}};
            const QJsonObject body{{QStringLiteral("in"), in}};
            m_client.publish(All, QJsonDocument(body).toJson(), {{"Z-Url", "/all"}, {"Z-Left", "20000"}});
            QTest::qWait(1);
        }
        m_client.flush();
    }
    int count() const { return m_count; }

private:
    RawClient m_client;
    int m_count = 0;
};

QStringList idsIn(const JournalFile &journal, const char *prefix)
{
    return journal.lines().filter(QRegularExpression(QLatin1Char('^') + QLatin1String(prefix)));
}

} // namespace

/// Calls without a host, which are for all endpoints of all processes.
class tst_NatsBroadcast : public TestCase
{
    Q_OBJECT

private Q_SLOTS:
    void onlyEndpointsThatAreServedHearIt();
    void theHostItselfHearsItOnlyWhereItIsNamedInFull();
    void itIsCounted();
    void itIsHeardOnceWhileThePluginIsReplaced();
    void itIsHeardOnceWhileTheLinkMoves();

private:
    /// Has the host call all, too, until `stop`.
    void startCalling(NodeProcess &node);
    int stopCalling(NodeProcess &node);
};

void tst_NatsBroadcast::startCalling(NodeProcess &node)
{
    node.ask(QStringLiteral("load"), {{QStringLiteral("url"), QStringLiteral("/all")},
                                      {QStringLiteral("threads"), 1},
                                      {QStringLiteral("prefix"), QStringLiteral("own")},
                                      {Key, Key}});
}

int tst_NatsBroadcast::stopCalling(NodeProcess &node)
{
    return at(node.ask(QStringLiteral("unload"), {{Key, Key}}), "handled").toInt();
}

void tst_NatsBroadcast::onlyEndpointsThatAreServedHearIt()
{
    Broker broker;
    QVERIFY(broker.start());
    NodeProcess near(QStringLiteral("near"), sectionFor(broker.url(), toAll()));
    NodeProcess far(QStringLiteral("far"),
                    sectionFor(broker.url(), toAll({QStringLiteral("a"), QStringLiteral("b*")})));
    QVERIFY(near.startConnected());
    QVERIFY(far.startConnected());
    const QStringList served{"//a", "//a/x", "//bc"};
    const QStringList others{"//c", "//c/x", "//ab"};
    for (const QString &url : served + others)
        QVERIFY(far.bind(url));
    QVERIFY(near.handles(QStringLiteral("/all")));
    for (const QString &url : served)
        QCOMPARE(far.calls(url), 1);
    for (const QString &url : others)
        QCOMPARE(far.calls(url), 0);
    QVERIFY(far.handles(QStringLiteral("/all"))); // in its own process all hear it
    for (const QString &url : served)
        QCOMPARE(far.calls(url), 2);
    for (const QString &url : others)
        QCOMPARE(far.calls(url), 1);
    for (const QString &url : served)
        far.ask(QStringLiteral("unbind"), {{QStringLiteral("url"), url}});
    QVERIFY(!near.handles(QStringLiteral("/all"))); // nobody that is served is left
    for (const QString &url : others)
        QCOMPARE(far.calls(url), 1);
}

void tst_NatsBroadcast::theHostItselfHearsItOnlyWhereItIsNamedInFull()
{
    Broker broker;
    QVERIFY(broker.start());
    const QStringList own{"//zhost", "//zscheduler"};
    NodeProcess near(QStringLiteral("near"), sectionFor(broker.url(), toAll()));
    NodeProcess far(QStringLiteral("far"), sectionFor(broker.url(), toAll())); // which serves "*"
    NodeProcess full(QStringLiteral("full"),
                     sectionFor(broker.url(), toAll({QStringLiteral("zhost"), QStringLiteral("zscheduler")})));
    for (NodeProcess *each : {&near, &far, &full})
        QVERIFY(each->startConnected());
    for (const QString &url : own + QStringList{Url}) {
        QVERIFY(far.bind(url));
        QVERIFY(full.bind(url));
    }
    RawClient client(broker.url());
    int calls = 0;
    for (const char *path : {"/shutdown", "/printd", "/all"}) {
        QVERIFY(near.handles(QLatin1String(path)));
        QVERIFY(client.publish(All, "{}", {{"Z-Url", path}}));
        QVERIFY(client.flush());
        calls += 2;
        QTRY_COMPARE(far.calls(Url), calls);
        for (const QString &url : own) {
            QCOMPARE(far.calls(url), 0);
            QTRY_COMPARE(full.calls(url), calls);
        }
        QCOMPARE(full.calls(Url), 0);
    }
    // What has a host is no broadcast.
    const RawMessage answer = client.request(All, "{}", {{"Z-Url", "//zscheduler/shutdown"}});
    QCOMPARE(answer.code(), 403);
    QCOMPARE(far.calls(QStringLiteral("//zscheduler")), 0);
    QCOMPARE(full.calls(QStringLiteral("//zscheduler")), calls);
}

void tst_NatsBroadcast::itIsCounted()
{
    Broker broker;
    QVERIFY(broker.start());
    NodeProcess near(QStringLiteral("near"), sectionFor(broker.url(), toAll()));
    NodeProcess far(QStringLiteral("far"), sectionFor(broker.url(), toAll()));
    QVERIFY(near.startConnected());
    QVERIFY(far.startConnected());
    const auto counted = [&](const char *key) { return at(near.report(), "calls", "all", key).toInt(); };
    QVERIFY(!near.handles(QStringLiteral("/all")));
    QCOMPARE(near.code(QStringLiteral("/all")), 404); // //nats has refused it
    QVERIFY(far.bind(Url));
    QVERIFY(near.handles(QStringLiteral("/all")));
    QCOMPARE(counted("n"), 3);
    QCOMPARE(counted("failed"), 0); // nobody need be there
    broker.kill();
    QTRY_VERIFY(!near.isConnected());
    QCOMPARE(near.code(QStringLiteral("/all")), 507);
    QCOMPARE(counted("failed"), 1);
    QVERIFY(near.hasLogged(QStringLiteral("(!) /all not connected")));
    QVERIFY(near.bind(Url)); // which is there
    QVERIFY(near.handles(QStringLiteral("/all")));
    QCOMPARE(at(near.report(), "calls", "out", "n").toInt(), 0);
}

void tst_NatsBroadcast::itIsHeardOnceWhileThePluginIsReplaced()
{
    Broker broker;
    QVERIFY(broker.start());
    const JournalFile journal;
    NodeProcess hears(QStringLiteral("hears"), sectionFor(broker.url(), toAll()));
    QVERIFY(hears.startConnected());
    QVERIFY(hears.bind(Url, journal.option()));
    Publisher publisher(broker.url());
    QVERIFY(publisher.isConnected());
    startCalling(hears);
    for (int version = 1; version <= 5; ++version) {
        const QString file = QStringLiteral("libznats.%1.so").arg(version);
        QVERIFY(hears.drop(file));
        const auto isReplaced = [&] {
            publisher.publish(20);
            return hears.hasMappedOnly(file);
        };
        QTRY_VERIFY_WITH_TIMEOUT(isReplaced(), 30000);
    }
    const int own = stopCalling(hears);
    QTRY_COMPARE(idsIn(journal, "raw-").size(), publisher.count());
    QVERIFY2(journal.twice().isEmpty(), qPrintable(journal.twice().join(QLatin1Char(' '))));
    QCOMPARE(idsIn(journal, "own-").size(), own);
}

void tst_NatsBroadcast::itIsHeardOnceWhileTheLinkMoves()
{
    const auto brokers = cluster(2, QStringLiteral("lame_duck_grace_period: \"2s\"\nlame_duck_duration: \"30s\"\n"));
    const JournalFile journal;
    NodeProcess hears(
        QStringLiteral("hears"),
        sectionFor(brokers[0]->url(), toAll({QStringLiteral("*")}, {brokers[0]->url(), brokers[1]->url()})));
    QVERIFY(hears.startConnected());
    QVERIFY(hears.bind(Url, journal.option()));
    const auto server = [&] { return at(hears.report(), "connection", "server").toString(); };
    const std::size_t from = server().contains(QString::number(brokers[0]->port())) ? 0 : 1;
    Publisher publisher(brokers[1 - from]->url());
    QVERIFY(publisher.isConnected());
    const auto isHeard = [&] {
        publisher.publish(1);
        return !journal.lines().isEmpty();
    };
    QTRY_VERIFY(isHeard()); // as soon as the brokers know of each other
    publisher.publish(100);
    QTRY_VERIFY(journal.lines().contains(QStringLiteral("raw-%1").arg(publisher.count() - 1)));
    const int before = publisher.count() - idsIn(journal, "raw-").size();
    startCalling(hears);
    brokers[from]->beLameDuck();
    const auto hasMoved = [&] {
        publisher.publish(20);
        return server().contains(QString::number(brokers[1 - from]->port()));
    };
    QTRY_VERIFY_WITH_TIMEOUT(hasMoved(), 20000);
    QTRY_VERIFY_WITH_TIMEOUT((publisher.publish(20), !brokers[from]->isRunning()), 60000);
    publisher.publish(100);
    const int own = stopCalling(hears);
    QTRY_COMPARE(idsIn(journal, "raw-").size() + before, publisher.count());
    QVERIFY2(journal.twice().isEmpty(), qPrintable(journal.twice().join(QLatin1Char(' '))));
    QCOMPARE(idsIn(journal, "own-").size(), own);
}

QTEST_GUILESS_MAIN(tst_NatsBroadcast)
#include "tst_natsbroadcast.moc"
