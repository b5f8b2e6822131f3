// SPDX-License-Identifier: Apache-2.0
#include "door/doorhost.h"
#include "door/wire.h"
#include "testcase.h"

#include <QSysInfo>

#include <fcntl.h>
#include <sys/ioctl.h>
#include <sys/stat.h>

/// Who may ask a host by TCP.
class tst_DoorAccess : public TestCase
{
    Q_OBJECT

private Q_SLOTS:
    void refusesWhatCannotBeMeant_data();
    void refusesWhatCannotBeMeant();
    void asksForItsToken_data();
    void asksForItsToken();
    void answersOnlyToItsNames_data();
    void answersOnlyToItsNames();
    void answersNoPageOfAnotherOrigin_data();
    void answersNoPageOfAnotherOrigin();
    void changesNothingByAccident_data();
    void changesNothingByAccident();
    void guardsWhatItAnswers_data();
    void guardsWhatItAnswers();
    void answersByTheOtherLoopback();
    void goesOnWhereItsPortIsTaken();
    void goesOnWithoutATokenThatHasChanged();
    void tellsThatItsSectionTakesARestart_data();
    void tellsThatItsSectionTakesARestart();
    void cleanupTestCase() { m_shared.reset(); }

private:
    /// One that is asked by TCP, for all tests that leave it as it is; started for the first.
    const DoorHost &shared();
    /// What it answers to a request by TCP.
    QByteArray ask(const QByteArray &request, const QByteArray &headers, const QByteArray &host = "localhost:PORT");

    std::unique_ptr<DoorHost> m_shared;
    int m_port = 0;
};

namespace {

const QByteArray Authorization = QByteArray("Authorization: Bearer ") + DoorHost::Token + "\r\n";

} // namespace

const DoorHost &tst_DoorAccess::shared()
{
    if (!m_shared) {
        m_shared = std::make_unique<DoorHost>();
        if (!m_shared->listenByTcp())
            qFatal("no token");
        m_shared->start();
        if (!m_shared->isReady())
            qFatal("no host");
        m_port = m_shared->port();
    }
    return *m_shared;
}

QByteArray tst_DoorAccess::ask(const QByteArray &request, const QByteArray &headers, const QByteArray &host)
{
    shared();
    const QByteArray name = host.isEmpty() ? QByteArray() : "Host: " + host + "\r\n";
    QByteArray all = request + " HTTP/1.1\r\n" + name + headers + "\r\n";
    return Wire(m_port).send(all.replace("PORT", QByteArray::number(m_port))).all();
}

