// SPDX-License-Identifier: Apache-2.0
#include "guardedsite.h"
#include "testcase.h"

#include <QDateTime>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QRegularExpression>
#include <QSet>

#include <cerrno>
#include <memory>
#include <vector>

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

/// The program zhost with plugins that it does not survive, or that are not healthy.
class tst_Guard : public TestCase
{
    Q_OBJECT

private Q_SLOTS:
    void crashIsToldWithItsPlugin_data();
    void crashIsToldWithItsPlugin();
    void signalFromOutsideEndsIt();
    void whatHasRunWellIsNoted();
    void whatTheLoadListNamesIsNoted_data();
    void whatTheLoadListNamesIsNoted();
    void hostComesBackOnTheLastGoodVersionByItself();
    void reasonsAreKeptAsLongAsTheirFiles();
    void guiltyOneGoesFirstAndThenTheOthers();
    void goodOneIsNeverTakenBack();
    void firstVersionIsTakenBackToo();
    void startsThatAreKilledCountAndThoseThatAreStoppedDoNot();
    void stopInProbationIsNoFailure();
    void guardCanBeSwitchedOff();
    void runsWhereNothingCanBeNoted_data();
    void runsWhereNothingCanBeNoted();
    void unhealthyVersionIsTakenBackUnderItsCallers_data();
    void unhealthyVersionIsTakenBackUnderItsCallers();
    void versionComesBackUnderANameThatIsNotInMemory();
    void versionThatCannotBeAskedIsGood();
    void unhealthyVersionWithoutAGoodOneServesOn();
    void onlyTheVersionThatAnswersIsJudged();
    void versionThatIsDeployedAgainIsNotJudged();
    void killedAnywhereTheNextStartIsRight_data();
    void killedAnywhereTheNextStartIsRight();
    void copiedOnesAreNotTakenBackForNothing();
    void killedWhileItTakesBackTheNextStartIsRight();
    void doesNotStartOnWhatCannotBeTakenBack_data();
    void doesNotStartOnWhatCannotBeTakenBack();
    void unhealthyVersionThatKeepsItsNameIsNotGood();
    void whatIsInQuarantineIsNotReplaced_data();
    void whatIsInQuarantineIsNotReplaced();
    void whoEndsTheHostIsTakenBackAtOnce_data();
    void whoEndsTheHostIsTakenBackAtOnce();
    void whoHangsWhileLoadedIsTakenBackAlone_data();
    void whoHangsWhileLoadedIsTakenBackAlone();
    void stopDuringTheLoadIsNoFailure();
    void versionsInAnotherCaseAreVersions();
    void takesBackWhileSomebodyDeploys();
};

void tst_Guard::crashIsToldWithItsPlugin_data()
{
    QTest::addColumn<QString>("plugin");
    QTest::addColumn<QString>("how");
    QTest::addColumn<QString>("when");
    const auto row = [](const char *deed, const char *how, const char *when) {
        QTest::newRow(deed) << guarded(deed) << QString::fromLatin1(how) << QString::fromLatin1(when);
    };
    row("CrashInWriter", "Segmentation fault", ", while loading guarded.2");
    row("TrapInWriter", "Trace/breakpoint trap", ", while loading guarded.2");
    row("CrashWithoutDescriptors", "Segmentation fault", ", while loading guarded.2");
    row("AbortInConstructor", "Aborted", ", while loading guarded.2");
    row("CallNothing", "Segmentation fault", ", while loading guarded.2");
    row("OverflowStack", "Segmentation fault", ", while loading guarded.2");
    row("ThrowOnThread", "Aborted", "");
    row("CrashLater", "Segmentation fault", "");
}

void tst_Guard::crashIsToldWithItsPlugin()
{
    QFETCH(QString, plugin);
    QFETCH(QString, how);
    QFETCH(QString, when);
    Site site;
    QVERIFY(site.deployed.drop(plugin, Two));
    site.start();
    QVERIFY(site.crashes());
    const QRegularExpression line(
        QStringLiteral("^zhost: ended by %1 in %2\\+0x[0-9a-f]+%3$").arg(how, site.deployed.filePath(Two), when),
        QRegularExpression::MultilineOption);
    QVERIFY2(line.match(site.written()).hasMatch(), qPrintable(site.written()));
    QCOMPARE(site.count(QStringLiteral("ended by")), 1);
    site.start();
    QTRY_VERIFY_WITH_TIMEOUT(site.hasWritten(takenBack(Two) + QStringLiteral("ended by %1 in ").arg(how)), Patience);
    QTRY_VERIFY_WITH_TIMEOUT(site.hasWritten(Watching), Patience);
    QCOMPARE(site.stop(), 0);
}

