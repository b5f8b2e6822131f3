// SPDX-License-Identifier: Apache-2.0
#include "place.h"
#include "program.h"
#include "testcase.h"

#include <QProcess>
#include <QRegularExpression>

#include <csignal>

#include <sys/stat.h>
#include <unistd.h>

/// What zdeploy does to find out whether a plugin can be lived with, and what it keeps from it.
class tst_TryOut : public TestCase
{
    Q_OBJECT

private Q_SLOTS:
    void refusesWhatDoesHarm_data();
    void refusesWhatDoesHarm();
    void dropsWhatBehaves_data();
    void dropsWhatBehaves();
    void limitsWhatAPluginMayUse();
    void givesUpTheRightsOfRoot_data();
    void givesUpTheRightsOfRoot();
    void findsAFolderForScratchThatTheOwnerMayUse();
    void saysThatTheOwnerCannotReachTheFolder();
    void leavesNothingWhereItsProcessEnds_data();
    void leavesNothingWhereItsProcessEnds();
};

namespace {

constexpr uid_t Nobody = 65534;  // has an entry in the list of users
constexpr uid_t Unknown = 54321; // has none
const QString FileName = QStringLiteral("librestless.so");

/// Skips the test where it is not.
bool isRoot()
{
    if (getuid() != 0)
        QTest::qSkip("only root has rights to give up", __FILE__, __LINE__);
    return getuid() == 0;
}

/// A place for plugins, with a folder for all that a try-out leaves behind, and zdeploy with the plugin "restless".
class Site
{
public:
    Site()
    {
        chmod(QFile::encodeName(m_place.path()).constData(), 0711); // so that other users find what is theirs
        QDir(m_place.path()).mkdir(QStringLiteral("scratch"));
        chmod(QFile::encodeName(scratch()).constData(), 01777);
    }

    const Place &place() const { return m_place; }
    QString scratch() const { return m_place.path() + QStringLiteral("/scratch"); }

    /// Starts zdeploy with the plugin, which does what `restless` says.
    void start(QProcess &process, const char *restless, const QStringList &options = {}) const
    {
        QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
        environment.insert(QStringLiteral("RESTLESS"), QString::fromLatin1(restless));
        environment.insert(QStringLiteral("RESTLESS_FILE"), toldFile());
        environment.insert(QStringLiteral("TMPDIR"), scratch());
        process.setProcessEnvironment(environment);
        process.start(QStringLiteral(ZDEPLOY),
                      options + QStringList{pluginFile(QStringLiteral("restless")), m_place.hotDeploy()});
    }

    Result run(const char *restless, const QStringList &options = {}) const
    {
        QProcess process;
        start(process, restless, options);
        return finish(process);
    }

    /// What the plugin has written down of itself in the lines that begin with `word`, in the order of writing.
    QStringList told(const QString &word) const
    {
        QStringList result;
        const QStringList lines = QString::fromUtf8(contentOf(toldFile())).split(QLatin1Char('\n'));
        for (const QString &line : lines) {
            if (line.startsWith(word + QLatin1Char(' ')))
                result.append(line.mid(word.size() + 1));
        }
        return result;
    }

    /// All that is left of a try-out. What the plugin has written down is not.
    QStringList left() const
    {
        QStringList files = Place::everythingIn(scratch());
        files.removeOne(QStringLiteral("told"));
        return files;
    }

    /// The processes whose command line names the place.
    QList<pid_t> processes() const
    {
        QList<pid_t> result;
        const QStringList all = QDir(QStringLiteral("/proc")).entryList(QDir::Dirs | QDir::NoDotAndDotDot);
        for (const QString &process : all) {
            if (contentOf(QStringLiteral("/proc/%1/cmdline").arg(process)).contains(m_place.path().toUtf8()))
                result.append(process.toInt());
        }
        return result;
    }

private:
    QString toldFile() const { return scratch() + QStringLiteral("/told"); }

    Place m_place;
};

} // namespace

