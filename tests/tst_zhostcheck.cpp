// SPDX-License-Identifier: Apache-2.0
#include "runninghost.h"
#include "testcase.h"

#include <QFileInfo>

#include <sys/stat.h>
#include <unistd.h>

/// What zhost says of a configuration, with --check and at the start.
class tst_ZHostCheck : public TestCase
{
    Q_OBJECT

private Q_SLOTS:
    void checkNamesWhatIsWrong_data();
    void checkNamesWhatIsWrong();
    void templateThatWouldRemoveFilesOfOthersIsRefused_data();
    void templateThatWouldRemoveFilesOfOthersIsRefused();
    void checkMissesTheSectionOfTheLoader();
    void checkMissesFoldersThatAreLeftOut();
    void checkFindsWhatAnswersToTheLoadList_data();
    void checkFindsWhatAnswersToTheLoadList();
    void checkTellsWhatItMayNot_data();
    void checkTellsWhatItMayNot();
    void checkFindsNothingWrong_data();
    void checkFindsNothingWrong();
    void checkStartsNothing();
    void checkFindsFoldersRelativeToTheProgram();
    void unknownKeysAreNamedAtStartToo();

private:
    /// Where the section "loader", or one of its folders, is left out, good ones are put in.
    Result runOn(QByteArray configuration, const QStringList &options)
    {
        if (!configuration.contains(R"("loader")"))
            insertBehind("{", R"("loader": {})", &configuration);
        if (!configuration.contains(R"("deployed")"))
            insertBehind(R"("loader": {)", R"("deployed": "DEPLOYED")", &configuration);
        if (!configuration.contains(R"("hot-deploy")"))
            insertBehind(R"("loader": {)", R"("hot-deploy": "HOT-DEPLOY")", &configuration);
        configuration.replace("HOT-DEPLOY", m_hotDeploy.path().toUtf8())
            .replace("DEPLOYED", m_deployed.path().toUtf8());
        m_folder.write(QStringLiteral("config.json"), configuration);
        return runProgram(QStringLiteral(ZHOST), options + QStringList{file()});
    }

    QString file() const { return m_folder.filePath(QStringLiteral("config.json")); }

    static void insertBehind(const char *where, const QByteArray &entry, QByteArray *object)
    {
        const int place = object->indexOf(where) + int(qstrlen(where));
        const bool isLast = object->at(place) == '}';
        object->insert(place, isLast ? entry : entry + ", ");
    }

