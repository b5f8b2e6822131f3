// SPDX-License-Identifier: Apache-2.0
#include "nats/loopback.h"
#include "place.h"
#include "runninghost.h"
#include "testcase.h"

#include <QRegularExpression>

#include <poll.h>
#include <sys/stat.h>
#include <unistd.h>

/// How zdeploy rehearses a configuration.
class tst_Rehearsal : public TestCase
{
    Q_OBJECT

private Q_SLOTS:
    void findsNothingWrongWithWhatRuns();
    void touchesNothing();
    void tellsWhichPluginIsToBlame_data();
    void tellsWhichPluginIsToBlame();
    void runsTheTimetable();
    void tellsWhichCallOfTheTimetableHangs();
    void runsWhatWasRemembered();
    void rehearsesBesideARunningHost();
    void staysWithinItsProcess();
    void givesUpTheRightsOfRoot();
    void refusesWhatCannotBeRehearsed_data();
    void refusesWhatCannotBeRehearsed();
};

namespace {

/// Two folders, and a configuration that names them.
class Site
{
public:
    Site() : configuration(place.write(QStringLiteral("config.json"), "{}")) {}

    void deploy(const QString &plugin, const QString &file) const
    {
        place.write(QStringLiteral("deployed/") + file, contentOf(pluginFile(plugin)));
    }
    /// Under its plain name.
    void deploy(const QString &plugin) const { deploy(plugin, QStringLiteral("lib%1.so").arg(plugin)); }
    /// The plugin "guarded", which does its deed.
    void deployGuarded(const char *deed = "Serve", const QString &file = QStringLiteral("libguarded.so")) const
    {
        deploy(QStringLiteral("guarded_%1").arg(QLatin1String(deed)), file);
    }

    QJsonObject object(const QStringList &names) const
    {
        QJsonObject object = loaderOf(place.deployed(), place.hotDeploy(), names);
        const auto set = [&](const char *section, const char *key, const QJsonValue &value) {
            QJsonObject changed = object.value(QLatin1String(section)).toObject();
            changed.insert(QLatin1String(key), value);
            object.insert(QLatin1String(section), changed);
        };
        set("loader", "remember", true);
        set("logger", "warning", 0);
        set("filesystem", "temporary-folder", place.path());
        object.insert(QStringLiteral("schedule"), schedule);
        if (!nats.isEmpty())
            object.insert(QStringLiteral("nats"), nats);
        return object;
    }

    /// For a second, unless it is refused before.
    Result rehearse(const QStringList &names, const QMap<QString, QString> &variables = {}, int patience = 60) const
    {
        QProcess process;
        QProcessEnvironment environment = environmentWith(withoutSanitizersSignals());
        environment.insert(environmentOf(variables));
        process.setProcessEnvironment(environment);
        place.write(QStringLiteral("config.json"), QJsonDocument(object(names)).toJson());
        process.start(QStringLiteral(ZDEPLOY),
                      {QStringLiteral("--rehearse"), configuration, QStringLiteral("--for"), QStringLiteral("1"),
                       QStringLiteral("--patience"), QString::number(patience)});
        return finish(process);
    }

    QString fine() const { return configuration + QStringLiteral(": nothing wrong in 1 seconds\n"); }

    const Place place;
    const QString configuration;
    QJsonArray schedule;
    QJsonObject nats;
};

} // namespace

void tst_Rehearsal::findsNothingWrongWithWhatRuns()
{
    Site site;
    for (const char *const file : {"libguarded.1.so", "libguarded.2.so"})
        site.deployGuarded("Serve", QString::fromLatin1(file));
    site.deploy(QStringLiteral("caller"));
    site.schedule = {entry("//guarded/work")};
    const Result result = site.rehearse({QStringLiteral("guarded"), QStringLiteral("caller")});
    QCOMPARE(result.err, QString());
    QCOMPARE(result.out, site.fine());
    QCOMPARE(result.exitCode, 0);
}

void tst_Rehearsal::touchesNothing()
{
    const Site site;
    site.deploy(QStringLiteral("plain"));
    site.place.write(QStringLiteral("zhost.AbCdEf"), "in use");
    site.place.write(QStringLiteral("hot-deploy/libplain.1.so"), contentOf(pluginFile(QStringLiteral("plain"))));
    QDir(site.place.path()).mkdir(QStringLiteral("scratch"));
    const QString scratch = site.place.path() + QStringLiteral("/scratch");
    QCOMPARE(site.rehearse({QStringLiteral("plain")}, {{QStringLiteral("TMPDIR"), scratch}}).err, QString());
    QCOMPARE(Place::everythingIn(site.place.deployed()), QStringList{"libplain.so"});
    QCOMPARE(site.place.dropped(), QStringList{"libplain.1.so"});
    QCOMPARE(Place::everythingIn(site.place.path()),
             QStringList({"config.json", "deployed", "hot-deploy", "scratch", "zhost.AbCdEf"}));
    QCOMPARE(Place::everythingIn(scratch), QStringList());
}

