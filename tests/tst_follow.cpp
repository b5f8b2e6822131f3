// SPDX-License-Identifier: Apache-2.0
#include "hiddenlock.h"
#include "place.h"
#include "runninghost.h"
#include "testcase.h"

#include <QDir>
#include <QFile>
#include <QProcess>

#include <memory>

/// What zdeploy tells of a drop that it follows.
class tst_Follow : public TestCase
{
    Q_OBJECT

private Q_SLOTS:
    void waitsUntilADropIsLoadedAndGood();
    void goingBackIsFollowedToo();
    void namesInMemoryAreNotGivenAgain_data();
    void namesInMemoryAreNotGivenAgain();
    void namesInMemoryAreNotGivenAgainInAFolderMadeAnew();
    void tellsWhyADropWasTakenBack_data();
    void tellsWhyADropWasTakenBack();
    void tellsThatTheHostHasEnded();
    void tellsWhatIsNotSettled_data();
    void tellsWhatIsNotSettled();
    void tellsThatAFileIsGone();
    void tellsThatAFileIsNotLoaded_data();
    void tellsThatAFileIsNotLoaded();
    void tellsThatTheMemoryOfTheHostCannotBeRead();
    void dropsNothingWhereNoHostRuns();
};

namespace {

constexpr int Short = 1; // a probation
constexpr int Long = 3600000;
const QString IsWatching = QStringLiteral("hot-deploy folder changed");

/// Two folders with a host, and zdeploy, which waits.
class Site
{
public:
    explicit Site(const QJsonValue &guard, const QString &restless = QString(), const QJsonValue &door = QJsonObject())
        : m_guard(guard), m_restless(restless), m_door(door)
    {
        startHost();
    }

    static QJsonValue probation(int milliseconds) { return QJsonObject{{QStringLiteral("probation"), milliseconds}}; }

    void startHost()
    {
        QJsonObject configuration = loaderOf(place.deployed(), place.hotDeploy());
        configuration.insert(QStringLiteral("guard"), m_guard);
        configuration.insert(QStringLiteral("door"), m_door);
        QMap<QString, QString> variables = withoutSanitizersSignals();
        variables.insert(QStringLiteral("RESTLESS"), m_restless);
        host = std::make_unique<Running>(configuration, variables, QStringList());
    }
    bool isWatching() const
    {
        return QTest::qWaitFor([this] { return host->hasWritten(IsWatching); }, Patience);
    }
    bool hasEnded() const { return host->process().state() == QProcess::NotRunning; }
    bool isDeployed(const QString &file) const { return QFile::exists(place.deployed() + QLatin1Char('/') + file); }

    /// Drops the plugin "guarded", which does its deed, each time as another version.
    void drop(const char *deed = "Serve", int patience = 60)
    {
        const QByteArray content = contentOf(pluginFile(QStringLiteral("guarded_%1").arg(QLatin1String(deed)))) +
                                   QByteArray::number(++m_drops);
        start(place.write(QStringLiteral("libguarded.so"), content), patience);
    }
    void start(const QString &plugin, int patience = 60)
    {
        m_zdeploy.start(QStringLiteral(ZDEPLOY), {QStringLiteral("--wait"), QStringLiteral("--patience"),
                                                  QString::number(patience), plugin, place.hotDeploy()});
    }
    void goBack(const QString &name)
    {
        m_zdeploy.start(QStringLiteral(ZDEPLOY),
                        {QStringLiteral("--wait"), QStringLiteral("--rollback"), name, place.hotDeploy()});
    }
    Result end() { return finish(m_zdeploy); }

    const Place place;
    std::unique_ptr<Running> host;

private:
    const QJsonValue m_guard;
    const QString m_restless;
    const QJsonValue m_door;
    QProcess m_zdeploy;
    int m_drops = 0;
};

} // namespace

void tst_Follow::waitsUntilADropIsLoadedAndGood()
{
    Site site(Site::probation(Short));
    QVERIFY(site.isWatching());
    site.drop();
    const Result result = site.end();
    QCOMPARE(result.err, QString());
    QCOMPARE(result.out, QStringLiteral("dropped as libguarded.so\nlibguarded.so is loaded, and good\n"));
    QCOMPARE(result.exitCode, 0);
    QTRY_VERIFY(site.host->hasWritten(QStringLiteral("loaded: libguarded\n")));
    QVERIFY(contentOf(site.place.deployed() + QStringLiteral("/good.json")).contains("libguarded.so"));
}

