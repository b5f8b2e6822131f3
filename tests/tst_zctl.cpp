// SPDX-License-Identifier: Apache-2.0
#include "folder.h"
#include "program.h"
#include "testcase.h"
#include "zctl/fakehost.h"
#include "zctl/silenthost.h"
#include "zctl/terminalprocess.h"

#include <QCryptographicHash>
#include <QDateTime>
#include <QDir>
#include <QFileInfo>
#include <QJsonDocument>
#include <QProcess>
#include <QRegularExpression>
#include <QScopeGuard>

#include <csignal>
#include <memory>
#include <thread>

#include <unistd.h>

/// The program zctl, run as an operator would, beside hosts that are made up.
class tst_Zctl : public TestCase
{
    Q_OBJECT

private Q_SLOTS:
    void init() override;
    void tellsWhatItIs_data();
    void tellsWhatItIs();
    void refusesACommandLineThatItCannotUse_data();
    void refusesACommandLineThatItCannotUse();
    void saysWhereItHasLookedForAHost();
    void aSocketAtWhichNobodyListensIsNoHost();
    void findsTheOneHost();
    void namesTheHostsWhereThereAreSeveral();
    void findsTheHostOfAConfiguration_data();
    void findsTheHostOfAConfiguration();
    void saysWhyAConfigurationHasNoHost_data();
    void saysWhyAConfigurationHasNoHost();
    void saysWhoIsAnsweredWhereItIsNot();
    void rootPassesOverTheFoldersOfOthers();
    void aHostThatIsTooBusyIsOne();
    void saysWhetherAHostIsLateOrGone_data();
    void saysWhetherAHostIsLateOrGone();
    void showsTheTokenByTcp();
    void refusesATokenFileWithoutAToken_data();
    void refusesATokenFileWithoutAToken();
    void asksWhatTheCommandSays_data();
    void asksWhatTheCommandSays();
    void printsTheAnswerAsItIsForPrograms_data();
    void printsTheAnswerAsItIsForPrograms();
    void printsTheAnswerForPeople_data();
    void printsTheAnswerForPeople();
    void listsTheHostsThatTheBusReaches();
    void saysWhyItListsNoHosts_data();
    void saysWhyItListsNoHosts();
    void statusTellsOfTheBus_data();
    void statusTellsOfTheBus();
    void saysSoWhereThereIsNothing_data();
    void saysSoWhereThereIsNothing();
    void saysSoWhereNothingHasFailed();
    void saysSoWhereItCannotWrite();
    void statusTellsWhatHasFailed();
    void statusTellsOfAHostThatHangsInItsReport();
    void endsWithWhatBecameOfIt_data();
    void endsWithWhatBecameOfIt();
    void tellsTimesAsPeopleReadThem_data();
    void tellsTimesAsPeopleReadThem();
    void nothingFromAHostReachesATerminal_data();
    void nothingFromAHostReachesATerminal();
    void fitsTheTerminal_data();
    void fitsTheTerminal();
    void takesTheWidthFromTheEnvironmentWhereTheTerminalHasNone();
    void countsWideLetters();
    void cutsNothingForAProgram();
    void coloursOnlyATerminalThatWantsIt_data();
    void coloursOnlyATerminalThatWantsIt();
    void followsTheLogUntilTheHostEnds();
    void followsTheLogForPrograms();
    void saysWhyThereIsNoLogToFollow();
    void endsWithItsReader_data();
    void endsWithItsReader();
    void topGivesTheTerminalBack_data();
    void topGivesTheTerminalBack();
    void topFollowsTheTerminalsSize();
    void topCanBeStoppedAndContinued();
    void topEndsWhereTheHostDoes();
    void topIsForATerminal();
    void completes_data();
    void completes();

private:
    /// Runs zctl as a part of a service with this folder, so that no other host of the machine is met.
    QProcessEnvironment environment() const;
    Result run(const QStringList &arguments) const { return run(environment(), arguments); }
    static Result run(const QProcessEnvironment &environment, const QStringList &arguments);
    QString socket(const char *name = "one") const { return m_folder->filePath(QLatin1String(name) + ".sock"); }

    QScopedPointer<Folder> m_folder;
};

namespace {

const char hostReport[] = R"({"version": "1.0.0", "process": 4711, "configuration": "/etc/zhost/one.json",
    "since": "2026-01-02T03:04:05Z", "state": "running", "healthy": true, "reason": "",
    "loop": {"delayMs": 2, "hangs": false, "where": ""}, "residentBytes": 39845888, "cpuMs": 2100, "threads": 12,
    "descriptors": 1, "notKnown": []})";

const char sickReport[] = R"({"version": "1.0.0", "process": 4711, "configuration": "/etc/zhost/one.json",
    "since": "2026-01-02T03:04:05Z", "state": "running", "healthy": false, "reason": "the event loop hangs",
    "loop": {"delayMs": 12000, "hangs": true, "where": "libsvc.2.so: Svc::invoke"}, "residentBytes": 1, "cpuMs": 0,
    "threads": 1, "descriptors": 1, "notKnown": []})";

const char plugins[] = R"([
    {"file": "libsvc.2.so", "plugin": "svc", "version": "2", "size": 123456, "inMemory": true,
     "loadedSince": "2020-01-01T00:00:00Z", "state": "good", "root": "Svc", "components": [{"class": "Part",
     "since": "2020-01-01T00:00:00Z", "properties": [{"name": "zLogger", "interface": "ZLogger", "given": true},
     {"name": "zOther", "interface": "ZOther", "given": false}]}], "serves": ["ZLogger", "ZConfig"],
     "endpoints": ["//svc"], "activities": ["tick"], "heldBy": [{"kind": "unknown", "name": "", "text": "it is loaded"}], "left": ""},
    {"file": "libsvc.so", "plugin": "svc", "version": "", "size": 0, "inMemory": true, "loadedSince": "",
     "state": "gone", "root": "", "components": [], "serves": [], "endpoints": [], "activities": [],
     "heldBy": [{"kind": "unknown", "name": "", "text": "a call is under way"}], "left": ""},
    {"file": "libbad.so", "plugin": "bad", "version": "", "size": 2048, "inMemory": false, "loadedSince": "",
     "state": "quarantined", "reason": "ended by Segmentation fault", "root": "", "components": [], "serves": [],
     "endpoints": [], "activities": [], "heldBy": [], "left": ""},
    {"file": "libstays.so", "plugin": "stays", "version": "", "size": 5, "inMemory": true, "loadedSince": "",
     "state": "good", "root": "", "components": [], "serves": [], "endpoints": [], "activities": [],
     "heldBy": [], "left": "a thread"}])";

const char services[] = R"([
    {"interface": "ZLogger", "served": true, "class": "Svc", "file": "libsvc.2.so", "since": "", "exchanges": 12,
     "before": [{"class": "ZDefaultLogger", "file": "", "since": "", "held": true}]},
    {"interface": "ZOther", "served": false, "class": "", "file": "", "since": "", "exchanges": 0, "before": []}])";

const char endpoints[] = R"([
    {"url": "//svc", "alive": true, "file": "libsvc.2.so", "since": ""},
    {"url": "//zhost", "alive": false, "file": "", "since": ""}])";

const char schedule[] = R"([
    {"index": 0, "url": "//report/daily", "state": "waiting", "runs": 31, "failures": 0, "failuresInARow": 0,
     "last": "", "lastMs": 0, "next": "", "ended": ""},
    {"index": 1, "url": "//x/y", "state": "ended", "runs": 3, "failures": 1, "failuresInARow": 1,
     "last": "2020-01-01T00:00:00Z", "lastMs": 1500, "next": "", "ended": "nobody handled it"},
    {"index": 2, "url": "//x/z", "state": "waiting", "runs": 3, "failures": 2, "failuresInARow": 2,
     "last": "", "lastMs": 0, "next": "", "ended": ""},
    {"index": 3, "url": "//x/over", "state": "ended", "runs": 1, "failures": 1, "failuresInARow": 1,
     "last": "", "lastMs": 0, "next": "", "ended": "cancelled", "cancelled": true}])";