void tst_Rehearsal::tellsWhichPluginIsToBlame_data()
{
    QTest::addColumn<QString>("plugin");
    QTest::addColumn<QString>("deed");
    QTest::addColumn<QString>("pattern");
    const auto row = [](const char *plugin, const char *deed, const char *pattern) {
        QTest::addRow("%s %s", plugin, deed) << QString(plugin) << QString(deed) << QString(pattern);
    };
    row("guarded_CrashInWriter", "",
        "ended by Segmentation fault in libbad\\.1\\.so\\+0x[0-9a-f]+, while loading bad\\.1");
    row("guarded_CrashLater", "", "ended by Segmentation fault in libbad\\.1\\.so\\+0x[0-9a-f]+");
    row("guarded_ThrowOnThread", "", "ended by Aborted in libbad\\.1\\.so\\+0x[0-9a-f]+.*");
    row("restless", "constructor throw", "failed to load libbad\\.1: .*thrown with a \\\\x1b\\[2J in it");
    row("restless", "writer throw", "failed to load libbad\\.1: .*thrown with a \\\\x1b\\[2J in it");
    row("restless", "constructor hang",
        "loading the plugins does not end, in libbad\\.1\\.so, while loading libbad\\.1\\.so");
    row("restless", "writer hang",
        "loading the plugins does not end, in libbad\\.1\\.so, while loading libbad\\.1\\.so");
    row("restless", "quit hang", "stopping does not end, in libbad\\.1\\.so");
    row("restless", "end hang", "stopping does not end, in libbad\\.1\\.so");
    row("restless", "quit abort", "ended by Aborted in libbad\\.1\\.so\\+0x[0-9a-f]+");
    row("unruly", "exit", "ended by exit\\(0\\), called by libbad\\.1\\.so");
    row("unruly", "exit on a thread", "ended by exit\\(0\\), called by libbad\\.1\\.so");
    row("unruly", "quit", "ended by quit\\(\\), called by a plugin");
    row("noroot", "", "failed to load libbad\\.1: .*");
    row("unresolved", "", "failed to load libbad\\.1: .*undefined symbol: nowhere.*");
    row("leaver", "", "loading the plugins ends the process: exit status 0");
}

void tst_Rehearsal::tellsWhichPluginIsToBlame()
{
    QFETCH(QString, plugin);
    QFETCH(QString, deed);
    QFETCH(QString, pattern);
    const Site site;
    site.deploy(QStringLiteral("plain"));
    site.deploy(plugin, QStringLiteral("libbad.1.so"));
    const QMap<QString, QString> variables{{QStringLiteral("RESTLESS"), deed},
                                           {QStringLiteral("RESTLESS_FILE"), site.place.path() + "/told"},
                                           {QStringLiteral("UNRULY"), deed}};
    const Result result = site.rehearse({QStringLiteral("plain"), QStringLiteral("bad")}, variables,
                                        deed.endsWith(QStringLiteral(" hang")) ? 3 : 60);
    const QString line = QStringLiteral("\\Azdeploy: %1 is refused: %2\n\\z")
                             .arg(QRegularExpression::escape(site.configuration), pattern);
    QVERIFY2(QRegularExpression(line).match(result.err).hasMatch(), qPrintable(result.err));
    QCOMPARE(result.out, QString());
    QCOMPARE(result.exitCode, 1);
}

void tst_Rehearsal::runsTheTimetable()
{
    Site site;
    site.deployGuarded();
    site.schedule = {entry("//guarded/crash")};
    const QString err = site.rehearse({QStringLiteral("guarded")}).err;
    QVERIFY2(err.contains(QStringLiteral("is refused: ended by Segmentation fault in libguarded.so+0x")),
             qPrintable(err));
}

