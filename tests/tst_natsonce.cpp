// SPDX-License-Identifier: Apache-2.0
#include "broker.h"
#include "gate.h"
#include "journalfile.h"
#include "nodeprocess.h"
#include "rawclient.h"
#include "testcase.h"

#include <memory>

namespace {

const QString Url = QStringLiteral("//w");
const QByteArray Call = "z1.default.call.w._"; // where it is called
constexpr int AtOnceMs = 500;

QJsonObject withUrl(const QString &url, const QString &id = {})
{
    QJsonObject arguments{{QStringLiteral("url"), url}, {QStringLiteral("out"), QJsonObject()}};
    if (!id.isEmpty())
        arguments.insert(QStringLiteral("in"), QJsonObject{{QStringLiteral("id"), id}});
    return arguments;
}

QJsonObject refusing(const QJsonObject &more)
{
    QJsonObject options = more;
    options.insert(QStringLiteral("kind"), QStringLiteral("refuse"));
    return options;
}

/// So that nothing of it is left in the table of the bus, while it runs still.
void unbind(NodeProcess &node)
{
    const QJsonObject url{{QStringLiteral("url"), Url}};
    node.ask(QStringLiteral("unbind"), url);
    node.bind(Url);
    node.ask(QStringLiteral("unbind"), url);
    node.handles(QStringLiteral("//%1@w").arg(node.name())); // which finds a dead one
}

bool knowsWhetherCalled(const QJsonObject &answer)
{
    return answer.value(QStringLiteral("outcome")).toObject().contains(QStringLiteral("called"));
}

} // namespace

/// A call is made once, and what its caller is told of that is true.
class tst_NatsOnce : public TestCase
{
    Q_OBJECT

protected Q_SLOTS:
    void init() override;

private Q_SLOTS:
    void whoRefusesAndLeavesIsNotReplacedByAnother_data();
    void whoRefusesAndLeavesIsNotReplacedByAnother();
    void whoRefusesAndLeavesHereIsNotReplacedByAnother();
    void theBareHostAnswersForAnEndpointThatIsDead_data();
    void theBareHostAnswersForAnEndpointThatIsDead();
    void ofTheDeadNobodySaysThatTheyWereCalled();
    void ofCodesThatNobodyKnowsNothingIsSaid_data();
    void ofCodesThatNobodyKnowsNothingIsSaid();
    void anErrorIsNoAnswerWhateverItsCode_data();
    void anErrorIsNoAnswerWhateverItsCode();
    void whoIsGoneIsFollowedByOthers_data();
    void whoIsGoneIsFollowedByOthers();
    void byNameWhatIsNotBoundFailsAtOnce_data();
    void byNameWhatIsNotBoundFailsAtOnce();
    void whoIsBusyIsFound();

private:
    std::unique_ptr<Broker> m_broker;
    std::unique_ptr<NodeProcess> m_near, m_far;
};

void tst_NatsOnce::init()
{
    TestCase::init();
    if (!m_broker) {
        m_broker = std::make_unique<Broker>();
        QVERIFY(m_broker->start());
    }
    m_near = std::make_unique<NodeProcess>(QStringLiteral("near"),
                                           sectionFor(m_broker->url(), {{QStringLiteral("timeout"), 30000}}));
    m_far = std::make_unique<NodeProcess>(
        QStringLiteral("far"),
        sectionFor(m_broker->url(), {{QStringLiteral("workers"), 2}, {QStringLiteral("queue"), 4}}));
    QVERIFY(m_near->startConnected());
    QVERIFY(m_far->startConnected());
}

void tst_NatsOnce::whoRefusesAndLeavesIsNotReplacedByAnother_data()
{
    QTest::addColumn<QString>("called");
    QTest::newRow("anybody") << Url;
    QTest::newRow("by name") << "//far@w";
}

/// It runs, is unbound meanwhile, and answers false. Another one that would like to is there by then.
void tst_NatsOnce::whoRefusesAndLeavesIsNotReplacedByAnother()
{
    QFETCH(QString, called);
    const JournalFile journal;
    const Gate gate;
    QVERIFY(m_far->bind(Url, refusing(gate.option(journal.option()))));
    const int id = m_near->begin(QStringLiteral("outcome"), withUrl(called, QStringLiteral("one")));
    QTRY_COMPARE(journal.lines(), QStringList{"one"});
    unbind(*m_far);
    NodeProcess third(QStringLiteral("far"), sectionFor(m_broker->url())); // has its name as well
    QVERIFY(third.startConnected());
    QVERIFY(third.bind(Url, journal.option()));
    gate.open();
    const QJsonObject answer = m_near->answer(id);
    QCOMPARE(at(answer, "handled"), QJsonValue(false));
    QCOMPARE(at(answer, "outcome", "code").toInt(), 404);
    QCOMPARE(at(answer, "outcome", "called"), QJsonValue(true));
    QCOMPARE(journal.lines(), QStringList{"one"});
    QCOMPARE(third.calls(Url), 0);
    QTRY_VERIFY(m_near->handles(called)); // by name, the broker chooses one of the two
}