void tst_DoorAccess::refusesWhatCannotBeMeant_data()
{
    QTest::addColumn<QJsonObject>("door"); // "TOKEN" stands for the file
    QTest::addColumn<QByteArray>("token");
    QTest::addColumn<int>("mode");
    QTest::addColumn<QString>("finding"); // empty if there is none

    const QByteArray good("sixteen letters!");
    const auto door = [](const char *listen, bool anywhere = false, const char *file = "TOKEN") {
        QJsonObject result{{QStringLiteral("listen"), QLatin1String(listen)}};
        if (anywhere)
            result.insert(QStringLiteral("anywhere"), true);
        if (file)
            result.insert(QStringLiteral("token-file"), QLatin1String(file));
        return result;
    };
    const QString address = QStringLiteral("\"door.listen\": must be an address and a port, such as 127.0.0.1:8080");
    const QString anywhere = QStringLiteral("\"door.listen\": others can connect there: that takes \"anywhere\": true");
    const QString mode =
        QStringLiteral("\"door.token-file\": somebody else may read it, or owns it: it must have the mode 0600");
    const QString length = QStringLiteral("\"door.token-file\": its first line is shorter than 16 characters");

    QTest::newRow("loopback") << door("127.0.0.1:0") << good << 0600 << QString();
    QTest::newRow("another loopback") << door("127.1.2.3:8080") << good << 0600 << QString();
    QTest::newRow("loopback of IPv6") << door("[::1]:0") << good << 0600 << QString();
    QTest::newRow("everywhere") << door("0.0.0.0:8080") << good << 0600 << anywhere;
    QTest::newRow("everywhere, by IPv6") << door("[::]:8080") << good << 0600 << anywhere;
    QTest::newRow("a network's") << door("192.0.2.1:8080") << good << 0600 << anywhere;
    QTest::newRow("everywhere, and it is meant") << door("0.0.0.0:8080", true) << good << 0600 << QString();
    QTest::newRow("no port") << door("127.0.0.1") << good << 0600 << address;
    QTest::newRow("no address") << door(":8080") << good << 0600 << address;
    QTest::newRow("a name") << door("localhost:8080") << good << 0600 << address;
    QTest::newRow("a port too large") << door("127.0.0.1:65536") << good << 0600 << address;
    QTest::newRow("a path") << door("127.0.0.1:8080/") << good << 0600 << address;
    QTest::newRow("a query") << door("127.0.0.1:8080?x") << good << 0600 << address;
    QTest::newRow("a user") << door("me@127.0.0.1:8080") << good << 0600 << address;
    QTest::newRow("no token") << door("127.0.0.1:0", false, nullptr) << good << 0600
                              << QStringLiteral(
                                     "\"door.token-file\": who asks by TCP shows a token: name the file that has it");
    QTest::newRow("a token that is not there") << door("127.0.0.1:0", false, "TOKEN.") << good << 0600
                                               << QStringLiteral("\"door.token-file\": No such file or directory");
    QTest::newRow("a group may read the token") << door("127.0.0.1:0") << good << 0640 << mode;
    QTest::newRow("others may read the token") << door("127.0.0.1:0") << good << 0604 << mode;
    QTest::newRow("a token that is read only") << door("127.0.0.1:0") << good << 0400 << QString();
    QTest::newRow("a token that is short") << door("127.0.0.1:0") << good.left(15) + '\n' << 0600 << length;
    QTest::newRow("a token below its line") << door("127.0.0.1:0") << '\n' + good << 0600 << length;
    QTest::newRow("a token in a line") << door("127.0.0.1:0") << good + '\n' << 0600 << QString();
    if (geteuid() == 0)
        QTest::newRow("somebody else's token") << door("127.0.0.1:0") << good << -1 << mode;
}

void tst_DoorAccess::refusesWhatCannotBeMeant()
{
    QFETCH(QJsonObject, door);
    QFETCH(QByteArray, token);
    QFETCH(int, mode);
    QFETCH(QString, finding);

    const Folder folder, deployed, hotDeploy;
    const QString file = folder.filePath(QStringLiteral("token"));
    QVERIFY(folder.write(QStringLiteral("token"), token));
    const QByteArray name = QFile::encodeName(file);
    QCOMPARE(chmod(name.constData(), mode < 0 ? 0600 : mode_t(mode)), 0);
    if (mode < 0)
        QCOMPARE(chown(name.constData(), 65534, gid_t(-1)), 0);
    if (const QString key = QStringLiteral("token-file"); door.contains(key))
        door.insert(key, door.value(key).toString().replace(QStringLiteral("TOKEN"), file));
    QJsonObject configuration = loaderOf(deployed, hotDeploy);
    configuration.insert(QStringLiteral("door"), door);
    QVERIFY(folder.write(QStringLiteral("config.json"), QJsonDocument(configuration).toJson()));
    const QString path = folder.filePath(QStringLiteral("config.json"));

    const Result checked = runProgram(QStringLiteral(ZHOST), {QStringLiteral("--check"), path});
    QCOMPARE(checked.err, finding.isEmpty() ? QString() : QStringLiteral("zhost: %1: %2\n").arg(path, finding));
    QCOMPARE(checked.exitCode, finding.isEmpty() ? 0 : 2);
    if (finding.isEmpty())
        return;
    const Result started = runProgram(QStringLiteral(ZHOST), {path});
    QCOMPARE(started.err, checked.err);
    QCOMPARE(started.exitCode, 2);
}