void tst_Follow::goingBackIsFollowedToo()
{
    Site site(Site::probation(Short));
    QVERIFY(site.isWatching());
    for (int i = 0; i < 2; ++i) {
        site.drop();
        QCOMPARE(site.end().exitCode, 0);
    }
    site.goBack(QStringLiteral("guarded"));
    const Result result = site.end();
    QCOMPARE(result.out, QStringLiteral("dropped as libguarded.0002.so\nlibguarded.0002.so is loaded, and good\n"));
    QCOMPARE(result.exitCode, 0);
}

void tst_Follow::namesInMemoryAreNotGivenAgain_data()
{
    QTest::addColumn<QString>("renamed");
    QTest::newRow("removed") << QString();
    QTest::newRow("removed from quarantine") << "libguarded.so.quarantined";
}

void tst_Follow::namesInMemoryAreNotGivenAgain()
{
    QFETCH(QString, renamed);
    Site site(Site::probation(Short));
    QVERIFY(site.isWatching());
    site.drop();
    QCOMPARE(site.end().exitCode, 0);
    QDir deployed(site.place.deployed());
    QString file = QStringLiteral("libguarded.so");
    if (!renamed.isEmpty()) {
        QVERIFY(deployed.rename(file, renamed));
        file = renamed;
    }
    QVERIFY(deployed.remove(file));
    site.drop();
    const Result result = site.end();
    QCOMPARE(result.out, QStringLiteral("dropped as libguarded.0001.so\nlibguarded.0001.so is loaded, and good\n"));
    QCOMPARE(result.exitCode, 0);
}

void tst_Follow::namesInMemoryAreNotGivenAgainInAFolderMadeAnew()
{
    Site site(Site::probation(Short));
    QVERIFY(site.isWatching());
    site.drop();
    QCOMPARE(site.end().exitCode, 0);
    const QDir folder(site.place.path());
    QVERIFY(QFile::rename(site.place.deployed(), folder.filePath(QStringLiteral("away"))));
    QVERIFY(folder.mkdir(QStringLiteral("deployed")));
    const QString file = folder.filePath(QStringLiteral("libguarded.so"));
    QCOMPARE(runProgram(QStringLiteral(ZDEPLOY), {file, site.place.hotDeploy()}).out,
             QStringLiteral("dropped as libguarded.0001.so\n"));
    QTRY_VERIFY_WITH_TIMEOUT(site.host->hasWritten(QStringLiteral("loaded: libguarded.0001\n")), Patience);
}

void tst_Follow::tellsWhyADropWasTakenBack_data()
{
    QTest::addColumn<QByteArray>("deed");
    QTest::addColumn<QString>("reason");
    QTest::newRow("unhealthy") << QByteArray("BeUnhealthy") << "//guarded/healthy was not handled, twice in a row\n";
    QTest::newRow("crashes") << QByteArray("CrashLater") << "ended by Segmentation fault in ";
}

void tst_Follow::tellsWhyADropWasTakenBack()
{
    QFETCH(QByteArray, deed);
    QFETCH(QString, reason);
    Site site(Site::probation(Long));
    QVERIFY(site.isWatching());
    site.drop(deed.constData());
    const QString taken = QStringLiteral("libguarded.so.quarantined");
    QTRY_VERIFY_WITH_TIMEOUT(site.hasEnded() || site.isDeployed(taken), Patience);
    if (site.hasEnded())
        site.startHost(); // as a service manager does
    const Result result = site.end();
    QVERIFY2(result.err.startsWith(QStringLiteral("zdeploy: libguarded.so was taken back: ") + reason),
             qPrintable(result.err));
    QCOMPARE(result.out, QStringLiteral("dropped as libguarded.so\n"));
    QCOMPARE(result.exitCode, 1);
}

void tst_Follow::tellsThatTheHostHasEnded()
{
    Site site(Site::probation(Long));
    QVERIFY(site.isWatching());
    site.drop("CrashLater", 5);
    const Result result = site.end();
    const QString line = QStringLiteral("zdeploy: the host has ended, and nobody has started it again: ended by "
                                        "Segmentation fault in ");
    QVERIFY2(result.err.startsWith(line), qPrintable(result.err));
    QCOMPARE(result.exitCode, 1);
}

