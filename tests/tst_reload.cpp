// SPDX-License-Identifier: Apache-2.0
#include "runninghost.h"
#include "testcase.h"

#include <QFile>

/// How a running zhost follows its configuration file.
class tst_Reload : public TestCase
{
    Q_OBJECT

private Q_SLOTS:
    void switchesSeverities_data();
    void switchesSeverities();
    void followsTheTimetable();
    void leavesEntriesThatStayUndisturbed();
    void callsAnEntryThatHasMoved();
    void callsAnEntryThatHasEnded();
    void loadsWhatIsNew();
    void pluginsSeeTheNewSection();
    void pluginsHearOfNewSettings();
    void leavesThePluginsOwnConfiguration();
    void wrongFileChangesNothing_data();
    void wrongFileChangesNothing();
    void saysWhatTakesARestart_data();
    void saysWhatTakesARestart();
    void pluginsSeeWhatIsInForce();
    void dropIsComparedWithTheNewList();
    void signalDuringTheStartWaits();
    void signalWaitsThoughAPluginRunsTheEventLoop_data();
    void signalWaitsThoughAPluginRunsTheEventLoop();
};

namespace {

const QString Logger = QStringLiteral("logger");
const QString Loader = QStringLiteral("loader");
const QString Schedule = QStringLiteral("schedule");
const QString LoadList = QStringLiteral("load-list");
const QString Echo = QStringLiteral("echo");
const QString Changed = QStringLiteral("hot-deploy folder changed: ");

/// `object` with `value` under a path of two keys.
QJsonObject with(QJsonObject object, const QString &section, const QString &key, const QJsonValue &value)
{
    QJsonObject inner = object.value(section).toObject();
    inner.insert(key, value);
    object.insert(section, inner);
    return object;
}

QJsonObject with(QJsonObject object, const QString &key, const QJsonValue &value)
{
    object.insert(key, value);
    return object;
}

class Reloading : public Running
{
public:
    using Running::Running;

    bool hasStarted() { return waitFor(Changed); }

    /// Whether it does so before anybody runs out of patience.
    bool waitFor(const QString &text)
    {
        return QTest::qWaitFor([&] { return hasWritten(text); }, Patience);
    }
    int count(const QString &text)
    {
        hasWritten({});
        return written().count(text);
    }
    bool waitForMore(const QString &text, int more)
    {
        const int before = count(text);
        return QTest::qWaitFor([&] { return count(text) >= before + more; }, Patience);
    }

    /// Whether it follows the new file.
    bool follows(const QJsonObject &configuration)
    {
        return answers(QJsonDocument(configuration).toJson(),
                       QStringLiteral("zhost: %1 has been read anew\n").arg(configurationFile()));
    }
    bool refuses(const QByteArray &text)
    {
        return answers(text, QStringLiteral("zhost: all stays as it was: %1 is wrong\n").arg(configurationFile()));
    }

private:
    bool answers(const QByteArray &text, const QString &answer)
    {
        configure(text);
        const int before = count(answer);
        signal(SIGHUP);
        return QTest::qWaitFor([&] { return count(answer) > before; }, Patience);
    }
};

/// With the plugin "echo", and this timetable.
QJsonObject calling(const Folder &deployed, const Folder &hotDeploy, const QJsonArray &schedule)
{
    deployed.drop(Echo);
    return with(loaderOf(deployed, hotDeploy, {Echo}), Schedule, schedule);
}

QString callOf(const char *url) { return QStringLiteral("echo: %1\n").arg(QLatin1String(url)); }

} // namespace

void tst_Reload::switchesSeverities_data()
{
    QTest::addColumn<QJsonObject>("on");
    const QJsonObject log{{QStringLiteral("zdefault"), 3}};
    QTest::newRow("by a number") << QJsonObject{{QStringLiteral("debug"), 1}, {QStringLiteral("log"), log}};
    QTest::newRow("by nothing") << QJsonObject{{QStringLiteral("log"), log}};
}