void tst_DoorAccess::asksForItsToken_data()
{
    QTest::addColumn<QByteArray>("request");
    QTest::addColumn<QByteArray>("headers");
    QTest::addColumn<int>("status");

    const QByteArray report("GET /v1/report/host"), type("Content-Type: application/json\r\n");
    QTest::newRow("the token") << report << Authorization << 200;
    QTest::newRow("none") << report << QByteArray() << 401;
    QTest::newRow("another") << report << QByteArray("Authorization: Bearer the token of the others\r\n") << 401;
    QTest::newRow("the beginning") << report << QByteArray("Authorization: Bearer the token of the\r\n") << 401;
    QTest::newRow("the end") << report << QByteArray("Authorization: Bearer token of the tests\r\n") << 401;
    QTest::newRow("more") << report << Authorization.trimmed() + "!\r\n" << 401;
    QTest::newRow("twice") << report << Authorization.trimmed() + DoorHost::Token + "\r\n" << 401;
    QTest::newRow("an empty one") << report << QByteArray("Authorization: Bearer \r\n") << 401;
    QTest::newRow("without its scheme") << report << QByteArray("Authorization: ") + DoorHost::Token + "\r\n" << 401;
    QTest::newRow("as a password") << report << QByteArray("Authorization: Basic dG9rZW46dG9rZW4=\r\n") << 401;
    QTest::newRow("in the query") << QByteArray("GET /v1/report?token=the%20token%20of%20the%20tests") << QByteArray()
                                  << 401;
    QTest::newRow("the log") << QByteArray("GET /v1/log") << QByteArray("Accept: text/event-stream\r\n") << 401;
    QTest::newRow("figures") << QByteArray("GET /metrics") << QByteArray() << 401;
    QTest::newRow("what is not there") << QByteArray("GET /v1/else") << QByteArray() << 401;
    QTest::newRow("a stop") << QByteArray("POST /v1/stop") << type << 401;
    QTest::newRow("a head") << QByteArray("HEAD /v1/report") << QByteArray() << 401;
    QTest::newRow("a preflight") << QByteArray("OPTIONS /v1/stop") << QByteArray() << 401;
    QTest::newRow("a trick with a path") << QByteArray("GET /page/..%2f..%2fv1%2freport") << QByteArray() << 404;
    QTest::newRow("an open path, written to") << QByteArray("POST /healthz") << type << 401;
    for (const char *open : {"/", "/healthz", "/readyz", "/openapi.json", "/page/page.js"}) {
        QTest::newRow(open) << QByteArray("GET ") + open << QByteArray() << 200;
        QTest::addRow("the head of %s", open) << QByteArray("HEAD ") + open << QByteArray() << 200;
    }
}

void tst_DoorAccess::asksForItsToken()
{
    QFETCH(QByteArray, request);
    QFETCH(QByteArray, headers);
    QFETCH(int, status);
    const QByteArray answer = ask(request, headers);
    QCOMPARE(statusOf(answer), status);
    QCOMPARE(answer.contains("\r\nWWW-Authenticate: Bearer\r\n"), status == 401);
    if (request.startsWith("HEAD "))
        QVERIFY(answer.endsWith("\r\n\r\n"));
}

void tst_DoorAccess::answersOnlyToItsNames_data()
{
    QTest::addColumn<QByteArray>("host");
    QTest::addColumn<int>("status");
    for (const char *good : {"localhost:PORT", "LOCALHOST:PORT", "127.0.0.1:PORT", "[::1]:PORT", "192.0.2.1:PORT"})
        QTest::newRow(good) << QByteArray(good) << 200;
    QTest::newRow("this machine's name") << QSysInfo::machineHostName().toLatin1() + ":PORT" << 200;
    QTest::newRow("none") << QByteArray() << 421;
    for (const char *bad : {"other.example:PORT", "localhost.other.example:PORT", "127.0.0.1.other.example:PORT",
                            "localhost", "localhost:1", "localhost:PORT/x", "me@localhost:PORT", "localhost:PORT:PORT",
                            "[::1:PORT", "a b:PORT", ":PORT"})
        QTest::newRow(bad) << QByteArray(bad) << 421;
}