void tst_Guard::signalFromOutsideEndsIt()
{
    Site site;
    QVERIFY(site.deployed.drop(guarded("Serve"), One));
    site.start();
    QTRY_VERIFY_WITH_TIMEOUT(site.hasWritten(Watching), Patience);
    site.signal(SIGBUS);
    QVERIFY(site.crashes());
    QVERIFY(site.hasWritten(QStringLiteral("zhost: ended by Bus error")));
}

void tst_Guard::whatHasRunWellIsNoted()
{
    Site site;
    QVERIFY(startsWell(&site));
    const QFileInfo file(site.deployed.filePath(One));
    const QJsonObject entry = site.good().value(One).toObject();
    QCOMPARE(site.good().keys(), QStringList{One});
    QCOMPARE(entry.value(QStringLiteral("size")).toDouble(), double(file.size()));
    QCOMPARE(entry.value(QStringLiteral("mtime")).toDouble(), double(file.lastModified().toMSecsSinceEpoch()));
    const QDateTime since = QDateTime::fromString(entry.value(QStringLiteral("since")).toString(), Qt::ISODate);
    QVERIFY(since.isValid() && since.secsTo(QDateTime::currentDateTime()) < Patience / 1000);

    QVERIFY(site.deployed.drop(guarded("ServeUnasked"), Two));
    site.start();
    QTRY_VERIFY_WITH_TIMEOUT(site.isGood(Two), Patience);
    QCOMPARE(site.good().value(One).toObject(), entry); // it has been since then
    QCOMPARE(site.stop(), 0);
}

void tst_Guard::whatTheLoadListNamesIsNoted_data()
{
    QTest::addColumn<QString>("name");
    for (const char *const name : {"guarded", "libguarded", "libguarded.so"})
        QTest::newRow(name) << QString(name);
}

void tst_Guard::whatTheLoadListNamesIsNoted()
{
    QFETCH(QString, name);
    const QString plain = QStringLiteral("libguarded.so");
    Site site;
    QVERIFY(site.deployed.drop(guarded("Serve"), plain));
    site.loadList = {name};
    site.setProbation(Short);
    site.start();
    QTRY_COMPARE_WITH_TIMEOUT(site.good().keys(), QStringList{plain}, Patience);
    QCOMPARE(site.stop(), 0);
}

void tst_Guard::hostComesBackOnTheLastGoodVersionByItself()
{
    Site site;
    QVERIFY(startsWellWithCaller(&site));
    site.setProbation(4000);

    site.start();
    QTRY_VERIFY_WITH_TIMEOUT(!site.isStarting(), Patience);
    QVERIFY(site.hotDeploy.drop(guarded("CrashInWriter"), Two));
    QVERIFY(site.crashes());
    QVERIFY(site.hasWritten(QStringLiteral("+0x")));
    QVERIFY(site.hasWritten(QStringLiteral(", while loading guarded.2\n")));

    site.start();
    QTRY_VERIFY_WITH_TIMEOUT(site.hasWritten(loaded(One)), Patience);
    QVERIFY(site.hasWritten(takenBack(Two) + QStringLiteral("ended by Segmentation fault in ")));
    QVERIFY(site.hotDeploy.drop(guarded("CrashLater"), Three));
    QVERIFY(site.crashes());
    QVERIFY(site.hasWritten(loaded(Three)));

    site.start();
    QTRY_VERIFY_WITH_TIMEOUT(site.hasWritten(loaded(One)), Patience);
    QVERIFY(site.hasWritten(takenBack(Three) + QStringLiteral("ended by Segmentation fault in ")));
    QVERIFY(site.hotDeploy.drop(guarded("BeUnhealthy"), Four));
    const QString again = QStringLiteral("libguarded.5.so");
    QTRY_VERIFY_WITH_TIMEOUT(site.hasWritten(loaded(again)), Patience);
    QVERIFY(site.hasWritten(takenBack(Four) + QStringLiteral("//guarded/healthy was not handled, twice in a row\n")));
    QVERIFY(site.hasWritten(QStringLiteral("zhost: libguarded.1.so is deployed again, as libguarded.5.so\n")));
    QTRY_VERIFY_WITH_TIMEOUT(site.isGood(again), Patience);
    QCOMPARE(site.plugins(), QStringList({One, quarantined(Two), quarantined(Three), quarantined(Four), again}));
    QCOMPARE(site.stop(), 0);
    QVERIFY2(site.hasWritten(QStringLiteral("calls: many, lost: 0\n")), qPrintable(site.written()));
    QVERIFY(site.why(Two).startsWith(QStringLiteral("ended by Segmentation fault in ")));
    QVERIFY(site.why(Three).startsWith(QStringLiteral("ended by Segmentation fault in ")));
    QCOMPARE(site.why(Four), QStringLiteral("//guarded/healthy was not handled, twice in a row"));
}