    Folder m_folder;
    const Folder m_deployed;
    const Folder m_hotDeploy;
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
    row("element of a wrong type", R"({"loader": {"load-list": [1]}})",
        "\"loader.load-list[0]\": must be a text that is not empty; it is ignored");
    row("remember of a wrong type", R"({"loader": {"remember": 1}})",
        "\"loader.remember\": must be true or false; it is ignored");
    row("temporary folder of a wrong type", R"({"filesystem": {"temporary-folder": 1}})",
        "\"filesystem.temporary-folder\": must be a text that is not empty; it is ignored");
    row("guard of a wrong type", R"({"guard": true})", "\"guard\": must be an object, or false; it is ignored");
    row("probation of a wrong type", R"({"guard": {"probation": "10 s"}})",
        "\"guard.probation\": must be a number; it is ignored");
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
    row("lease without a name", R"({"schedule": [{"url": "//a", "every": 5, "once": ""}]})",
        "\"schedule[0]\": \"once\" must be the name of a lease: at most 64 characters of A-Z, a-z, 0-9, _, . and -; "
        "it does not run");
    row("lease of a wrong name", R"({"schedule": [{"url": "//a", "every": 5, "once": "a b"}]})",
        "\"schedule[0]\": \"once\" must be the name of a lease: at most 64 characters of A-Z, a-z, 0-9, _, . and -; "
        "it does not run");
    row("lease that is too short", R"({"schedule": [{"url": "//a", "every": 5, "once": "a", "lease": 499}]})",
        "\"schedule[0]\": \"lease\" must be a whole number of milliseconds from 500 to 3600000; it does not run");
    row("time of no lease", R"({"schedule": [{"url": "//a", "every": 5, "lease": 5000}]})",
        "\"schedule[0]\": \"lease\" is for an entry with \"once\"; it does not run");
    row("lease of two entries",
        R"({"schedule": [{"url": "//a", "every": 5, "once": "x"}, {"url": "//b", "every": 5, "once": "x"}]})",
        "\"schedule[1]\": \"once\" names the lease of schedule[0], too: they take each other's turns");
    row("bus past one process of a wrong type", R"({"nats": true})", "\"nats\": must be an object; it is ignored");
    row("its key misspelt", R"({"nats": {"server": []}})", "\"nats.server\": nobody knows this key");
    row("its key in a part misspelt", R"({"nats": {"leases": {"copies": 3}}})",
        "\"nats.leases.copies\": nobody knows this key");
    row("its number out of range", R"({"nats": {"timeout": 0}})",
        "\"nats.timeout\": must be a whole number from 1 to 3600000");
    row("its traffic open to all", R"({"nats": {"servers": ["nats://broker.example:4222"]}})",
        "\"nats.tls\": must be given: nats://broker.example:4222 is not on this machine's loopback interface");
    row("its password open to all", R"({"nats": {"user": "a", "password-file": "/etc/passwd"}})",
        "\"nats.password-file\": must have the mode 0600 or 0400, not 0644: /etc/passwd");
    row("its authority in no file", R"({"nats": {"tls": {"ca": "/dev/zero"}}})",
        "\"nats.tls.ca\": is no regular file: /dev/zero");
    row("its authority in another file", R"({"nats": {"tls": {"ca": "/etc/passwd"}}})",
        "\"nats.tls.ca\": holds no certificate, for it has no line -----BEGIN CERTIFICATE-----: /etc/passwd");
    row("a broadcast", R"({"schedule": [{"url": "/shutdown", "every": 1}]})",
        "\"schedule[0]\": \"url\" has no host: it calls every endpoint that there is");
    row("the same folder twice", R"({"loader": {"deployed": "DEPLOYED", "hot-deploy": "DEPLOYED/."}})",
        "\"loader.hot-deploy\": is the folder that \"loader.deployed\" is: nothing can be dropped");
    row("plugin that is not there", R"({"loader": {"load-list": ["nosuch"]}})",
        "\"loader.load-list[0]\": there is no plugin \"nosuch\" to load");
    row("version that is not there", R"({"loader": {"load-list": ["greeter.7"]}})",
        "\"loader.load-list[0]\": there is no plugin \"greeter.7\" to load");
    row("folder that is open to all", R"({"loader": {"add-path": ["/", "/tmp"]}})",
        "\"loader.add-path[1]\": everybody may write to /tmp, and so have this program run anything");
    row("section given twice", R"({"logger": {}, "logger": {}})", "\"logger\": is given twice; only the last counts");
    row("key given three times", R"({"logger": {"debug": 0, "debug": 1, "debug" : 0}})",
        "\"logger.debug\": is given twice; only the last counts");
    row("key spelt in two ways", R"({"schedule": [{"url": "//a", "every": 1, "\u0065very": 2}]})",
        "\"schedule[0].every\": is given twice; only the last counts");
    row("key of a plugin's section given twice", R"({"#": ["}", "\"{"], "logger": {"log": {"a\"\\": 1, "a\"\\": 2}}})",
        "\"logger.log.a\"\\\": is given twice; only the last counts");
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

void tst_ZHostCheck::templateThatWouldRemoveFilesOfOthersIsRefused_data()
{
    QTest::addColumn<QString>("name");
    for (const char *const name : {"*", "a?", "[ab]", "data/a"})
        QTest::newRow(name) << name;
}

void tst_ZHostCheck::templateThatWouldRemoveFilesOfOthersIsRefused()
{
    QFETCH(QString, name);
    const Folder data;
    data.write(QStringLiteral("a.db"), "precious");
    data.write(QStringLiteral("ab.db"), "precious");
    const QByteArray configuration =
        QStringLiteral(R"({"filesystem": {"temporary-folder": "%1", "temporary-fn-template": "%2"}})")
            .arg(data.path(), name)
            .toUtf8();
    for (const QStringList &options : {QStringList{QStringLiteral("--check")}, QStringList()}) {
        const Result result = runOn(configuration, options);
        QVERIFY2(result.err.contains(QStringLiteral("\"filesystem.temporary-fn-template\": must not have ")),
                 qPrintable(result.err));
        QCOMPARE(result.exitCode, 2);
        QCOMPARE(data.files(), (QStringList{QStringLiteral("a.db"), QStringLiteral("ab.db")}));
    }
}

void tst_ZHostCheck::checkMissesTheSectionOfTheLoader()
{
    m_folder.write(QStringLiteral("config.json"), "{}");
    const Result result = runProgram(QStringLiteral(ZHOST), {QStringLiteral("--check"), file()});
    QCOMPARE(result.err, QStringLiteral("zhost: %1: \"loader\": is missing: no plugin is loaded\n").arg(file()));
    QCOMPARE(result.exitCode, 1);
}

void tst_ZHostCheck::checkMissesFoldersThatAreLeftOut()
{
    m_folder.write(QStringLiteral("config.json"), R"({"loader": {}})");
    const Result result = runProgram(QStringLiteral(ZHOST), {QStringLiteral("--check"), file()});
    const QString line = QStringLiteral("zhost: %1: \"loader.%2\": is left out, and there is no folder %3/%2\n");
    const QString program = QFileInfo(QStringLiteral(ZHOST)).path();
    QCOMPARE(result.err, line.arg(file(), QStringLiteral("deployed"), program) +
                             line.arg(file(), QStringLiteral("hot-deploy"), program));
    QCOMPARE(result.exitCode, 1);
}

void tst_ZHostCheck::checkFindsWhatAnswersToTheLoadList_data()
{
    QTest::addColumn<QString>("file");
    QTest::addColumn<QString>("name");
    QTest::newRow("by name") << "libgreeter.so"
                             << "greeter";
    QTest::newRow("by file name") << "libgreeter.so"
                                  << "libgreeter.so";
    QTest::newRow("by version") << "libgreeter.2.so"
                                << "greeter.2";
    QTest::newRow("a version by name") << "libgreeter.2.so"
                                       << "greeter";
}

void tst_ZHostCheck::checkFindsWhatAnswersToTheLoadList()
{
    QFETCH(QString, file);
    QFETCH(QString, name);
    const Folder folder;
    QVERIFY(folder.drop(QStringLiteral("greeter"), file));
    const QString keys[] = {QStringLiteral("deployed"), QStringLiteral("hot-deploy"),
                            QStringLiteral("add-library-path")};
    for (const QString &key : keys) {
        QJsonValue value = folder.path();
        if (key.startsWith(QLatin1String("add")))
            value = QJsonArray{value};
        if (key.startsWith(QLatin1String("add")) && name == QLatin1String("greeter") && file != "libgreeter.so")
            continue; // versions are found in the deployed folder alone
        QJsonObject configuration = loaderOf(m_deployed, m_hotDeploy, {name});
        QJsonObject loader = configuration.value(QStringLiteral("loader")).toObject();
        loader.insert(key, value);
        configuration.insert(QStringLiteral("loader"), loader);
        const Result result = runOn(QJsonDocument(configuration).toJson(), {QStringLiteral("--check")});
        QCOMPARE(result.err, QString());
        QCOMPARE(result.exitCode, 0);
    }
}

void tst_ZHostCheck::checkTellsWhatItMayNot_data()
{
    QTest::addColumn<QString>("key");
    QTest::addColumn<int>("mode");
    QTest::addColumn<QString>("what");
    for (const char *const key : {"deployed", "hot-deploy"}) {
        QTest::addRow("read %s", key) << key << 0300 << "cannot be read";
        QTest::addRow("write %s", key) << key << 0555 << "cannot be written: nothing can be dropped";
    }
}

void tst_ZHostCheck::checkTellsWhatItMayNot()
{
    QFETCH(QString, key);
    QFETCH(int, mode);
    QFETCH(QString, what);
    const Folder config, deployed, hotDeploy;
    const auto allow = [](const Folder &folder, int who) {
        QVERIFY(chmod(QFile::encodeName(folder.path()).constData(), static_cast<mode_t>(who)) == 0);
    };
    allow(config, 0755);
    allow(key == QLatin1String("deployed") ? deployed : hotDeploy, mode);
    config.write(QStringLiteral("config.json"), QJsonDocument(loaderOf(deployed, hotDeploy)).toJson());
    QStringList command{QStringLiteral(ZHOST), QStringLiteral("--check"),
                        config.filePath(QStringLiteral("config.json"))};
    if (geteuid() == 0) // who may do anything
        command = QStringList{"setpriv", "--reuid=65534", "--regid=65534", "--clear-groups"} + command;
    const Result result = runProgram(command.takeFirst(), command);
    const QString line = QStringLiteral("\"loader.%1\": %2 %3\n");
    const QString folder = key == QLatin1String("deployed") ? deployed.path() : hotDeploy.path();
    QVERIFY2(result.err.contains(line.arg(key, folder, what)), qPrintable(result.err));
    QCOMPARE(result.exitCode, 1);
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
        "loader": {"hot-deploy": "HOT-DEPLOY", "deployed": "DEPLOYED", "add-library-path": ["/"], "add-path": ["/"],
                   "load-list": [], "remember": true},
        "filesystem": {"temporary-folder": "none/yet", "temporary-fn-template": "a-XXXXXX"},
        "guard": {"probation": 1000},
        "schedule": [{"url": "//a/b", "every": 1, "from": "06:00:00", "to": "22:00:00", "repeat": false, "keep": true},
                     {"url": "//a", "every": 2147483647}]})");
    row("no guard", R"({"guard": false})");
    row("comments", R"({"#logger": 1, "loader": {"#load-list": 3}, "logger": {"log": {"#zdefault": "x"}}})");
    row("a window over midnight", R"({"schedule": [{"url": "//a", "every": 1, "from": "22:00:00", "to": "06:00:00"}]})",
        "\"schedule[0]\": \"from\" is later than \"to\": it is called from 22:00:00 until midnight, and not after it; "
        "that takes an entry of its own, from 00:00:00 to 06:00:00");
    row("a key with control characters", R"({"a\u001b[2Jb\u009bc\rd\u007f\te": {}})",
        "\"a\\x1b[2Jb\\x9bc\\rd\\x7f\te\": no service knows this key, though a plugin may; the nearest known one is "
        "\"schedule\"");
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
    const Result result = runOn(R"({"loader": {"deployed": "..", "hot-deploy": "."}})", {QStringLiteral("--check")});
    // Who owns the tree in which the program was built does not matter.
    QVERIFY2(!result.err.contains(QStringLiteral("there is no folder")), qPrintable(result.err));
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
