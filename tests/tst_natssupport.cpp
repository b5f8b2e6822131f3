// SPDX-License-Identifier: Apache-2.0
#include "broker.h"
#include "certificates.h"
#include "journalfile.h"
#include "nodeprocess.h"
#include "proxy.h"
#include "rawclient.h"
#include "testcase.h"

class tst_NatsSupport : public TestCase
{
    Q_OBJECT

private Q_SLOTS:
    void brokersComeAndGo();
    void brokersKnowEachOther();
    void streams();
    void certificates();
    void aProxyMayBeCut();
    void nodesObey();
};

void tst_NatsSupport::brokersComeAndGo()
{
    Broker broker;
    QVERIFY(broker.start());
    const int port = broker.port();
    {
        RawClient client(broker.url());
        QVERIFY(client.isConnected());
        QCOMPARE(client.request("nobody", "{}").isThere, false);
        QVERIFY(client.subscribe("a"));
        QVERIFY(client.publish("a", "text", {{"Key", "value"}}, "back"));
        const RawMessage message = client.next();
        QCOMPARE(message.data, QByteArray("text"));
        QCOMPARE(message.headers.value("Key"), QByteArray("value"));
        QCOMPARE(message.reply, QByteArray("back"));
    }
    broker.kill();
    QVERIFY(!broker.isRunning());
    QVERIFY(broker.start());
    QCOMPARE(broker.port(), port);
    QVERIFY(broker.reload(QStringLiteral("authorization { token: t }\n")));
    QVERIFY(!RawClient(broker.url()).isConnected());
    broker.terminate();
    QVERIFY(broker.start());
    broker.beLameDuck();
    QTRY_VERIFY_WITH_TIMEOUT(!broker.isRunning(), 20000);
}

void tst_NatsSupport::brokersKnowEachOther()
{
    const auto brokers = cluster(2);
    RawClient one(brokers[0]->url());
    RawClient two(brokers[1]->url());
    QVERIFY(one.subscribe("a"));
    QTRY_VERIFY(two.publish("a", "x") && two.flush() && one.next(100).isThere);
}

void tst_NatsSupport::streams()
{
    const Folder folder;
    Broker broker(Broker::jetStream(folder.path()));
    QVERIFY(broker.start());
}

void tst_NatsSupport::certificates()
{
    const Certificates certificates;
    QVERIFY(certificates.isValid());
    Broker broker(certificates.tls(true));
    QVERIFY(broker.start());
}

void tst_NatsSupport::aProxyMayBeCut()
{
    Broker broker;
    QVERIFY(broker.start());
    Proxy proxy(broker.port());
    RawClient client(proxy.url());
    QVERIFY(client.isConnected());
    QVERIFY(client.subscribe("a"));
    QVERIFY(client.publish("a", "x"));
    QVERIFY(client.next().isThere);
    proxy.cut();
    QVERIFY(client.publish("a", "x"));
    QVERIFY(!client.next(300).isThere);
    proxy.mend();
    QVERIFY(client.next().isThere);
}

void tst_NatsSupport::nodesObey()
{
    const JournalFile journal;
    NodeProcess node(QStringLiteral("n"), QJsonValue::Undefined);
    node.setLoading(false);
    QVERIFY(node.start());
    QVERIFY(node.bind(QStringLiteral("//w"), journal.option()));
    QCOMPARE(node.code(QStringLiteral("//w")), 200);
    QCOMPARE(node.code(QStringLiteral("//v")), 503);
    QCOMPARE(node.calls(QStringLiteral("//w")), 1);
    node.ask(QStringLiteral("swap"), {{QStringLiteral("ms"), 1}});
    node.ask(QStringLiteral("load"), {{QStringLiteral("url"), QStringLiteral("//w")},
                                      {QStringLiteral("threads"), 2},
                                      {QStringLiteral("key"), QStringLiteral("k")}});
    QTRY_VERIFY(journal.size() > 100);
    const QJsonObject report = node.ask(QStringLiteral("unload"), {{QStringLiteral("key"), QStringLiteral("k")}});
    QCOMPARE(at(report, "failed").toArray().size(), 0);
    QCOMPARE(journal.size(), at(report, "handled").toInt());
    QCOMPARE(journal.twice(), QStringList());
    const QJsonObject async = node.ask(QStringLiteral("async"), {{QStringLiteral("url"), QStringLiteral("//w")}});
    QCOMPARE(at(async, "answer", "handled"), QJsonValue(true));
    QVERIFY(node.quit() >= 0);
}

QTEST_GUILESS_MAIN(tst_NatsSupport)
#include "tst_natssupport.moc"
