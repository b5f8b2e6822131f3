// SPDX-License-Identifier: Apache-2.0
#include "broker.h"
#include "nodeprocess.h"
#include "rawclient.h"
#include "testcase.h"

#include <QDateTime>
#include <QJsonDocument>

#include <memory>

namespace {

const QByteArray Call = "z1.default.call.w._"; // where "//w" is called
constexpr int SoonMs = 500;

QByteArray body(const QJsonObject &message) { return QJsonDocument(message).toJson(); }

RawClient::Headers headersFor(const char *url) { return {{"Z-Url", url}, {"Z-Left", "2000"}}; }

} // namespace

/// Each way in which a call fails, as its caller sees it: false, its code, its reason, and whether anybody was called.
class tst_NatsFailures : public TestCase
{
    Q_OBJECT

protected Q_SLOTS:
    void init() override;

private Q_SLOTS:
    void nobodyIsThere();
    void whatIsThrownIsToldAsThrown();
    void anAnswerThatComesTooLateIsNone();
    void aRequestPastItsTimeIsNotRun();
    void whoeverIsGoneIsNotCalled();
    void whoeverIsBusySaysSo();
    void aRequestThatIsTooLargeIsNotSent();
    void anAnswerThatIsTooLargeIsNone();
    void loopsEnd();
    void chainsPassTwoProcesses();
    void whatIsNotJsonIsRefused_data();
    void whatIsNotJsonIsRefused();
    void aUrlThatIsNotTheSubjectsIsRefused_data();
    void aUrlThatIsNotTheSubjectsIsRefused();
    void whatIsNotServedIsRefused();
    void whatNobodyKnowsIsIgnored();
    void anAnswerSaysWhoAndWhen();
    void anAnswerThatIsNotJsonIsNone();
    void codesOfOthersArePassedOn();
    void failuresAreCounted();
    void nothingIsSaidOfWhatIsHandled();

    void withoutABrokerFromTheStartCallsFailAtOnce();
    void whenTheBrokerIsGoneCallsFailAtOnce();
    void whoEndsWithoutABrokerEndsAtOnce();
    void callsThatNobodyWaitsForAreAnswered();

private:
    void verifyFails(const QJsonObject &answer, int code, const char *reason, const QJsonValue &called);
    bool hasLogged(const char *line) const { return m_near->hasLogged(QStringLiteral("(!) ") + QLatin1String(line)); }

    std::unique_ptr<Broker> m_broker;
    std::unique_ptr<NodeProcess> m_near, m_far;
};

void tst_NatsFailures::init()
{
    TestCase::init();
    m_near.reset();
    m_far.reset();
    if (!m_broker)
        m_broker = std::make_unique<Broker>();
    if (!m_broker->isRunning())
        QVERIFY(m_broker->start());
    m_near = std::make_unique<NodeProcess>(
        QStringLiteral("near"),
        sectionFor(m_broker->url(), {{QStringLiteral("timeout"), 1000}, {QStringLiteral("hops"), 4}}));
    m_far = std::make_unique<NodeProcess>(
        QStringLiteral("far"),
        sectionFor(m_broker->url(),
                   {{QStringLiteral("workers"), 2}, {QStringLiteral("queue"), 4}, {QStringLiteral("hops"), 4}}));
    QVERIFY(m_near->startConnected());
    QVERIFY(m_far->startConnected());
    m_near->takeLog();
}

void tst_NatsFailures::verifyFails(const QJsonObject &answer, int code, const char *reason, const QJsonValue &called)
{
    QCOMPARE(at(answer, "handled"), QJsonValue(false));
    QCOMPARE(at(answer, "outcome", "code").toInt(), code);
    QCOMPARE(at(answer, "outcome", "reason").toString(), QLatin1String(reason));
    QCOMPARE(answer.value(QStringLiteral("outcome")).toObject().contains(QStringLiteral("called")), called.isBool());
    if (called.isBool())
        QCOMPARE(at(answer, "outcome", "called"), called);
}