void tst_Reload::switchesSeverities()
{
    QFETCH(QJsonObject, on);
    const Folder deployed, hotDeploy;
    const QJsonObject started = loaderOf(deployed, hotDeploy);
    Reloading host(started);
    QVERIFY(host.hasStarted());

    QVERIFY(host.follows(with(started, Logger, QStringLiteral("debug"), 0)));
    const int lines = host.count(Changed);
    QVERIFY(hotDeploy.drop(QStringLiteral("greeter")));
    QTRY_COMPARE_WITH_TIMEOUT(deployed.files().size(), 1, Patience);

    QVERIFY(host.follows(with(started, Logger, on)));
    QCOMPARE(host.count(Changed), lines); // the same thread writes both
    QVERIFY(hotDeploy.drop(QStringLiteral("greeter.2")));
    QVERIFY(host.waitForMore(Changed, 1));
    host.stop();
    QVERIFY2(host.hasEndedWell(), qPrintable(host.written()));
    QVERIFY2(!host.written().contains(QStringLiteral("restart")), qPrintable(host.written()));
}

void tst_Reload::followsTheTimetable()
{
    const Folder deployed, hotDeploy;
    const QJsonObject started = calling(deployed, hotDeploy, {entry("//echo/gone"), entry("//echo/stays")});
    Reloading host(started);
    QVERIFY(host.waitForMore(callOf("//echo/gone"), 5));
    QVERIFY(host.follows(with(started, Schedule, QJsonArray{entry("//echo/stays"), entry("//echo/new")})));
    QVERIFY(host.waitForMore(callOf("//echo/new"), 5));
    const int calls = host.count(callOf("//echo/gone"));
    QVERIFY(host.waitForMore(callOf("//echo/new"), 20));
    QVERIFY(host.waitForMore(callOf("//echo/stays"), 20));
    QVERIFY(host.count(callOf("//echo/gone")) <= calls + 1); // the call that was being made
    host.stop();
    QVERIFY2(host.hasEndedWell(), qPrintable(host.written()));
    QVERIFY2(!host.written().contains(QStringLiteral("schedule[")), qPrintable(host.written()));
}

void tst_Reload::leavesEntriesThatStayUndisturbed()
{
    const Folder deployed, hotDeploy;
    const QJsonObject kept = with(entry("//nobody"), QStringLiteral("keep"), true);
    const QJsonObject started =
        calling(deployed, hotDeploy, {kept, entry("//echo/once", false), entry("//echo/once", false)});
    Reloading host(started);
    QVERIFY(host.waitFor(QStringLiteral("zhost: schedule[0] is kept: nobody handled //nobody\n")));
    QTRY_COMPARE_WITH_TIMEOUT(host.count(callOf("//echo/once")), 2, Patience);
    QJsonArray schedule = started.value(Schedule).toArray();
    schedule.append(entry("//echo/new"));
    QVERIFY(host.follows(with(started, Schedule, schedule)));
    QVERIFY(host.waitForMore(callOf("//echo/new"), 20));
    QCOMPARE(host.count(callOf("//echo/once")), 2);
    QCOMPARE(host.count(QStringLiteral(" is kept: ")), 1); // one that began anew would say it once more
    host.stop();
    QVERIFY2(host.hasEndedWell(), qPrintable(host.written()));
}

void tst_Reload::callsAnEntryThatHasMoved()
{
    const Folder deployed, hotDeploy, flags;
    QVERIFY(flags.write(QStringLiteral("flag"), "up"));
    const QString url = QStringLiteral("//echo/while") + flags.filePath(QStringLiteral("flag"));
    const QJsonObject moved = entry(qPrintable(url));
    const QJsonObject started = calling(deployed, hotDeploy, {moved});
    Reloading host(started);
    QVERIFY(host.waitForMore(QStringLiteral("echo: "), 5));
    QVERIFY(host.follows(with(started, Schedule, QJsonArray{entry("//echo/new"), moved})));
    QVERIFY(QFile::remove(flags.filePath(QStringLiteral("flag"))));
    QVERIFY2(host.waitFor(QStringLiteral("zhost: schedule[1] has ended: nobody handled %1\n").arg(url)),
             qPrintable(host.written()));
}