void tst_Guard::reasonsAreKeptAsLongAsTheirFiles()
{
    Site site;
    QVERIFY(startsWell(&site));
    for (const QString &file : {Two, Three, Four}) {
        QVERIFY(site.deployed.drop(guarded("CrashInWriter"), file));
        site.start();
        QVERIFY(site.crashes());
        site.start();
        QTRY_VERIFY_WITH_TIMEOUT(!site.why(file).isEmpty(), Patience);
        QTRY_VERIFY_WITH_TIMEOUT(site.isDeployed(quarantined(file)), Patience);
        if (file == Two)
            QVERIFY(QFile::remove(site.deployed.filePath(quarantined(file))));
    }
    QVERIFY(site.why(Two).isEmpty());
    QVERIFY(!site.why(Three).isEmpty());
}

void tst_Guard::guiltyOneGoesFirstAndThenTheOthers()
{
    Site site;
    QVERIFY(startsWell(&site));
    QVERIFY(site.deployed.drop(guarded("Serve"), Two));
    QVERIFY(site.deployed.drop(guarded("CrashInWriter"), Three));
    site.start();
    QVERIFY(site.crashes());
    site.setCall("//guarded/crash"); // in the code of the version that serves by then
    site.setProbation(Long);
    site.start();
    QVERIFY(site.crashes());
    QCOMPARE(site.plugins(), QStringList({One, Two, quarantined(Three)}));
    site.schedule = {};
    site.start();
    QTRY_VERIFY_WITH_TIMEOUT(site.hasWritten(loaded(One)), Patience);
    QCOMPARE(site.plugins(), QStringList({One, quarantined(Two), quarantined(Three)}));
    QCOMPARE(site.stop(), 0);
}

void tst_Guard::goodOneIsNeverTakenBack()
{
    Site site;
    QVERIFY(startsWell(&site));
    site.setProbation(Long);
    site.setCall("//guarded/crash");
    for (int start = 0; start < 5; ++start) {
        site.start();
        QVERIFY(site.crashes());
    }
    site.start();
    QCOMPARE(site.exits(), Hopeless);
    QVERIFY2(site.hasWritten(QStringLiteral(", and nothing is left that could be taken back\n")),
             qPrintable(site.written()));
    QVERIFY(!site.hasWritten(QStringLiteral("loaded: ")));
    QCOMPARE(site.plugins(), QStringList{One});

    site.schedule = {};
    site.start(); // as an operator does, who has mended what was wrong
    QTRY_VERIFY_WITH_TIMEOUT(site.hasWritten(loaded(One)), Patience);
    QCOMPARE(site.stop(), 0);
}

void tst_Guard::firstVersionIsTakenBackToo()
{
    Site site;
    QVERIFY(site.deployed.drop(guarded("CrashInWriter"), One));
    QVERIFY(site.deployed.drop(QStringLiteral("caller")));
    site.start();
    QVERIFY(site.crashes());
    site.start();
    QTRY_VERIFY_WITH_TIMEOUT(site.hasWritten(takenBack(One)), Patience);
    QTRY_VERIFY_WITH_TIMEOUT(site.hasWritten(Watching), Patience);
    QVERIFY(site.isDeployed(QStringLiteral("libcaller.so"))); // there is nothing to compare with
    QCOMPARE(site.stop(), 0);
}

void tst_Guard::startsThatAreKilledCountAndThoseThatAreStoppedDoNot()
{
    Site site;
    QVERIFY(startsWell(&site));
    site.setProbation(Long);
    QVERIFY(site.deployed.drop(guarded("Serve"), Two));
    const auto isLoaded = [&](const QString &file) {
        site.start();
        return QTest::qWaitFor([&] { return site.hasWritten(loaded(file)); }, Patience);
    };
    QVERIFY(isLoaded(Two));
    site.kill();
    QVERIFY(isLoaded(Two));
    QTRY_VERIFY_WITH_TIMEOUT(site.hasWritten(Watching), Patience);
    QCOMPARE(site.stop(), 0);
    for (int start = 0; start < 2; ++start) {
        QVERIFY(isLoaded(Two));
        site.kill();
    }
    QVERIFY(isLoaded(One));
    QVERIFY(
        site.hasWritten(takenBack(Two) + QStringLiteral("2 starts in a row have not come as far as running well\n")));
    QVERIFY(!site.hasWritten(loaded(Two)));
}

void tst_Guard::stopInProbationIsNoFailure()
{
    Site site;
    QVERIFY(site.deployed.drop(guarded("Serve"), One));
    site.setProbation(Long);
    site.start();
    QTRY_VERIFY_WITH_TIMEOUT(site.hasWritten(Watching), Patience);
    QVERIFY(site.isStarting());
    QCOMPARE(site.stop(), 0);
    QVERIFY(!site.isStarting());
    QCOMPARE(site.good(), QJsonObject());
}