void tst_NatsFailures::nobodyIsThere()
{
    const QJsonObject answer = m_near->call(QStringLiteral("//w/x"));
    verifyFails(answer, 503, "nobody", false);
    QVERIFY2(at(answer, "ms").toInt() < SoonMs, "it was not seen lately: nobody waits for it");
    QTRY_VERIFY(hasLogged("//w/x nobody"));
}

void tst_NatsFailures::whatIsThrownIsToldAsThrown()
{
    QVERIFY(m_far->bind(QStringLiteral("//w"), {{QStringLiteral("kind"), QStringLiteral("throw")}}));
    verifyFails(m_near->call(QStringLiteral("//w")), 500, "thrown", true);
    QCOMPARE(m_far->calls(QStringLiteral("//w")), 1);
    QTRY_VERIFY(hasLogged("//w thrown"));
}

void tst_NatsFailures::anAnswerThatComesTooLateIsNone()
{
    QVERIFY(m_far->bind(QStringLiteral("//w"),
                        {{QStringLiteral("kind"), QStringLiteral("slow")}, {QStringLiteral("ms"), 2500}}));
    const QJsonObject answer = m_near->call(QStringLiteral("//w"));
    verifyFails(answer, 504, "no answer in time", QJsonValue());
    const int took = at(answer, "ms").toInt();
    QVERIFY2(took >= 950 && took < 2400, qPrintable(QString::number(took)));
    QTRY_VERIFY(hasLogged("//w no answer in time"));
    QCOMPARE(m_far->calls(QStringLiteral("//w")), 1); // and not tried again
}

void tst_NatsFailures::aRequestPastItsTimeIsNotRun()
{
    QVERIFY(m_far->bind(QStringLiteral("//w")));
    RawClient client(m_broker->url());
    RawClient::Headers headers = headersFor("//w");
    headers.insert("Z-Deadline", QByteArray::number(QDateTime::currentMSecsSinceEpoch() - 10000));
    headers.insert("Z-Left", "1");
    const RawMessage answer = client.request(Call, "{}", headers);
    QCOMPARE(answer.code(), 408);
    QCOMPARE(answer.reason(), QByteArray("too late"));
    QCOMPARE(m_far->calls(QStringLiteral("//w")), 0);
}

void tst_NatsFailures::whoeverIsGoneIsNotCalled()
{
    QVERIFY(m_far->bind(QStringLiteral("//w/x")));
    m_far->ask(QStringLiteral("unbind"), {{QStringLiteral("url"), QStringLiteral("//w/x")}});
    RawClient client(m_broker->url());
    const RawMessage answer = client.request("z1.default.call.w.x", "{}", headersFor("//w/x"));
    if (answer.isThere) // it may have noticed by itself
        QCOMPARE(answer.code(), 410);
    const QJsonObject called = m_near->call(QStringLiteral("//w/x"));
    QVERIFY(!at(called, "handled").toBool());
    QCOMPARE(at(called, "outcome", "called"), QJsonValue(false));
    const int code = at(called, "outcome", "code").toInt();
    QVERIFY2(code == 410 || code == 503, qPrintable(QString::number(code)));
}

void tst_NatsFailures::whoeverIsBusySaysSo()
{
    QVERIFY(m_far->bind(QStringLiteral("//w"),
                        {{QStringLiteral("kind"), QStringLiteral("slow")}, {QStringLiteral("ms"), 3000}}));
    RawClient client(m_broker->url());
    for (int i = 0; i < 4; ++i) // fill what may wait or run
        QVERIFY(client.publish(Call, "{}", {{"Z-Url", "//w"}, {"Z-Left", "20000"}}, "nobody.waits"));
    QVERIFY(client.flush());
    QTRY_COMPARE(m_far->calls(QStringLiteral("//w")), 2); // so many workers
    const RawMessage answer = client.request(Call, "{}", headersFor("//w"));
    QCOMPARE(answer.code(), 429);
    QCOMPARE(answer.reason(), QByteArray("busy"));
    const QJsonObject called = m_near->call(QStringLiteral("//w"));
    verifyFails(called, 429, "busy", false);
    QTRY_VERIFY(hasLogged("//w busy"));
}