void tst_Follow::tellsWhatIsNotSettled_data()
{
    QTest::addColumn<QJsonValue>("guard");
    QTest::addColumn<bool>("isStopped"); // the host does nothing
    QTest::addColumn<QString>("line");
    QTest::newRow("on probation") << Site::probation(Long) << false << "libguarded.so is still on probation";
    QTest::newRow("no guard") << QJsonValue(false) << false
                              << "libguarded.so is not on probation: \"guard\" is off, or it is still being loaded";
    QTest::newRow("not fetched") << QJsonValue(false) << true << "no host has come for libguarded.so";
}

void tst_Follow::tellsWhatIsNotSettled()
{
    QFETCH(QJsonValue, guard);
    QFETCH(bool, isStopped);
    QFETCH(QString, line);
    Site site(guard);
    QVERIFY(site.isWatching());
    if (isStopped)
        site.host->signal(SIGSTOP);
    site.drop("Serve", 5);
    const Result result = site.end();
    QCOMPARE(result.err, QStringLiteral("zdeploy: %1, after 5 seconds\n").arg(line));
    QCOMPARE(result.exitCode, 1);
}

void tst_Follow::tellsThatAFileIsGone()
{
    Site site(Site::probation(Long));
    QVERIFY(site.isWatching());
    site.drop();
    QTRY_VERIFY_WITH_TIMEOUT(site.isDeployed(QStringLiteral("libguarded.so")), Patience);
    QVERIFY(QFile::remove(site.place.deployed() + QStringLiteral("/libguarded.so")));
    const Result result = site.end();
    QCOMPARE(result.err, QStringLiteral("zdeploy: libguarded.so has been removed\n"));
    QCOMPARE(result.exitCode, 1);
}

void tst_Follow::tellsThatAFileIsNotLoaded_data()
{
    QTest::addColumn<QJsonValue>("door");
    QTest::addColumn<QString>("line");
    QTest::newRow("the host is asked") << QJsonValue(QJsonObject())
                                       << "librestless.so could not be loaded: thrown with a \\x1b[2J in it";
    QTest::newRow("the host has no door")
        << QJsonValue(false)
        << "librestless.so is not noted as good: it could not be loaded, or is not healthy; the log of the host tells";
}

void tst_Follow::tellsThatAFileIsNotLoaded()
{
    QFETCH(QJsonValue, door);
    QFETCH(QString, line);
    Site site(Site::probation(Short), QStringLiteral("constructor throw"), door); // of which the try-out knows nothing
    QVERIFY(site.isWatching());
    site.start(pluginFile(QStringLiteral("restless")));
    const Result result = site.end();
    QCOMPARE(result.err, QStringLiteral("zdeploy: %1\n").arg(line));
    QCOMPARE(result.exitCode, 1);
}

void tst_Follow::tellsThatTheMemoryOfTheHostCannotBeRead()
{
    const Place place;
    const HiddenLock lock(place.deployed());
    QVERIFY(lock.isHeld());
    QProcess process;
    process.start(QStringLiteral(ZDEPLOY),
                  {QStringLiteral("--wait"), pluginFile(QStringLiteral("plain")), place.hotDeploy()});
    QTRY_COMPARE_WITH_TIMEOUT(place.dropped(), QStringList{"libplain.so"}, Patience);
    place.deploy({"libplain.so"}, {"libplain.so"}); // as a host does
    QVERIFY(QFile::remove(place.hotDeploy() + QStringLiteral("/libplain.so")));
    const Result result = finish(process);
    QCOMPARE(result.err, QString());
    QCOMPARE(result.out, QStringLiteral("dropped as libplain.so\n"
                                        "libplain.so is good; whether it is loaded cannot be told\n"));
    QCOMPARE(result.exitCode, 0);
}

void tst_Follow::dropsNothingWhereNoHostRuns()
{
    const Place place;
    const QString plugin = pluginFile(QStringLiteral("plain"));
    const Result result = runProgram(QStringLiteral(ZDEPLOY), {QStringLiteral("--wait"), plugin, place.hotDeploy()});
    QCOMPARE(result.err, QStringLiteral("zdeploy: %1 cannot be dropped: no host runs on %2 that could be waited for\n")
                             .arg(plugin, place.deployed()));
    QCOMPARE(result.exitCode, 3);
    QCOMPARE(place.dropped(), QStringList());
}

QTEST_GUILESS_MAIN(tst_Follow)

#include "tst_follow.moc"
