// SPDX-License-Identifier: Apache-2.0
#include "guardedsite.h"
#include "testcase.h"

#include <QFile>

/// What the program zhost comes to hold of a version, and when.
class tst_Probation : public TestCase
{
    Q_OBJECT

private Q_SLOTS:
    void versionThatIsReplacedInItsProbationIsNotGood_data();
    void versionThatIsReplacedInItsProbationIsNotGood();
    void fileThatIsRenamedBackIsNeitherJudgedNorGood();
    void fileThatIsReplacedAfterItsLoadIsNotGood();
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

QTEST_GUILESS_MAIN(tst_Probation)
#include "tst_probation.moc"