void tst_Guard::guardCanBeSwitchedOff()
{
    Site site;
    site.guard = false;
    QVERIFY(site.deployed.drop(guarded("CrashInWriter"), One));
    for (int start = 0; start < 4; ++start) {
        site.start();
        QVERIFY(site.crashes());
        QVERIFY(site.hasWritten(QStringLiteral(", while loading guarded.1\n")));
    }
    QCOMPARE(QDir(site.deployed.path()).entryList(QDir::Files | QDir::Hidden), QStringList{One});
}

void tst_Guard::runsWhereNothingCanBeNoted_data()
{
    QTest::addColumn<QString>("failing");
    QTest::newRow("read-only") << QStringLiteral("linkat %1 .zhost-draft").arg(EROFS);
    QTest::newRow("full") << QStringLiteral("write %1 /#").arg(ENOSPC); // a file that has no name yet
}

void tst_Guard::runsWhereNothingCanBeNoted()
{
    QFETCH(QString, failing);
    Site site;
    QVERIFY(site.deployed.drop(guarded("Serve"), One));
    site.setProbation(Short);
    site.start(failing);
    QTRY_VERIFY_WITH_TIMEOUT(site.hasWritten(Watching), Patience);
    QVERIFY(site.hotDeploy.drop(guarded("Serve"), Two));
    QTRY_VERIFY_WITH_TIMEOUT(site.hasWritten(loaded(Two)), Patience);
    QCOMPARE(site.stop(), 0);
    QCOMPARE(site.count(QStringLiteral("zhost: cannot write ")), 1);
    QVERIFY(site.hasWritten(QStringLiteral("; a bad version may not be taken back\n")));
}

void tst_Guard::unhealthyVersionIsTakenBackUnderItsCallers_data()
{
    QTest::addColumn<QString>("plugin");
    QTest::addColumn<QString>("why");
    QTest::newRow("not handled") << guarded("BeUnhealthy") << "//guarded/healthy was not handled, twice in a row\n";
    QTest::newRow("by a URL of its own") << guarded("NameItsHealth")
                                         << "//guarded/very/healthy was not handled, twice in a row\n";
    QTest::newRow("hangs") << guarded("HangWhenAsked") << "//guarded/healthy took too long, twice in a row\n";
}

void tst_Guard::unhealthyVersionIsTakenBackUnderItsCallers()
{
    QFETCH(QString, plugin);
    QFETCH(QString, why);
    Site site;
    QVERIFY(startsWellWithCaller(&site));
    site.setProbation(Long);
    site.start();
    QTRY_VERIFY_WITH_TIMEOUT(site.hasWritten(loaded(One)), Patience);
    QVERIFY(site.hotDeploy.drop(plugin, Two));
    QTRY_VERIFY_WITH_TIMEOUT(site.hasWritten(takenBack(Two) + why), Patience);
    QTRY_VERIFY_WITH_TIMEOUT(site.hasWritten(loaded(Three)), Patience);
    QVERIFY(site.hasWritten(QStringLiteral("zhost: libguarded.1.so is deployed again, as libguarded.3.so\n")));
    QCOMPARE(site.plugins(), QStringList({One, quarantined(Two), Three}));
    const bool hangs = plugin == guarded("HangWhenAsked");
    QCOMPARE(site.stop(), hangs ? 1 : 0);
    QCOMPARE(site.count(QStringLiteral("zhost: left running: //guarded/healthy\n")), hangs ? 1 : 0);
    QVERIFY2(site.hasWritten(QStringLiteral("calls: many, lost: 0\n")), qPrintable(site.written()));
}

void tst_Guard::versionComesBackUnderANameThatIsNotInMemory()
{
    Site site;
    QVERIFY(startsWell(&site));
    const Folder elsewhere;
    const QString held = elsewhere.filePath(Three); // some library: its name is all that can be told of it
    QVERIFY(QFile::copy(QStringLiteral(FAILING), held));
    const QByteArray others = qgetenv("LD_PRELOAD");
    qputenv("LD_PRELOAD", QFile::encodeName(held) + ' ' + others);
    site.setProbation(Long);
    site.start();
    qputenv("LD_PRELOAD", others);
    QTRY_VERIFY_WITH_TIMEOUT(site.hasWritten(loaded(One)), Patience);
    QVERIFY(site.hotDeploy.drop(guarded("BeUnhealthy"), Two));
    QTRY_VERIFY_WITH_TIMEOUT(site.hasWritten(takenBack(Two)), Patience);
    QTRY_VERIFY_WITH_TIMEOUT(site.hasWritten(loaded(Four)), Patience);
    QVERIFY(site.hasWritten(QStringLiteral("zhost: libguarded.1.so is deployed again, as libguarded.4.so\n")));
}

