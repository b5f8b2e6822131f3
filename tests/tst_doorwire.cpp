// SPDX-License-Identifier: Apache-2.0
#include "door/doorhost.h"
#include "door/wire.h"
#include "testcase.h"

/// What comes over the wire is told apart from a request, and the host lives on.
class tst_DoorWire : public TestCase
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void answersWhatIsNoRequest_data();
    void answersWhatIsNoRequest();
    void findsNothingByTricks_data();
    void findsNothingByTricks();
    void takesBodiesAsTheyAre_data();
    void takesBodiesAsTheyAre();
    void refusesAGigabyteBeforeItComes();
    void cutsOffABodyWithoutAnEnd();
    void refusesWhatWouldSwell();
    void answersARequestWithoutALengthAtOnce();
    void cleanupTestCase();

private:
    Wire wire() const { return Wire(m_host.socket()); }
    qint64 memory() const { return qint64(m_host.get("/v1/report/host").object()["residentBytes"].toDouble()); }
    bool isWell() const { return m_host.get("/healthz").status == 200; }

    DoorHost m_host;
};

namespace {

constexpr int MiB = 1 << 20;

QByteArray post(const QByteArray &headers, const QByteArray &body)
{
    return "POST /v1/call?url=//echo/x HTTP/1.1\r\nContent-Type: application/json\r\n" + headers + "\r\n" + body;
}

} // namespace

void tst_DoorWire::initTestCase()
{
    m_host.loadList = QStringList{QStringLiteral("libecho")};
    QVERIFY(m_host.deployed.drop(QStringLiteral("echo")));
    m_host.start();
    QVERIFY(m_host.isReady());
}

void tst_DoorWire::answersWhatIsNoRequest_data()
{
    QTest::addColumn<QByteArray>("sent");
    QTest::addColumn<int>("status"); // 0: no answer

    const QByteArray two = "Content-Length: 2\r\n";
    const QByteArray chunked = "Transfer-Encoding: chunked\r\n";
    const QByteArray hidden = "0\r\n\r\nGET /v1/log HTTP/1.1\r\n\r\n";
    QTest::newRow("nothing") << QByteArray() << 0;
    QTest::newRow("half a request") << QByteArray("GET /heal") << 0;
    QTest::newRow("an empty line") << QByteArray("\r\n\r\n") << 400;
    QTest::newRow("blanks") << QByteArray("   \r\n\r\n") << 400;
    QTest::newRow("bytes") << QByteArray("\x01\x02\xff\xfe\r\n\r\n") << 400;
    QTest::newRow("the hello of TLS") << QByteArray::fromHex("16030100c8010000c40303") + "\r\n\r\n" << 400;
    QTest::newRow("lines without CR") << QByteArray("GET /healthz HTTP/1.1\nHost: x\n\n") << 400;
    QTest::newRow("NUL in the path") << QByteArray("GET /heal\0thz HTTP/1.1\r\n\r\n", 26) << 400;
    QTest::newRow("NUL in a header") << QByteArray("GET /healthz HTTP/1.1\r\nX: a\0b\r\n\r\n", 33) << 200;
    QTest::newRow("HTTP/0.9") << QByteArray("GET /healthz\r\n") << 400;
    QTest::newRow("HTTP/1.0") << QByteArray("GET /healthz HTTP/1.0\r\n\r\n") << 200;
    QTest::newRow("HTTP/2") << QByteArray("PRI * HTTP/2.0\r\n\r\nSM\r\n\r\n") << 400;
    QTest::newRow("an absolute URI") << QByteArray("GET http://other/healthz HTTP/1.1\r\n\r\n") << 404;
    QTest::newRow("a made-up method") << QByteArray("FETCH /healthz HTTP/1.1\r\n\r\n") << 400;
    QTest::newRow("CONNECT") << QByteArray("CONNECT other:443 HTTP/1.1\r\n\r\n") << 415;
    QTest::newRow("TRACE") << QByteArray("TRACE /healthz HTTP/1.1\r\n\r\n") << 415;
    QTest::newRow("three in a row") << QByteArray("GET /healthz HTTP/1.1\r\n\r\n").repeated(3) << 200;
    QTest::newRow("a range") << QByteArray("GET /openapi.json HTTP/1.1\r\nRange: bytes=0-3\r\n\r\n") << 200;
    QTest::newRow("a thousand ranges") << "GET /openapi.json HTTP/1.1\r\nRange: bytes=0-" +
                                              QByteArray(",0-").repeated(1000) + "\r\n\r\n"
                                       << 200;
    QTest::newRow("a range beyond all numbers")
        << QByteArray("GET /openapi.json HTTP/1.1\r\nRange: bytes=99999999999999999999-\r\n\r\n") << 416;
    QTest::newRow("a long line") << "GET /" + QByteArray(9000, 'a') + " HTTP/1.1\r\n\r\n" << 414;
    QTest::newRow("a line without an end") << "GET /" + QByteArray(2 * MiB, 'a') << 0;
    QTest::newRow("a long header") << "GET /healthz HTTP/1.1\r\nX: " + QByteArray(9000, 'a') + "\r\n\r\n" << 400;
    QTest::newRow("many headers") << "GET /healthz HTTP/1.1\r\n" + QByteArray("X: a\r\n").repeated(20000) + "\r\n"
                                  << 400;
    QTest::newRow("headers without an end")
        << "GET /healthz HTTP/1.1\r\n" + QByteArray("X: a\r\n").repeated(300000) << 400;
    QTest::newRow("a length below 0") << post("Content-Length: -1\r\n", "{}") << 400;
    QTest::newRow("a length in words") << post("Content-Length: two\r\n", "{}") << 400;
    QTest::newRow("no length") << post("Content-Length: \r\n", {}) << 200;
    QTest::newRow("a length beyond all numbers") << post("Content-Length: 99999999999999999999\r\n", "{}") << 413;
    QTest::newRow("two lengths") << post(two + "Content-Length: 40\r\n", "{}" + hidden) << 400;
    QTest::newRow("a length, and chunks") << post(two + chunked, hidden) << 400;
    QTest::newRow("chunks twice") << post(chunked + chunked, hidden) << 400;
    QTest::newRow("another coding") << post("Transfer-Encoding: identity\r\n", hidden) << 400;
    QTest::newRow("a chunk in words") << post(chunked, "two\r\n{}\r\n0\r\n\r\n") << 400;
    QTest::newRow("a chunk beyond all numbers") << post(chunked, "ffffffffffffffff\r\n{}\r\n0\r\n\r\n") << 400;
    QTest::newRow("a chunk that is cut") << post(chunked, "40000000\r\n{}\r\n0\r\n\r\n") << 400;
    QTest::newRow("a body that is cut") << post("Content-Length: 20\r\n", "{}") << 400;
    QTest::newRow("more than its length") << post(two, "{}" + hidden) << 200;
}

