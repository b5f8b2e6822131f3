// SPDX-License-Identifier: Apache-2.0
#include "guardedsite.h"
#include "testcase.h"

#include <QDir>
#include <QFile>

#include <cerrno>

/// What the program zhost comes to hold of a version, and when.
class tst_Probation : public TestCase
{
    Q_OBJECT

private Q_SLOTS:
    void versionThatIsReplacedInItsProbationIsNotGood_data();
    void versionThatIsReplacedInItsProbationIsNotGood();
    void fileThatIsRenamedBackIsNeitherJudgedNorGood();
    void fileThatIsReplacedAfterItsLoadIsNotGood();
    void crashOfWhatIsAwayTakesNothingBack_data();
    void crashOfWhatIsAwayTakesNothingBack();
    void unhealthyVersionThatMetAStopIsTakenBackAfterAll();
    void unhealthyVersionWithoutAGoodOneServesOnAtEachStart();
    void notesOfSomebodyElseAreReplaced();
    void whatCouldNotBeLoadedIsListedSo();
    void folderThatIsAwayIsNotAnEmptyOne();
    void versionThatRunsTheEventLoopWhileLoadedIsJudged();
};

void tst_Probation::versionThatIsReplacedInItsProbationIsNotGood_data()
{
    QTest::addColumn<bool>("isDropped"); // live
    QTest::newRow("at a start") << false;
    QTest::newRow("dropped") << true;
}

void tst_Probation::versionThatIsReplacedInItsProbationIsNotGood()
{
    QFETCH(bool, isDropped);
    Site site;
    QVERIFY(startsWell(&site));
    site.setProbation(4000);
    if (!isDropped)
        QVERIFY(site.deployed.drop(guarded("BeUnhealthy"), Two));
    site.start();
    QTRY_VERIFY_WITH_TIMEOUT(site.hasWritten(Watching), Patience);
    if (isDropped)
        QVERIFY(site.hotDeploy.drop(guarded("BeUnhealthy"), Two));
    QTRY_VERIFY_WITH_TIMEOUT(site.hasWritten(loaded(Two)), Patience);
    QVERIFY(site.hotDeploy.drop(guarded("Serve"), Three));
    QTRY_VERIFY_WITH_TIMEOUT(site.isGood(Three), Patience);
    QCOMPARE(site.stop(), 0);
    QVERIFY2(!site.hasWritten(QStringLiteral("taken back")), qPrintable(site.written())); // it had no time
    QCOMPARE(site.good().keys(), QStringList({One, Three}));
}

void tst_Probation::fileThatIsRenamedBackIsNeitherJudgedNorGood()
{
    Site site;
    QVERIFY(startsWell(&site));
    QVERIFY(site.deployed.drop(guarded("Serve"), quarantined(Two)));
    site.setProbation(4000);
    site.start();
    QTRY_VERIFY_WITH_TIMEOUT(site.hasWritten(Watching), Patience);
    QVERIFY(site.hotDeploy.drop(guarded("BeUnhealthy"), Three));
    QTRY_VERIFY_WITH_TIMEOUT(site.hasWritten(loaded(Three)), Patience);
    QVERIFY(QFile::rename(site.deployed.filePath(quarantined(Two)), site.deployed.filePath(Two)));
    QTRY_VERIFY_WITH_TIMEOUT(site.isGood(Four), Patience); // version 1, once more
    QVERIFY2(site.hasWritten(takenBack(Three)), qPrintable(site.written()));
    QCOMPARE(site.good().keys(), QStringList({One, Four}));
    QCOMPARE(site.plugins(), QStringList({One, Two, quarantined(Three), Four}));
    QCOMPARE(site.stop(), 0);
}

void tst_Probation::fileThatIsReplacedAfterItsLoadIsNotGood()
{
    Site site;
    QVERIFY(startsWell(&site));
    site.setProbation(3000);
    site.start();
    QTRY_VERIFY_WITH_TIMEOUT(site.hasWritten(Watching), Patience);
    QVERIFY(site.hotDeploy.drop(guarded("Serve"), Two));
    QTRY_VERIFY_WITH_TIMEOUT(site.hasWritten(loaded(Two)), Patience);
    QVERIFY(QFile::remove(site.deployed.filePath(Two)));
    QVERIFY(site.deployed.drop(guarded("CrashInWriter"), Two));
    QTRY_VERIFY_WITH_TIMEOUT(!site.isStarting(), Patience);
    QCOMPARE(site.good().keys(), QStringList{One});
    QCOMPARE(site.stop(), 0);
}

