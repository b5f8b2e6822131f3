// SPDX-License-Identifier: Apache-2.0
#include "runninghost.h"
#include "testcase.h"

#include <QDateTime>
#include <QRegularExpression>

/// The program zhost, run as an operator would.
class tst_ZHost : public TestCase
{
    Q_OBJECT

private Q_SLOTS:
    void tellsWhatItIs_data();
    void tellsWhatItIs();
    void refusesACommandLineOrFileThatItCannotUse_data();
    void refusesACommandLineOrFileThatItCannotUse();
    void deploysWhatIsDropped();
    void callsOnceAndPrintsTheAnswer_data();
    void callsOnceAndPrintsTheAnswer();
    void callsTheHostThatRunsAlready_data();
    void callsTheHostThatRunsAlready();
    void callsTheHostThatRunsWhateverTheFileSaysByNow();
    void callsNobodyWhereTheHostHasNoDoor();
    void reportsWhatIsWiredAndWhatRuns();
    void reportsInABroadcastToo();
    void everyServiceMayBeWithdrawn_data();
    void everyServiceMayBeWithdrawn();

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
    verifyTells(run({option}), pattern);
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
    QTest::newRow("an exception") << QStringList{"--call", "//echo/throw"} << 1 << ""
                                  << "zhost: //echo/throw has thrown: no more\n";
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

void tst_ZHost::callsTheHostThatRunsAlready_data() { callsOnceAndPrintsTheAnswer_data(); }

/// No second one could run on its folder.
void tst_ZHost::callsTheHostThatRunsAlready()
{
    QFETCH(QStringList, options);
    const Folder deployed, hotDeploy;
    QVERIFY(deployed.drop(QStringLiteral("echo")));
    Running host(loaderOf(deployed, hotDeploy, {QStringLiteral("echo")}));
    QTRY_VERIFY_WITH_TIMEOUT(host.hasWritten(QStringLiteral("hot-deploy folder changed: ") + hotDeploy.path()),
                             Patience);
    const Result result = run(options + QStringList{host.configurationFile()});
    QTEST(result.err, "err");
    QTEST(result.exitCode, "exitCode");
    const QJsonDocument answer = QJsonDocument::fromJson(result.out.toUtf8());
    QTEST(QString::fromUtf8(answer.toJson(QJsonDocument::Compact)), "out");
}

/// What it asks need not be able to run by that file, nor be the host's user.
void tst_ZHost::callsTheHostThatRunsWhateverTheFileSaysByNow()
{
    const Folder deployed, hotDeploy;
    QJsonObject configuration = loaderOf(deployed, hotDeploy);
    Running host(configuration);
    QTRY_VERIFY_WITH_TIMEOUT(host.hasWritten(QStringLiteral("hot-deploy folder changed: ") + hotDeploy.path()),
                             Patience);
    configuration.insert(QStringLiteral("door"), QJsonObject{{QStringLiteral("listen"), QStringLiteral("nowhere")}});
    host.configure(QJsonDocument(configuration).toJson());
    const Result result = run({QStringLiteral("--call"), QStringLiteral("//zhost/printd"), host.configurationFile()});
    QCOMPARE(result.err, QString());
    QCOMPARE(result.exitCode, 0);
}

void tst_ZHost::callsNobodyWhereTheHostHasNoDoor()
{
    const Folder deployed, hotDeploy;
    QJsonObject configuration = loaderOf(deployed, hotDeploy);
    configuration.insert(QStringLiteral("door"), false);
    Running host(configuration);
    QTRY_VERIFY_WITH_TIMEOUT(host.hasWritten(QStringLiteral("hot-deploy folder changed: ") + hotDeploy.path()),
                             Patience);
    const Result result = run({QStringLiteral("--call"), QStringLiteral("//zhost/printd"), host.configurationFile()});
    QCOMPARE(result.err, QStringLiteral("zhost: %1 is in use by process %2 (zhost)\n")
                             .arg(deployed.path(), QString::number(host.process().processId())));
    QCOMPARE(result.exitCode, 2);
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
    QCOMPARE(result.err, QStringLiteral("zhost: %1: \"loader\": is missing: no plugin is loaded\n"
                                        "Can't parse loader configuration (json object required)\n")
                             .arg(file()));
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

QTEST_GUILESS_MAIN(tst_ZHost)

#include "tst_zhost.moc"
