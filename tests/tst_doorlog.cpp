// SPDX-License-Identifier: Apache-2.0
// The log of a running host, as it is read and switched by the door.
#include "door/doorhost.h"
#include "testcase.h"

#include <QMutex>
#include <QSemaphore>

#include <atomic>
#include <functional>
#include <thread>

class tst_DoorLog : public TestCase
{
    Q_OBJECT

private Q_SLOTS:
    void tellsTheLastLines();
    void tellsSoManyLines_data();
    void tellsSoManyLines();
    void refusesANumberOfLines_data();
    void refusesANumberOfLines();
    void keepsTheLastThousandLines();
    void cutsALongLine();
    void tellsEachLineAsItComes();
    void tellsTheLastLinesBeforeThoseThatCome();
    void tellsHowManyLinesAreLost();
    void switchesSeverities();
    void switchesACategoryOff();
    void switchesAllOrNothing_data();
    void switchesAllOrNothing();
    void leavesTheConfigurationAsItIs();
};

namespace {

const QString Echo = QStringLiteral("echo");
const QString Lodger = QStringLiteral("lodger");

QString lastLine(const DoorHost &host)
{
    return textIn(host.get("/v1/log?lines=1").array().first().toObject(), "text");
}

QJsonObject objectOf(const char *json) { return QJsonDocument::fromJson(json).object(); }

/// Has it write many lines, and reads them meanwhile: it would wait for that.
bool chatters(const DoorHost &host, const QByteArray &request)
{
    std::atomic_int status{0};
    std::thread caller([&] { status = host.call("//lodger/chatter", request).status; });
    const bool hasEnded = QTest::qWaitFor([&] { return host.running->hasWritten({}) && status != 0; }, Patience);
    caller.join();
    return hasEnded && status == 200;
}

/// Follows the log on a thread of its own, until it goes.
class Follower
{
public:
    explicit Follower(
        const DoorHost &host, int lines, const std::function<void()> &atFirst = [] {})
        : m_client(host.client()), m_thread([this, lines, atFirst] {
              const std::string path = "/v1/log?lines=" + std::to_string(lines);
              bool isFirst = true;
              m_client.Get(path, {{"Accept", "text/event-stream"}}, [&](const char *data, size_t size) {
                  if (std::exchange(isFirst, false))
                      atFirst();
                  const QMutexLocker locker(&m_mutex);
                  m_read.append(data, int(size));
                  return !m_isEnding;
              });
          })
    {}
    ~Follower()
    {
        {
            const QMutexLocker locker(&m_mutex);
            m_isEnding = true;
        }
        m_client.stop();
        m_thread.join();
    }

    QByteArray read() const
    {
        const QMutexLocker locker(&m_mutex);
        return {m_read.constData(), m_read.size()}; // shares nothing
    }
    /// What the "data:" lines of the events that are lines of the log have as their texts.
    QStringList texts() const
    {
        QStringList result;
        const QList<QByteArray> lines = read().split('\n');
        for (const QByteArray &line : lines) {
            if (line.startsWith("data: {"))
                result.append(textIn(QJsonDocument::fromJson(line.mid(6)).object(), "text"));
        }
        return result;
    }

private:
    mutable QMutex m_mutex; // guards the two that follow
    QByteArray m_read;
    bool m_isEnding = false;
    httplib::Client m_client;
    std::thread m_thread;
};

} // namespace

void tst_DoorLog::tellsTheLastLines()
{
    DoorHost host;
    QVERIFY(host.startsWith({Echo}));
    QCOMPARE(host.call("//echo/one").status, 200);
    const QJsonArray lines = host.get("/v1/log").array();
    const QJsonObject line = lines.last().toObject();
    QCOMPARE(textIn(line, "text"), QStringLiteral("echo: //echo/one"));
    QCOMPARE(numberIn(line, "severity"), 6);
    QVERIFY(QDateTime::fromString(textIn(line, "time"), Qt::ISODateWithMs).isValid());
    for (int i = 0; i < lines.size(); ++i)
        QCOMPARE(numberIn(lines.at(i).toObject(), "number"), i + 1);
    const QString first = textIn(lines.first().toObject(), "text");
    QTRY_VERIFY_WITH_TIMEOUT(host.running->hasWritten(first), Patience); // as it is in the log itself
}

void tst_DoorLog::tellsSoManyLines_data()
{
    QTest::addColumn<QByteArray>("query");
    QTest::addColumn<int>("count");
    QTest::newRow("none") << QByteArray("?lines=0") << 0;
    QTest::newRow("two") << QByteArray("?lines=2") << 2;
    QTest::newRow("if nothing is said") << QByteArray() << 100;
    QTest::newRow("many") << QByteArray("?lines=1000") << 1000;
}