void tst_Guard::versionThatCannotBeAskedIsGood()
{
    Site site;
    site.setProbation(3000); // more than an unhealthy one has
    QVERIFY(site.deployed.drop(guarded("ServeUnasked"), One));
    site.start();
    QTRY_VERIFY_WITH_TIMEOUT(site.isGood(One), Patience);
    QVERIFY(site.hotDeploy.drop(guarded("ServeUnasked"), Two));
    QTRY_VERIFY_WITH_TIMEOUT(site.isGood(Two), Patience);
    QCOMPARE(site.stop(), 0);
    QVERIFY(!site.hasWritten(QStringLiteral("taken back")));
}

void tst_Guard::unhealthyVersionWithoutAGoodOneServesOn()
{
    Site site;
    site.setProbation(Long);
    site.start();
    QTRY_VERIFY_WITH_TIMEOUT(site.hasWritten(Watching), Patience);
    QVERIFY(site.hotDeploy.drop(guarded("BeUnhealthy"), One));
    QTRY_VERIFY_WITH_TIMEOUT(
        site.hasWritten(QStringLiteral(
            "zhost: no version before libguarded.1.so has run well: it serves on until the host ends\n")),
        Patience);
    QCOMPARE(site.plugins(), QStringList{quarantined(One)});
    QCOMPARE(site.stop(), 0);
}

void tst_Guard::onlyTheVersionThatAnswersIsJudged()
{
    Site site;
    QVERIFY(startsWell(&site));
    site.setProbation(Long);
    site.start();
    QTRY_VERIFY_WITH_TIMEOUT(site.hasWritten(loaded(One)), Patience);
    QVERIFY(site.hotDeploy.drop(guarded("Serve"), Two));
    QVERIFY(site.hotDeploy.drop(guarded("BeUnhealthy"), Three));
    QTRY_VERIFY_WITH_TIMEOUT(site.hasWritten(loaded(Four)), Patience);
    QCOMPARE(site.plugins(), QStringList({One, Two, quarantined(Three), Four}));
    QCOMPARE(site.stop(), 0);
    QCOMPARE(site.count(QStringLiteral("taken back")), 1);
}

void tst_Guard::versionThatIsDeployedAgainIsNotJudged()
{
    Site site;
    QVERIFY(startsWell(&site, "BeUnhealthy")); // nobody asks at a start
    site.setProbation(4000);
    site.start();
    QTRY_VERIFY_WITH_TIMEOUT(site.hasWritten(loaded(One)), Patience);
    QVERIFY(site.hotDeploy.drop(guarded("BeUnhealthy"), Two));
    QTRY_VERIFY_WITH_TIMEOUT(site.isGood(Three), Patience);
    QCOMPARE(site.plugins(), QStringList({One, quarantined(Two), Three}));
    QCOMPARE(site.stop(), 0);
    QCOMPARE(site.count(QStringLiteral("taken back")), 1);
}

void tst_Guard::killedAnywhereTheNextStartIsRight_data()
{
    QTest::addColumn<QString>("second"); // which version 2 is
    QTest::addColumn<bool>("isDropped"); // live
    QTest::addColumn<int>("before");     // starts that are not killed
    QTest::addColumn<bool>("isBad");
    QTest::newRow("it runs well") << guarded("Serve") << false << 0 << false;
    QTest::newRow("it runs well, dropped") << guarded("Serve") << true << 0 << false;
    QTest::newRow("it crashes") << guarded("CrashInWriter") << false << 0 << true;
    QTest::newRow("it crashes, dropped") << guarded("CrashInWriter") << true << 0 << true;
    QTest::newRow("it is taken back") << guarded("CrashInWriter") << false << 1 << true;
}

void tst_Guard::killedAnywhereTheNextStartIsRight()
{
    QFETCH(QString, second);
    QFETCH(bool, isDropped);
    QFETCH(int, before);
    QFETCH(bool, isBad);
    bool wasKilled = true;
    int call = 0;
    while (wasKilled) {
        Site site;
        QVERIFY(startsWell(&site));
        const auto isSettled = [&] {
            return site.hasEnded() || (site.hasWritten(Watching) && !site.isStarting() &&
                                       (site.isGood(Two) || site.isDeployed(quarantined(Two))));
        };
        QVERIFY(site.deployed.drop(QStringLiteral("caller"), Innocent)); // and not loaded
        if (!isDropped)
            QVERIFY(site.deployed.drop(second, Two));
        for (int start = 0; start < before; ++start) {
            site.start();
            QVERIFY(site.crashes());
        }
        site.start(QStringLiteral("kill %1 %2").arg(++call).arg(site.deployed.path()));
        if (isDropped)
            QVERIFY(site.hotDeploy.drop(second, Two));
        QTRY_VERIFY_WITH_TIMEOUT(isSettled(), Patience);
        site.stop();
        wasKilled = site.hasWritten(QStringLiteral("killed\n"));
        for (int start = 0; start < 3 && site.hasEnded(); ++start) { // as a service manager does
            site.start();
            QTRY_VERIFY_WITH_TIMEOUT(isSettled(), Patience);
        }
        QVERIFY2(!site.hasEnded(), qPrintable(QStringLiteral("call %1: ").arg(call) + site.written()));
        QCOMPARE(site.stop(), 0);
        QVERIFY(site.hasWritten(loaded(isBad ? One : Two)));
        QCOMPARE(site.plugins(), QStringList({One, isBad ? quarantined(Two) : Two}));
        QVERIFY(site.isDeployed(Innocent));
        QVERIFY(site.isGood(One));
        QCOMPARE(site.isGood(Two), !isBad);
    }
    QVERIFY2(call > 5, "it was hardly ever killed");
}