const char events[] = R"([
    {"number": 1, "kind": "refused", "subject": "libtypo.so", "text": "there is no such file"},
    {"number": 2, "kind": "refused", "subject": "libsvc.2.so", "text": "it was half there"},
    {"number": 3, "kind": "loaded", "subject": "libsvc.2.so", "text": ""},
    {"number": 4, "kind": "refused", "subject": "libbad.so", "text": "of which its file tells"}])";

const char threads[] = R"([{"id": 4711, "name": "zhost", "state": "S", "cpuMs": 2100},
    {"id": 4712, "name": "door", "state": "Z", "cpuMs": 100}])";

const char line[] = R"({"number": 1, "time": "2026-01-02T03:04:05Z", "severity": 4, "text": "one"})";

QByteArray reportOf(const char *host)
{
    return QByteArray("{\"host\": ") + host + ", \"plugins\": " + plugins + ", \"services\": " + services +
           ", \"endpoints\": " + endpoints + ", \"schedule\": " + schedule + ", \"threads\": " + threads +
           ", \"configuration\": {}, \"events\": " + events + "}";
}

/// All that one can ask of a host.
void answerAll(FakeHost *host)
{
    host->answer("GET /v1/report", reportOf(hostReport));
    host->answer("GET /v1/report/host", hostReport);
    host->answer("GET /v1/report/plugins", plugins);
    host->answer("GET /v1/report/services", services);
    host->answer("GET /v1/report/endpoints", endpoints);
    host->answer("GET /v1/report/schedule", schedule);
    host->answer("GET /v1/report/threads", threads);
    host->answer("GET /v1/log", QByteArray("[") + line + "]");
    host->answer("POST /v1/call", R"({"handled": true, "out": {"answer": 42}, "reason": ""})");
    const char entry[] = R"({"index": 3, "url": "//x", "state": "ended", "next": "", "ended": "it was cancelled"})";
    for (const char *const how : {"run", "cancel", "restart"})
        host->answer(QStringLiteral("POST /v1/schedule/3/%1").arg(how), entry);
    host->answer("POST /v1/plugins/svc/rollback", R"({"from": "libsvc.1.so", "to": "libsvc.3.so"})");
    host->answer("POST /v1/plugins/svc/release", R"({"asked": ["tick", "//svc"]})");
    host->answer("PUT /v1/log", R"({"log": {"zdefault": 15}, "severities": {"debug": true, "info": false}})");
    host->answer("POST /v1/reload", R"({"asked": "reload"})", 202);
    host->answer("POST /v1/stop", R"({"asked": "stop"})", 202);
}

QString timeFromNow(int seconds)
{
    return QDateTime::currentDateTimeUtc().addSecs(seconds).toString(Qt::ISODateWithMs);
}

/// The name of the socket of a host that runs by `configuration`.
QString doorName(const QString &configuration)
{
    const QFileInfo info(configuration);
    const QByteArray path = info.canonicalFilePath().toLocal8Bit();
    const QByteArray hash = QCryptographicHash::hash(path, QCryptographicHash::Sha256).toHex().left(8);
    return info.completeBaseName() + '-' + hash + ".sock";
}

} // namespace

void tst_Zctl::init()
{
    TestCase::init();
    m_folder.reset(new Folder);
}

QProcessEnvironment tst_Zctl::environment() const
{
    QProcessEnvironment result = QProcessEnvironment::systemEnvironment();
    result.insert("RUNTIME_DIRECTORY", m_folder->path());
    result.insert("TERM", "xterm");
    result.insert("TZ", "UTC");
    result.insert("LC_ALL", "C.UTF-8");
    result.remove("NO_COLOR");
    result.remove("COLUMNS");
    return result;
}

Result tst_Zctl::run(const QProcessEnvironment &environment, const QStringList &arguments)
{
    QProcess process;
    process.setProcessEnvironment(environment);
    process.setStandardInputFile(QProcess::nullDevice());
    process.start(ZCTL, arguments);
    return finish(process);
}

void tst_Zctl::tellsWhatItIs_data()
{
    QTest::addColumn<QString>("option");
    QTest::addColumn<QString>("pattern");
    QTest::newRow("version") << "--version"
                             << "^zctl \\d+\\.\\d+\\.\\d+\\n$";
    for (const char *const command :
         {"status", "plugins \\[NAME\\]", "services", "endpoints", "schedule", "threads", "log \\[-f\\] \\[-n LINES\\]",
          "hosts", "call URL \\[--in JSON\\]", "run N", "cancel N", "restart N", "rollback NAME", "release NAME",
          "log-level CATEGORY MASK", "reload", "stop", "top"})
        QTest::addRow("help tells of %s", command) << "--help" << QStringLiteral("\n  %1  +[A-Z]").arg(command);
}

void tst_Zctl::tellsWhatItIs()
{
    QFETCH(QString, option);
    QFETCH(QString, pattern);
    verifyTells(run({option}), pattern);
}

void tst_Zctl::refusesACommandLineThatItCannotUse_data()
{
    QTest::addColumn<QStringList>("arguments");
    QTest::addColumn<QString>("reason");
    QTest::newRow("nothing") << QStringList() << "name a command";
    QTest::newRow("unknown command") << QStringList{"dance"} << "there is no command \"dance\"";
    QTest::newRow("unknown option") << QStringList{"--nope", "status"} << "Unknown option 'nope'.";
    QTest::newRow("too few") << QStringList{"run"} << "it is zctl run N";
    QTest::newRow("too many") << QStringList{"status", "all"} << "it is zctl status";
    QTest::newRow("no index") << QStringList{"run", "one"} << "\"one\" is no index: see zctl schedule";
    QTest::newRow("negative index") << QStringList{"--", "run", "-1"} << "\"-1\" is no index: see zctl schedule";
    QTest::newRow("two hosts") << QStringList{"-s", "a", "-c", "b", "status"}
                               << "--socket and --config exclude each other";
    QTest::newRow("empty socket") << QStringList{"-s", "", "status"} << "--socket names nothing";
    QTest::newRow("no token") << QStringList{"--url", "http://localhost", "status"}
                              << "--url and --token-file go together";
    QTest::newRow("token alone") << QStringList{"--token-file", "a", "status"} << "--url and --token-file go together";
    for (const char *const url :
         {"localhost", "https://localhost", "http://", "http://localhost/v1", "http://me@localhost",
          "http://localhost?a", "http://localhost#a", "http://local host"})
        QTest::addRow("address %s", url) << QStringList{"--url", url, "--token-file", "a", "status"}
                                         << "--url needs an address as http://localhost:8080";
    QTest::newRow("follow what") << QStringList{"-f", "status"} << "--follow goes with log";
    QTest::newRow("lines of what") << QStringList{"-n", "3", "status"} << "--lines goes with log";
    QTest::newRow("request of what") << QStringList{"--in", "{}", "log"} << "--in goes with call";
    QTest::newRow("deadline of what") << QStringList{"--deadline", "3", "log"} << "--deadline goes with call";
    for (const char *const number : {"", "-1", "few", "1001"})
        QTest::addRow("lines \"%s\"", number)
            << QStringList{"log", "-n", number} << "--lines needs a number, 0 to 1000";
    for (const char *const number : {"", "0", "-1", "soon", "60001"})
        QTest::addRow("deadline \"%s\"", number) << QStringList{"call", "//x", "--deadline", number}
                                                 << "--deadline needs a number of milliseconds, 1 to 60000";
    for (const char *const request : {"", "3", "[]", "{"})
        QTest::addRow("request \"%s\"", request)
            << QStringList{"call", "//x", "--in", request} << "--in needs a JSON object";
    for (const char *const url : {"", "//x y"})
        QTest::addRow("URL \"%s\"", url) << QStringList{"call", url} << "call needs a URL, as //host/path";
    for (const char *const mask : {"", "loud", "-1", "3000000000"})
        QTest::addRow("mask \"%s\"", mask)
            << QStringList{"--", "log-level", "zdefault", mask}
            << QStringLiteral("\"%1\" is neither a sum of kinds of lines, nor on or off").arg(mask);
}