void tst_NatsOnce::whoRefusesAndLeavesHereIsNotReplacedByAnother()
{
    const JournalFile journal;
    const Gate gate;
    QVERIFY(m_far->bind(Url, journal.option()));
    QVERIFY(m_near->bind(Url, refusing(gate.option(journal.option()))));
    const int id = m_near->begin(QStringLiteral("outcome"), withUrl(Url, QStringLiteral("one")));
    QTRY_COMPARE(journal.lines(), QStringList{"one"});
    unbind(*m_near);
    gate.open();
    const QJsonObject answer = m_near->answer(id);
    QCOMPARE(at(answer, "handled"), QJsonValue(false));
    QCOMPARE(at(answer, "outcome", "code").toInt(), 404);
    QCOMPARE(at(answer, "outcome", "called"), QJsonValue(true));
    QCOMPARE(journal.lines(), QStringList{"one"});
    QCOMPARE(m_far->calls(Url), 0);
}

void tst_NatsOnce::theBareHostAnswersForAnEndpointThatIsDead_data()
{
    QTest::addColumn<QString>("called");
    QTest::newRow("anybody") << "//w/x";
    QTest::newRow("by name") << "//far@w/x";
}

void tst_NatsOnce::theBareHostAnswersForAnEndpointThatIsDead()
{
    QFETCH(QString, called);
    QVERIFY(m_far->bind(Url));
    for (int i = 0; i < 5; ++i) {
        QVERIFY(m_far->bind(QStringLiteral("//w/x")));
        m_far->ask(QStringLiteral("unbind"), {{QStringLiteral("url"), QStringLiteral("//w/x")}});
        const QJsonObject answer = m_near->call(called);
        QVERIFY2(at(answer, "handled").toBool(), qPrintable(at(answer, "outcome", "reason").toString()));
        QCOMPARE(m_far->calls(Url), i + 1);
    }
}

/// They come and go, as fast as they can.
void tst_NatsOnce::ofTheDeadNobodySaysThatTheyWereCalled()
{
    const QString key = QStringLiteral("key");
    m_near->ask(QStringLiteral("load"), {{QStringLiteral("url"), Url}, {QStringLiteral("threads"), 8}, {key, key}});
    QList<int> ids;
    for (int i = 0; i < 3000; ++i) {
        ids << m_far->begin(QStringLiteral("bind"), {{QStringLiteral("url"), Url}});
        ids << m_far->begin(QStringLiteral("unbind"), {{QStringLiteral("url"), Url}});
    }
    for (int id : qAsConst(ids))
        m_far->answer(id);
    QVERIFY(m_far->bind(Url)); // or some would be looked for still
    const QJsonObject report = m_near->ask(QStringLiteral("unload"), {{key, key}});
    const QJsonArray failed = at(report, "failed").toArray();
    for (const auto &failure : failed) {
        const int code = at(failure, "code").toInt();
        QVERIFY2(code == 410 || code == 503 || code == 429, qPrintable(QString::number(code)));
        QCOMPARE(at(failure, "called"), QJsonValue(false));
    }
}

void tst_NatsOnce::ofCodesThatNobodyKnowsNothingIsSaid_data()
{
    QTest::addColumn<QByteArray>("code");
    for (const char *code : {"999", "7", "-1", "2000", "418", "505"})
        QTest::newRow(code) << QByteArray(code);
}

void tst_NatsOnce::ofCodesThatNobodyKnowsNothingIsSaid()
{
    QFETCH(QByteArray, code);
    RawClient client(m_broker->url());
    QVERIFY(client.subscribe(Call, "z"));
    const int id = m_near->begin(QStringLiteral("outcome"), withUrl(Url));
    const RawMessage request = client.next();
    QVERIFY(request.isThere);
    QVERIFY(client.publish(request.reply, {}, {{"Nats-Service-Error-Code", code}, {"Nats-Service-Error", "so"}}));
    QVERIFY(client.flush());
    const QJsonObject answer = m_near->answer(id);
    QCOMPARE(at(answer, "handled"), QJsonValue(false));
    QCOMPARE(at(answer, "outcome", "code").toInt(), code.toInt());
    QCOMPARE(at(answer, "outcome", "reason").toString(), QStringLiteral("so"));
    QVERIFY(!knowsWhetherCalled(answer));
    QVERIFY2(!client.next(200).isThere, "it is made again");
}