void tst_Guard::copiedOnesAreNotTakenBackForNothing()
{
    Site site;
    QVERIFY(startsWell(&site));
    QFile copy(site.deployed.filePath(One));
    QVERIFY(copy.open(QIODevice::ReadWrite));
    QVERIFY(copy.setFileTime(QDateTime::currentDateTime().addDays(1), QFileDevice::FileModificationTime));
    copy.close();
    site.setProbation(Long);
    for (int start = 0; start < 3; ++start) {
        site.start();
        QTRY_VERIFY_WITH_TIMEOUT(site.hasWritten(Watching), Patience);
        site.kill();
    }
    QCOMPARE(site.plugins(), QStringList{One}); // nothing that is there is known to be good
}

void tst_Guard::killedWhileItTakesBackTheNextStartIsRight()
{
    constexpr int AtOnce = 8;
    QSet<QStringList> ends;
    int killed = AtOnce;
    for (int call = 0; killed == AtOnce; call += AtOnce) {
        std::vector<std::unique_ptr<Site>> sites;
        for (int i = 0; i < AtOnce; ++i) {
            const auto &site = sites.emplace_back(std::make_unique<Site>());
            QVERIFY(startsWell(site.get()));
            site->setProbation(Long);
            QVERIFY(site->hotDeploy.drop(guarded("BeUnhealthy"), Two));
            site->start(QStringLiteral("kill %1 /zdefault-test-").arg(call + i + 1));
        }
        killed = 0;
        for (const auto &site : sites) {
            QTRY_VERIFY_WITH_TIMEOUT(site->hasEnded() || site->hasWritten(loaded(Three)), Patience);
            site->stop();
            killed += site->count(QStringLiteral("killed\n"));
            site->start();
            QTRY_VERIFY_WITH_TIMEOUT(site->hasWritten(Watching), Patience);
            // What waits in the folder that is watched is loaded after that line.
            QTRY_VERIFY_WITH_TIMEOUT(site->hasWritten(loaded(site->isDeployed(Two) ? Two : One)), Patience);
            QTRY_VERIFY_WITH_TIMEOUT(!site->isDeployed(Three) || site->hasWritten(loaded(Three)), Patience);
            QCOMPARE(site->stop(), 0);
            QVERIFY(!site->hasWritten(QStringLiteral("failed to load libguarded")));
            QCOMPARE(site->hotDeploy.files(), QStringList());
            ends.insert(site->plugins());
        }
    }
    const QSet<QStringList> expected{{One, Two}, {One, quarantined(Two)}, {One, quarantined(Two), Three}};
    QCOMPARE(ends, expected);
}

void tst_Guard::doesNotStartOnWhatCannotBeTakenBack_data()
{
    QTest::addColumn<QString>("file");
    QTest::addColumn<QString>("failing");
    QTest::addColumn<int>("error");
    QTest::newRow("the name is too long")
        << QStringLiteral("libguarded.%1.so").arg(QString(230, '2')) << QString() << ENAMETOOLONG;
    QTest::newRow("the folder is closed")
        << Two << QStringLiteral("renameat2 %1 libguarded.2.so").arg(EACCES) << EACCES;
}

void tst_Guard::doesNotStartOnWhatCannotBeTakenBack()
{
    QFETCH(QString, file);
    QFETCH(QString, failing);
    QFETCH(int, error);
    Site site;
    QVERIFY(startsWell(&site));
    QVERIFY(site.deployed.drop(guarded("CrashInWriter"), file));
    site.start();
    QVERIFY(site.crashes());
    for (int start = 0; start < 2; ++start) {
        site.start(failing);
        QCOMPARE(site.exits(), Hopeless);
        const QString line = QStringLiteral("zhost: %1 should be taken back, but cannot be renamed: %2: ended by ")
                                 .arg(file, qt_error_string(error));
        QVERIFY2(site.hasWritten(line), qPrintable(site.written()));
        QVERIFY(!site.hasWritten(QStringLiteral("loaded: ")));
    }
    QVERIFY(QFile::rename(site.deployed.filePath(file), site.deployed.filePath(QStringLiteral("bad")))); // by hand
    site.start();
    QTRY_VERIFY_WITH_TIMEOUT(site.hasWritten(loaded(One)), Patience);
    QVERIFY(site.hasWritten(QStringLiteral("zhost: %1 is gone already: ended by ").arg(file)));
    QCOMPARE(site.stop(), 0);
}