void tst_NatsFailures::aRequestThatIsTooLargeIsNotSent()
{
    QVERIFY(m_far->bind(QStringLiteral("//w")));
    const QJsonObject answer = m_near->ask(QStringLiteral("outcome"), {{QStringLiteral("url"), QStringLiteral("//w")},
                                                                       {QStringLiteral("bytes"), 1100000}});
    verifyFails(answer, 413, "too large", false);
    QCOMPARE(m_far->calls(QStringLiteral("//w")), 0);
    QTRY_VERIFY(hasLogged("//w too large"));
    QVERIFY(m_near->handles(QStringLiteral("//w"))); // it is still connected
}

void tst_NatsFailures::anAnswerThatIsTooLargeIsNone()
{
    QVERIFY(m_far->bind(QStringLiteral("//w"),
                        {{QStringLiteral("kind"), QStringLiteral("big")}, {QStringLiteral("bytes"), 1100000}}));
    const QJsonObject answer = m_near->call(QStringLiteral("//w"));
    QCOMPARE(at(answer, "outcome", "code").toInt(), 413);
    QCOMPARE(at(answer, "outcome", "called"), QJsonValue(true));
    QVERIFY(at(answer, "outcome", "reason").toString().contains(QLatin1String("too large")));
    QVERIFY2(at(answer, "ms").toInt() < 900, "it is told, and not waited for");
}

void tst_NatsFailures::loopsEnd()
{
    const auto chain = [](const char *to) {
        return QJsonObject{{QStringLiteral("kind"), QStringLiteral("chain")},
                           {QStringLiteral("to"), QLatin1String(to)}};
    };
    QVERIFY(m_near->bind(QStringLiteral("//a"), chain("//b")));
    QVERIFY(m_far->bind(QStringLiteral("//b"), chain("//a")));
    QVERIFY(!m_near->handles(QStringLiteral("//b")));
    QTRY_VERIFY(m_near->hasLogged(QStringLiteral("loop")) || m_far->hasLogged(QStringLiteral("loop")));
    QVERIFY(m_near->calls(QStringLiteral("//a")) + m_far->calls(QStringLiteral("//b")) <= 5);

    RawClient client(m_broker->url());
    RawClient::Headers headers = headersFor("//b");
    headers.insert("Z-Hops", "99");
    const RawMessage answer = client.request("z1.default.call.b._", "{}", headers);
    QCOMPARE(answer.code(), 508);
    QCOMPARE(answer.reason(), QByteArray("loop"));
}

/// From here to there and back and there again.
void tst_NatsFailures::chainsPassTwoProcesses()
{
    const auto chain = [](const char *to) {
        return QJsonObject{{QStringLiteral("kind"), QStringLiteral("chain")},
                           {QStringLiteral("to"), QLatin1String(to)}};
    };
    QVERIFY(m_far->bind(QStringLiteral("//b"), chain("//c")));
    QVERIFY(m_near->bind(QStringLiteral("//c"), chain("//d")));
    QVERIFY(m_far->bind(QStringLiteral("//d")));
    QList<int> ids;
    for (int i = 0; i < 2; ++i) // as many as there are workers: who waits must not take a worker's place
        ids << m_near->begin(QStringLiteral("outcome"),
                             {{QStringLiteral("url"), QStringLiteral("//b")}, {QStringLiteral("out"), QJsonObject()}});
    for (int id : qAsConst(ids)) {
        const QJsonObject answer = m_near->answer(id);
        QVERIFY2(at(answer, "handled").toBool(), qPrintable(at(answer, "outcome", "reason").toString()));
        QCOMPARE(at(answer, "out", "name").toString(), QStringLiteral("far"));
    }
}