void tst_TryOut::refusesWhatDoesHarm_data()
{
    QTest::addColumn<QString>("reason");
    const auto row = [](const char *restless, const char *reason) {
        QTest::newRow(restless) << QString::fromLatin1(reason);
    };
    // A sanitizer exits where the system would abort, and has a word of its own on memory.
    row("constructor abort", "loading it ends the process: (Aborted|exit status 1)");
    row("constructor throw", "loading it fails: thrown with a \\\\x1b\\[2J in it");
    row("constructor exit", "loading it ends the process: exit status 0");
    row("constructor quit", "giving it its services quits the program");
    row("constructor hang", "loading it does not end");
    row("constructor hog", "loading it (fails: std::bad_alloc|ends the process: .*)");
    row("constructor litter", "loading it ends the process: (Aborted|exit status 1)");
    row("writer abort", "giving it its services ends the process: (Aborted|exit status 1)");
    row("writer throw", "giving it its services fails: thrown with a \\\\x1b\\[2J in it");
    row("writer exit", "giving it its services ends the process: exit status 0");
    row("writer quit", "giving it its services quits the program");
    row("writer hang", "giving it its services does not end");
    row("writer hog", "giving it its services (fails: std::bad_alloc|ends the process: .*)");
    row("writer litter", "giving it its services ends the process: (Aborted|exit status 1)");
    row("destructor abort", "destroying it ends the process: (Aborted|exit status 1)");
    row("destructor exit", "destroying it ends the process: exit status 0");
    row("destructor hang", "destroying it does not end");
    row("quit abort", "stopping it ends the process: (Aborted|exit status 1)");
    row("quit hang", "stopping it does not end");
    row("end abort", "stopping it ends the process: (Aborted|exit status 1)");
    row("end exit", "stopping it ends the process: exit status 0");
    row("end hang", "stopping it does not end");
    row("end litter", "stopping it ends the process: (Aborted|exit status 1)");
}

void tst_TryOut::refusesWhatDoesHarm()
{
    QFETCH(QString, reason);
    const Site site;
    const QByteArray restless = QTest::currentDataTag();
    const bool hangs = restless.endsWith(" hang");
    const Result result = site.run(restless.constData(),
                                   {QStringLiteral("--patience"), hangs ? QStringLiteral("3") : QStringLiteral("60")});
    const QString line = QStringLiteral("\\Azdeploy: %1 is refused: %2\n\\z")
                             .arg(QRegularExpression::escape(pluginFile(QStringLiteral("restless"))), reason);
    QVERIFY2(QRegularExpression(line).match(result.err).hasMatch(), qPrintable(result.err));
    QCOMPARE(result.exitCode, 1);
    QCOMPARE(result.out, QString());
    QCOMPARE(site.place().dropped(), QStringList());
    QCOMPARE(site.left(), QStringList());
    QTRY_COMPARE(site.processes(), QList<pid_t>());
}

void tst_TryOut::dropsWhatBehaves_data()
{
    QTest::addColumn<QString>("plugin");
    for (const char *const name :
         {"farewell", "greeter", "keeper", "metatypes", "nested", "recorder", "store", "sturdy", "worker"})
        QTest::newRow(name) << QString::fromLatin1(name);
}

/// Some register types, some load others, some schedule, use all that they were given to their very end, or want
/// settings, of which there are none here.
void tst_TryOut::dropsWhatBehaves()
{
    QFETCH(QString, plugin);
    const Place place;
    const Result result = runProgram(QStringLiteral(ZDEPLOY), {pluginFile(plugin), place.hotDeploy()});
    QCOMPARE(result.err, QString());
    QCOMPARE(result.exitCode, 0);
}

void tst_TryOut::limitsWhatAPluginMayUse()
{
    for (const char *const restless : {"constructor tell", "writer tell"}) {
        const Site site;
        const Result result = site.run(restless, {QStringLiteral("--patience"), QStringLiteral("50")});
        QCOMPARE(result.err, QString());
        QVERIFY(!site.told(QStringLiteral("user")).isEmpty());
        QCOMPARE(site.told(QStringLiteral("user")).first(), QStringLiteral("%1/%1").arg(getuid()));
        QCOMPARE(site.told(QStringLiteral("core")).first(), QStringLiteral("0"));
        QCOMPARE(site.told(QStringLiteral("processor")).first(), QStringLiteral("50"));
        QVERIFY(site.told(QStringLiteral("files")).first().toInt() <= 1024);
        QCOMPARE(site.told(QStringLiteral("terminal")).first(), QStringLiteral("0"));
        QCOMPARE(QFileInfo(site.told(QStringLiteral("folder")).first()).path(), site.scratch());
        QCOMPARE(site.left(), QStringList());
    }
}