void tst_Guard::unhealthyVersionThatKeepsItsNameIsNotGood()
{
    Site site;
    QVERIFY(startsWell(&site));
    site.setProbation(4000);
    site.start(QStringLiteral("renameat2 %1 %2").arg(EACCES).arg(site.deployed.filePath(Two)));
    QTRY_VERIFY_WITH_TIMEOUT(site.hasWritten(Watching), Patience);
    QVERIFY(site.hotDeploy.drop(guarded("BeUnhealthy"), Two));
    QTRY_VERIFY_WITH_TIMEOUT(
        site.hasWritten(QStringLiteral("zhost: libguarded.2.so should be taken back, but cannot be renamed: ")),
        Patience);
    QTRY_VERIFY_WITH_TIMEOUT(!site.isStarting(), Patience);
    QVERIFY(site.isGood(One));
    QVERIFY(!site.isGood(Two));
    QCOMPARE(site.stop(), 0);
}

void tst_Guard::whatIsInQuarantineIsNotReplaced_data()
{
    QTest::addColumn<QString>("what");
    for (const char *const what : {"an older version", "a folder", "a link that leads nowhere"})
        QTest::newRow(what) << what;
}

void tst_Guard::whatIsInQuarantineIsNotReplaced()
{
    QFETCH(QString, what);
    Site site;
    QVERIFY(startsWell(&site));
    const QString first = quarantined(Two);
    const QString path = site.deployed.filePath(first);
    if (what == QStringLiteral("a folder"))
        QVERIFY(QDir().mkdir(path));
    else if (what == QStringLiteral("an older version"))
        QVERIFY(site.deployed.write(first, "older"));
    else
        QVERIFY(QFile::link(QStringLiteral("nowhere"), path));
    struct stat before, after;
    QCOMPARE(lstat(QFile::encodeName(path).constData(), &before), 0);
    for (const QString &name : {first + QStringLiteral(".1"), first + QStringLiteral(".2")}) {
        QVERIFY(site.deployed.drop(guarded("CrashInWriter"), Two));
        site.start();
        QVERIFY(site.crashes());
        site.start();
        QTRY_VERIFY_WITH_TIMEOUT(site.hasWritten(loaded(One)), Patience);
        QVERIFY(site.hasWritten(
            QStringLiteral("zhost: libguarded.2.so is taken back, and now called %1: ended by ").arg(name)));
        QVERIFY(site.whyCalled(name).startsWith(QStringLiteral("ended by ")));
        QVERIFY(!site.isDeployed(Two));
        QCOMPARE(site.stop(), 0);
    }
    QVERIFY(!site.whyCalled(first + QStringLiteral(".1")).isEmpty()); // it is kept
    QCOMPARE(lstat(QFile::encodeName(path).constData(), &after), 0);
    QCOMPARE(after.st_ino, before.st_ino);
}

void tst_Guard::whoEndsTheHostIsTakenBackAtOnce_data()
{
    QTest::addColumn<QString>("plugin");
    QTest::addColumn<QString>("why");
    QTest::addColumn<bool>("isKnown"); // which one it was
    QTest::newRow("exit") << guarded("ExitInWriter") << QStringLiteral("ended by exit(0), called by %1\n") << true;
    QTest::newRow("quit") << guarded("QuitInWriter") << QStringLiteral("ended by quit(), called by a plugin\n")
                          << false;
}

void tst_Guard::whoEndsTheHostIsTakenBackAtOnce()
{
    QFETCH(QString, plugin);
    QFETCH(QString, why);
    QFETCH(bool, isKnown);
    Site site;
    QVERIFY(startsWell(&site));
    site.setProbation(Long);
    QVERIFY(site.deployed.drop(plugin, Two));
    QVERIFY(site.deployed.drop(guarded("Serve"), Three));
    site.start();
    QCOMPARE(site.exits(), 3);
    site.start();
    QTRY_VERIFY_WITH_TIMEOUT(site.hasWritten(Watching), Patience);
    const QString reason = isKnown ? why.arg(site.deployed.filePath(Two)) : why;
    QVERIFY2(site.hasWritten(takenBack(Two) + reason), qPrintable(site.written()));
    QCOMPARE(site.isDeployed(Three), isKnown);
    QCOMPARE(site.stop(), 0);
}

void tst_Guard::whoHangsWhileLoadedIsTakenBackAlone_data()
{
    QTest::addColumn<bool>("isDropped"); // live
    QTest::addColumn<bool>("isFirst");   // nothing is known to be good
    QTest::newRow("at a start") << false << false;
    QTest::newRow("dropped") << true << false;
    QTest::newRow("first") << false << true;
    QTest::newRow("first, dropped") << true << true;
}

