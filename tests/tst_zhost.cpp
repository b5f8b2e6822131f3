// SPDX-License-Identifier: Apache-2.0
#include "folder.h"
#include "testcase.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
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

private:
    struct Result
    {
        int exitCode;
        QString out;
        QString err;
    };

    static Result run(const QStringList &arguments)
    {
        QProcess host;
        host.start(QStringLiteral(ZHOST), arguments);
        if (!host.waitForFinished(60000) || host.exitStatus() != QProcess::NormalExit)
            return {-1, QString(), host.errorString()};
        return {host.exitCode(), QString::fromUtf8(host.readAllStandardOutput()),
                QString::fromUtf8(host.readAllStandardError())};
    }

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
    explicit Running(const QJsonObject &configuration)
    {
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

    QString written() const { return m_written; }
    void signal(int number) { ::kill(static_cast<pid_t>(m_host.processId()), number); }
    QProcess &process() { return m_host; }

private:
    Folder m_folder;
    QProcess m_host;
    QString m_written;
};

namespace {

QJsonObject loaderOf(const Folder &deployed, const Folder &hotDeploy, const QStringList &names = {})
{
    return {
        {QStringLiteral("logger"), QJsonObject{{QStringLiteral("debug"), 1},
                                               {QStringLiteral("log"), QJsonObject{{QStringLiteral("zdefault"), 3}}}}},
        {QStringLiteral("loader"), QJsonObject{{QStringLiteral("deployed"), deployed.path()},
                                               {QStringLiteral("hot-deploy"), hotDeploy.path()},
                                               {QStringLiteral("load-list"), QJsonArray::fromStringList(names)}}}};
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
    const auto row = [](const char *name, const char *configuration, const char *what) {
        QTest::newRow(name) << QByteArray(configuration) << QString::fromLatin1(what);
    };
    row("section misspelt", R"({"loger": {}})",
        "\"loger\": no service knows this key; the nearest known one is \"logger\"");
    row("key misspelt", R"({"loader": {"hot-deplyo": "."}})",
        "\"loader.hot-deplyo\": no service knows this key; the nearest known one is \"loader.hot-deploy\"");
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
        "loader": {"hot-deploy": "/", "deployed": "/", "add-library-path": ["/"], "add-path": ["/"], "load-list": ["a"]}})");
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
    QTRY_VERIFY(
        host.hasWritten(QStringLiteral("\"loger\": no service knows this key; the nearest known one is \"logger\"\n")));
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
    QTRY_VERIFY(host.hasWritten(QStringLiteral("[zdefault] [2] hot-deploy folder changed: ") + hotDeploy.path()));
    QVERIFY(host.written().indexOf(QStringLiteral("[zdefault] [1] loaded: keeper")) >= 0);
    host.signal(number);
    QTRY_COMPARE_WITH_TIMEOUT(host.process().state(), QProcess::NotRunning, 30000);
    QCOMPARE(host.process().exitStatus(), QProcess::NormalExit);
    QCOMPARE(host.process().exitCode(), 0);
}

void tst_ZHost::deploysWhatIsDropped()
{
    const Folder deployed, hotDeploy;
    Running host(loaderOf(deployed, hotDeploy));
    QTRY_VERIFY(host.hasWritten(QStringLiteral("hot-deploy folder changed: ") + hotDeploy.path()));
    QVERIFY(hotDeploy.drop(QStringLiteral("greeter")));
    QTRY_VERIFY(host.hasWritten(QStringLiteral("loaded: libgreeter\n")));
    QCOMPARE(deployed.files(), QStringList{QStringLiteral("libgreeter.so")});
    QCOMPARE(hotDeploy.files(), QStringList());
}

void tst_ZHost::secondSignalEndsAtOnce()
{
    // Its event loop is kept busy by nobody here, so both signals are sent before it can have looked at the first.
    const Folder deployed, hotDeploy;
    Running host(loaderOf(deployed, hotDeploy));
    QTRY_VERIFY(host.hasWritten(QStringLiteral("hot-deploy folder changed: ") + hotDeploy.path()));
    host.signal(SIGSTOP);
    host.signal(SIGTERM);
    host.signal(SIGINT);
    host.signal(SIGCONT);
    QTRY_COMPARE_WITH_TIMEOUT(host.process().state(), QProcess::NotRunning, 30000);
    QCOMPARE(host.process().exitStatus(), QProcess::CrashExit);
}

QTEST_GUILESS_MAIN(tst_ZHost)

#include "tst_zhost.moc"
