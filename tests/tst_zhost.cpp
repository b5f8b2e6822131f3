// SPDX-License-Identifier: Apache-2.0
#include "folder.h"
#include "program.h"
#include "testcase.h"

#include <QDateTime>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QProcessEnvironment>
#include <QRegularExpression>

#include <csignal>

/// The program zhost, run as an operator would.
class tst_ZHost : public TestCase
{
    Q_OBJECT

private Q_SLOTS:
    void tellsWhatItIs_data();
    void tellsWhatItIs();
    void refusesACommandLineOrFileThatItCannotUse_data();
    void refusesACommandLineOrFileThatItCannotUse();
    void checkNamesWhatIsWrong_data();
    void checkNamesWhatIsWrong();
    void checkFindsNothingWrong_data();
    void checkFindsNothingWrong();
    void checkStartsNothing();
    void checkFindsFoldersRelativeToTheProgram();
    void unknownKeysAreNamedAtStartToo();
    void startsInOrderAndStopsWellOn_data();
    void startsInOrderAndStopsWellOn();
    void deploysWhatIsDropped();
    void secondSignalEndsAtOnce();
    void signalDuringTheStartIsHeardAfterIt();
    void secondSignalEndsAStartThatHangs();
    void pluginMayQuit_data();
    void pluginMayQuit();
    void pluginMayExit();
    void pluginMayNeedTheEventLoopToDie();
    void callsOnceAndPrintsTheAnswer_data();
    void callsOnceAndPrintsTheAnswer();
    void callsTheTimetable();
    void reportsWhatIsWiredAndWhatRuns();
    void reportsInABroadcastToo();
    void everyServiceMayBeWithdrawn_data();
    void everyServiceMayBeWithdrawn();
    void whatIsHeldToTheEndGoesWhileItsServicesAreThere_data();
    void whatIsHeldToTheEndGoesWhileItsServicesAreThere();
    void stopWaitsForWhatPluginsScheduled();
    void stopNamesWhatDoesNotEnd();

private:
    static Result run(const QStringList &arguments) { return runProgram(QStringLiteral(ZHOST), arguments); }

    Result runOn(const QByteArray &configuration, const QStringList &options)
    {
        m_folder.write(QStringLiteral("config.json"), configuration);
        return run(options + QStringList{file()});
    }

    QString file() const { return m_folder.filePath(QStringLiteral("config.json")); }

    Folder m_folder;
};

/// A host that runs until it is told to stop. What it writes is collected.
class Running
{
public:
    /// `deed` is for the plugin "unruly", or for the one whose variable is named.
    explicit Running(const QJsonObject &configuration, const QString &deed = QString(),
                     const QString &variable = QStringLiteral("UNRULY"))
    {
        QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
        environment.insert(variable, deed);
        m_host.setProcessEnvironment(environment);
        m_folder.write(QStringLiteral("config.json"), QJsonDocument(configuration).toJson());
        m_host.setProcessChannelMode(QProcess::MergedChannels);
        m_host.start(QStringLiteral(ZHOST), {m_folder.filePath(QStringLiteral("config.json"))});
    }

    ~Running()
    {
        m_host.kill();
        m_host.waitForFinished();
    }

    bool hasWritten(const QString &text)
    {
        m_written += QString::fromUtf8(m_host.readAll());
        return m_written.contains(text);
    }

    /// Tells it to stop, and waits for that.
    void stop()
    {
        signal(SIGTERM);
        m_host.waitForFinished(120000);
        hasWritten(QString());
    }
    bool hasEndedWell() const
    {
        return m_host.state() == QProcess::NotRunning && m_host.exitStatus() == QProcess::NormalExit &&
               m_host.exitCode() == 0;
    }

    QString written() const { return m_written; }
    void signal(int number) { ::kill(static_cast<pid_t>(m_host.processId()), number); }
    QProcess &process() { return m_host; }

private:
    Folder m_folder;
    QProcess m_host;
    QString m_written;
};

namespace {

constexpr int Patience = 30000; // milliseconds: a busy machine may take seconds for what is done in one

QJsonObject loaderOf(const Folder &deployed, const Folder &hotDeploy, const QStringList &names = {})
{
    return {
        {QStringLiteral("logger"), QJsonObject{{QStringLiteral("debug"), 1},
                                               {QStringLiteral("log"), QJsonObject{{QStringLiteral("zdefault"), 3}}}}},
        {QStringLiteral("loader"), QJsonObject{{QStringLiteral("deployed"), deployed.path()},
                                               {QStringLiteral("hot-deploy"), hotDeploy.path()},
                                               {QStringLiteral("load-list"), QJsonArray::fromStringList(names)}}}};
}

/// Of the section "schedule".
QJsonObject entry(const char *url, bool repeat = true)
{
    return {
        {QStringLiteral("url"), QLatin1String(url)}, {QStringLiteral("every"), 1}, {QStringLiteral("repeat"), repeat}};
}

} // namespace