void tst_DoorWire::answersWhatIsNoRequest()
{
    QFETCH(QByteArray, sent);
    QFETCH(int, status);

    const QByteArray answer = wire().send(sent).finish().all();
    QCOMPARE(statusOf(answer), status);
    QCOMPARE(answer.count("HTTP/1.1 "), status == 0 ? 0 : 1);
    if (status >= 400) {
        const QByteArray body = answer.mid(answer.indexOf("\r\n\r\n"));
        QVERIFY(!QJsonDocument::fromJson(body).object().value(QStringLiteral("error")).toString().isEmpty());
        QVERIFY(answer.contains("Content-Security-Policy: default-src 'none'"));
    }
    QVERIFY(isWell());
}

void tst_DoorWire::findsNothingByTricks_data()
{
    QTest::addColumn<QByteArray>("path");
    for (const char *path : {"/page/../host",
                             "/page/%2e%2e/openapi.json",
                             "/page/..%2f..%2f..%2fetc%2fpasswd",
                             "/page/..",
                             "/page/",
                             "/page",
                             "/page/%00",
                             "/page/page.js%00",
                             "/page/page.js/",
                             "/page//page.js",
                             "//",
                             "//healthz",
                             "/./healthz",
                             "/../healthz",
                             "/healthz/",
                             "/healthz;x",
                             "/%5c",
                             "/\\healthz",
                             "/%",
                             "/%zz",
                             "/%u0041",
                             "/HEALTHZ",
                             "*",
                             "?",
                             "/v1/report/",
                             "/v1/report/..",
                             "/v1/report/%ff",
                             "/v1/report/host/x",
                             ":/door/page/index.html",
                             "/page/:%2fdoor%2fopenapi.json"})
        QTest::newRow(path) << QByteArray(path);
    QTest::newRow("very long") << "/page/" + QByteArray(8000, 'a');
    QTest::newRow("very deep") << "/page" + QByteArray("/..").repeated(2500);
}

void tst_DoorWire::findsNothingByTricks()
{
    QFETCH(QByteArray, path);
    QCOMPARE(statusOf(wire().send("GET " + path + " HTTP/1.1\r\n\r\n").all()), 404);
    QVERIFY(isWell());
}