void tst_NatsFailures::whatIsNotJsonIsRefused_data()
{
    QTest::addColumn<QByteArray>("data");
    QTest::newRow("word") << QByteArray("hello");
    QTest::newRow("half") << QByteArray("{\"in\":");
    QTest::newRow("list") << QByteArray("[1]");
    QTest::newRow("in is no object") << QByteArray("{\"in\":1}");
    QTest::newRow("out is no object") << QByteArray("{\"out\":[]}");
    QTest::newRow("bytes") << QByteArray("\0\xff\xfe", 3);
}

void tst_NatsFailures::whatIsNotJsonIsRefused()
{
    QFETCH(QByteArray, data);
    QVERIFY(m_far->bind(QStringLiteral("//w")));
    RawClient client(m_broker->url());
    const RawMessage answer = client.request(Call, data, headersFor("//w"));
    QCOMPARE(answer.code(), 400);
    QCOMPARE(answer.reason(), QByteArray("not JSON"));
    QCOMPARE(m_far->calls(QStringLiteral("//w")), 0);
}

void tst_NatsFailures::aUrlThatIsNotTheSubjectsIsRefused_data()
{
    QTest::addColumn<QByteArray>("subject");
    QTest::addColumn<QByteArray>("url");
    QTest::newRow("another host") << Call << QByteArray("//v");
    QTest::newRow("another path") << QByteArray("z1.default.call.w.x") << QByteArray("//w/y");
    QTest::newRow("a path of the exact one, encoded") << QByteArray("z1.default.call.w.x") << QByteArray("//w/%79");
    QTest::newRow("the host itself") << Call << QByteArray("//zhost/stop");
    QTest::newRow("its report") << Call << QByteArray("//nats/printd");
    QTest::newRow("everybody") << Call << QByteArray("/x");
    QTest::newRow("another process") << Call << QByteArray("//other@w");
    QTest::newRow("no URL") << Call << QByteArray("//[");
    QTest::newRow("of another name") << QByteArray("z1.default.at.far.w._") << QByteArray("//near@w");
}

void tst_NatsFailures::aUrlThatIsNotTheSubjectsIsRefused()
{
    QFETCH(QByteArray, subject);
    QFETCH(QByteArray, url);
    for (const char *bound : {"//w", "//w/x", "//w/y", "//v", "//zhost"})
        QVERIFY(m_far->bind(QLatin1String(bound)));
    RawClient client(m_broker->url());
    const RawMessage answer = client.request(subject, "{}", headersFor(url.constData()));
    QCOMPARE(answer.code(), 403);
    for (const char *bound : {"//w", "//w/x", "//w/y", "//v", "//zhost"})
        QCOMPARE(m_far->calls(QLatin1String(bound)), 0);
}

void tst_NatsFailures::whatIsNotServedIsRefused()
{
    QVERIFY(m_far->bind(QStringLiteral("//zscheduler")));
    RawClient client(m_broker->url());
    const RawMessage answer =
        client.request("z1.default.at.far.zscheduler.shutdown", "{}", headersFor("//far@zscheduler/shutdown"), 1000);
    if (answer.isThere) {
        QCOMPARE(answer.code(), 403);
        QCOMPARE(answer.reason(), QByteArray("not served"));
    }
    QCOMPARE(m_far->calls(QStringLiteral("//zscheduler")), 0);
}