void tst_ZHost::tellsWhatItIs_data()
{
    QTest::addColumn<QString>("option");
    QTest::addColumn<QString>("pattern");
    QTest::newRow("version") << "--version"
                             << "^zhost \\d+\\.\\d+\\.\\d+\\n$";
    QTest::newRow("help") << "--help"
                          << "CONFIG\\.json";
    QTest::newRow("help tells of --check") << "--help"
                                           << "--check";
    QTest::newRow("help tells where relative folders are") << "--help"
                                                           << "from the folder in which the\\s+program";
}

void tst_ZHost::tellsWhatItIs()
{
    QFETCH(QString, option);
    QFETCH(QString, pattern);
    const Result result = run({option});
    QCOMPARE(result.exitCode, 0);
    QCOMPARE(result.err, QString());
    QVERIFY2(QRegularExpression(pattern).match(result.out).hasMatch(), qPrintable(result.out));
}

void tst_ZHost::refusesACommandLineOrFileThatItCannotUse_data()
{
    m_folder.write(QStringLiteral("malformed.json"), "{\n  \"logger\": {\"debug\": 1,}\n}");
    m_folder.write(QStringLiteral("unended.json"), "{\"\xc3\xa4\": 1");
    m_folder.write(QStringLiteral("array.json"), "[1, 2]");
    m_folder.write(QStringLiteral("empty.json"), "");
    m_folder.write(QStringLiteral("good.json"), "{}");

    QTest::addColumn<QStringList>("arguments");
    QTest::addColumn<QString>("line");
    const auto path = [&](const char *name) { return m_folder.filePath(QString::fromLatin1(name)); };
    QTest::newRow("no file named") << QStringList() << "zhost: name one configuration file; see zhost --help";
    QTest::newRow("two files") << QStringList{"a", "b"} << "zhost: name one configuration file; see zhost --help";
    QTest::newRow("unknown option") << QStringList{"--nope"} << "zhost: Unknown option 'nope'.";
    QTest::newRow("missing") << QStringList{"/no/such/file"}
                             << "zhost: cannot read /no/such/file: No such file or directory";
    QTest::newRow("a folder")
        << QStringList{m_folder.path()}
        << QStringLiteral("zhost: cannot read %1: file to open is a directory").arg(m_folder.path());
    QTest::newRow("malformed")
        << QStringList{path("malformed.json")}
        << QStringLiteral("zhost: %1: line 2, column 26: object is missing after a comma").arg(path("malformed.json"));
    QTest::newRow("not ended")
        << QStringList{path("unended.json")}
        << QStringLiteral("zhost: %1: line 1, column 8: invalid termination by number").arg(path("unended.json"));
    QTest::newRow("empty") << QStringList{path("empty.json")}
                           << QStringLiteral("zhost: %1: line 1, column 1: illegal value").arg(path("empty.json"));
    QTest::newRow("an array")
        << QStringList{path("array.json")}
        << QStringLiteral("zhost: %1: the top level must be a JSON object").arg(path("array.json"));
    QTest::newRow("a request for nobody")
        << QStringList{"--in", "{}", path("good.json")} << "zhost: --in goes with --call";
    QTest::newRow("a request that is no object")
        << QStringList{"--call", "//a", "--in", "[]", path("good.json")} << "zhost: --in needs a JSON object";
    QTest::newRow("a request that is no JSON")
        << QStringList{"--call", "//a", "--in", "{", path("good.json")} << "zhost: --in needs a JSON object";
    QTest::newRow("a call to nowhere") << QStringList{"--call", "", path("good.json")}
                                       << "zhost: --call needs a URL, as //host/path";
    QTest::newRow("a call to no URL") << QStringList{"--call", "//a:b:c", path("good.json")}
                                      << "zhost: --call needs a URL, as //host/path";
    QTest::newRow("an array, to be checked")
        << QStringList{"--check", path("array.json")}
        << QStringLiteral("zhost: %1: the top level must be a JSON object").arg(path("array.json"));
}

void tst_ZHost::refusesACommandLineOrFileThatItCannotUse()
{
    QFETCH(QStringList, arguments);
    QFETCH(QString, line);
    const Result result = run(arguments);
    QCOMPARE(result.err, line + QLatin1Char('\n'));
    QCOMPARE(result.exitCode, 2);
    QCOMPARE(result.out, QString());
}