void tst_DoorWire::takesBodiesAsTheyAre_data()
{
    QTest::addColumn<QByteArray>("body");
    QTest::addColumn<int>("status");
    QTest::addColumn<QByteArray>("echo");

    QTest::newRow("nothing") << QByteArray() << 200 << QByteArray("{}");
    QTest::newRow("blanks") << QByteArray(" \n") << 200 << QByteArray("{}");
    QTest::newRow("a key twice") << QByteArray(R"({"a":1,"a":2})") << 200 << QByteArray(R"({"a":2})");
    QTest::newRow("a large number") << QByteArray(R"({"a":1e300})") << 200 << QByteArray(R"({"a":1e+300})");
    QTest::newRow("a number of 100,000 digits") << "{\"a\":" + QByteArray(100000, '9') + "}" << 400 << QByteArray();
    QTest::newRow("a number that is none") << QByteArray(R"({"a":1e999})") << 400 << QByteArray();
    QTest::newRow("markup") << QByteArray(R"({"a":"<script>"})") << 200 << QByteArray(R"({"a":"<script>"})");
    QTest::newRow("10,000 levels") << "{\"a\":" + QByteArray(10000, '[') + QByteArray(10000, ']') + "}" << 400
                                   << QByteArray();
    QTest::newRow("levels without an end") << QByteArray(R"({"a":)").repeated(100000) << 400 << QByteArray();
    QTest::newRow("no UTF-8") << QByteArray("{\"a\":\"\xff\"}") << 400 << QByteArray();
    QTest::newRow("a list") << QByteArray("[]") << 400 << QByteArray();
    QTest::newRow("no JSON") << QByteArray("<a/>") << 400 << QByteArray();
    QTest::newRow("almost too large") << "{\"a\":\"" + QByteArray(MiB - 100, 'a') + "\"}" << 200
                                      << "{\"a\":\"" + QByteArray(MiB - 100, 'a') + "\"}";
    QTest::newRow("too large") << QByteArray(MiB + 1, ' ') << 413 << QByteArray();
}

void tst_DoorWire::takesBodiesAsTheyAre()
{
    QFETCH(QByteArray, body);
    QFETCH(int, status);
    QFETCH(QByteArray, echo);

    const QByteArray length = "Content-Length: " + QByteArray::number(body.size()) + "\r\n";
    const QByteArray answer = wire().send(post(length, body)).all();
    QCOMPARE(statusOf(answer), status);
    const QJsonObject out = QJsonDocument::fromJson(answer.mid(answer.indexOf("\r\n\r\n")))
                                .object()
                                .value(QStringLiteral("out"))
                                .toObject();
    const QJsonObject echoed = out.value(QStringLiteral("echo")).toObject();
    QCOMPARE(status == 200 ? QJsonDocument(echoed).toJson(QJsonDocument::Compact) : QByteArray(), echo);
    QVERIFY(isWell());
}

void tst_DoorWire::refusesAGigabyteBeforeItComes()
{
    QCOMPARE(statusOf(wire().send(post("Content-Length: 1073741824\r\n", {})).all()), 413);
    QVERIFY(isWell());
}

void tst_DoorWire::cutsOffABodyWithoutAnEnd()
{
    const qint64 before = memory();
    Wire sender = wire();
    sender.send(post("Transfer-Encoding: chunked\r\n", {}));
    const QByteArray chunk = "100000\r\n" + QByteArray(MiB, ' ') + "\r\n";
    QElapsedTimer timer;
    timer.start();
    while (sender.send(chunk).isOpen() && timer.elapsed() < Patience) {
    }
    QVERIFY2(!sender.isOpen(), "it would take it for ever");
    QCOMPARE(statusOf(sender.all()), 400);
    QVERIFY(isWell());
    QVERIFY(memory() - before < 64 * MiB);
}

/// A kilobyte may be a megabyte, once it is unpacked.
void tst_DoorWire::refusesWhatWouldSwell()
{
    const qint64 before = memory();
    const QByteArray packed = qCompress(QByteArray(256 * MiB, ' ')).mid(4); // it begins with the size
    QVERIFY(packed.size() < MiB);
    const QByteArray length = "Content-Length: " + QByteArray::number(packed.size()) + "\r\n";
    QCOMPARE(statusOf(wire().send(post("Content-Encoding: deflate\r\n" + length, packed)).all()), 415);
    QVERIFY(isWell());
    QVERIFY(memory() - before < 64 * MiB);
}

/// Though its connection stays open.
void tst_DoorWire::answersARequestWithoutALengthAtOnce()
{
    QElapsedTimer timer;
    timer.start();
    QCOMPARE(statusOf(wire().send(post({}, {})).all()), 200);
    QVERIFY(timer.elapsed() < 9000); // else its time was up
}

void tst_DoorWire::cleanupTestCase()
{
    m_host.running->stop();
    QVERIFY(m_host.running->hasEndedWell());
    QVERIFY(!m_host.running->written().contains(QStringLiteral("left running")));
}

QTEST_GUILESS_MAIN(tst_DoorWire)
#include "tst_doorwire.moc"