void tst_DoorLog::tellsSoManyLines()
{
    QFETCH(QByteArray, query);
    DoorHost host;
    QVERIFY(host.startsWith({Lodger}));
    QCOMPARE(host.call("//lodger/chatter", R"({"lines": 1000, "length": 1})").status, 200);
    QTEST(host.get(("/v1/log" + query).constData()).array().size(), "count");
}

void tst_DoorLog::refusesANumberOfLines_data()
{
    QTest::addColumn<QByteArray>("lines");
    for (const char *const lines : {"-1", "1001", "some", "1.5"})
        QTest::newRow(lines) << QByteArray(lines);
}

void tst_DoorLog::refusesANumberOfLines()
{
    QFETCH(QByteArray, lines);
    DoorHost host;
    QVERIFY(host.startsWith({Echo}));
    const Answered answered = host.get(("/v1/log?lines=" + lines).constData());
    QCOMPARE(answered.status, 400);
    QCOMPARE(answered.error(), QStringLiteral("\"lines\" must be a number, up to 1000"));
}

void tst_DoorLog::keepsTheLastThousandLines()
{
    DoorHost host;
    QVERIFY(host.startsWith({Lodger}));
    QCOMPARE(host.call("//lodger/chatter", R"({"lines": 1100, "length": 1})").status, 200);
    const QJsonArray lines = host.get("/v1/log?lines=1000").array();
    QCOMPARE(lines.size(), 1000);
    QVERIFY(numberIn(lines.first().toObject(), "number") > 100);
}

void tst_DoorLog::cutsALongLine()
{
    DoorHost host;
    QVERIFY(host.startsWith({Lodger}));
    QCOMPARE(host.call("//lodger/chatter", R"({"lines": 1, "length": 5000})").status, 200);
    QCOMPARE(lastLine(host).size(), 4096);
}

void tst_DoorLog::tellsEachLineAsItComes()
{
    DoorHost host;
    QVERIFY(host.startsWith({Echo}));
    const Follower follower(host, 0);
    QTRY_VERIFY_WITH_TIMEOUT(!follower.read().isEmpty(), Patience); // it waits
    QCOMPARE(follower.read().left(2), QByteArray(":\n"));
    for (const char *const url : {"//echo/one", "//echo/two"})
        QCOMPARE(host.call(url).status, 200);
    const QStringList wanted = {QStringLiteral("echo: //echo/one"), QStringLiteral("echo: //echo/two")};
    QTRY_COMPARE_WITH_TIMEOUT(follower.texts(), wanted, Patience);
    const int number = numberIn(host.get("/v1/log?lines=1").array().first().toObject(), "number");
    QVERIFY(follower.read().contains("id: " + QByteArray::number(number) + "\ndata: {"));
}

void tst_DoorLog::tellsTheLastLinesBeforeThoseThatCome()
{
    DoorHost host;
    QVERIFY(host.startsWith({Echo}));
    for (const char *const url : {"//echo/one", "//echo/two", "//echo/three"})
        QCOMPARE(host.call(url).status, 200);
    const Follower follower(host, 2);
    const QStringList wanted = {QStringLiteral("echo: //echo/two"), QStringLiteral("echo: //echo/three")};
    QTRY_COMPARE_WITH_TIMEOUT(follower.texts(), wanted, Patience);
}

void tst_DoorLog::tellsHowManyLinesAreLost()
{
    DoorHost host;
    QVERIFY(host.startsWith({Lodger}));
    // More than goes into the socket at once, for a reader who has stopped to read.
    QVERIFY(chatters(host, R"({"lines": 1000, "length": 4000})"));
    QSemaphore hasBegun, mayGoOn;
    const Follower follower(host, 1000, [&] {
        hasBegun.release();
        mayGoOn.acquire();
    });
    const bool isWaiting = hasBegun.tryAcquire(1, Patience);
    const bool goesOn = chatters(host, R"({"lines": 1100, "length": 1})");
    mayGoOn.release();
    QVERIFY(isWaiting);
    QVERIFY(goesOn);
    QTRY_VERIFY_WITH_TIMEOUT(follower.read().contains("event: lost\ndata: "), Patience);
    const QByteArray lost = follower.read().mid(follower.read().indexOf("event: lost\ndata: ") + 18, 4);
    QVERIFY2(lost.split('\n').first().toInt() >= 100, lost.constData());
}