void tst_NatsFailures::whatNobodyKnowsIsIgnored()
{
    QVERIFY(m_far->bind(QStringLiteral("//w")));
    RawClient client(m_broker->url());
    RawClient::Headers headers = headersFor("//w");
    headers.insert("Z-Tomorrow", "yes");
    headers.insert("Traceparent", "00-0");
    const QJsonObject in{{QStringLiteral("a"), 1}};
    const RawMessage answer = client.request(Call,
                                             body({{QStringLiteral("in"), in},
                                                   {QStringLiteral("out"), QJsonObject()},
                                                   {QStringLiteral("tomorrow"), QJsonArray{1}}}),
                                             headers);
    QVERIFY(answer.isThere);
    QCOMPARE(answer.code(), 0);
    QCOMPARE(at(answer.json(), "out", "in").toObject(), in);
    QVERIFY(!answer.json().contains(QStringLiteral("in"))); // which was not changed
}

void tst_NatsFailures::anAnswerSaysWhoAndWhen()
{
    QVERIFY(m_far->bind(QStringLiteral("//w")));
    RawClient client(m_broker->url());
    const RawMessage answer = client.request(Call, "{}", headersFor("//w"));
    QCOMPARE(answer.headers.value("Z-Host"), QByteArray("far"));
    const qint64 clock = answer.headers.value("Z-Clock").toLongLong();
    QVERIFY(qAbs(clock - QDateTime::currentMSecsSinceEpoch()) < 10000);
}

void tst_NatsFailures::anAnswerThatIsNotJsonIsNone()
{
    RawClient client(m_broker->url());
    QVERIFY(client.subscribe(Call, "z"));
    const int id = m_near->begin(QStringLiteral("outcome"), {{QStringLiteral("url"), QStringLiteral("//w")},
                                                             {QStringLiteral("out"), QJsonObject()}});
    const RawMessage request = client.next();
    QVERIFY(request.isThere);
    QCOMPARE(request.headers.value("Z-Url"), QByteArray("//w"));
    QVERIFY(request.headers.value("Z-Left").toInt() > 0);
    QVERIFY(request.headers.contains("Z-Deadline"));
    QVERIFY(client.publish(request.reply, "hello"));
    QVERIFY(client.flush());
    verifyFails(m_near->answer(id), 502, "answer is not JSON", true);
}

void tst_NatsFailures::codesOfOthersArePassedOn()
{
    RawClient client(m_broker->url());
    QVERIFY(client.subscribe(Call, "z"));
    const int id = m_near->begin(QStringLiteral("outcome"), {{QStringLiteral("url"), QStringLiteral("//w")}});
    const RawMessage request = client.next();
    QVERIFY(request.isThere);
    QVERIFY(
        client.publish(request.reply, {}, {{"Nats-Service-Error-Code", "418"}, {"Nats-Service-Error", "a teapot"}}));
    QVERIFY(client.flush());
    const QJsonObject answer = m_near->answer(id);
    QCOMPARE(at(answer, "handled"), QJsonValue(false));
    QCOMPARE(at(answer, "outcome", "code").toInt(), 418);
}

void tst_NatsFailures::failuresAreCounted()
{
    QVERIFY(m_far->bind(QStringLiteral("//w")));
    for (int i = 0; i < 3; ++i)
        QVERIFY(!m_near->handles(QStringLiteral("//nobody")));
    for (int i = 0; i < 5; ++i)
        QVERIFY(m_near->handles(QStringLiteral("//w")));
    const QJsonObject report = m_near->report();
    QCOMPARE(at(report, "name").toString(), QStringLiteral("near"));
    QCOMPARE(at(report, "layer").toString(), QStringLiteral("nats"));
    QCOMPARE(at(report, "reasons", "nobody").toInt(), 3);
    QCOMPARE(at(report, "calls", "out", "n").toInt(), 8);
    QCOMPARE(at(report, "calls", "out", "failed").toInt(), 3);
    QCOMPARE(at(report, "calls", "out", "under way").toInt(), 0);
    QVERIFY(at(report, "calls", "out", "p50 ms").toDouble() > 0);
    QCOMPARE(at(m_far->report(), "calls", "in", "n").toInt(), 5);
    QCOMPARE(at(m_far->report(), "queue", "workers").toInt(), 2);
}