void tst_Probation::crashOfWhatIsAwayTakesNothingBack_data()
{
    QTest::addColumn<bool>("isRemoved"); // by an operator, when it has been taken back
    QTest::newRow("in quarantine") << false;
    QTest::newRow("removed") << true;
}

void tst_Probation::crashOfWhatIsAwayTakesNothingBack()
{
    QFETCH(bool, isRemoved);
    Site site;
    site.loadList = {QStringLiteral("other")}; // good, so that there is something to compare with
    QVERIFY(startsWell(&site, "ServeUnasked", QStringLiteral("libother.so")));
    site.setProbation(Long);
    site.start();
    QTRY_VERIFY_WITH_TIMEOUT(site.hasWritten(Watching), Patience);
    QVERIFY(site.hotDeploy.drop(QStringLiteral("greeter"), Innocent));
    QTRY_VERIFY_WITH_TIMEOUT(site.isDeployed(Innocent), Patience);
    QVERIFY(site.hotDeploy.drop(guarded(isRemoved ? "CrashWithoutFile" : "CrashInQuarantine"), One));
    if (isRemoved) {
        QTRY_VERIFY_WITH_TIMEOUT(site.hasWritten(loaded(One)), Patience);
        QVERIFY(QFile::remove(site.deployed.filePath(One)));
    }
    QVERIFY(site.crashes());
    site.start();
    QTRY_VERIFY_WITH_TIMEOUT(site.hasWritten(Watching), Patience);
    QVERIFY2(
        site.hasWritten(QStringLiteral("zhost: nothing is taken back, for the guilty one is away already: ended by "
                                       "Segmentation fault in ")),
        qPrintable(site.written()));
    QVERIFY(site.isDeployed(Innocent));
    QCOMPARE(site.stop(), 0);
}

void tst_Probation::unhealthyVersionThatMetAStopIsTakenBackAfterAll()
{
    Site site;
    QVERIFY(startsWellWithCaller(&site));
    site.setProbation(4000);
    site.start();
    QTRY_VERIFY_WITH_TIMEOUT(site.hasWritten(Watching), Patience);
    QVERIFY(site.hotDeploy.drop(guarded("BeUnhealthy"), Two));
    QTRY_VERIFY_WITH_TIMEOUT(site.hasWritten(loaded(Two)), Patience);
    QCOMPARE(site.stop(), 0);
    QCOMPARE(site.plugins(), QStringList({One, Two}));

    site.start();
    QTRY_VERIFY_WITH_TIMEOUT(site.isGood(Three), Patience);
    QVERIFY(site.hasWritten(takenBack(Two) + QStringLiteral("//guarded/healthy was not handled, twice in a row\n")));
    QVERIFY(site.hasWritten(QStringLiteral("zhost: libguarded.1.so is deployed again, as libguarded.3.so\n")));
    QCOMPARE(site.plugins(), QStringList({One, quarantined(Two), Three}));
    QCOMPARE(site.stop(), 0);
    QVERIFY2(site.hasWritten(QStringLiteral("calls: many, lost: 0\n")), qPrintable(site.written()));
}

void tst_Probation::unhealthyVersionWithoutAGoodOneServesOnAtEachStart()
{
    Site site;
    QVERIFY(site.deployed.drop(guarded("BeUnhealthy"), One));
    site.setProbation(4000);
    site.start();
    const QString line = QStringLiteral("zhost: libguarded.1.so serves on, though it is not healthy, for no version "
                                        "before it has run well: //guarded/healthy was not handled, twice in a row\n");
    QTRY_VERIFY_WITH_TIMEOUT(site.hasWritten(line), Patience);
    QVERIFY(site.hotDeploy.drop(QStringLiteral("greeter"), Innocent)); // a probation of which it is no part
    QTRY_VERIFY_WITH_TIMEOUT(site.isGood(Innocent), Patience);
    QCOMPARE(site.stop(), 0);
    QCOMPARE(site.count(line), 1);
    QCOMPARE(site.good().keys(), QStringList{Innocent});
    QCOMPARE(site.plugins(), QStringList{One});
}

void tst_Probation::notesOfSomebodyElseAreReplaced()
{
    Site site;
    QVERIFY(startsWell(&site));
    const QString note = site.deployed.filePath(QStringLiteral("good.json"));
    QVERIFY(QFile::setPermissions(
        note, QFileDevice::ReadOwner)); // as one of root is to others; root may write it all the same
    QVERIFY(site.deployed.drop(guarded("Serve"), Two));
    site.start();
    QTRY_VERIFY_WITH_TIMEOUT(site.isGood(Two), Patience);
    QCOMPARE(site.stop(), 0);
    QVERIFY2(!site.hasWritten(QStringLiteral("cannot write")), qPrintable(site.written()));
}