void tst_Rehearsal::tellsWhichCallOfTheTimetableHangs()
{
    constexpr int Seconds = 12; // the host has its own patience with calls, and names none before
    Site site;
    site.deployGuarded("HangWhenAsked");
    site.schedule = {entry("//guarded/healthy", false)};
    const Result result = site.rehearse({QStringLiteral("guarded")}, {}, Seconds);
    const QString line = QStringLiteral("\\Azdeploy: %1 is refused: [^ ]*\\(//guarded/healthy, [^ ]* does not end\n\\z")
                             .arg(QRegularExpression::escape(site.configuration));
    QVERIFY2(QRegularExpression(line).match(result.err).hasMatch(), qPrintable(result.err));
    QCOMPARE(result.exitCode, 1);
}

void tst_Rehearsal::runsWhatWasRemembered()
{
    const Site site;
    site.deployGuarded("CrashInWriter");
    QCOMPARE(site.rehearse({}).exitCode, 0);
    site.place.write(QStringLiteral("deployed/.zhost-remembered.json"), "[\"guarded\"]");
    const QString err = site.rehearse({}).err;
    QVERIFY2(err.contains(QStringLiteral(", while loading guarded\n")), qPrintable(err));
}

void tst_Rehearsal::rehearsesBesideARunningHost()
{
    const Site site;
    site.deployGuarded();
    Running host(site.object({QStringLiteral("guarded")}));
    QTRY_VERIFY_WITH_TIMEOUT(host.hasWritten(QStringLiteral("hot-deploy folder changed")), Patience);
    const Result result = site.rehearse({QStringLiteral("guarded")});
    QCOMPARE(result.err, QString());
    QCOMPARE(result.out, site.fine());
    host.stop();
    QVERIFY2(host.hasEndedWell(), qPrintable(host.written()));
}

/// Else it would answer for the host that has its name, and run what that one is to run.
void tst_Rehearsal::staysWithinItsProcess()
{
#ifdef ZNATS
    const int broker = listenAt(0);
    QVERIFY(broker >= 0);
    Site site;
    site.place.write(QStringLiteral("deployed/libznats.so"), contentOf(QStringLiteral(ZNATS)));
    site.nats = {{QStringLiteral("servers"), QJsonArray{QStringLiteral("nats://127.0.0.1:%1").arg(portOf(broker))}}};
    const Result result = site.rehearse({QStringLiteral("znats")});
    pollfd asked{broker, POLLIN, 0};
    QCOMPARE(poll(&asked, 1, 0), 0);
    ::close(broker);
    QCOMPARE(result.err, QString());
    QCOMPARE(result.out, site.fine());
#endif
}

void tst_Rehearsal::givesUpTheRightsOfRoot()
{
    if (getuid() != 0)
        return QTest::qSkip("only root has rights to give up", __FILE__, __LINE__);
    constexpr uid_t Nobody = 65534;
    const Site site;
    site.deploy(QStringLiteral("restless"));
    QCOMPARE(chmod(QFile::encodeName(site.place.path()).constData(), 01777), 0);
    QCOMPARE(chown(QFile::encodeName(site.place.deployed()).constData(), Nobody, Nobody), 0);
    const QString file = site.place.path() + QStringLiteral("/told");
    const Result result = site.rehearse({QStringLiteral("restless")}, {{QStringLiteral("RESTLESS"), "writer tell"},
                                                                       {QStringLiteral("RESTLESS_FILE"), file}});
    QCOMPARE(result.err, QString());
    QVERIFY(contentOf(file).startsWith("user 65534/65534\n"));
}

void tst_Rehearsal::refusesWhatCannotBeRehearsed_data()
{
    QTest::addColumn<QByteArray>("content"); // null: there is no file
    QTest::addColumn<QString>("reason");
    QTest::newRow("no file") << QByteArray() << "cannot read %1: No such file or directory";
    QTest::newRow("no JSON") << QByteArray("[]") << "%1: the top level must be a JSON object";
    QTest::newRow("no folder") << QByteArray(R"({"loader": {"deployed": "/no/such"}})")
                               << "%1 has no deployed folder that is there";
}

void tst_Rehearsal::refusesWhatCannotBeRehearsed()
{
    QFETCH(QByteArray, content);
    QFETCH(QString, reason);
    const Place place;
    const QString file = content.isNull() ? place.path() + QStringLiteral("/config.json")
                                          : place.write(QStringLiteral("config.json"), content);
    const Result result = runProgram(QStringLiteral(ZDEPLOY), {QStringLiteral("--rehearse"), file});
    QCOMPARE(result.err, QStringLiteral("zdeploy: %1; see zdeploy --help\n").arg(reason.arg(file)));
    QCOMPARE(result.exitCode, 2);
}

QTEST_GUILESS_MAIN(tst_Rehearsal)

#include "tst_rehearsal.moc"