void tst_Guard::whoHangsWhileLoadedIsTakenBackAlone()
{
    QFETCH(bool, isDropped);
    QFETCH(bool, isFirst);
    Site site;
    QVERIFY(isFirst || startsWell(&site));
    site.setProbation(isDropped ? Short : Long);
    QVERIFY(site.deployed.drop(guarded("Serve"), Last));
    if (isDropped) {
        site.start();
        QTRY_VERIFY_WITH_TIMEOUT(site.isGood(Last) && !site.isStarting(), Patience);
        QCOMPARE(site.loading(), QByteArray());
        QVERIFY(site.hotDeploy.drop(guarded("HangInWriter"), Two));
    } else {
        QVERIFY(site.deployed.drop(guarded("HangInWriter"), Two));
        site.start();
    }
    const QString hangs = QStringLiteral("guarded: hangs\n");
    QTRY_VERIFY_WITH_TIMEOUT(site.hasWritten(hangs), Patience);
    QCOMPARE(site.loading(), Two.toLatin1());
    site.kill();
    site.start();
    QTRY_VERIFY_WITH_TIMEOUT(site.hasWritten(hangs), Patience);
    site.kill();
    site.start();
    QTRY_VERIFY_WITH_TIMEOUT(site.hasWritten(loaded(Last)), Patience);
    QVERIFY2(site.hasWritten(takenBack(Two) +
                             QStringLiteral("2 starts in a row have not come as far as running well, the last while "
                                            "loading libguarded.2.so\n")),
             qPrintable(site.written()));
    QVERIFY(site.isDeployed(Last));
    QTRY_VERIFY_WITH_TIMEOUT(site.hasWritten(Watching), Patience);
    QCOMPARE(site.stop(), 0);
}

void tst_Guard::stopDuringTheLoadIsNoFailure()
{
    Site site;
    QVERIFY(site.deployed.drop(guarded("StopInWriter"), One));
    QVERIFY(site.deployed.drop(guarded("HangWhenAsked"), Two)); // and nobody asks
    site.setProbation(Short);
    for (int start = 0; start < 3; ++start) {
        site.start();
        QCOMPARE(site.exits(), 0);
        QVERIFY(site.hasWritten(loaded(Two)));
        QVERIFY(!site.isStarting());
        QCOMPARE(site.loading(), QByteArray());
        QCOMPARE(site.good(), QJsonObject());
        QCOMPARE(site.plugins(), QStringList({One, Two}));
    }
}

void tst_Guard::versionsInAnotherCaseAreVersions()
{
    Site site;
    QVERIFY(startsWell(&site, "Serve", QStringLiteral("libguarded.so")));
    site.setProbation(Long);
    site.start();
    QTRY_VERIFY_WITH_TIMEOUT(site.hasWritten(Watching), Patience);
    const QString bad = QStringLiteral("libGuarded.0001.so");
    QVERIFY(site.hotDeploy.drop(guarded("BeUnhealthy"), bad));
    QTRY_VERIFY_WITH_TIMEOUT(site.hasWritten(takenBack(bad)), Patience);
    QTRY_VERIFY_WITH_TIMEOUT(
        site.hasWritten(QStringLiteral("zhost: libguarded.so is deployed again, as libGuarded.0002.so\n")), Patience);
    QTRY_VERIFY_WITH_TIMEOUT(site.hasWritten(loaded(QStringLiteral("libGuarded.0002.so"))), Patience);
    QCOMPARE(site.stop(), 0);
}

void tst_Guard::takesBackWhileSomebodyDeploys()
{
    Site site;
    QVERIFY(startsWell(&site));
    QVERIFY(QFile::setPermissions(site.deployed.filePath(One), QFileDevice::ReadOwner | QFileDevice::WriteOwner));
    const QByteArray folder = QFile::encodeName(site.hotDeploy.path());
    const int descriptor = open(folder.constData(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    QVERIFY(flock(descriptor, LOCK_EX) == 0);
    site.setProbation(Long);
    site.start();
    QTRY_VERIFY_WITH_TIMEOUT(site.hasWritten(Watching), Patience);
    QVERIFY(site.hotDeploy.drop(guarded("BeUnhealthy"), Two));
    QTRY_VERIFY_WITH_TIMEOUT(site.hasWritten(loaded(Three)), Patience);
    close(descriptor);
    struct stat status;
    QCOMPARE(stat(QFile::encodeName(site.deployed.filePath(Three)).constData(), &status), 0);
    QCOMPARE(int(status.st_mode & 07777), 0444); // as zdeploy leaves it, whatever the source has
    QCOMPARE(site.stop(), 0);
}

QTEST_GUILESS_MAIN(tst_Guard)
#include "tst_guard.moc"