void tst_Zctl::refusesACommandLineThatItCannotUse()
{
    QFETCH(QStringList, arguments);
    QFETCH(QString, reason);
    const FakeHost host(socket());
    const Result result = run(arguments);
    QCOMPARE(result.err, QStringLiteral("zctl: %1; see zctl --help\n").arg(reason));
    QCOMPARE(result.out, QString());
    QCOMPARE(result.exitCode, 2);
    QCOMPARE(host.asked(), QStringList());
}

void tst_Zctl::saysWhereItHasLookedForAHost()
{
    const Result result = run({"status"});
    QCOMPARE(result.err, QStringLiteral("zctl: no host runs here that could be asked: there is none in %1; one that is "
                                        "elsewhere is named by -s SOCKET, -c CONFIG.json or --url\n")
                             .arg(m_folder->path()));
    QCOMPARE(result.exitCode, 2);

    QProcessEnvironment elsewhere = environment();
    elsewhere.remove("RUNTIME_DIRECTORY");
    elsewhere.insert("XDG_RUNTIME_DIR", m_folder->path());
    QVERIFY(m_folder->write("one.json", "{}"));
    const Result other = run(elsewhere, {"-c", m_folder->filePath("one.json"), "status"});
    for (const QString &place : {m_folder->path() + "/zhost", QStringLiteral("/run/user/%1/zhost").arg(geteuid()),
                                 QStringLiteral("/tmp/zhost-%1").arg(geteuid()), QStringLiteral("/run/zhost")})
        QVERIFY2(other.err.contains(place), qPrintable(other.err));
    QCOMPARE(other.exitCode, 2);
}

void tst_Zctl::aSocketAtWhichNobodyListensIsNoHost()
{
    {
        const FakeHost gone(socket());
    }
    QVERIFY(QFileInfo::exists(socket()));
    QVERIFY(run({"status"}).err.contains("no host runs here"));
    const Result result = run({"-s", socket(), "status"});
    QCOMPARE(result.err, QStringLiteral("zctl: no host is at %1: Connection refused\n").arg(socket()));
    QCOMPARE(result.exitCode, 2);

    const QString nowhere = m_folder->filePath("none");
    QCOMPARE(run({"-s", nowhere, "status"}).err,
             QStringLiteral("zctl: no host is at %1: No such file or directory\n").arg(nowhere));
    const QString endless(200, 'x');
    QCOMPARE(run({"-s", endless, "status"}).err,
             QStringLiteral("zctl: no host is at %1: File name too long\n").arg(endless));

    FakeHost there(socket("two")); // beside the one that is gone
    answerAll(&there);
    QCOMPARE(run({"status"}).exitCode, 0);
}

void tst_Zctl::findsTheOneHost()
{
    FakeHost host(socket());
    answerAll(&host);
    const Result result = run({"status"});
    QCOMPARE(result.err, QString());
    QVERIFY2(result.out.startsWith("running, healthy\n"), qPrintable(result.out));
    QCOMPARE(result.exitCode, 0);
    QCOMPARE(host.asked(), QStringList("GET /v1/report"));
}

void tst_Zctl::namesTheHostsWhereThereAreSeveral()
{
    FakeHost one(socket());
    answerAll(&one);
    FakeHost two(socket("two"));
    const Result result = run({"stop"});
    QCOMPARE(result.err, QStringLiteral("zctl: 2 hosts run here: choose one by\n"
                                        "zctl:   -s %1  (/etc/zhost/one.json)\n"
                                        "zctl:   -s %2\n")
                             .arg(socket(), socket("two")));
    QCOMPARE(result.exitCode, 2);
    QCOMPARE(run({"-s", socket(), "status"}).exitCode, 0);
}

void tst_Zctl::findsTheHostOfAConfiguration_data()
{
    QTest::addColumn<QByteArray>("content");
    QTest::addColumn<QString>("variable");
    QTest::addColumn<QString>("folder");
    QTest::newRow("of a service") << QByteArray("{}") << "RUNTIME_DIRECTORY"
                                  << "";
    QTest::newRow("of a login") << QByteArray("{}") << "XDG_RUNTIME_DIR"
                                << "/zhost";
    QTest::newRow("which says where") << QByteArray(R"({"door": {"socket": "%1/own.sock"}})") << ""
                                      << "";
    QTest::newRow("which is broken by now") << QByteArray("{") << "RUNTIME_DIRECTORY"
                                            << "";
}

void tst_Zctl::findsTheHostOfAConfiguration()
{
    QFETCH(QByteArray, content);
    QFETCH(QString, variable);
    QFETCH(QString, folder);
    const QString configuration = m_folder->filePath("my.host.json");
    QVERIFY(m_folder->write("my.host.json", QString(content).replace("%1", m_folder->path()).toUtf8()));
    QVERIFY(QDir(m_folder->path()).mkpath("zhost"));
    FakeHost host(m_folder->path() + (variable.isEmpty() ? "/own.sock" : folder + '/' + doorName(configuration)));
    answerAll(&host);
    const FakeHost other(socket());
    QProcessEnvironment changed = environment();
    changed.remove("RUNTIME_DIRECTORY");
    changed.insert(variable.isEmpty() ? "UNUSED" : variable, m_folder->path());
    const Result result = run(changed, {"-c", configuration, "status"});
    QCOMPARE(result.err, QString());
    QCOMPARE(result.exitCode, 0);
    QCOMPARE(other.asked(), QStringList());
}

void tst_Zctl::saysWhyAConfigurationHasNoHost_data()
{
    QTest::addColumn<QByteArray>("content");
    QTest::addColumn<QString>("reason");
    QTest::newRow("none runs") << QByteArray("{}") << "no host runs by %1: there is no %2 in %3";
    QTest::newRow("no door") << QByteArray(R"({"door": false})")
                             << "%1 says that its host has no door: \"door\" is false";
    QTest::newRow("no file") << QByteArray() << "cannot read %1: No such file or directory";
    QTest::newRow("none where it says") << QByteArray(R"({"door": {"socket": "/none"}})")
                                        << "no host is at /none: No such file or directory";
}

void tst_Zctl::saysWhyAConfigurationHasNoHost()
{
    QFETCH(QByteArray, content);
    QFETCH(QString, reason);
    const QString configuration = m_folder->filePath("one.json");
    QVERIFY(content.isNull() || m_folder->write("one.json", content));
    const FakeHost other(socket());
    const Result result = run({"-c", configuration, "status"});
    reason.replace("%1", configuration).replace("%2", doorName(configuration)).replace("%3", m_folder->path());
    QCOMPARE(result.err, QStringLiteral("zctl: %1\n").arg(reason));
    QCOMPARE(result.exitCode, 2);
}

void tst_Zctl::saysWhoIsAnsweredWhereItIsNot()
{
    if (geteuid() == 0)
        return QTest::qSkip("nothing is closed to root", __FILE__, __LINE__);
    const FakeHost host(socket());
    QVERIFY(QFile::setPermissions(socket(), QFile::Permissions()));
    QVERIFY(m_folder->write("one.json", "{}"));
    const QString reason =
        QStringLiteral("zctl: %1 answers its own user and root alone: try it as one of them\n").arg(socket());
    for (const QStringList &arguments : {QStringList{"status"}, QStringList{"-s", socket(), "status"}}) {
        const Result result = run(arguments);
        QCOMPARE(result.err, reason);
        QCOMPARE(result.exitCode, 2);
    }
}

void tst_Zctl::rootPassesOverTheFoldersOfOthers()
{
    if (geteuid() != 0)
        return QTest::qSkip("only root looks into others' folders", __FILE__, __LINE__);
    const uid_t somebody = 60000 + uid_t(getpid() % 5000);
    const QString folder = QStringLiteral("/tmp/zhost-%1").arg(somebody);
    QVERIFY(QDir().mkdir(folder));
    const auto tidyUp = qScopeGuard([&] { QDir(folder).removeRecursively(); });
    FakeHost host(folder + "/one.sock");
    answerAll(&host);
    QProcessEnvironment elsewhere = environment();
    elsewhere.remove("RUNTIME_DIRECTORY");
    elsewhere.insert("XDG_RUNTIME_DIR", m_folder->path());
    // Whose it is, too: who answers there could claim to be any host.
    for (const uid_t owner : {geteuid(), somebody}) {
        QCOMPARE(chown(QFile::encodeName(folder), owner, gid_t(-1)), 0);
        QVERIFY(!run(elsewhere, {"status"}).err.contains(folder));
        QCOMPARE(host.asked(), QStringList());
    }
    QCOMPARE(run(elsewhere, {"-s", folder + "/one.sock", "status"}).exitCode, 0);
}