void tst_Probation::whatCouldNotBeLoadedIsListedSo()
{
    Site site;
    QVERIFY(startsWell(&site));
    site.setProbation(Short);
    const auto list = [&] {
        QProcess zdeploy;
        zdeploy.start(QStringLiteral(ZDEPLOY), {QStringLiteral("--list"), site.hotDeploy.path(),
                                                QStringLiteral("--deployed"), site.deployed.path()});
        zdeploy.waitForFinished(Patience);
        return QString::fromUtf8(zdeploy.readAllStandardOutput());
    };
    const QString failed = QStringLiteral("libguarded.2.so: not known to be good: could not be loaded: ");
    site.start();
    QTRY_VERIFY_WITH_TIMEOUT(site.hasWritten(Watching) && !site.isStarting(), Patience);
    QVERIFY(site.deployed.write(quarantined(Two), "no plugin"));
    QVERIFY(QFile::rename(site.deployed.filePath(quarantined(Two)), site.hotDeploy.filePath(Two)));
    QTRY_VERIFY_WITH_TIMEOUT(list().contains(failed), Patience);
    QVERIFY(site.hotDeploy.drop(guarded("Serve"), Three));
    QTRY_VERIFY_WITH_TIMEOUT(site.isGood(Three), Patience);
    QVERIFY(list().contains(failed));
    QVERIFY(!site.isGood(Two));
    QCOMPARE(site.stop(), 0);

    QVERIFY(QFile::remove(site.deployed.filePath(Two)));
    QVERIFY(site.deployed.drop(guarded("Serve"), Two));
    QVERIFY(list().contains(QStringLiteral("libguarded.2.so: not known to be good\n"))); // it is another file
    site.start(QStringLiteral("open %1 %2").arg(EACCES).arg(Two));
    QTRY_VERIFY_WITH_TIMEOUT(list().contains(failed), Patience);
    QCOMPARE(site.stop(), 0);
    site.start();
    QTRY_VERIFY_WITH_TIMEOUT(site.hasWritten(Watching), Patience);
    QTRY_VERIFY_WITH_TIMEOUT(!list().contains(QStringLiteral("could not be loaded")), Patience);
    QCOMPARE(site.stop(), 0);
}

void tst_Probation::folderThatIsAwayIsNotAnEmptyOne()
{
    Site site;
    QVERIFY(startsWell(&site));
    const QJsonObject good = site.good();
    site.setProbation(Short);
    site.start();
    QTRY_VERIFY_WITH_TIMEOUT(site.hasWritten(Watching) && !site.isStarting(), Patience);
    const QString away = site.deployed.path() + QStringLiteral(".away");
    QVERIFY(QDir().rename(site.deployed.path(), away));
    QFile newcomer(away + QStringLiteral("/new")); // the host hears of it
    QVERIFY(newcomer.open(QIODevice::WriteOnly));
    const QString line = QStringLiteral("zhost: cannot read %1: No such file or directory; what is there is not judged "
                                        "until that is mended\n")
                             .arg(site.deployed.path());
    QTRY_VERIFY_WITH_TIMEOUT(site.hasWritten(line), Patience);
    QVERIFY(QDir().rename(away, site.deployed.path()));
    QVERIFY(site.hotDeploy.drop(guarded("Serve"), Two));
    QTRY_VERIFY_WITH_TIMEOUT(site.isGood(Two), Patience);
    QCOMPARE(site.good().value(One), good.value(One)); // it has been since then
    QCOMPARE(site.stop(), 0);
    QCOMPARE(site.count(line), 1);
    QVERIFY2(!site.hasWritten(QStringLiteral("cannot write")), qPrintable(site.written()));
}

void tst_Probation::versionThatRunsTheEventLoopWhileLoadedIsJudged()
{
    Site site;
    QVERIFY(startsWell(&site));
    site.setProbation(4000);
    site.start();
    QTRY_VERIFY_WITH_TIMEOUT(site.hasWritten(Watching) && !site.isStarting(), Patience);
    QVERIFY(site.hotDeploy.drop(guarded("LookAroundInWriter"), Two)); // and is unhealthy
    QTRY_VERIFY_WITH_TIMEOUT(site.hasWritten(takenBack(Two)), Patience);
    QCOMPARE(site.stop(), 0);
}

QTEST_GUILESS_MAIN(tst_Probation)
#include "tst_probation.moc"