void tst_TryOut::givesUpTheRightsOfRoot_data()
{
    QTest::addColumn<uint>("owner");
    QTest::addColumn<QByteArray>("restless");
    for (const char *const restless : {"constructor tell", "writer tell"}) {
        QTest::addRow("root, %s", restless) << uint(0) << QByteArray(restless);
        QTest::addRow("nobody, %s", restless) << Nobody << QByteArray(restless);
        QTest::addRow("somebody unknown, %s", restless) << Unknown << QByteArray(restless);
    }
}

void tst_TryOut::givesUpTheRightsOfRoot()
{
    QFETCH(uint, owner);
    QFETCH(QByteArray, restless);
    if (!isRoot())
        return;
    const Site site;
    const QString hotDeploy = site.place().hotDeploy(); // which keeps root's group
    QCOMPARE(chown(QFile::encodeName(hotDeploy).constData(), owner, 0), 0);
    const Result result = site.run(restless.constData());
    QCOMPARE(result.err, QString());
    QCOMPARE(site.place().dropped(), QStringList{FileName});
    QCOMPARE(QFileInfo(hotDeploy + QLatin1Char('/') + FileName).ownerId(), uint(0));
    const QStringList users = site.told(QStringLiteral("user"));
    QVERIFY(!users.isEmpty());
    for (const QString &user : users)
        QCOMPARE(user, QStringLiteral("%1/%1").arg(owner));
    const QStringList groups = site.told(QStringLiteral("group"));
    for (const QString &group : groups)
        QCOMPARE(group, QStringLiteral("%1/%1").arg(owner));
    const QStringList rootsGroup = site.told(QStringLiteral("root's-group"));
    for (const QString &isMember : rootsGroup)
        QVERIFY(owner == 0 || isMember == QStringLiteral("0"));
    QCOMPARE(site.left(), QStringList());
}

void tst_TryOut::findsAFolderForScratchThatTheOwnerMayUse()
{
    if (!isRoot())
        return;
    const Site site;
    QCOMPARE(chown(QFile::encodeName(site.place().hotDeploy()).constData(), Nobody, Nobody), 0);
    QCOMPARE(chmod(QFile::encodeName(site.scratch()).constData(), 0700), 0);
    QCOMPARE(site.run("").err, QString());
    QCOMPARE(site.place().dropped(), QStringList{FileName});
}

void tst_TryOut::saysThatTheOwnerCannotReachTheFolder()
{
    if (!isRoot())
        return;
    const Site site;
    QCOMPARE(chown(QFile::encodeName(site.place().hotDeploy()).constData(), Nobody, Nobody), 0);
    QCOMPARE(chmod(QFile::encodeName(site.place().path()).constData(), 0700), 0);
    const Result result = site.run("");
    QVERIFY2(result.err.endsWith(
                 QStringLiteral("cannot be dropped: it cannot be tried out: the owner of its folder cannot read "
                                "it: Permission denied\n")),
             qPrintable(result.err));
    QCOMPARE(result.exitCode, 3);
    QCOMPARE(site.place().dropped(), QStringList());
}

void tst_TryOut::leavesNothingWhereItsProcessEnds_data()
{
    QTest::addColumn<int>("number");
    QTest::newRow("SIGHUP") << SIGHUP;
    QTest::newRow("SIGINT") << SIGINT;
    QTest::newRow("SIGTERM") << SIGTERM;
    QTest::newRow("SIGKILL") << SIGKILL;
}

void tst_TryOut::leavesNothingWhereItsProcessEnds()
{
    QFETCH(int, number);
    const Site site;
    QProcess process;
    const auto before =
        number == SIGKILL ? SIG_DFL : std::signal(number, SIG_DFL); // it may be ignored, in the background
    site.start(process, "writer hang");
    if (number != SIGKILL)
        std::signal(number, before);
    QTRY_VERIFY_WITH_TIMEOUT(!site.told(QStringLiteral("user")).isEmpty(), 30000);
    QCOMPARE(site.processes().size(), 3); // it, the one that watches, and the plugin's
    QCOMPARE(site.left().size(), 1);
    QCOMPARE(kill(static_cast<pid_t>(process.processId()), number), 0);
    QVERIFY(process.waitForFinished());
    QTRY_COMPARE_WITH_TIMEOUT(site.processes(), QList<pid_t>(), 30000);
    QCOMPARE(site.left(), QStringList());
    const QStringList dropped = QDir(site.place().hotDeploy()).entryList({QStringLiteral("*.so")});
    QCOMPARE(dropped, QStringList());
}

QTEST_GUILESS_MAIN(tst_TryOut)

#include "tst_tryout.moc"