void tst_Zctl::aHostThatIsTooBusyIsOne()
{
    const SilentHost host(socket(), 0);
    const SilentClient first(socket()), second(socket());
    QVERIFY(first.isConnected());
    const Result result = run({"status"});
    QCOMPARE(result.err, QStringLiteral("zctl: nobody answers at %1\n").arg(socket()));
    QCOMPARE(result.exitCode, 2);
}

void tst_Zctl::saysWhetherAHostIsLateOrGone_data()
{
    QTest::addColumn<bool>("goes");
    QTest::addColumn<QString>("reason");
    QTest::newRow("late") << false << "has not answered within 5 seconds";
    QTest::newRow("gone") << true << "has gone before it has answered";
}

void tst_Zctl::saysWhetherAHostIsLateOrGone()
{
    QFETCH(bool, goes);
    QFETCH(QString, reason);
    SilentHost host(socket(), 5);
    std::thread goer;
    if (goes)
        goer = std::thread([&] { host.hangUpOn(2); }); // the first sees whether somebody listens
    const Result result = run({"call", "//x", "--deadline", "1"});
    if (goes)
        goer.join();
    QCOMPARE(result.err, QStringLiteral("zctl: the host at %1 %2\n").arg(socket(), reason));
    QCOMPARE(result.exitCode, 1);
}

void tst_Zctl::showsTheTokenByTcp()
{
    FakeHost host;
    answerAll(&host);
    QVERIFY(m_folder->write("token", "0123456789abcdef\nmore\n"));
    const QString url = QStringLiteral("http://localhost:%1/").arg(host.port());
    const Result result = run({"--url", url, "--token-file", m_folder->filePath("token"), "stop"});
    QCOMPARE(result.err, QString());
    QCOMPARE(result.exitCode, 0);
    QCOMPARE(host.asked(), QStringList("POST /v1/stop {}"));
    QCOMPARE(host.header("Authorization"), QString("Bearer 0123456789abcdef"));
    QCOMPARE(host.header("Host"), QStringLiteral("localhost:%1").arg(host.port()));
    QCOMPARE(host.header("Content-Type"), QString("application/json"));
}

void tst_Zctl::refusesATokenFileWithoutAToken_data()
{
    QTest::addColumn<QByteArray>("content");
    QTest::addColumn<QString>("reason");
    QTest::newRow("no file") << QByteArray() << "cannot read %1: No such file or directory";
    QTest::newRow("empty line") << QByteArray("\nabc\n") << "the first line of %1 is to be the token, and is empty";
}

void tst_Zctl::refusesATokenFileWithoutAToken()
{
    QFETCH(QByteArray, content);
    QFETCH(QString, reason);
    const FakeHost host;
    const QString file = m_folder->filePath("token");
    QVERIFY(content.isNull() || m_folder->write("token", content));
    const QString url = QStringLiteral("http://localhost:%1").arg(host.port());
    const Result result = run({"--url", url, "--token-file", file, "stop"});
    QCOMPARE(result.err, QStringLiteral("zctl: %1\n").arg(reason.replace("%1", file)));
    QCOMPARE(result.exitCode, 2);
    QCOMPARE(host.asked(), QStringList());
}

void tst_Zctl::asksWhatTheCommandSays_data()
{
    QTest::addColumn<QStringList>("arguments");
    QTest::addColumn<QString>("asked");
    QTest::newRow("status") << QStringList{"status"} << "GET /v1/report";
    for (const char *const part : {"plugins", "services", "endpoints", "schedule", "threads"})
        QTest::newRow(part) << QStringList{part} << QStringLiteral("GET /v1/report/%1").arg(part);
    QTest::newRow("one plugin") << QStringList{"plugins", "svc"} << "GET /v1/report/plugins";
    QTest::newRow("log") << QStringList{"log"} << "GET /v1/log?lines=100";
    QTest::newRow("some lines") << QStringList{"log", "-n", "0"} << "GET /v1/log?lines=0";
    QTest::newRow("call") << QStringList{"call", "//a/b?c=d&e"}
                          << "POST /v1/call?url=%2F%2Fa%2Fb%3Fc%3Dd%26e&deadline=10000 {}";
    QTest::newRow("call with a request") << QStringList{"call", "//a", "--in", "{\"b\": 1}", "--deadline", "1"}
                                         << "POST /v1/call?url=%2F%2Fa&deadline=1 {\"b\":1}";
    for (const char *const how : {"run", "cancel", "restart"})
        QTest::newRow(how) << QStringList{how, "3"} << QStringLiteral("POST /v1/schedule/3/%1 {}").arg(how);
    QTest::newRow("rollback") << QStringList{"rollback", "svc"} << "POST /v1/plugins/svc/rollback {}";
    QTest::newRow("release") << QStringList{"release", "svc"} << "POST /v1/plugins/svc/release {}";
    QTest::newRow("a mask") << QStringList{"log-level", "zdefault", "15"} << "PUT /v1/log {\"log\":{\"zdefault\":15}}";
    QTest::newRow("a severity on") << QStringList{"log-level", "debug", "on"}
                                   << "PUT /v1/log {\"severities\":{\"debug\":true}}";
    QTest::newRow("a severity off") << QStringList{"log-level", "info", "off"}
                                    << "PUT /v1/log {\"severities\":{\"info\":false}}";
    QTest::newRow("reload") << QStringList{"reload"} << "POST /v1/reload {}";
    QTest::newRow("stop") << QStringList{"stop"} << "POST /v1/stop {}";
}

void tst_Zctl::asksWhatTheCommandSays()
{
    QFETCH(QStringList, arguments);
    FakeHost host(socket());
    answerAll(&host);
    const Result result = run(arguments);
    QCOMPARE(result.err, QString());
    QCOMPARE(result.exitCode, 0);
    QTEST(host.asked().join('\n'), "asked");
}

void tst_Zctl::printsTheAnswerAsItIsForPrograms_data()
{
    QTest::addColumn<QStringList>("arguments");
    QTest::addColumn<QString>("answered");
    QTest::addColumn<QByteArray>("body");
    QTest::newRow("a report") << QStringList{"threads"} << "GET /v1/report/threads" << QByteArray(" [ ] \n");
    QTest::newRow("a deed") << QStringList{"stop"} << "POST /v1/stop" << QByteArray("{\"asked\":\"\x1b\"}\n");
    QTest::newRow("the status") << QStringList{"status"} << "GET /v1/report"
                                << QByteArray("{\"host\": {\"healthy\": true}}\n");
    QTest::newRow("the log") << QStringList{"log"} << "GET /v1/log" << QByteArray("[]\n");
}

void tst_Zctl::printsTheAnswerAsItIsForPrograms()
{
    QFETCH(QStringList, arguments);
    QFETCH(QString, answered);
    QFETCH(QByteArray, body);
    FakeHost host(socket());
    host.answer(answered, body);
    const Result result = run(arguments + QStringList("--json"));
    QCOMPARE(result.out, QString(body));
    QCOMPARE(result.err, QString());
    QCOMPARE(result.exitCode, 0);
}

