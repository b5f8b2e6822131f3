// SPDX-License-Identifier: Apache-2.0
#include "runninghost.h"
#include "testcase.h"

/// What zhost says of a configuration, with --check and at the start.
class tst_ZHostCheck : public TestCase
{
    Q_OBJECT

private Q_SLOTS:
    void checkNamesWhatIsWrong_data();
    void checkNamesWhatIsWrong();
    void checkFindsNothingWrong_data();
    void checkFindsNothingWrong();
    void checkStartsNothing();
    void checkFindsFoldersRelativeToTheProgram();
    void unknownKeysAreNamedAtStartToo();

private:
    Result runOn(const QByteArray &configuration, const QStringList &options)
    {
        m_folder.write(QStringLiteral("config.json"), configuration);
        return runProgram(QStringLiteral(ZHOST), options + QStringList{file()});
    }

    QString file() const { return m_folder.filePath(QStringLiteral("config.json")); }

    Folder m_folder;
};

void tst_ZHostCheck::checkNamesWhatIsWrong_data()
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
    row("keep of a wrong type", R"({"schedule": [{"url": "//a", "every": 1, "keep": "yes"}]})",
        "\"schedule[0]\": \"keep\" must be true or false; it does not run");
    row("key of an entry misspelt", R"({"schedule": [{"url": "//a", "every": 1, "repaet": true}]})",
        "\"schedule[0].repaet\": no service knows this key; the nearest known one is \"schedule[0].repeat\"");
}

void tst_ZHostCheck::checkNamesWhatIsWrong()
{
    QFETCH(QByteArray, configuration);
    QFETCH(QString, what);
    const Result result = runOn(configuration, {QStringLiteral("--check")});
    QCOMPARE(result.err, QStringLiteral("zhost: %1: %2\n").arg(file(), what));
    QCOMPARE(result.exitCode, 1);
    QCOMPARE(result.out, QString());
}

void tst_ZHostCheck::checkFindsNothingWrong_data()
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
        "schedule": [{"url": "//a/b", "every": 1, "from": "22:00:00", "to": "06:00:00", "repeat": false, "keep": true},
                     {"url": "//a", "every": 2147483647}]})");
    row("comments", R"({"#logger": 1, "loader": {"#load-list": 3}, "logger": {"log": {"#zdefault": "x"}}})");
    row("a plugin's section", R"({"heartbeat": {"period": 3}})",
        "\"heartbeat\": no service knows this key, though a plugin may; the nearest known one is \"loader\"");
}

void tst_ZHostCheck::checkFindsNothingWrong()
{
    QFETCH(QByteArray, configuration);
    QFETCH(QString, note);
    const Result result = runOn(configuration, {QStringLiteral("--check")});
    QCOMPARE(result.err, note.isEmpty() ? QString() : QStringLiteral("zhost: %1: %2\n").arg(file(), note));
    QCOMPARE(result.exitCode, 0);
    QCOMPARE(result.out, file() + QStringLiteral(": nothing wrong\n"));
}

void tst_ZHostCheck::checkStartsNothing()
{
    const Folder deployed, hotDeploy;
    QVERIFY(hotDeploy.drop(QStringLiteral("greeter")));
    const Result result = runOn(QJsonDocument(loaderOf(deployed, hotDeploy)).toJson(), {QStringLiteral("--check")});
    QCOMPARE(result.exitCode, 0);
    QCOMPARE(result.err, QString());
    QCOMPARE(hotDeploy.files(), QStringList{QStringLiteral("libgreeter.so")});
}

void tst_ZHostCheck::checkFindsFoldersRelativeToTheProgram()
{
    const Result result =
        runOn(R"({"loader": {"deployed": "../zhost", "hot-deploy": "."}})", {QStringLiteral("--check")});
    QCOMPARE(result.err, QString());
    QCOMPARE(result.exitCode, 0);
}

void tst_ZHostCheck::unknownKeysAreNamedAtStartToo()
{
    Running host({{QStringLiteral("loger"), QJsonObject()}, {QStringLiteral("loader"), QJsonObject()}});
    QTRY_VERIFY_WITH_TIMEOUT(
        host.hasWritten(QStringLiteral("\"loger\": no service knows this key; the nearest known one is \"logger\"\n")),
        Patience);
}

QTEST_GUILESS_MAIN(tst_ZHostCheck)

#include "tst_zhostcheck.moc"