void tst_NatsFailures::nothingIsSaidOfWhatIsHandled()
{
    QVERIFY(m_far->bind(QStringLiteral("//w")));
    QVERIFY(m_near->handles(QStringLiteral("//w")));
    m_near->report();
    QVERIFY(!m_near->hasLogged(QStringLiteral("(!)")));
    QVERIFY(!m_far->hasLogged(QStringLiteral("(!)")));
}

void tst_NatsFailures::withoutABrokerFromTheStartCallsFailAtOnce()
{
    Broker broker;
    NodeProcess alone(QStringLiteral("alone"), sectionFor(broker.url()));
    QVERIFY(alone.start());
    QVERIFY(alone.bind(QStringLiteral("//here")));
    QVERIFY(alone.handles(QStringLiteral("//here")));
    const QJsonObject answer = alone.call(QStringLiteral("//w"));
    verifyFails(answer, 507, "not connected", false);
    QVERIFY(at(answer, "ms").toInt() < SoonMs);
    QVERIFY(
        at(alone.ask(QStringLiteral("findall"), {{QStringLiteral("pattern"), QStringLiteral("here")}}), "ms").toInt() <
        SoonMs);
    QVERIFY(broker.start()); // now it is there
    QTRY_VERIFY_WITH_TIMEOUT(alone.isConnected(), 20000);
    NodeProcess other(QStringLiteral("other"), sectionFor(broker.url()));
    QVERIFY(other.startConnected());
    QVERIFY(other.handles(QStringLiteral("//here"))); // what was bound meanwhile
    const qint64 took = alone.quit();
    QVERIFY2(took >= 0 && took < 5000, qPrintable(QString::number(took)));
}

void tst_NatsFailures::whenTheBrokerIsGoneCallsFailAtOnce()
{
    QVERIFY(m_far->bind(QStringLiteral("//w")));
    QVERIFY(m_near->handles(QStringLiteral("//w")));
    m_broker->kill();
    QTRY_VERIFY(!m_near->isConnected());
    const QJsonObject answer = m_near->call(QStringLiteral("//w"));
    verifyFails(answer, 507, "not connected", false);
    QVERIFY(at(answer, "ms").toInt() < 1000 + SoonMs); // it may be waited for as long as a host that was seen lately
    QVERIFY(m_broker->start());
    QTRY_VERIFY_WITH_TIMEOUT(m_near->handles(QStringLiteral("//w")), 20000);
}

void tst_NatsFailures::whoEndsWithoutABrokerEndsAtOnce()
{
    QVERIFY(m_far->bind(QStringLiteral("//w")));
    QVERIFY(m_near->handles(QStringLiteral("//w")));
    m_broker->kill();
    const qint64 took = m_far->quit();
    QVERIFY2(took >= 0 && took < 2000, qPrintable(QString::number(took)));
}

void tst_NatsFailures::callsThatNobodyWaitsForAreAnswered()
{
    QVERIFY(m_far->bind(QStringLiteral("//w")));
    const QJsonObject answer =
        m_near->ask(QStringLiteral("async"), {{QStringLiteral("url"), QStringLiteral("//w")},
                                              {QStringLiteral("in"), QJsonObject{{QStringLiteral("a"), 1}}},
                                              {QStringLiteral("out"), QJsonObject()}});
    QVERIFY(at(answer, "call").toInt() > 0);
    QCOMPARE(at(answer, "answer", "handled"), QJsonValue(true));
    QCOMPARE(at(answer, "answer", "out", "name").toString(), QStringLiteral("far"));
    const QJsonObject failed =
        m_near->ask(QStringLiteral("async"), {{QStringLiteral("url"), QStringLiteral("//nobody")}});
    QCOMPARE(at(failed, "answer", "handled"), QJsonValue(false));
    QCOMPARE(at(failed, "answer", "outcome", "code").toInt(), 503);
}

QTEST_GUILESS_MAIN(tst_NatsFailures)
#include "tst_natsfailures.moc"