void tst_Zctl::printsTheAnswerForPeople_data()
{
    QTest::addColumn<QStringList>("arguments");
    QTest::addColumn<QString>("text");
    QTest::newRow("services") << QStringList{"services"}
                              << "INTERFACE  SERVED BY  FILE         EXCHANGES  BEFORE\n"
                                 "ZLogger    Svc        libsvc.2.so         12  ZDefaultLogger of zhost, still held\n"
                                 "ZOther     nobody                          0\n";
    QTest::newRow("plugins")
        << QStringList{"plugins"}
        << "PLUGIN  VERSION  STATE        LOADED            SIZE  SERVES            NOTE\n"
           "svc     2        good         NNNN days ago  121 KiB  ZLogger, ZConfig\n"
           "svc     -        gone                                                   held by a call is under way\n"
           "bad     -        quarantined  no             2.0 KiB                    ended by Segmentation fault\n"
           "stays   -        good                            5 B                    stays in memory: a thread\n";
    QTest::newRow("a plugin") << QStringList{"plugins", "svc"}
                              << "file         libsvc.2.so\n"
                                 "state        good\n"
                                 "size         121 KiB\n"
                                 "loaded       NNNN days ago\n"
                                 "root         Svc\n"
                                 "component    Part, made NNNN days ago\n"
                                 "  given      zLogger: ZLogger\n"
                                 "  left null  zOther: ZOther\n"
                                 "serves       ZLogger\n"
                                 "             ZConfig\n"
                                 "endpoints    //svc\n"
                                 "activities   tick\n"
                                 "held by      it is loaded\n"
                                 "\n"
                                 "file     libsvc.so\n"
                                 "state    gone\n"
                                 "held by  a call is under way\n";
    QTest::newRow("schedule") << QStringList{"schedule"}
                              << "N  URL             STATE    RUNS  FAILED  LAST            TOOK  ENDED\n"
                                 "0  //report/daily  waiting    31       0\n"
                                 "1  //x/y           ended       3       1  NNNN days ago  1.5 s  nobody handled it\n"
                                 "2  //x/z           waiting     3       2\n"
                                 "3  //x/over        ended       1       1                        cancelled\n";
    QTest::newRow("endpoints") << QStringList{"endpoints"}
                               << "URL      STATE  FILE\n"
                                  "//svc    alive  libsvc.2.so\n"
                                  "//zhost  gone   zhost\n";
    QTest::newRow("threads") << QStringList{"threads"}
                             << "  ID  NAME   STATE   CPU TIME\n"
                                "4711  zhost  sleeps     2.1 s\n"
                                "4712  door   Z         100 ms\n";
    QTest::newRow("log") << QStringList{"log"} << "2026-01-02 03:04:05  one\n";
    QTest::newRow("call") << QStringList{"call", "//x"} << "{\n    \"answer\": 42\n}\n";
    QTest::newRow("an entry") << QStringList{"cancel", "3"} << "schedule[3] //x: ended: it was cancelled\n";
    QTest::newRow("rollback") << QStringList{"rollback", "svc"} << "libsvc.1.so is dropped again, as libsvc.3.so\n";
    QTest::newRow("release") << QStringList{"release", "svc"} << "asked to let go: tick, //svc\n";
    QTest::newRow("log-level") << QStringList{"log-level", "zdefault", "15"}
                               << "the log has, until the host ends: debug on, info off, zdefault 15\n";
    QTest::newRow("reload") << QStringList{"reload"}
                            << "the host is told to read its configuration anew: the log says what comes of it\n";
    QTest::newRow("stop") << QStringList{"stop"} << "the host is told to stop\n";
}

void tst_Zctl::printsTheAnswerForPeople()
{
    QFETCH(QStringList, arguments);
    FakeHost host(socket());
    answerAll(&host);
    const Result result = run(arguments);
    QCOMPARE(result.err, QString());
    QTEST(QString(result.out).replace(QRegularExpression("\\d{4} days ago"), "NNNN days ago"), "text");
}

void tst_Zctl::listsTheHostsThatTheBusReaches()
{
    FakeHost host(socket());
    const QByteArray out = R"({"handled": true, "reason": "", "out": {"hosts": [
        {"name": "node7", "id": "b", "version": "1.0.0", "urls": ["//clock", "//report"], "ms": 0.25, "started": ""},
        {"name": "no\u001bde6", "id": "a", "version": "1.0.0", "urls": [], "ms": 25, "started": "2020-01-01T00:00:00Z"},
        3]}})";
    host.answer("POST /v1/call", out);
    const Result result = run({"hosts"});
    QCOMPARE(result.err, QString());
    QCOMPARE(result.exitCode, 0);
    QCOMPARE(QString(result.out).replace(QRegularExpression("\\d{4} days ago"), "NNNN days ago"),
             QString("HOST       VERSION  SINCE          ANSWERED IN  SERVES\n"
                     "no\\x1bde6  1.0.0    NNNN days ago        25 ms\n"
                     "node7      1.0.0                       0.25 ms  //clock, //report\n"));
    QVERIFY2(host.asked().last().startsWith("POST /v1/call?"), qPrintable(host.asked().last()));
    QVERIFY2(host.asked().last().contains("nats"), qPrintable(host.asked().last()));
    QCOMPARE(QJsonDocument::fromJson(run({"hosts", "--json"}).out.toUtf8()), QJsonDocument::fromJson(out));
}

