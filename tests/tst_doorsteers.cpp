// SPDX-License-Identifier: Apache-2.0
// What a running host does for who steers it by its door.
#include "door/doorhost.h"
#include "testcase.h"

#include <QRegularExpression>

#include <algorithm>
#include <cstring>
#include <thread>

#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

class tst_DoorSteers : public TestCase
{
    Q_OBJECT

private Q_SLOTS:
    void callsTheBus_data();
    void callsTheBus();
    void callsWithTheHostsPriority();
    void takesARequestWithoutABody();
    void refusesACall_data();
    void refusesACall();
    void callThatTakesLongIsAnsweredByItsDeadline();
    void takesNoSignalsButWhereItCalls();
    void passesNothingOnThatIsTooDeep();
    void makesSoManyCallsAtOnce();
    void stops();
    void stopLeavesACallThatDoesNotComeBack();
};

namespace {

const QString Echo = QStringLiteral("echo");
const QString Lodger = QStringLiteral("lodger");

QJsonObject objectOf(const char *json) { return QJsonDocument::fromJson(json).object(); }

/// Sends this, and answers what comes back.
QByteArray exchange(const QString &path, const QByteArray &request)
{
    const QByteArray name = QFile::encodeName(path);
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    std::memcpy(address.sun_path, name.constData(), std::min(size_t(name.size()), sizeof address.sun_path - 1));
    const int client = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    QByteArray answer;
    if (connect(client, reinterpret_cast<const sockaddr *>(&address), sizeof address) == 0 &&
        send(client, request.constData(), size_t(request.size()), MSG_NOSIGNAL) == request.size()) {
        char part[4096];
        for (ssize_t count = 1; count > 0; answer.append(part, int(count)))
            count = std::max<ssize_t>(0, recv(client, part, sizeof part, 0));
    }
    close(client);
    return answer;
}

} // namespace