/// A page of somebody's whose name he has pointed at this machine has the browser send that name.
void tst_DoorAccess::answersOnlyToItsNames()
{
    QFETCH(QByteArray, host);
    QFETCH(int, status);
    QCOMPARE(statusOf(ask("GET /v1/report/host", Authorization, host)), status);
    QCOMPARE(statusOf(ask("GET /healthz", {}, host)), status);
}

void tst_DoorAccess::answersNoPageOfAnotherOrigin_data()
{
    QTest::addColumn<QByteArray>("origin");
    QTest::addColumn<int>("status");
    QTest::newRow("its own") << QByteArray("http://localhost:PORT") << 200;
    for (const char *other : {"http://other.example", "http://localhost", "http://localhost:1",
                              "https://localhost:PORT", "http://127.0.0.1:PORT", "null", "file://"})
        QTest::newRow(other) << QByteArray(other) << 403;
}

void tst_DoorAccess::answersNoPageOfAnotherOrigin()
{
    QFETCH(QByteArray, origin);
    QFETCH(int, status);
    const QByteArray answer = ask("GET /v1/report/host", Authorization + "Origin: " + origin + "\r\n");
    QCOMPARE(statusOf(answer), status);
    QVERIFY(!answer.toLower().contains("access-control-"));
    QCOMPARE(statusOf(ask("GET /healthz", "Origin: " + origin + "\r\n")), status);
}

void tst_DoorAccess::changesNothingByAccident_data()
{
    QTest::addColumn<QByteArray>("type");
    QTest::addColumn<int>("status");
    QTest::newRow("none") << QByteArray() << 415;
    for (const char *form : {"text/plain", "application/x-www-form-urlencoded", "multipart/form-data; boundary=x",
                             "application/jsonx", "text/plain; application/json"})
        QTest::newRow(form) << QByteArray(form) << 415;
    for (const char *json : {"application/json", "Application/JSON", "application/json; charset=utf-8"})
        QTest::newRow(json) << QByteArray(json) << 400; // there is nothing to call
}

void tst_DoorAccess::changesNothingByAccident()
{
    QFETCH(QByteArray, type);
    QFETCH(int, status);
    const QByteArray header = type.isEmpty() ? QByteArray() : "Content-Type: " + type + "\r\n";
    QCOMPARE(statusOf(ask("POST /v1/call", Authorization + header)), status);
    const QByteArray answer = Wire(shared().socket()).send("POST /v1/call HTTP/1.1\r\n" + header + "\r\n").all();
    QCOMPARE(statusOf(answer), status);
}

void tst_DoorAccess::guardsWhatItAnswers_data()
{
    QTest::addColumn<QByteArray>("request");
    for (const char *request : {"GET /", "GET /page/page.js", "GET /v1/report", "GET /v1/else", "GET /metrics",
                                "POST /v1/call", "HEAD /", "FETCH /", "OPTIONS /v1/stop"})
        QTest::newRow(request) << QByteArray(request);
}

void tst_DoorAccess::guardsWhatItAnswers()
{
    QFETCH(QByteArray, request);
    for (const QByteArray &headers : {QByteArray(), Authorization}) {
        const QByteArray answer = ask(request, headers);
        QVERIFY(answer.contains("\r\nContent-Security-Policy: default-src 'none'; script-src 'self'; "));
        QVERIFY(answer.contains("frame-ancestors 'none'\r\n"));
        QVERIFY(answer.contains("\r\nX-Content-Type-Options: nosniff\r\n"));
        QVERIFY(answer.contains("\r\nReferrer-Policy: no-referrer\r\n"));
        QVERIFY(answer.contains("\r\nCache-Control: no-store\r\n"));
        QVERIFY(answer.contains("\r\nConnection: close\r\n"));
        QVERIFY(!answer.toLower().contains("access-control-"));
    }
}