void tst_Zctl::saysWhyItListsNoHosts_data()
{
    QTest::addColumn<QByteArray>("answer");
    QTest::addColumn<QString>("text");
    QTest::addColumn<int>("exitCode");
    QTest::newRow("none") << QByteArray(R"({"handled": true, "reason": "", "out": {"hosts": []}})")
                          << "no host answers: those that serve nothing do not\n"
                          << 0;
    QTest::newRow("no plugin") << QByteArray(R"({"handled": false, "reason": "nobody handled //nats/hosts"})")
                               << "zctl: the bus of this host reaches no other process: no plugin has bound //nats\n"
                               << 1;
    QTest::newRow("an exception") << QByteArray(R"({"handled": false, "reason": "//nats/hosts has thrown: x"})")
                                  << "zctl: //nats/hosts has thrown: x\n"
                                  << 1;
}

void tst_Zctl::saysWhyItListsNoHosts()
{
    QFETCH(QByteArray, answer);
    FakeHost host(socket());
    host.answer("POST /v1/call", answer);
    const Result result = run({"hosts"});
    QTEST(result.out + result.err, "text");
    QTEST(result.exitCode, "exitCode");
}

void tst_Zctl::statusTellsOfTheBus_data()
{
    QTest::addColumn<QByteArray>("bus");
    QTest::addColumn<QString>("text");
    QTest::newRow("connected") << QByteArray(R"({"error": "", "name": "node6", "hosts": [{}],
        "connection": {"state": "connected", "server": "nats://a"},
        "out": {"calls": 120, "failures": 4, "p50Ms": 0.5, "p99Ms": 20}, "in": {"calls": 0}})")
                               << "bus            connected to nats://a, as node6, 1 host seen\n"
                                  "calls out      4 of 120 failed, half within 0.5 ms, 99 % within 20 ms\n";
    QTest::newRow("not connected")
        << QByteArray(R"({"error": "", "connection": {"state": "connecting", "error": "no servers"}})")
        << "the bus reaches no other process: connecting, no servers\n";
    QTest::newRow("not known")
        << QByteArray(R"({"error": "//nats/printd has not come back yet", "connection": {"state": "unknown"}})")
        << "what the bus does is not known: //nats/printd has not come back yet\n";
}

void tst_Zctl::statusTellsOfTheBus()
{
    QFETCH(QByteArray, bus);
    QFETCH(QString, text);
    FakeHost host(socket());
    host.answer("GET /v1/report", QByteArray("{\"host\": ") + hostReport + ", \"plugins\": [], \"bus\": " + bus + "}");
    const Result result = run({"status"});
    QCOMPARE(result.exitCode, 0); // it is healthy all the same
    QVERIFY2(result.out.contains(text), qPrintable(result.out));
}

void tst_Zctl::saysSoWhereThereIsNothing_data()
{
    QTest::addColumn<QString>("text");
    QTest::newRow("plugins") << "there are no plugins\n";
    QTest::newRow("services") << "nobody has served anything\n";
    QTest::newRow("endpoints") << "nothing is bound on the bus\n";
    QTest::newRow("schedule") << "the configuration schedules nothing\n";
    QTest::newRow("threads") << "no thread is known\n";
}

void tst_Zctl::saysSoWhereThereIsNothing()
{
    FakeHost host(socket());
    host.answer(QStringLiteral("GET /v1/report/%1").arg(QTest::currentDataTag()), "[]");
    QTEST(run({QTest::currentDataTag()}).out, "text");
}

void tst_Zctl::saysSoWhereNothingHasFailed()
{
    FakeHost host(socket());
    host.answer("GET /v1/report", QByteArray("{\"host\": ") + hostReport + ", \"plugins\": []}");
    host.answer("POST /v1/plugins/svc/release", "{\"asked\": []}");
    QVERIFY(run({"status"}).out.endsWith("\n\nno plugin is in memory\n\nnothing has failed\n"));
    QCOMPARE(run({"release", "svc"}).out, QString("nobody holds an older version who could be asked\n"));
}

void tst_Zctl::saysSoWhereItCannotWrite()
{
    FakeHost host(socket());
    answerAll(&host);
    QProcess process;
    process.setProcessEnvironment(environment());
    process.setStandardOutputFile("/dev/full");
    process.start(ZCTL, {"status"});
    const Result result = finish(process);
    QCOMPARE(result.err, QString("zctl: cannot write: No space left on device\n"));
    QCOMPARE(result.exitCode, 1);
}

void tst_Zctl::statusTellsWhatHasFailed()
{
    FakeHost host(socket());
    host.answer("GET /v1/report", reportOf(sickReport));
    const Result result = run({"status"});
    QCOMPARE(result.exitCode, 1);
    QVERIFY2(result.out.startsWith("running, not healthy: the event loop hangs\n"), qPrintable(result.out));
    for (const char *const expected :
         {"event loop     hangs for 12 s, in libsvc.2.so: Svc::invoke\n",
          "libbad.so is taken back: ended by Segmentation fault\n", "libstays.so stays in memory: a thread\n",
          "nobody serves ZOther any more\n", "schedule[1] //x/y has ended: nobody handled it\n",
          "schedule[2] //x/z has failed 2 times in a row\n", "\nlibtypo.so was refused: there is no such file\n",
          "\nsvc     2        good   "})
        QVERIFY2(result.out.contains(expected), qPrintable(result.out));
    for (const char *const unexpected : {"//report/daily", "//x/over", "half there", "of which its file tells"})
        QVERIFY2(!result.out.contains(unexpected), qPrintable(result.out));
    QCOMPARE(run({"status", "--json"}).exitCode, 1);
}

void tst_Zctl::statusTellsOfAHostThatHangsInItsReport()
{
    FakeHost host(socket());
    host.answer("GET /v1/report/host", sickReport);
    host.hangAt("GET /v1/report");
    const Result result = run({"status"});
    QCOMPARE(result.err, QString());
    QVERIFY2(result.out.startsWith("running, not healthy: the event loop hangs\n"), qPrintable(result.out));
    QVERIFY2(result.out.endsWith("\n\nthe host tells no more at the moment\n"), qPrintable(result.out));
    QCOMPARE(result.exitCode, 1);
}

void tst_Zctl::endsWithWhatBecameOfIt_data()
{
    QTest::addColumn<QStringList>("arguments");
    QTest::addColumn<QString>("what");
    QTest::addColumn<QByteArray>("body");
    QTest::addColumn<int>("status");
    QTest::addColumn<QString>("err");
    QTest::addColumn<int>("exitCode");
    const QStringList call{"call", "//x"};
    QTest::newRow("handled") << call << "POST /v1/call" << QByteArray(R"({"handled": true, "out": {}, "reason": ""})")
                             << 200 << "" << 0;
    QTest::newRow("not handled") << call << "POST /v1/call"
                                 << QByteArray(R"({"handled": false, "out": {}, "reason": "//x has thrown: y"})") << 200
                                 << "zctl: //x has thrown: y\n"
                                 << 1;
    QTest::newRow("not handled, who knows why")
        << call << "POST /v1/call" << QByteArray(R"({"handled": false, "out": {}})") << 200
        << "zctl: nobody handled //x\n"
        << 1;
    QTest::newRow("not in time") << call << "POST /v1/call" << QByteArray(R"({"error": "it takes long"})") << 504
                                 << "zctl: it takes long\n"
                                 << 1;
    QTest::newRow("no such entry") << QStringList{"run", "3"} << "POST /v1/schedule/3/run"
                                   << QByteArray(R"({"error": "there is no entry 3\n"})") << 404
                                   << "zctl: there is no entry 3\\n\n"
                                   << 1;
    QTest::newRow("run in vain") << QStringList{"run", "3"} << "POST /v1/schedule/3/run"
                                 << QByteArray(R"({"index": 3, "url": "//x", "lastFailure": "nobody is there"})") << 200
                                 << "zctl: schedule[3] //x was run, and has failed: nobody is there\n"
                                 << 1;
    QTest::newRow("another host's turn")
        << QStringList{"run", "3"} << "POST /v1/schedule/3/run"
        << QByteArray(R"({"index": 3, "url": "//x", "once": "x", "skipped": 1, "lastSkip": "node7 has the lease"})")
        << 200 << "zctl: schedule[3] //x was not run: node7 has the lease\n"
        << 1;
    QTest::newRow("still running")
        << QStringList{"run", "3"} << "POST /v1/schedule/3/run"
        << QByteArray(R"({"index": 3, "url": "//x", "state": "running", "lastFailure": "before that"})") << 200 << ""
        << 0;
    QTest::newRow("no such plugin") << QStringList{"plugins", "none"} << "GET /v1/report/plugins" << QByteArray(plugins)
                                    << 200 << "zctl: there is no plugin \"none\": see zctl plugins\n"
                                    << 1;
    QTest::newRow("wrong token") << QStringList{"stop"} << "POST /v1/stop"
                                 << QByteArray(R"({"error": "this takes the token"})") << 401
                                 << "zctl: this takes the token\n"
                                 << 2;
    QTest::newRow("no host") << QStringList{"stop"} << "POST /v1/stop" << QByteArray("<html>") << 200
                             << "zctl: what answers at %1 is no host: HTTP status 200\n"
                             << 2;
    QTest::newRow("no log") << QStringList{"stop"} << "POST /v1/stop" << QByteArray() << 500
                            << "zctl: what answers at %1 is no host: HTTP status 500\n"
                            << 2;
}

void tst_Zctl::endsWithWhatBecameOfIt()
{
    QFETCH(QStringList, arguments);
    QFETCH(QString, what);
    QFETCH(QByteArray, body);
    QFETCH(int, status);
    QFETCH(QString, err);
    FakeHost host(socket());
    host.answer(what, body, status);
    const Result result = run(arguments);
    QCOMPARE(result.err, err.replace("%1", socket()));
    QTEST(result.exitCode, "exitCode");
}

void tst_Zctl::tellsTimesAsPeopleReadThem_data()
{
    QTest::addColumn<int>("seconds");
    QTest::addColumn<QString>("text");
    QTest::newRow("minutes ago") << -200 << "3 min ago";
    QTest::newRow("hours ago") << -47 * 3600 - 100 << "47 h ago";
    QTest::newRow("days ago") << -3 * 24 * 3600 - 100 << "3 days ago";
    QTest::newRow("in minutes") << 400 << "in 6 min";
    QTest::newRow("in hours") << 5 * 3600 + 400 << "in 5 h";
}

void tst_Zctl::tellsTimesAsPeopleReadThem()
{
    QFETCH(int, seconds);
    FakeHost host(socket());
    host.answer("GET /v1/report/schedule",
                QStringLiteral(R"([{"index": 0, "url": "//x", "state": "waiting", "next": "%1"}])")
                    .arg(timeFromNow(seconds))
                    .toUtf8());
    const QString out = run({"schedule"}).out.trimmed();
    QTEST(out.section("  ", -1).trimmed(), "text");
}

void tst_Zctl::nothingFromAHostReachesATerminal_data()
{
    QTest::addColumn<QStringList>("arguments");
    for (const char *const command : {"status", "plugins", "services", "endpoints", "schedule", "threads", "log"})
        QTest::newRow(command) << QStringList{command};
    QTest::newRow("one plugin") << QStringList{"plugins", "svc"};
    QTest::newRow("call") << QStringList{"call", "//x"};
    QTest::newRow("cancel") << QStringList{"cancel", "3"};
    QTest::newRow("rollback") << QStringList{"rollback", "svc"};
    QTest::newRow("release") << QStringList{"release", "svc"};
    QTest::newRow("log-level") << QStringList{"log-level", "a", "1"};
    QTest::newRow("for programs") << QStringList{"--json", "status"};
    QTest::newRow("failure") << QStringList{"restart", "3"};
}

void tst_Zctl::nothingFromAHostReachesATerminal()
{
    QFETCH(QStringList, arguments);
    const QByteArray evil = "\\u001b[2J\\u0007\u009b\\u202e";
    const auto spoilt = [&](QByteArray text) { return text.replace("svc.", "svc." + evil).replace("Z", "Z" + evil); };
    FakeHost host(socket());
    host.answer("GET /v1/report", spoilt(reportOf(sickReport))
                                      .replace("the event", evil)
                                      .replace(": \"2026-01-02T03:04:05Z" + evil, ": \"" + evil));
    for (const auto &[part, text] : {std::make_pair("plugins", plugins), {"services", services}, {"threads", threads}})
        host.answer(QStringLiteral("GET /v1/report/%1").arg(part), spoilt(text));
    host.answer("GET /v1/report/endpoints", R"([{"url": ")" + evil + R"(", "file": ")" + evil + R"(", "since": ""}])");
    const QByteArray entry =
        R"({"index": 0, "url": ")" + evil + R"(", "state": ")" + evil + R"(", "ended": ")" + evil + "\"}";
    host.answer("GET /v1/report/schedule", '[' + entry + ']');
    host.answer("POST /v1/schedule/3/cancel", entry);
    host.answer("POST /v1/schedule/3/restart", "{\"error\": \"" + evil + "\"}", 409);
    host.answer("GET /v1/log", QByteArray("[") + QByteArray(line).replace("one", evil) + "]");
    host.answer("POST /v1/call", R"({"handled": true, "out": {")" + evil + R"(": ")" + evil + "\"}}");
    host.answer("POST /v1/plugins/svc/rollback", R"({"from": ")" + evil + R"(", "to": ")" + evil + "\"}");
    host.answer("POST /v1/plugins/svc/release", R"({"asked": [")" + evil + "\"]}");
    host.answer("PUT /v1/log", R"({"log": {")" + evil + "\": 1}}");

    TerminalProcess process(200, 50);
    QProcessEnvironment plain = environment();
    plain.insert("NO_COLOR", "1");
    process.setProcessEnvironment(plain);
    process.start(ZCTL, arguments);
    QVERIFY(process.end());
    const QString seen = QString::fromUtf8(process.output() + process.readAllStandardError());
    QVERIFY2(!seen.isEmpty(), "it says nothing at all");
    QVERIFY2(
        !QRegularExpression("[\\x{0}-\\x{8}\\x{b}\\x{c}\\x{e}-\\x{1f}\\x{7f}-\\x{9f}\\x{202e}]").match(seen).hasMatch(),
        qPrintable(seen));
}

void tst_Zctl::fitsTheTerminal_data()
{
    QTest::addColumn<int>("columns");
    QTest::addColumn<QString>("text");
    QTest::newRow("wide") << 90
                          << "INTERFACE  SERVED BY  FILE         EXCHANGES  BEFORE\r\n"
                             "ZLogger    Svc        libsvc.2.so         12  ZDefaultLogger of zhost, still held\r\n"
                             "ZOther     nobody                          0\r\n";
    QTest::newRow("narrow") << 60
                            << "INTERFACE  SERVED BY  FILE         EXCHANGES  BEFORE\r\n"
                               "ZLogger    Svc        libsvc.2.so         12  ZDefaultLogge…\r\n"
                               "ZOther     nobody                          0\r\n";
    QTest::newRow("narrower") << 36
                              << "INTERFA…  SERVED …  FILE\r\n"
                                 "ZLogger   Svc       libsvc.…\r\n"
                                 "ZOther    nobody\r\n";
    QTest::newRow("narrowest") << 8 << "INTERFA…\r\nZLogger\r\nZOther\r\n";
}

void tst_Zctl::fitsTheTerminal()
{
    QFETCH(int, columns);
    FakeHost host(socket());
    answerAll(&host);
    TerminalProcess process(columns, 24);
    QProcessEnvironment plain = environment();
    plain.insert("NO_COLOR", "1");
    process.setProcessEnvironment(plain);
    process.start(ZCTL, {"services"});
    QVERIFY(process.end());
    QTEST(QString::fromUtf8(process.output()), "text");
}

void tst_Zctl::takesTheWidthFromTheEnvironmentWhereTheTerminalHasNone()
{
    FakeHost host(socket());
    answerAll(&host);
    QProcessEnvironment narrow = environment();
    narrow.insert("NO_COLOR", "1");
    narrow.insert("COLUMNS", "60");
    TerminalProcess process(0, 0);
    process.setProcessEnvironment(narrow);
    process.start(ZCTL, {"services"});
    QVERIFY(process.end());
    QVERIFY2(process.output().contains("  ZDefaultLogge\u2026\r\n"), process.output());
}

void tst_Zctl::countsWideLetters()
{
    FakeHost host(socket());
    host.answer("GET /v1/report/endpoints",
                R"([{"url": "//\u65e5\u672c\u8a9e\u65e5\u672c\u8a9e", "alive": true, "file": "libx.so",
        "since": ""}, {"url": "//x", "alive": true, "file": "", "since": ""}])");
    QCOMPARE(run({"endpoints"}).out, QString("URL             STATE  FILE\n"
                                             "//\u65e5\u672c\u8a9e\u65e5\u672c\u8a9e  alive  libx.so\n"
                                             "//x             alive  zhost\n"));
    QProcessEnvironment plain = environment();
    plain.insert("NO_COLOR", "1");
    TerminalProcess process(24, 24);
    process.setProcessEnvironment(plain);
    process.start(ZCTL, {"endpoints"});
    QVERIFY(process.end());
    QCOMPARE(QString(process.output()), QString("URL       STATE  FILE\r\n"
                                                "//\u65e5\u672c\u2026   alive  libx.so\r\n"
                                                "//x       alive  zhost\r\n"));
}