void tst_ZHost::checkNamesWhatIsWrong_data()
{
    QTest::addColumn<QByteArray>("configuration");
    QTest::addColumn<QString>("what");
    const auto row = [](const char *name, const QByteArray &configuration, const char *what) {
        QTest::newRow(name) << configuration << QString::fromLatin1(what);
    };
    row("section misspelt", R"({"loger": {}})",
        "\"loger\": no service knows this key; the nearest known one is \"logger\"");
    row("key misspelt", R"({"loader": {"hot-deplyo": "."}})",
        "\"loader.hot-deplyo\": no service knows this key; the nearest known one is \"loader.hot-deploy\"");
    row("key with a line break", R"({"log\nger": {}})",
        "\"log\\nger\": no service knows this key; the nearest known one is \"logger\"");
    row("case counts", R"({"Logger": {}})",
        "\"Logger\": no service knows this key; the nearest known one is \"logger\"");
    row("unknown value", R"({"heartbeat": 3})",
        "\"heartbeat\": no service knows this key; the nearest known one is \"loader\"");
    row("section of a wrong type", R"({"logger": []})", "\"logger\": must be an object; it is ignored");
    row("switch of a wrong type", R"({"logger": {"debug": true}})",
        "\"logger.debug\": must be a number; it is ignored");
    row("mask of a wrong type", R"({"logger": {"log": {"zdefault": "3"}}})",
        "\"logger.log.zdefault\": must be a number; it is ignored");
    row("masks of a wrong type", R"({"logger": {"log": 3}})", "\"logger.log\": must be an object; it is ignored");
    row("folder of a wrong type", R"({"loader": {"deployed": 1}})",
        "\"loader.deployed\": must be a text that is not empty; it is ignored");
    row("empty folder", R"({"loader": {"deployed": ""}})",
        "\"loader.deployed\": must be a text that is not empty; it is ignored");
    row("missing folder", R"({"loader": {"deployed": "/no/such"}})",
        "\"loader.deployed\": there is no folder /no/such");
    row("missing folder in a list", R"({"loader": {"add-path": ["/", "/no/such"]}})",
        "\"loader.add-path[1]\": there is no folder /no/such");
    row("list of a wrong type", R"({"loader": {"load-list": "foo"}})",
        "\"loader.load-list\": must be an array; it is ignored");
    row("element of a wrong type", R"({"loader": {"load-list": ["foo", 1]}})",
        "\"loader.load-list[1]\": must be a text that is not empty; it is ignored");
    row("temporary folder of a wrong type", R"({"filesystem": {"temporary-folder": 1}})",
        "\"filesystem.temporary-folder\": must be a text that is not empty; it is ignored");
    row("schedule of a wrong type", R"({"schedule": {}})", "\"schedule\": must be an array; it is ignored");
    row("entry of a wrong type", R"({"schedule": [3]})", "\"schedule[0]\": must be an object; it does not run");
    row("entry without a URL", R"({"schedule": [{"every": 1}]})",
        "\"schedule[0]\": \"url\" must be the URL to call, as //host/path; it does not run");
    row("malformed URL", R"({"schedule": [{"url": "//a:b:c", "every": 1}]})",
        "\"schedule[0]\": \"url\" must be the URL to call, as //host/path; it does not run");
    row("entry without a period", R"({"schedule": [{"url": "//a", "every": 1}, {"url": "//a"}]})",
        "\"schedule[1]\": \"every\" must be a whole number of milliseconds, at least 1; it does not run");
    for (const char *const every : {"0", "-1", "1.5", "\"1\"", "2147483648"}) {
        const QByteArray entry = QByteArray(R"({"url": "//a", "every": )") + every + '}';
        row(every, R"({"schedule": [)" + entry + "]}",
            "\"schedule[0]\": \"every\" must be a whole number of milliseconds, at least 1; it does not run");
    }
    row("half a window", R"({"schedule": [{"url": "//a", "every": 1, "from": "08:00:00"}]})",
        "\"schedule[0]\": needs both \"from\" and \"to\", or neither; it does not run");
    row("no time of day", R"({"schedule": [{"url": "//a", "every": 1, "from": "8:00", "to": "09:00:00"}]})",
        "\"schedule[0]\": \"from\" must be a time of day, as hh:mm:ss; it does not run");
    row("time of day past its end",
        R"({"schedule": [{"url": "//a", "every": 1, "from": "08:00:00", "to": "24:00:00"}]})",
        "\"schedule[0]\": \"to\" must be a time of day, as hh:mm:ss; it does not run");
    row("repeat of a wrong type", R"({"schedule": [{"url": "//a", "every": 1, "repeat": 1}]})",
        "\"schedule[0]\": \"repeat\" must be true or false; it does not run");
    row("key of an entry misspelt", R"({"schedule": [{"url": "//a", "every": 1, "repaet": true}]})",
        "\"schedule[0].repaet\": no service knows this key; the nearest known one is \"schedule[0].repeat\"");
}

void tst_ZHost::checkNamesWhatIsWrong()
{
    QFETCH(QByteArray, configuration);
    QFETCH(QString, what);
    const Result result = runOn(configuration, {QStringLiteral("--check")});
    QCOMPARE(result.err, QStringLiteral("zhost: %1: %2\n").arg(file(), what));
    QCOMPARE(result.exitCode, 1);
    QCOMPARE(result.out, QString());
}

void tst_ZHost::checkFindsNothingWrong_data()
{
    QTest::addColumn<QByteArray>("configuration");
    QTest::addColumn<QString>("note");
    const auto row = [](const char *name, const char *configuration, const char *note = "") {
        QTest::newRow(name) << QByteArray(configuration) << QString::fromLatin1(note);
    };
    row("empty", "{}");
    row("all keys", R"({"logger": {"debug": 0, "info": 1, "warning": 1, "critical": 1, "fatal": 0, "log": {"any": 7}},
        "loader": {"hot-deploy": "/", "deployed": "/", "add-library-path": ["/"], "add-path": ["/"], "load-list": ["a"]},
        "filesystem": {"temporary-folder": "none/yet", "temporary-fn-template": "a-XXXXXX"},
        "schedule": [{"url": "//a/b", "every": 1, "from": "22:00:00", "to": "06:00:00", "repeat": false},
                     {"url": "//a", "every": 2147483647}]})");
    row("comments", R"({"#logger": 1, "loader": {"#load-list": 3}, "logger": {"log": {"#zdefault": "x"}}})");
    row("a plugin's section", R"({"heartbeat": {"period": 3}})",
        "\"heartbeat\": no service knows this key, though a plugin may; the nearest known one is \"loader\"");
}

void tst_ZHost::checkFindsNothingWrong()
{
    QFETCH(QByteArray, configuration);
    QFETCH(QString, note);
    const Result result = runOn(configuration, {QStringLiteral("--check")});
    QCOMPARE(result.err, note.isEmpty() ? QString() : QStringLiteral("zhost: %1: %2\n").arg(file(), note));
    QCOMPARE(result.exitCode, 0);
    QCOMPARE(result.out, file() + QStringLiteral(": nothing wrong\n"));
}

void tst_ZHost::checkStartsNothing()
{
    const Folder deployed, hotDeploy;
    QVERIFY(hotDeploy.drop(QStringLiteral("greeter")));
    const Result result = runOn(QJsonDocument(loaderOf(deployed, hotDeploy)).toJson(), {QStringLiteral("--check")});
    QCOMPARE(result.exitCode, 0);
    QCOMPARE(result.err, QString());
    QCOMPARE(hotDeploy.files(), QStringList{QStringLiteral("libgreeter.so")});
}

void tst_ZHost::checkFindsFoldersRelativeToTheProgram()
{
    const Result result =
        runOn(R"({"loader": {"deployed": "../zhost", "hot-deploy": "."}})", {QStringLiteral("--check")});
    QCOMPARE(result.err, QString());
    QCOMPARE(result.exitCode, 0);
}

void tst_ZHost::unknownKeysAreNamedAtStartToo()
{
    Running host({{QStringLiteral("loger"), QJsonObject()}, {QStringLiteral("loader"), QJsonObject()}});
    QTRY_VERIFY_WITH_TIMEOUT(
        host.hasWritten(QStringLiteral("\"loger\": no service knows this key; the nearest known one is \"logger\"\n")),
        Patience);
}

void tst_ZHost::startsInOrderAndStopsWellOn_data()
{
    QTest::addColumn<int>("number");
    QTest::newRow("SIGINT") << SIGINT;
    QTest::newRow("SIGTERM") << SIGTERM;
}

void tst_ZHost::startsInOrderAndStopsWellOn()
{
    QFETCH(int, number);
    const Folder deployed, hotDeploy;
    QVERIFY(deployed.drop(QStringLiteral("keeper")));
    Running host(loaderOf(deployed, hotDeploy, {QStringLiteral("keeper")}));
    // The logger was there before the loader, and the loader's own lines come through it.
    QTRY_VERIFY_WITH_TIMEOUT(
        host.hasWritten(QStringLiteral("[zdefault] [2] hot-deploy folder changed: ") + hotDeploy.path()), Patience);
    QVERIFY(host.written().indexOf(QStringLiteral("[zdefault] [1] loaded: keeper")) >= 0);
    host.signal(number);
    QTRY_COMPARE_WITH_TIMEOUT(host.process().state(), QProcess::NotRunning, Patience);
    QCOMPARE(host.process().exitStatus(), QProcess::NormalExit);
    QCOMPARE(host.process().exitCode(), 0);
}

void tst_ZHost::deploysWhatIsDropped()
{
    const Folder deployed, hotDeploy;
    Running host(loaderOf(deployed, hotDeploy));
    QTRY_VERIFY_WITH_TIMEOUT(host.hasWritten(QStringLiteral("hot-deploy folder changed: ") + hotDeploy.path()),
                             Patience);
    QVERIFY(hotDeploy.drop(QStringLiteral("greeter")));
    QTRY_VERIFY_WITH_TIMEOUT(host.hasWritten(QStringLiteral("loaded: libgreeter\n")), Patience);
    QCOMPARE(deployed.files(), QStringList{QStringLiteral("libgreeter.so")});
    QCOMPARE(hotDeploy.files(), QStringList());
}

void tst_ZHost::secondSignalEndsAtOnce()
{
    // Its event loop is kept busy by nobody here, so both signals are sent before it can have looked at the first.
    const Folder deployed, hotDeploy;
    Running host(loaderOf(deployed, hotDeploy));
    QTRY_VERIFY_WITH_TIMEOUT(host.hasWritten(QStringLiteral("hot-deploy folder changed: ") + hotDeploy.path()),
                             Patience);
    host.signal(SIGSTOP);
    host.signal(SIGTERM);
    host.signal(SIGINT);
    host.signal(SIGCONT);
    QTRY_COMPARE_WITH_TIMEOUT(host.process().state(), QProcess::NotRunning, Patience);
    QCOMPARE(host.process().exitStatus(), QProcess::CrashExit);
}

void tst_ZHost::signalDuringTheStartIsHeardAfterIt()
{
    const Folder deployed, hotDeploy;
    QVERIFY(deployed.drop(QStringLiteral("unruly")));
    Running host(loaderOf(deployed, hotDeploy, {QStringLiteral("unruly")}), QStringLiteral("read"));
    QTRY_VERIFY_WITH_TIMEOUT(host.hasWritten(QStringLiteral("unruly: here\n")), Patience);
    host.signal(SIGTERM);
    host.process().write("go on");
    QTRY_COMPARE_WITH_TIMEOUT(host.process().state(), QProcess::NotRunning, Patience);
    QVERIFY(host.hasWritten(QStringLiteral("loaded: unruly\n")));
    QVERIFY(host.hasWritten(QStringLiteral("unloaded: libunruly\n")));
    QCOMPARE(host.process().exitStatus(), QProcess::NormalExit);
    QCOMPARE(host.process().exitCode(), 0);
}

void tst_ZHost::secondSignalEndsAStartThatHangs()
{
    const Folder deployed, hotDeploy;
    QVERIFY(deployed.drop(QStringLiteral("unruly")));
    Running host(loaderOf(deployed, hotDeploy, {QStringLiteral("unruly")}), QStringLiteral("read"));
    QTRY_VERIFY_WITH_TIMEOUT(host.hasWritten(QStringLiteral("unruly: here\n")), Patience);
    host.signal(SIGTERM);
    host.signal(SIGINT);
    QTRY_COMPARE_WITH_TIMEOUT(host.process().state(), QProcess::NotRunning, Patience);
    QCOMPARE(host.process().exitStatus(), QProcess::CrashExit);
}

void tst_ZHost::pluginMayQuit_data()
{
    QTest::addColumn<bool>("atStart");
    QTest::newRow("while the host starts") << true;
    QTest::newRow("when it is dropped") << false;
}

void tst_ZHost::pluginMayQuit()
{
    QFETCH(bool, atStart);
    const Folder deployed, hotDeploy;
    if (atStart)
        QVERIFY(hotDeploy.drop(QStringLiteral("unruly")));
    Running host(loaderOf(deployed, hotDeploy), QStringLiteral("quit"));
    QTRY_VERIFY_WITH_TIMEOUT(host.hasWritten(QStringLiteral("hot-deploy folder changed: ") + hotDeploy.path()),
                             Patience);
    if (!atStart)
        QVERIFY(hotDeploy.drop(QStringLiteral("unruly")));
    QTRY_COMPARE_WITH_TIMEOUT(host.process().state(), QProcess::NotRunning, Patience);
    QVERIFY(host.hasWritten(QStringLiteral("loaded: libunruly\n")));
    QVERIFY(host.hasWritten(QStringLiteral("unloaded: libunruly\n")));
    QCOMPARE(host.process().exitStatus(), QProcess::NormalExit);
    QCOMPARE(host.process().exitCode(), 0);
}

void tst_ZHost::pluginMayExit()
{
    const Folder deployed, hotDeploy;
    QVERIFY(deployed.drop(QStringLiteral("unruly")));
    Running host(loaderOf(deployed, hotDeploy, {QStringLiteral("unruly")}), QStringLiteral("exit"));
    QTRY_COMPARE_WITH_TIMEOUT(host.process().state(), QProcess::NotRunning, Patience);
    QCOMPARE(host.process().exitStatus(), QProcess::NormalExit);
    QCOMPARE(host.process().exitCode(), 3);
}

void tst_ZHost::pluginMayNeedTheEventLoopToDie()
{
    const Folder deployed, hotDeploy;
    QVERIFY(deployed.drop(QStringLiteral("unruly")));
    Running host(loaderOf(deployed, hotDeploy, {QStringLiteral("unruly")}), QStringLiteral("wait"));
    QTRY_VERIFY_WITH_TIMEOUT(host.hasWritten(QStringLiteral("loaded: unruly\n")), Patience);
    host.signal(SIGTERM);
    QTRY_COMPARE_WITH_TIMEOUT(host.process().state(), QProcess::NotRunning, Patience);
    QVERIFY(host.hasWritten(QStringLiteral("unruly: waited\n")));
    QVERIFY(host.hasWritten(QStringLiteral("unloaded: libunruly\n")));
    QCOMPARE(host.process().exitCode(), 0);
}

void tst_ZHost::callsOnceAndPrintsTheAnswer_data()
{
    QTest::addColumn<QStringList>("options");
    QTest::addColumn<int>("exitCode");
    QTest::addColumn<QString>("out");
    QTest::addColumn<QString>("err");
    QTest::newRow("request") << QStringList{"--call", "//echo/say", "--in", R"({"a":[1,{"b":null}]})"} << 0
                             << R"({"echo":{"a":[1,{"b":null}]}})"
                             << "";
    QTest::newRow("no request") << QStringList{"--call", "//ECHO"} << 0 << R"({"echo":{}})"
                                << "";
    QTest::newRow("not handled") << QStringList{"--call", "//echo/deaf"} << 1 << ""
                                 << "zhost: nobody handled //echo/deaf\n";
    QTest::newRow("nobody there") << QStringList{"--call", "//nobody/there"} << 1 << ""
                                  << "zhost: nobody handled //nobody/there\n";
}

void tst_ZHost::callsOnceAndPrintsTheAnswer()
{
    QFETCH(QStringList, options);
    const Folder deployed, hotDeploy;
    QVERIFY(deployed.drop(QStringLiteral("echo")));
    QJsonObject configuration = loaderOf(deployed, hotDeploy, {QStringLiteral("echo")});
    configuration.insert(QStringLiteral("logger"), QJsonObject{{QStringLiteral("info"), 0}});
    const Result result = runOn(QJsonDocument(configuration).toJson(), options);
    QTEST(result.err, "err");
    QTEST(result.exitCode, "exitCode");
    const QJsonDocument answer = QJsonDocument::fromJson(result.out.toUtf8());
    QTEST(QString::fromUtf8(answer.toJson(QJsonDocument::Compact)), "out");
}

void tst_ZHost::callsTheTimetable()
{
    const Folder deployed, hotDeploy;
    QVERIFY(deployed.drop(QStringLiteral("echo")));
    QJsonObject configuration = loaderOf(deployed, hotDeploy, {QStringLiteral("echo")});
    configuration.insert(QStringLiteral("logger"), QJsonObject{{QStringLiteral("info"), 1}});
    configuration.insert(QStringLiteral("schedule"),
                         QJsonArray{entry("//echo/once", false), 3, entry("//echo/often", true)});
    Running host(configuration);
    QTRY_VERIFY_WITH_TIMEOUT(
        host.hasWritten(QString()) && host.written().count(QStringLiteral("echo: //echo/often\n")) >= 5, Patience);
    QCOMPARE(host.written().count(QStringLiteral("echo: //echo/once\n")), 1);
    QVERIFY(host.written().contains(QStringLiteral("\"schedule[1]\": must be an object; it does not run\n")));
    host.signal(SIGTERM);
    QTRY_COMPARE_WITH_TIMEOUT(host.process().state(), QProcess::NotRunning, Patience);
    QCOMPARE(host.process().exitCode(), 0);
}

void tst_ZHost::reportsWhatIsWiredAndWhatRuns()
{
    const Folder deployed, hotDeploy;
    QVERIFY(deployed.drop(QStringLiteral("echo")));
    QJsonObject configuration = loaderOf(deployed, hotDeploy, {QStringLiteral("echo")});
    configuration.insert(QStringLiteral("logger"), QJsonObject{{QStringLiteral("info"), 0}});
    configuration.insert(
        QStringLiteral("schedule"),
        QJsonArray{QJsonObject{{QStringLiteral("url"), QStringLiteral("//echo")}, {QStringLiteral("every"), 3600000}}});
    const QDateTime before = QDateTime::currentDateTime();
    const Result result =
        runOn(QJsonDocument(configuration).toJson(), {QStringLiteral("--call"), QStringLiteral("//zhost/printd")});
    QCOMPARE(result.err, QString());
    QCOMPARE(result.exitCode, 0);
    const QJsonObject answer = QJsonDocument::fromJson(result.out.toUtf8()).object();
    QCOMPARE(answer.keys(), QStringList{QStringLiteral("zhost")});
    const QJsonObject report = answer.value(QStringLiteral("zhost")).toObject();
    QCOMPARE(report.keys(), (QStringList{"activities", "endpoints", "plugins", "schedule", "services", "threads"}));

    const QJsonObject services = report.value(QStringLiteral("services")).toObject();
    QCOMPARE(services.keys(), (QStringList{"ZConfig", "ZContext", "ZDbus", "ZEmitter", "ZJobPoolSet", "ZLoader",
                                           "ZLogger", "ZScheduler", "ZTempFile", "ZThreadPoolSet"}));
    for (const auto &isBound : services)
        QCOMPARE(isBound, QJsonValue(true));
    QCOMPARE(report.value(QStringLiteral("plugins")),
             QJsonValue(QJsonArray{deployed.filePath(QStringLiteral("libecho.so"))}));
    QCOMPARE(report.value(QStringLiteral("endpoints")), QJsonValue(QJsonArray{"//echo", "//zhost", "//zscheduler"}));

    const QJsonArray schedule = report.value(QStringLiteral("schedule")).toArray();
    QCOMPARE(schedule.size(), 1);
    const QJsonObject entry = schedule.first().toObject();
    const QString name = QStringLiteral("ZDbusActivity(//echo, ZPeriodicSchedule(3600000))");
    QCOMPARE(entry.value(QStringLiteral("name")).toString(), name);
    QCOMPARE(entry.value(QStringLiteral("repeat")), QJsonValue(true));
    if (entry.contains(QStringLiteral("next"))) { // else its thread has not come as far
        const QDateTime next = QDateTime::fromString(entry.value(QStringLiteral("next")).toString(), Qt::ISODateWithMs);
        QVERIFY(next >= before.addSecs(3600).addMSecs(-1));
        QVERIFY(next <= QDateTime::currentDateTime().addSecs(3600));
    }

    const QJsonArray activities = report.value(QStringLiteral("activities")).toArray();
    QCOMPARE(activities.size(), 1);
    QCOMPARE(activities.first().toObject().value(QStringLiteral("Name")).toString(),
             QStringLiteral("ZSchedulerThread-") + name);
    const QJsonArray threads = report.value(QStringLiteral("threads")).toArray();
    QVERIFY(threads.size() >= 1); // the second may be starting
    QCOMPARE(threads.first().toObject().value(QStringLiteral("name")).toString(), QStringLiteral("zhost"));
    QCOMPARE(threads.first().toObject().value(QStringLiteral("state")).toString(), QStringLiteral("R"));
}

void tst_ZHost::reportsInABroadcastToo()
{
    const Result result = runOn("{}", {QStringLiteral("--call"), QStringLiteral("/printd")});
    QCOMPARE(result.err, QStringLiteral("Can't parse loader configuration (json object required)\n"));
    QCOMPARE(result.exitCode, 0);
    const QJsonObject answer = QJsonDocument::fromJson(result.out.toUtf8()).object();
    QCOMPARE(answer.keys(), (QStringList{"ZScheduler", "zhost"}));
    const QJsonObject report = answer.value(QStringLiteral("zhost")).toObject();
    QCOMPARE(report.keys(), (QStringList{"activities", "plugins", "schedule", "services", "threads"}));
    QCOMPARE(report.value(QStringLiteral("services")).toObject().value(QStringLiteral("ZDbus")), QJsonValue(true));
}

void tst_ZHost::everyServiceMayBeWithdrawn_data()
{
    QTest::addColumn<QString>("service");
    QTest::addColumn<bool>("atStart");
    for (const char *const service : {"ZConfig", "ZContext", "ZDbus", "ZEmitter", "ZJobPoolSet", "ZLoader", "ZLogger",
                                      "ZScheduler", "ZTempFile", "ZThreadPoolSet", "registries"}) {
        QTest::addRow("%s, at the start", service) << service << true;
        QTest::addRow("%s, while the timetable runs", service) << service << false;
    }
}

void tst_ZHost::everyServiceMayBeWithdrawn()
{
    QFETCH(QString, service);
    QFETCH(bool, atStart);
    const Folder deployed, hotDeploy;
    QVERIFY(deployed.drop(QStringLiteral("echo")));
    QStringList plugins{QStringLiteral("echo")};
    if (atStart) {
        QVERIFY(deployed.drop(QStringLiteral("withdrawer")));
        plugins.append(QStringLiteral("withdrawer"));
    }
    QJsonObject configuration = loaderOf(deployed, hotDeploy, plugins);
    configuration.insert(QStringLiteral("schedule"), QJsonArray{entry("//echo/often")});
    Running host(configuration, service, QStringLiteral("WITHDRAW"));
    if (!atStart) {
        QTRY_VERIFY_WITH_TIMEOUT(host.hasWritten(QStringLiteral("echo: //echo/often\n")), Patience);
        QTRY_VERIFY_WITH_TIMEOUT(host.hasWritten(QStringLiteral("hot-deploy folder changed: ")), Patience);
        QVERIFY(hotDeploy.drop(QStringLiteral("withdrawer")));
    }
    QTRY_VERIFY_WITH_TIMEOUT(host.hasWritten(QStringLiteral("that was all\n")), Patience);
    const bool isReached = service != QLatin1String("ZDbus");
    for (const char *const url : {"//zhost/printd", "/printd"}) {
        const QRegularExpression line(QStringLiteral("^%1: (.*)$").arg(QLatin1String(url)),
                                      QRegularExpression::MultilineOption);
        const QByteArray json = line.match(host.written()).captured(1).toUtf8();
        const QJsonObject report = QJsonDocument::fromJson(json).object().value(QStringLiteral("zhost")).toObject();
        QCOMPARE(report.isEmpty(), !isReached);
        const QJsonObject services = report.value(QStringLiteral("services")).toObject();
        for (auto each = services.begin(); each != services.end(); ++each)
            QCOMPARE(each.value().toBool(), each.key() != service);
        QCOMPARE(services.size(), isReached ? 10 : 0);
        QCOMPARE(report.value(QStringLiteral("schedule")).toArray().size(), isReached ? 1 : 0);
    }
    const bool canSchedule = service != QLatin1String("ZScheduler") && service != QLatin1String("ZThreadPoolSet") &&
                             service != QLatin1String("registries");
    QCOMPARE(host.written().contains(QStringLiteral("zhost: nobody serves ZScheduler, or ZThreadPoolSet, which it "
                                                    "needs: ZDbusActivity(//echo/often, ZPeriodicSchedule(1))\n")),
             atStart && !canSchedule);
    QVERIFY2(!host.written().contains(QStringLiteral("no room")), qPrintable(host.written()));
    host.stop();
    QVERIFY2(host.hasEndedWell(), qPrintable(host.written()));
}

void tst_ZHost::whatIsHeldToTheEndGoesWhileItsServicesAreThere_data()
{
    QTest::addColumn<QString>("holder");
    QTest::addColumn<int>("remnants");
    for (const char *const holder : {"activity", "thread", "service"}) {
        QTest::addRow("by its %s", holder) << holder << 0;
        QTest::addRow("by its %s, and leaves something behind", holder) << QString(holder) + " remnants" << 4;
    }
}

void tst_ZHost::whatIsHeldToTheEndGoesWhileItsServicesAreThere()
{
    QFETCH(QString, holder);
    QFETCH(int, remnants);
    const Folder deployed, hotDeploy;
    QVERIFY(deployed.drop(QStringLiteral("lasting")));
    Running host(loaderOf(deployed, hotDeploy, {QStringLiteral("lasting")}), holder, QStringLiteral("LASTING"));
    QTRY_VERIFY_WITH_TIMEOUT(host.hasWritten(QStringLiteral("hot-deploy folder changed: ")), Patience);
    QVERIFY(!host.hasWritten(QStringLiteral("gone")));
    host.stop();
    QVERIFY2(host.hasEndedWell(), qPrintable(host.written()));
    const QStringList lines = host.written().split(QLatin1Char('\n')).filter(QStringLiteral("lasting"));
    QVERIFY2(host.written().contains(QStringLiteral("lasting: gone\n")), qPrintable(host.written()));
    QCOMPARE(host.written().count(QStringLiteral(" more\n")), remnants);
    QVERIFY2(lines.last().endsWith(QStringLiteral("unloaded: liblasting")), qPrintable(host.written()));
}

void tst_ZHost::stopWaitsForWhatPluginsScheduled()
{
    const Folder deployed, hotDeploy;
    QVERIFY(deployed.drop(QStringLiteral("worker")));
    Running host(loaderOf(deployed, hotDeploy, {QStringLiteral("worker")}));
    QTRY_VERIFY_WITH_TIMEOUT(host.hasWritten(QStringLiteral("hot-deploy folder changed: ") + hotDeploy.path()),
                             Patience);
    host.signal(SIGTERM);
    QTRY_COMPARE_WITH_TIMEOUT(host.process().state(), QProcess::NotRunning, Patience);
    host.hasWritten(QString());
    QVERIFY2(!host.written().contains(QStringLiteral("left running")), qPrintable(host.written()));
    QCOMPARE(host.process().exitStatus(), QProcess::NormalExit);
    QCOMPARE(host.process().exitCode(), 0);
}

void tst_ZHost::stopNamesWhatDoesNotEnd()
{
    const Folder deployed, hotDeploy;
    QVERIFY(deployed.drop(QStringLiteral("stubborn")));
    Running host(loaderOf(deployed, hotDeploy, {QStringLiteral("stubborn")}));
    QTRY_VERIFY_WITH_TIMEOUT(host.hasWritten(QStringLiteral("hot-deploy folder changed: ") + hotDeploy.path()),
                             Patience);
    host.signal(SIGTERM);
    QTRY_VERIFY_WITH_TIMEOUT(host.hasWritten(QStringLiteral("zhost: left running: ZSchedulerThread-work\n")), Patience);
    QTRY_COMPARE_WITH_TIMEOUT(host.process().state(), QProcess::NotRunning, Patience);
    QCOMPARE(host.process().exitStatus(), QProcess::NormalExit);
    QCOMPARE(host.process().exitCode(), 1);
}

QTEST_GUILESS_MAIN(tst_ZHost)

#include "tst_zhost.moc"