void tst_Reload::callsAnEntryThatHasEnded()
{
    const Folder deployed, hotDeploy;
    const QJsonObject started =
        with(calling(deployed, hotDeploy, {entry("//echo/late")}), Loader, LoadList, QJsonArray());
    Reloading host(started);
    QVERIFY(host.waitFor(QStringLiteral("zhost: schedule[0] has ended: nobody handled //echo/late\n")));
    QVERIFY(host.follows(with(started, Loader, LoadList, QJsonArray{Echo})));
    QVERIFY(host.waitForMore(callOf("//echo/late"), 5));
}

void tst_Reload::loadsWhatIsNew()
{
    const Folder deployed, hotDeploy;
    QVERIFY(deployed.drop(QStringLiteral("keeper")));
    QVERIFY(deployed.drop(Echo));
    const QJsonObject started = loaderOf(deployed, hotDeploy, {QStringLiteral("keeper")});
    Reloading host(started);
    QVERIFY(host.hasStarted());
    QVERIFY(!host.written().contains(QStringLiteral("loaded: echo")));
    QVERIFY(host.follows(with(started, Loader, LoadList, QJsonArray{QStringLiteral("keeper"), Echo})));
    QCOMPARE(host.count(QStringLiteral("[zdefault] [1] loaded: echo\n")), 1);
    QCOMPARE(host.count(QStringLiteral("[zdefault] [1] loaded: keeper\n")), 1);
    host.stop();
    QVERIFY2(host.hasEndedWell(), qPrintable(host.written()));
}

void tst_Reload::pluginsSeeTheNewSection()
{
    const Folder deployed, hotDeploy;
    QVERIFY(deployed.drop(QStringLiteral("configured")));
    const QString section = QStringLiteral("configured");
    const QString text = QStringLiteral("text");
    const QJsonObject started = loaderOf(deployed, hotDeploy);
    Reloading host(started);
    QVERIFY(host.hasStarted());

    const QJsonObject first =
        with(with(started, Loader, LoadList, QJsonArray{section}), section, text, QStringLiteral("one"));
    QVERIFY(host.follows(first));
    QCOMPARE(host.count(QStringLiteral("configured: {\"text\":\"one\"}\n")), 1);
    const QString notice = QStringLiteral("zhost: \"configured\" has changed: a plugin sees that when it asks again\n");
    QCOMPARE(host.count(notice), 1);

    QVERIFY(host.follows(with(with(first, section, text, QStringLiteral("two")), Schedule,
                              QJsonArray{entry("//configured/configured", false)})));
    QCOMPARE(host.count(notice), 2);
    QVERIFY(host.waitFor(QStringLiteral("configured: {\"text\":\"two\"}\n")));
    host.stop();
    QVERIFY2(host.hasEndedWell(), qPrintable(host.written()));
}

void tst_Reload::pluginsHearOfNewSettings()
{
    const Folder deployed, hotDeploy;
    QVERIFY(deployed.drop(QStringLiteral("settled.1")));
    const QString plugins = QStringLiteral("plugins");
    const auto holding = [](const char *text) {
        return QJsonObject{{QStringLiteral("text"), QLatin1String(text)},
                           {QStringLiteral("deed"), QStringLiteral("hold")}};
    };
    const QJsonObject started = with(loaderOf(deployed, hotDeploy, {QStringLiteral("settled.1")}), plugins,
                                     QStringLiteral("settled"), holding("one"));
    Reloading host(started);
    QVERIFY(host.hasStarted());
    QVERIFY(host.written().contains(QStringLiteral("read 1: one\n")));

    const QJsonObject second = with(with(started, plugins, QStringLiteral("settled"), holding("two")), plugins,
                                    QStringLiteral("absent"), QJsonObject());
    QVERIFY(host.follows(second));
    QCOMPARE(host.count(QStringLiteral("heard 1: two\n")), 1);
    QCOMPARE(host.count(QStringLiteral("zhost: \"plugins.settled\" has changed: the plugin has been told\n")), 1);
    QCOMPARE(
        host.count(QStringLiteral("zhost: \"plugins.absent\" has changed: a plugin sees that when it asks again\n")),
        1);
    QVERIFY(host.follows(second));
    QCOMPARE(host.count(QStringLiteral("heard ")), 1);

    QVERIFY(!host.written().contains(QStringLiteral("\"plugins\" has changed")));
    QVERIFY(host.follows(with(second, plugins, QStringLiteral("settled"),
                              QJsonObject{{QStringLiteral("deed"), QStringLiteral("let go")}})));
    host.stop();
    QVERIFY2(host.hasEndedWell(), qPrintable(host.written()));
}