void tst_Zctl::cutsNothingForAProgram()
{
    QProcessEnvironment narrow = environment();
    narrow.insert("COLUMNS", "20");
    FakeHost host(socket());
    answerAll(&host);
    QVERIFY(run(narrow, {"services"}).out.contains("  ZDefaultLogger of zhost, still held\n"));
}

void tst_Zctl::coloursOnlyATerminalThatWantsIt_data()
{
    QTest::addColumn<bool>("isTerminal");
    QTest::addColumn<QString>("variable");
    QTest::addColumn<QString>("value");
    QTest::addColumn<bool>("isColoured");
    QTest::newRow("a terminal") << true << "TERM"
                                << "xterm" << true;
    QTest::newRow("a pipe") << false << "TERM"
                            << "xterm" << false;
    QTest::newRow("no colours") << true << "NO_COLOR"
                                << "1" << false;
    QTest::newRow("no colours, but empty") << true << "NO_COLOR"
                                           << "" << true;
    QTest::newRow("a dumb one") << true << "TERM"
                                << "dumb" << false;
    QTest::newRow("none known") << true << "TERM"
                                << "" << false;
}

void tst_Zctl::coloursOnlyATerminalThatWantsIt()
{
    QFETCH(bool, isTerminal);
    QFETCH(QString, variable);
    QFETCH(QString, value);
    FakeHost host(socket());
    answerAll(&host);
    QProcessEnvironment changed = environment();
    changed.insert(variable, value);
    TerminalProcess process(80, 24);
    process.setProcessEnvironment(changed);
    process.start(ZCTL, {"status"});
    QVERIFY(process.end());
    const QByteArray seen = isTerminal ? process.output() : run(changed, {"status"}).out.toUtf8();
    QVERIFY2(seen.contains("running, healthy"), seen);
    QTEST(seen.contains("\x1b[32mrunning, healthy\x1b[0m"), "isColoured");
    QTEST(seen.contains('\x1b'), "isColoured");
}