void tst_DoorLog::switchesSeverities()
{
    DoorHost host;
    QVERIFY(host.startsWith({Echo}));
    const Answered off = host.put("/v1/log", R"({"severities": {"info": false}})");
    QCOMPARE(off.status, 200);
    QCOMPARE(off.object(), objectOf(R"({"log": {"zdefault": 3}, "severities":
                                        {"critical": true, "debug": true, "info": false, "warning": true}})"));
    const QString before = lastLine(host);
    QCOMPARE(host.call("//echo/one").status, 200);
    QCOMPARE(lastLine(host), before);
    QVERIFY(isIn(host.put("/v1/log", R"({"severities": {"info": true}})")
                     .object()
                     .value(QStringLiteral("severities"))
                     .toObject(),
                 "info"));
    QCOMPARE(host.call("//echo/two").status, 200);
    QCOMPARE(lastLine(host), QStringLiteral("echo: //echo/two"));
}

void tst_DoorLog::switchesACategoryOff()
{
    DoorHost host;
    QVERIFY(host.startsWith({Echo}));
    const Answered off = host.put("/v1/log", R"({"log": {"zdefault": 0}})");
    QCOMPARE(off.status, 200);
    QCOMPARE(off.object().value(QStringLiteral("log")).toObject(), objectOf(R"({"zdefault": 0})"));
    const QString file = QStringLiteral("libecho.2.so");
    QVERIFY(host.hotDeploy.drop(Echo, file));
    QTRY_VERIFY_WITH_TIMEOUT(host.isInMemory(file), Patience);
    const QByteArray log = host.get("/v1/log").body;
    QVERIFY(log.contains("loaded: echo"));
    QVERIFY(!log.contains("loaded: libecho.2"));
}

void tst_DoorLog::switchesAllOrNothing_data()
{
    QTest::addColumn<QByteArray>("request");
    QTest::addColumn<int>("status");
    QTest::addColumn<QString>("reason");
    const QString what = QStringLiteral("the request must be an object with \"log\" or \"severities\"");
    const auto add = [](const char *name, const char *request, int status, const QString &reason) {
        QTest::newRow(name) << QByteArray(request) << status << reason;
    };
    add("nothing", "", 400, what);
    add("an empty object", "{}", 400, what);
    add("an array", "[]", 400, what);
    add("no object in it", R"({"log": 3})", 400, what);
    add("no such severity", R"({"log": {"zdefault": 1}, "severities": {"loud": true}})", 400,
        QStringLiteral("there is no severity \"loud\""));
    add("a severity by a number", R"({"log": {"zdefault": 1}, "severities": {"info": 0}})", 400,
        QStringLiteral("the severity \"info\" must be true or false"));
    add("a mask in words", R"({"log": {"zdefault": "all"}, "severities": {"info": false}})", 400,
        QStringLiteral("the mask of \"zdefault\" must be a whole number"));
    add("a mask that is too large", R"({"log": {"zdefault": 3000000000}, "severities": {"info": false}})", 400,
        QStringLiteral("the mask of \"zdefault\" must be a whole number"));
    add("a part of a mask", R"({"log": {"zdefault": 3.7}, "severities": {"info": false}})", 400,
        QStringLiteral("the mask of \"zdefault\" must be a whole number"));
    add("no such category", R"({"log": {"zdefault": 1, "znobody": 1}, "severities": {"info": false}})", 409,
        QStringLiteral(
            "\"logger.log\" of the configuration has no category \"znobody\": one that plugins may have asked "
            "for before takes a restart"));
}

void tst_DoorLog::switchesAllOrNothing()
{
    QFETCH(QByteArray, request);
    QFETCH(int, status);
    DoorHost host;
    QVERIFY(host.startsWith({Echo}));
    const Answered answered = host.put("/v1/log", request);
    QCOMPARE(answered.status, status);
    QTEST(answered.error(), "reason");
    const QJsonObject now = host.put("/v1/log", R"({"severities": {"debug": true}})").object();
    QCOMPARE(now, objectOf(R"({"log": {"zdefault": 3}, "severities":
                               {"critical": true, "debug": true, "info": true, "warning": true}})"));
}

void tst_DoorLog::leavesTheConfigurationAsItIs()
{
    DoorHost host;
    QVERIFY(host.startsWith({Echo}));
    QFile file(host.running->configurationFile());
    QVERIFY(file.open(QIODevice::ReadOnly));
    const QByteArray before = file.readAll();
    QCOMPARE(host.put("/v1/log", R"({"log": {"zdefault": 1}})").status, 200);
    QVERIFY(file.seek(0));
    QCOMPARE(file.readAll(), before);
}

QTEST_GUILESS_MAIN(tst_DoorLog)
#include "tst_doorlog.moc"