void tst_Reload::leavesThePluginsOwnConfiguration()
{
    const Folder deployed, hotDeploy;
    QVERIFY(deployed.drop(QStringLiteral("configured")));
    QVERIFY(deployed.drop(QStringLiteral("usurper")));
    const QJsonObject started =
        loaderOf(deployed, hotDeploy, {QStringLiteral("configured"), QStringLiteral("usurper")});
    Reloading host(started);
    QVERIFY(host.hasStarted());
    QVERIFY(host.follows(with(started, Schedule, QJsonArray{entry("//configured/configured", false)})));
    QVERIFY(host.waitFor(QStringLiteral("configured: {\"text\":\"the usurper's\"}\n")));
    QCOMPARE(host.count(QStringLiteral("zhost: the configuration that plugins see is a plugin's: it stays\n")), 1);
}

void tst_Reload::wrongFileChangesNothing_data()
{
    QTest::addColumn<QString>("replaced");
    QTest::addColumn<QString>("by");
    QTest::addColumn<QString>("reason");
    QTest::newRow("no JSON") << "{"
                             << "[{"
                             << "line 1, column ";
    QTest::newRow("an unknown key") << "{"
                                    << "{\"lodaer\": 1, "
                                    << "\"lodaer\": no service knows this key";
    QTest::newRow("a plugin that is not there") << "\"greeter\""
                                                << "\"greeter\", \"nobody\""
                                                << "\"loader.load-list[2]\": there is no plugin \"nobody\"";
    QTest::newRow("an entry that cannot run") << "//echo/new"
                                              << ""
                                              << "\"schedule[0]\": \"url\" must be the URL to call";
}

void tst_Reload::wrongFileChangesNothing()
{
    QFETCH(QString, replaced);
    QFETCH(QString, by);
    QFETCH(QString, reason);
    const Folder deployed, hotDeploy;
    QVERIFY(deployed.drop(QStringLiteral("greeter")));
    const QJsonObject started = calling(deployed, hotDeploy, {entry("//echo/stays")});
    Reloading host(started);
    QVERIFY(host.waitForMore(callOf("//echo/stays"), 5));

    const QJsonObject wanted = with(with(with(started, Loader, LoadList, QJsonArray{Echo, QStringLiteral("greeter")}),
                                         Logger, QStringLiteral("info"), 0),
                                    Schedule, QJsonArray{entry("//echo/new")});
    QString text = QString::fromUtf8(QJsonDocument(wanted).toJson(QJsonDocument::Compact));
    QVERIFY(text.contains(replaced));
    text.replace(text.indexOf(replaced), replaced.size(), by);
    QVERIFY2(host.refuses(text.toUtf8()), qPrintable(host.written()));
    QVERIFY2(host.written().contains(reason), qPrintable(host.written()));
    QVERIFY(host.waitForMore(callOf("//echo/stays"), 20));
    QVERIFY(!host.written().contains(QStringLiteral("loaded: greeter")));
    QVERIFY(!host.written().contains(callOf("//echo/new")));

    QVERIFY(host.follows(with(wanted, Logger, QStringLiteral("info"), 1)));
    QVERIFY(host.waitForMore(callOf("//echo/new"), 5));
    QVERIFY(host.written().contains(QStringLiteral("loaded: greeter")));
    host.stop();
    QVERIFY2(host.hasEndedWell(), qPrintable(host.written()));
}