void tst_Zctl::followsTheLogUntilTheHostEnds()
{
    FakeHost host(socket());
    QProcess process;
    process.setProcessEnvironment(environment());
    process.start(ZCTL, {"log", "-f", "-n", "5"});
    host.send(QByteArray(": hello\n\nid: 1\ndata: ") + line + "\n\nda");
    QTRY_VERIFY_WITH_TIMEOUT((process.waitForReadyRead(1), process.canReadLine()), 30000);
    QCOMPARE(process.readLine(), QByteArray("2026-01-02 03:04:05  one\n"));
    host.send(QByteArray("ta: ") + QByteArray(line).replace("one", "two\\u001b") + "\r\n\r\n");
    QTRY_VERIFY_WITH_TIMEOUT((process.waitForReadyRead(1), process.canReadLine()), 30000);
    QCOMPARE(process.readLine(), QByteArray("2026-01-02 03:04:05  two\\x1b\n"));
    host.endLog();
    const Result result = finish(process);
    QCOMPARE(result.err, QString("zctl: the host has ended, and so its log\n"));
    QCOMPARE(result.exitCode, 0);
    QCOMPARE(host.asked(), QStringList("GET /v1/log?lines=5"));
}

void tst_Zctl::followsTheLogForPrograms()
{
    FakeHost host(socket());
    host.send(QByteArray("data: ") + line + "\n\ndata: {}\n\n");
    host.endLog();
    QCOMPARE(run({"log", "-f", "--json"}).out, line + QString("\n{}\n"));
}

void tst_Zctl::saysWhyThereIsNoLogToFollow()
{
    FakeHost host(socket());
    host.refuseFollowers(R"({"error": "too many follow"})", 503);
    const Result result = run({"log", "-f"});
    QCOMPARE(result.err, QString("zctl: too many follow\n"));
    QCOMPARE(result.exitCode, 1);
}

void tst_Zctl::endsWithItsReader_data()
{
    QTest::addColumn<QString>("script");
    QTest::newRow("which leaves while there is nothing to read")
        << "'" ZCTL "' log -f | head -n 1 >/dev/null; echo ${PIPESTATUS[0]}";
    QTest::newRow("which has left") << "exec 3> >(:); wait $!; '" ZCTL "' threads >&3; echo $?";
}

void tst_Zctl::endsWithItsReader()
{
    QFETCH(QString, script);
    FakeHost host(socket());
    answerAll(&host);
    host.send(QByteArray("data: ") + line + "\n\n"); // and then the host has no more to say
    QProcess process;
    process.setProcessEnvironment(environment());
    process.start("bash", {"-c", script});
    const Result result = finish(process);
    QCOMPARE(result.out, QStringLiteral("%1\n").arg(128 + SIGPIPE));
    QCOMPARE(result.err, QString());
}

void tst_Zctl::topGivesTheTerminalBack_data()
{
    QTest::addColumn<QByteArray>("keys");
    QTest::addColumn<int>("signal");
    QTest::addColumn<bool>("isExit");
    QTest::newRow("q") << QByteArray("xq") << 0 << true;
    QTest::newRow("Ctrl-C") << QByteArray("\x03") << 0 << true;
    QTest::newRow("SIGTERM") << QByteArray() << SIGTERM << false;
    QTest::newRow("SIGHUP") << QByteArray() << SIGHUP << false;
}

void tst_Zctl::topGivesTheTerminalBack()
{
    QFETCH(QByteArray, keys);
    QFETCH(int, signal);
    QFETCH(bool, isExit);
    FakeHost host(socket());
    answerAll(&host);
    TerminalProcess process(100, 40);
    process.setProcessEnvironment(environment());
    process.start(ZCTL, {"top"});
    QVERIFY(process.waitFor("//report/daily"));
    QVERIFY(process.isRaw());
    if (signal != 0)
        QCOMPARE(kill(pid_t(process.processId()), signal), 0);
    else
        process.type(keys);
    QVERIFY(process.end());
    QCOMPARE(process.exitStatus(), isExit ? QProcess::NormalExit : QProcess::CrashExit);
    QCOMPARE(process.exitCode(), signal);
    QVERIFY(!process.isRaw());
    QVERIFY(process.output().startsWith("\x1b[?1049h"));
    QVERIFY(process.output().endsWith("\x1b[?1049l"));
}

void tst_Zctl::topFollowsTheTerminalsSize()
{
    FakeHost host(socket());
    answerAll(&host);
    TerminalProcess process(100, 5);
    process.setProcessEnvironment(environment());
    process.start(ZCTL, {"top"});
    QVERIFY(process.waitFor("running, healthy"));
    QVERIFY(!process.output().contains("//report/daily")); // there is no room
    process.resize(100, 40);
    QVERIFY(process.waitFor("//report/daily"));
}

void tst_Zctl::topCanBeStoppedAndContinued()
{
    FakeHost host(socket());
    answerAll(&host);
    TerminalProcess process(100, 40);
    process.setProcessEnvironment(environment());
    process.start(ZCTL, {"top"});
    QVERIFY(process.waitFor("//report/daily"));
    process.type("\x1a");
    QVERIFY(process.waitFor("\x1b[?1049l"));
    QTRY_VERIFY_WITH_TIMEOUT(process.isStopped(), 30000);
    QVERIFY(!process.isRaw());
    process.forget();
    QCOMPARE(kill(pid_t(process.processId()), SIGCONT), 0);
    QVERIFY(process.waitFor("//report/daily"));
    QVERIFY(process.isRaw());
    process.type("q");
    QVERIFY(process.end());
    QCOMPARE(process.exitCode(), 0);
}

void tst_Zctl::topEndsWhereTheHostDoes()
{
    auto host = std::make_unique<FakeHost>(socket());
    answerAll(host.get());
    TerminalProcess process(100, 40);
    process.setProcessEnvironment(environment());
    process.start(ZCTL, {"top"});
    QVERIFY(process.waitFor("//report/daily"));
    host.reset();
    QVERIFY(process.end());
    QCOMPARE(process.readAllStandardError(), QStringLiteral("zctl: nobody answers at %1\n").arg(socket()).toUtf8());
    QCOMPARE(process.exitCode(), 2);
    QVERIFY(!process.isRaw());
}

void tst_Zctl::topIsForATerminal()
{
    const FakeHost host(socket());
    const Result result = run({"top"});
    QCOMPARE(result.err, QString("zctl: top is for a terminal: zctl status tells the same once, also with --json\n"));
    QCOMPARE(result.exitCode, 2);
}

void tst_Zctl::completes_data()
{
    QTest::addColumn<QString>("words");
    QTest::addColumn<QString>("completions");
    QTest::newRow("commands") << "re"
                              << "restart release reload";
    QTest::newRow("options") << "--s"
                             << "--socket";
    QTest::newRow("options of a command") << "log --f"
                                          << "--follow";
    QTest::newRow("options of no other") << "call --f"
                                         << "";
    QTest::newRow("plugins") << "rollback ''"
                             << "\\$\\(touch svc";
    QTest::newRow("just one plugin") << "rollback svc ''"
                                     << "";
    QTest::newRow("URLs") << "call //s"
                          << "//svc";
    QTest::newRow("indexes") << "cancel ''"
                             << "0 1 2 3";
    QTest::newRow("of the host that is named") << "-s none cancel ''"
                                               << "";
    QTest::newRow("of a host with a colon, which parts words") << "-s %1/a : b.sock cancel ''"
                                                               << "0 1 2 3";
    QTest::newRow("severities") << "log-level de"
                                << "debug";
    QTest::newRow("masks") << "log-level debug o"
                           << "on off";
}

void tst_Zctl::completes()
{
    QFETCH(QString, words);
    FakeHost host(socket("a:b"));
    answerAll(&host);
    host.answer("GET /v1/report/plugins",
                QByteArray(plugins).replace("\"bad\"", "\"$(touch owned)\"").replace("\"stays\"", "\"svc\""));
    QProcess process;
    process.setProcessEnvironment(environment());
    process.setWorkingDirectory(m_folder->path());
    process.start("bash",
                  {"-c", QStringLiteral(". '" COMPLETION "'; COMP_WORDS=('" ZCTL "' %1); "
                                        "COMP_CWORD=$((${#COMP_WORDS[@]} - 1)); _zctl; echo \"${COMPREPLY[*]}\"")
                             .arg(words.replace("%1", m_folder->path()))});
    const Result result = finish(process);
    QCOMPARE(result.err, QString());
    QTEST(result.out.trimmed(), "completions");
    QVERIFY(!QFileInfo::exists(m_folder->filePath("owned")));
}

QTEST_GUILESS_MAIN(tst_Zctl)
#include "tst_zctl.moc"