void tst_NatsOnce::anErrorIsNoAnswerWhateverItsCode_data()
{
    QTest::addColumn<QByteArray>("code"); // null: there is none
    QTest::newRow("none") << QByteArray();
    QTest::newRow("a word") << QByteArray("bad");
    QTest::newRow("zero") << QByteArray("0");
    QTest::newRow("that of success") << QByteArray("200");
}

void tst_NatsOnce::anErrorIsNoAnswerWhateverItsCode()
{
    QFETCH(QByteArray, code);
    RawClient client(m_broker->url());
    QVERIFY(client.subscribe(Call, "z"));
    const int id = m_near->begin(QStringLiteral("outcome"), withUrl(Url));
    RawClient::Headers headers{{"Nats-Service-Error", "so"}};
    if (!code.isNull())
        headers.insert("Nats-Service-Error-Code", code);
    QVERIFY(client.publish(client.next().reply, "{}", headers));
    QVERIFY(client.flush());
    const QJsonObject answer = m_near->answer(id);
    QCOMPARE(at(answer, "handled"), QJsonValue(false));
    QCOMPARE(at(answer, "outcome", "code").toInt(), 502);
    QVERIFY(!knowsWhetherCalled(answer));
}

void tst_NatsOnce::whoIsGoneIsFollowedByOthers_data()
{
    QTest::addColumn<QString>("called");
    QTest::addColumn<QByteArray>("subject");
    QTest::newRow("bare host") << Url << Call;
    QTest::newRow("path") << "//w/x" << QByteArray("z1.default.call.w.x");
}

void tst_NatsOnce::whoIsGoneIsFollowedByOthers()
{
    QFETCH(QString, called);
    QFETCH(QByteArray, subject);
    RawClient client(m_broker->url());
    QVERIFY(client.subscribe(subject, "z"));
    const int id = m_near->begin(QStringLiteral("outcome"), withUrl(called));
    for (int i = 0; i < 4; ++i) {
        const RawMessage request = client.next();
        QVERIFY(request.isThere);
        QVERIFY(
            client.publish(request.reply, {}, {{"Nats-Service-Error-Code", "410"}, {"Nats-Service-Error", "gone"}}));
        QVERIFY(client.flush());
    }
    const RawMessage request = client.next();
    QVERIFY(request.isThere);
    QVERIFY(client.publish(request.reply, "{}"));
    QVERIFY(client.flush());
    QCOMPARE(at(m_near->answer(id), "handled"), QJsonValue(true));
}

void tst_NatsOnce::byNameWhatIsNotBoundFailsAtOnce_data()
{
    QTest::addColumn<bool>("isBoundAndLeaves");
    QTest::newRow("never bound") << false;
    QTest::newRow("bound before") << true;
}

void tst_NatsOnce::byNameWhatIsNotBoundFailsAtOnce()
{
    QFETCH(bool, isBoundAndLeaves);
    QVERIFY(m_far->bind(QStringLiteral("//w/there"))); // its host is served
    if (isBoundAndLeaves) {
        QVERIFY(m_far->bind(QStringLiteral("//w/x")));
        m_far->ask(QStringLiteral("unbind"), {{QStringLiteral("url"), QStringLiteral("//w/x")}});
    }
    for (int i = 0; i < 3; ++i) {
        const QJsonObject answer = m_near->call(QStringLiteral("//far@w/x"));
        const int code = at(answer, "outcome", "code").toInt();
        QVERIFY2(code == 410 || code == 503, qPrintable(QString::number(code)));
        QCOMPARE(at(answer, "outcome", "called"), QJsonValue(false));
        QVERIFY2(at(answer, "ms").toInt() < AtOnceMs, qPrintable(QString::number(at(answer, "ms").toInt())));
    }
    const int found = at(m_far->report(), "calls", "in", "n").toInt();
    QVERIFY2(found <= 6, qPrintable(QString::number(found))); // it is not asked again and again
}

void tst_NatsOnce::whoIsBusyIsFound()
{
    const Gate gate;
    QVERIFY(m_far->bind(Url, gate.option()));
    RawClient client(m_broker->url());
    for (int i = 0; i < 4; ++i) // fill what may wait or run
        QVERIFY(client.publish(Call, "{}", {{"Z-Url", "//w"}, {"Z-Left", "20000"}}, "nobody.waits"));
    QVERIFY(client.flush());
    QTRY_COMPARE(m_far->calls(Url), 2);
    QCOMPARE(client.request(Call, "{}", {{"Z-Url", "//w"}}).code(), 429);
    for (const char *asked : {"//w", "//far@w"}) {
        const QJsonObject answer = m_near->ask(QStringLiteral("find"), {{QStringLiteral("url"), QLatin1String(asked)}});
        QCOMPARE(at(answer, "found"), QJsonValue(true));
    }
    gate.open();
}

QTEST_GUILESS_MAIN(tst_NatsOnce)
#include "tst_natsonce.moc"