void tst_Reload::saysWhatTakesARestart_data()
{
    QTest::addColumn<QString>("section");
    QTest::addColumn<QString>("key");
    QTest::addColumn<QJsonValue>("value");
    QTest::addColumn<QString>("line");
    const QString restart = QStringLiteral("\"%1\" has changed: that takes a restart");
    QTest::newRow("a folder") << "loader"
                              << "deployed" << QJsonValue(QStringLiteral("/tmp"))
                              << restart.arg(QStringLiteral("loader.deployed"));
    QTest::newRow("a key that was not there")
        << "loader"
        << "remember" << QJsonValue(true) << restart.arg(QStringLiteral("loader.remember"));
    QTest::newRow("a section that was not there") << "filesystem"
                                                  << "temporary-fn-template" << QJsonValue(QStringLiteral("other"))
                                                  << restart.arg(QStringLiteral("filesystem.temporary-fn-template"));
    QTest::newRow("categories") << "logger"
                                << "log"
                                << QJsonValue(
                                       QJsonObject{{QStringLiteral("zdefault"), 15}, {QStringLiteral("another"), 1}})
                                << restart.arg(QStringLiteral("logger.log"));
    QTest::newRow("the guard") << "guard"
                               << "probation" << QJsonValue(5000) << restart.arg(QStringLiteral("guard"));
    QTest::newRow("a plugin that is not listed any more")
        << "loader"
        << "load-list" << QJsonValue(QJsonArray())
        << "\"loader.load-list\" has no \"echo\" any more: to unload it takes a restart";
}

void tst_Reload::saysWhatTakesARestart()
{
    QFETCH(QString, section);
    QFETCH(QString, key);
    QFETCH(QJsonValue, value);
    QFETCH(QString, line);
    const Folder deployed, hotDeploy, other;
    if (value == QJsonValue(QStringLiteral("/tmp"))) // which everybody may write
        value = other.path();
    const QJsonObject started = calling(deployed, hotDeploy, {});
    Reloading host(started);
    QVERIFY(host.hasStarted());
    const QJsonObject wanted = with(started, section, key, value);
    if (key == QLatin1String("deployed"))
        QVERIFY(other.drop(Echo));
    for (int round = 1; round <= 2; ++round) { // it is as true the second time
        QVERIFY2(host.follows(with(wanted, Schedule, QJsonArray{entry("//echo/new")})), qPrintable(host.written()));
        QCOMPARE(host.count(QStringLiteral("zhost: %1\n").arg(line)), round);
    }
    QCOMPARE(host.count(QStringLiteral("restart")), 2);
    QVERIFY(host.waitForMore(callOf("//echo/new"), 5)); // the rest is followed
    QVERIFY(hotDeploy.drop(QStringLiteral("greeter")));
    QVERIFY2(host.waitFor(QStringLiteral("[zdefault] [1] loaded: libgreeter\n")), qPrintable(host.written()));
    QVERIFY(deployed.files().contains(QStringLiteral("libgreeter.so")));
    host.stop();
    QVERIFY2(host.hasEndedWell(), qPrintable(host.written()));
}

void tst_Reload::pluginsSeeWhatIsInForce()
{
    const Folder deployed, hotDeploy;
    QVERIFY(deployed.drop(QStringLiteral("configured")));
    const QString section = QStringLiteral("filesystem");
    const QString key = QStringLiteral("temporary-fn-template");
    const QJsonObject started =
        with(loaderOf(deployed, hotDeploy, {QStringLiteral("configured")}), section, key, QStringLiteral("old"));
    Reloading host(started);
    QVERIFY(host.hasStarted());
    QVERIFY(host.follows(with(with(started, section, key, QStringLiteral("new")), Schedule,
                              QJsonArray{entry("//configured/filesystem", false)})));
    QVERIFY2(host.waitFor(QStringLiteral("configured: {\"temporary-fn-template\":\"old\"}\n")),
             qPrintable(host.written()));
}