void tst_DoorSteers::callsTheBus_data()
{
    QTest::addColumn<QByteArray>("url");
    QTest::addColumn<QByteArray>("request");
    QTest::addColumn<QString>("answer");
    const auto add = [](const char *name, const char *url, const char *request, const char *answer) {
        QTest::newRow(name) << QByteArray(url) << QByteArray(request) << QString::fromUtf8(answer);
    };
    add("handled", "//echo", R"({"a": 1})", R"({"handled": true, "out": {"echo": {"a": 1}}, "reason": ""})");
    add("text", "//echo", R"({"a": "grün"})", R"({"handled": true, "out": {"echo": {"a": "grün"}}, "reason": ""})");
    add("broadcast", "/all", R"({"a": 1})", R"({"handled": true, "out": {"echo": {"a": 1}}, "reason": ""})");
    add("no body", "//echo", "", R"({"handled": true, "out": {"echo": {}}, "reason": ""})");
    add("blanks", "//echo", " \r\n", R"({"handled": true, "out": {"echo": {}}, "reason": ""})");
    add("nobody", "//nobody", "{}", R"({"handled": false, "out": {}, "reason": "nobody handled //nobody"})");
    add("deaf", "//echo/deaf", "{}", R"({"handled": false, "out": {}, "reason": "nobody handled //echo/deaf"})");
    add("throws", "//echo/throw", "{}",
        R"({"handled": false, "out": {}, "reason": "//echo/throw has thrown: no more"})");
    add("throws something", "//echo/odd", "{}",
        R"({"handled": false, "out": {}, "reason": "//echo/odd has thrown: an exception of an unknown type"})");
}

void tst_DoorSteers::callsTheBus()
{
    QFETCH(QByteArray, url);
    QFETCH(QByteArray, request);
    QFETCH(QString, answer);
    DoorHost host;
    QVERIFY(host.startsWith({Echo}));
    const Answered answered = host.call(url.constData(), request);
    QCOMPARE(answered.status, 200);
    QCOMPARE(answered.object(), objectOf(answer.toUtf8().constData()));
}

/// Who answers has less; but what is called may start threads, and lock what the host's own work needs.
void tst_DoorSteers::callsWithTheHostsPriority()
{
    DoorHost host;
    QVERIFY(host.startsWith({Echo}));
    const QJsonObject out = host.call("//echo/niceness").object().value(QStringLiteral("out")).toObject();
    QCOMPARE(out.value(QStringLiteral("niceness")).toInt(-100), getpriority(PRIO_PROCESS, 0));
}

void tst_DoorSteers::takesARequestWithoutABody()
{
    DoorHost host;
    QVERIFY(host.startsWith({Echo}));
    const QByteArray answer =
        exchange(host.socket(), "POST /v1/call?url=//echo HTTP/1.1\r\nContent-Type: application/json\r\n\r\n");
    QVERIFY2(answer.startsWith("HTTP/1.1 200 "), answer.constData());
}

void tst_DoorSteers::refusesACall_data()
{
    QTest::addColumn<QByteArray>("query");
    QTest::addColumn<QByteArray>("request");
    QTest::addColumn<QString>("reason");
    const QString url = QStringLiteral("\"url\" must be the URL to call, as //host/path");
    const QString deadline = QStringLiteral("\"deadline\" must be a number of milliseconds, up to 60000");
    const QString object = QStringLiteral("the request must be an object of JSON");
    const auto add = [](const char *name, const char *query, const char *request, const QString &reason) {
        QTest::newRow(name) << QByteArray(query) << QByteArray(request) << reason;
    };
    add("no URL", "", "{}", url);
    add("an empty one", "?url=", "{}", url);
    add("an unusable one", "?url=http://a:b", "{}", url);
    add("no time", "?url=//echo&deadline=0", "{}", deadline);
    add("too long a time", "?url=//echo&deadline=60001", "{}", deadline);
    add("a time in words", "?url=//echo&deadline=soon", "{}", deadline);
    add("an array", "?url=//echo", "[]", object);
    add("no JSON", "?url=//echo", "hello", object);
}

void tst_DoorSteers::refusesACall()
{
    QFETCH(QByteArray, query);
    QFETCH(QByteArray, request);
    DoorHost host;
    QVERIFY(host.startsWith({Echo}));
    const Answered answered = host.post("/v1/call" + query.toStdString(), request);
    QCOMPARE(answered.status, 400);
    QTEST(answered.error(), "reason");
}

void tst_DoorSteers::callThatTakesLongIsAnsweredByItsDeadline()
{
    DoorHost host;
    QVERIFY(host.startsWith({Lodger}));
    const Answered late = host.call("//lodger/wait", "{}", 1);
    QCOMPARE(late.status, 504);
    QCOMPARE(late.error(), QStringLiteral("//lodger/wait has not come back within 1 ms"));
    const auto goesOn = [&] { return !host.find("threads", "name", QStringLiteral("zhost call")).isEmpty(); };
    QTRY_VERIFY_WITH_TIMEOUT(goesOn(), Patience);
    QCOMPARE(host.call("//lodger/go").status, 200);
    QTRY_VERIFY_WITH_TIMEOUT(!goesOn(), Patience);
}

/// They are the application's thread's; but the programs that somebody who is called starts would inherit that.
void tst_DoorSteers::takesNoSignalsButWhereItCalls()
{
    DoorHost host;
    QVERIFY(host.startsWith({Lodger}));
    QCOMPARE(host.call("//lodger/wait", "{}", 1).status, 504);
    const auto hears = [&](const char *thread, int number) {
        const int id = host.find("threads", "name", QLatin1String(thread)).value(QStringLiteral("id")).toInt();
        QFile status(QStringLiteral("/proc/%1/task/%2/status").arg(host.running->process().processId()).arg(id));
        status.open(QIODevice::ReadOnly);
        const QRegularExpression mask(QStringLiteral("SigBlk:\\s*([0-9a-f]+)"));
        const QRegularExpressionMatch match = mask.match(QString::fromLatin1(status.readAll()));
        return match.hasMatch() && (match.captured(1).toULongLong(nullptr, 16) & (1ULL << (number - 1))) == 0;
    };
    for (const char *const thread : {"zhost calls", "zhost door"}) {
        QVERIFY2(!hears(thread, SIGTERM), thread);
        QVERIFY2(hears(thread, SIGSEGV), thread); // which tells of itself
    }
    QTRY_VERIFY_WITH_TIMEOUT(hears("zhost call", SIGTERM), Patience);
    host.running->signal(SIGKILL);
}

void tst_DoorSteers::passesNothingOnThatIsTooDeep()
{
    DoorHost host;
    QVERIFY(host.startsWith({Lodger}));
    QCOMPARE(host.call("//lodger/nest", R"({"levels": 500})").status, 200);
    const Answered answered = host.call("//lodger/nest", R"({"levels": 501})");
    QCOMPARE(answered.status, 502);
    QCOMPARE(answered.error(), QStringLiteral("what //lodger/nest answers is nested in more than 500 levels"));
    QCOMPARE(host.call("//lodger/nest", R"({"levels": 20000})").status, 502);
}

void tst_DoorSteers::makesSoManyCallsAtOnce()
{
    DoorHost host;
    host.schedule = {
        QJsonObject{{QStringLiteral("url"), QStringLiteral("//lodger")}, {QStringLiteral("every"), 3600000}}};
    QVERIFY(host.startsWith({Lodger}));
    for (int i = 0; i < 16; ++i)
        QCOMPARE(host.call("//lodger/wait", "{}", 1).status, 504);
    const QString reason = QStringLiteral("16 calls are under way already");
    const Answered call = host.call("//lodger/now");
    QCOMPARE(call.status, 503);
    QCOMPARE(call.error(), reason);
    const Answered run = host.post("/v1/schedule/0/run");
    QCOMPARE(run.status, 503);
    QCOMPARE(run.error(), reason);
    QCOMPARE(host.get("/v1/report").status, 200);
}

void tst_DoorSteers::stops()
{
    DoorHost host;
    QVERIFY(host.startsWith({Echo}));
    const Answered asked = host.post("/v1/stop");
    QCOMPARE(asked.status, 202);
    QCOMPARE(textIn(asked.object(), "asked"), QStringLiteral("stop"));
    QTRY_COMPARE_WITH_TIMEOUT(host.running->process().state(), QProcess::NotRunning, Patience);
    QVERIFY(host.running->hasEndedWell());
    QCOMPARE(host.socket(), QString());
}

void tst_DoorSteers::stopLeavesACallThatDoesNotComeBack()
{
    DoorHost host;
    QVERIFY(host.startsWith({Lodger, Echo}));
    Answered answered;
    std::thread waiting([&] { answered = host.call("//lodger/wait"); });
    const QString under = QStringLiteral("zhost_door_calls_total 1\n");
    const bool isUnderWay =
        QTest::qWaitFor([&] { return QString::fromUtf8(host.get("/metrics").body).contains(under); }, Patience);
    const int status = host.post("/v1/stop").status;
    waiting.join();
    QVERIFY(isUnderWay);
    QCOMPARE(status, 202);
    QCOMPARE(answered.status, 504);
    QCOMPARE(answered.error(), QStringLiteral("the host is stopping"));
    QTRY_COMPARE_WITH_TIMEOUT(host.running->process().state(), QProcess::NotRunning, Patience);
    QCOMPARE(host.running->exitCode(), 1);
    QVERIFY(host.running->hasWritten(QStringLiteral("zhost: left running: //lodger/wait\n")));
}

QTEST_GUILESS_MAIN(tst_DoorSteers)
#include "tst_doorsteers.moc"