void tst_DoorAccess::answersByTheOtherLoopback()
{
    DoorHost host;
    QVERIFY(host.listenByTcp());
    host.door = [section = host.door.toObject()]() mutable {
        section.insert(QStringLiteral("listen"), QStringLiteral("[::1]:0"));
        return section;
    }();
    host.start();
    QVERIFY(host.isReady());
    const QString place = host.get("/v1/report/host").object().value(QStringLiteral("door")).toArray().at(1).toString();
    if (place.isEmpty())
        QSKIP("this machine has no IPv6", 0);
    QVERIFY(place.startsWith(QStringLiteral("[::1]:")));
    httplib::Client client("http://" + place.toStdString());
    QCOMPARE(DoorHost::answered(client.Get("/healthz")).status, 200);
    QCOMPARE(DoorHost::answered(client.Get("/v1/report/host")).status, 401);
}

void tst_DoorAccess::goesOnWhereItsPortIsTaken()
{
    shared();
    DoorHost host;
    QVERIFY(host.listenByTcp());
    QJsonObject door = host.door.toObject();
    const QString place = QStringLiteral("127.0.0.1:%1").arg(m_port);
    door.insert(QStringLiteral("listen"), place);
    host.door = door;
    host.start();
    QVERIFY(host.isReady());
    QTRY_VERIFY_WITH_TIMEOUT(
        host.running->hasWritten(
            QStringLiteral("zhost: the door cannot be opened at %1: Address already in use\n").arg(place)),
        Patience);
    QCOMPARE(host.get("/v1/report/host").object().value(QStringLiteral("door")).toArray(), QJsonArray{host.socket()});
}

/// It is read when it is checked, and when the door is opened.
void tst_DoorAccess::goesOnWithoutATokenThatHasChanged()
{
    DoorHost host;
    QVERIFY(host.listenByTcp());
    const QString path = host.folder.filePath(QStringLiteral("token"));
    const QByteArray name = QFile::encodeName(path);
    QVERIFY(QFile::remove(path) && mkfifo(name.constData(), 0600) == 0);
    const int pipe = open(name.constData(), O_RDWR | O_CLOEXEC);
    host.start();
    for (const QByteArray &line : {QByteArray(DoorHost::Token), QByteArray("short")}) {
        QCOMPARE(int(write(pipe, line + '\n', size_t(line.size()) + 1)), line.size() + 1);
        int left = -1;
        QTRY_VERIFY_WITH_TIMEOUT(ioctl(pipe, FIONREAD, &left) == 0 && left == 0, Patience); // somebody has read it
    }
    close(pipe);
    QVERIFY(host.isReady());
    const QString told =
        QStringLiteral("zhost: the door cannot be opened at 127.0.0.1: its first line is shorter than 16 characters\n");
    QTRY_VERIFY_WITH_TIMEOUT(host.running->hasWritten(told), Patience);
    QCOMPARE(host.port(), 0);
}

void tst_DoorAccess::tellsThatItsSectionTakesARestart_data()
{
    QTest::addColumn<QJsonValue>("door");
    QTest::newRow("another socket") << QJsonValue(QJsonObject{{QStringLiteral("socket"), QStringLiteral("/tmp/x")}});
    QTest::newRow("closed") << QJsonValue(false);
}

void tst_DoorAccess::tellsThatItsSectionTakesARestart()
{
    QFETCH(QJsonValue, door);
    DoorHost host;
    host.start();
    QVERIFY(host.isReady());
    QJsonObject configuration = host.configuration();
    configuration.insert(QStringLiteral("door"), door);
    host.running->configure(QJsonDocument(configuration).toJson());
    QCOMPARE(host.post("/v1/reload").status, 202);
    QTRY_VERIFY_WITH_TIMEOUT(host.running->hasWritten(QStringLiteral("\"door\" has changed: that takes a restart\n")),
                             Patience);
    QCOMPARE(host.get("/healthz").status, 200);
}

QTEST_GUILESS_MAIN(tst_DoorAccess)
#include "tst_dooraccess.moc"