void tst_Reload::dropIsComparedWithTheNewList()
{
    const Folder deployed, hotDeploy;
    QVERIFY(deployed.drop(QStringLiteral("greeter")));
    QVERIFY(deployed.drop(Echo));
    const QJsonObject started = loaderOf(deployed, hotDeploy, {Echo});
    Reloading host(started);
    QVERIFY(host.hasStarted());
    QVERIFY(host.follows(with(started, Loader, LoadList, QJsonArray{QStringLiteral("greeter")})));
    QVERIFY(hotDeploy.drop(QStringLiteral("greeter.2")));
    QVERIFY(host.waitFor(QStringLiteral("loaded: libgreeter.2\n")));
    QVERIFY(hotDeploy.drop(Echo, QStringLiteral("libecho.2.so")));
    QVERIFY(host.waitFor(QStringLiteral("zhost: libecho.2.so is new, but \"load-list\" has no \"echo\"")));
    QCOMPARE(host.count(QStringLiteral(" is new, ")), 1);
}

void tst_Reload::signalDuringTheStartWaits()
{
    const Folder deployed, hotDeploy;
    QVERIFY(deployed.drop(QStringLiteral("unruly")));
    const QJsonObject started = calling(deployed, hotDeploy, {entry("//echo/old")});
    const QJsonObject slow = with(started, Loader, LoadList, QJsonArray{QStringLiteral("unruly"), Echo});
    Reloading host(slow, QStringLiteral("read"));
    QVERIFY(host.waitFor(QStringLiteral("unruly: here\n")));
    host.configure(QJsonDocument(with(slow, Schedule, QJsonArray{entry("//echo/new")})).toJson());
    host.signal(SIGHUP);
    host.signal(SIGHUP);
    host.process().write("go on");
    QVERIFY(host.waitFor(QStringLiteral(" has been read anew\n")));
    QVERIFY(host.waitForMore(callOf("//echo/new"), 5));
    const QString written = host.written();
    QVERIFY(written.indexOf(QStringLiteral("loaded: echo\n")) < written.indexOf(QStringLiteral(" has been read anew")));
    QCOMPARE(written.count(QStringLiteral("loaded: unruly\n")), 1);
    host.stop();
    QVERIFY2(host.hasEndedWell(), qPrintable(host.written()));
}

void tst_Reload::signalWaitsThoughAPluginRunsTheEventLoop_data()
{
    QTest::addColumn<bool>("atStart");
    QTest::newRow("during the start") << true;
    QTest::newRow("during a reload") << false;
}

void tst_Reload::signalWaitsThoughAPluginRunsTheEventLoop()
{
    QFETCH(bool, atStart);
    const Folder deployed, hotDeploy;
    QVERIFY(deployed.drop(QStringLiteral("unruly")));
    const QJsonObject started = loaderOf(deployed, hotDeploy);
    const QJsonObject loading = with(started, Loader, LoadList, QJsonArray{QStringLiteral("unruly")});
    Reloading host(atStart ? loading : started, QStringLiteral("hang up"));
    if (!atStart) {
        QVERIFY(host.hasStarted());
        QVERIFY(host.follows(loading));
    }
    const QString reloaded = QStringLiteral(" has been read anew\n");
    const int reloads = atStart ? 1 : 2;
    QTRY_COMPARE_WITH_TIMEOUT(host.count(reloaded), reloads, Patience);
    QVERIFY2(host.written().indexOf(QStringLiteral("unruly: went on\n")) < host.written().indexOf(reloaded),
             qPrintable(host.written()));
    host.stop();
    QVERIFY2(host.hasEndedWell(), qPrintable(host.written()));
    QCOMPARE(host.written().count(reloaded), reloads);
}

QTEST_GUILESS_MAIN(tst_Reload)

#include "tst_reload.moc"
