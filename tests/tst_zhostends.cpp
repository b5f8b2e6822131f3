// SPDX-License-Identifier: Apache-2.0
#include "runninghost.h"
#include "testcase.h"

/// How the program zhost ends.
class tst_ZHostEnds : public TestCase
{
    Q_OBJECT

private Q_SLOTS:
    void startsInOrderAndStopsWellOn_data();
    void startsInOrderAndStopsWellOn();
    void secondSignalEndsAtOnce();
    void signalDuringTheStartIsHeardAfterIt();
    void secondSignalEndsAStartThatHangs();
    void pluginMayQuit_data();
    void pluginMayQuit();
    void pluginMayExit();
    void pluginMayNeedTheEventLoopToDie();
    void whatIsHeldToTheEndGoesWhileItsServicesAreThere_data();
    void whatIsHeldToTheEndGoesWhileItsServicesAreThere();
    void stopWaitsForWhatPluginsScheduled();
    void stopNamesWhatDoesNotEnd();
};

void tst_ZHostEnds::startsInOrderAndStopsWellOn_data()
{
    QTest::addColumn<int>("number");
    QTest::newRow("SIGINT") << SIGINT;
    QTest::newRow("SIGTERM") << SIGTERM;
}

void tst_ZHostEnds::startsInOrderAndStopsWellOn()
{
    QFETCH(int, number);
    const Folder deployed, hotDeploy;
    QVERIFY(deployed.drop(QStringLiteral("keeper")));
    Running host(loaderOf(deployed, hotDeploy, {QStringLiteral("keeper")}));
    // The logger was there before the loader, and the loader's own lines come through it.
    QTRY_VERIFY_WITH_TIMEOUT(
        host.hasWritten(QStringLiteral("[zdefault] [2] hot-deploy folder changed: ") + hotDeploy.path()), Patience);
    QVERIFY(host.written().indexOf(QStringLiteral("[zdefault] [1] loaded: keeper")) >= 0);
    host.signal(number);
    QTRY_COMPARE_WITH_TIMEOUT(host.process().state(), QProcess::NotRunning, Patience);
    QCOMPARE(host.process().exitStatus(), QProcess::NormalExit);
    QCOMPARE(host.process().exitCode(), 0);
}

void tst_ZHostEnds::secondSignalEndsAtOnce()
{
    // Its event loop is kept busy by nobody here, so both signals are sent before it can have looked at the first.
    const Folder deployed, hotDeploy;
    Running host(loaderOf(deployed, hotDeploy));
    QTRY_VERIFY_WITH_TIMEOUT(host.hasWritten(QStringLiteral("hot-deploy folder changed: ") + hotDeploy.path()),
                             Patience);
    host.signal(SIGSTOP);
    host.signal(SIGTERM);
    host.signal(SIGINT);
    host.signal(SIGCONT);
    QTRY_COMPARE_WITH_TIMEOUT(host.process().state(), QProcess::NotRunning, Patience);
    QCOMPARE(host.process().exitStatus(), QProcess::CrashExit);
}

void tst_ZHostEnds::signalDuringTheStartIsHeardAfterIt()
{
    const Folder deployed, hotDeploy;
    QVERIFY(deployed.drop(QStringLiteral("unruly")));
    Running host(loaderOf(deployed, hotDeploy, {QStringLiteral("unruly")}), QStringLiteral("read"));
    QTRY_VERIFY_WITH_TIMEOUT(host.hasWritten(QStringLiteral("unruly: here\n")), Patience);
    host.signal(SIGTERM);
    host.process().write("go on");
    QTRY_COMPARE_WITH_TIMEOUT(host.process().state(), QProcess::NotRunning, Patience);
    QVERIFY(host.hasWritten(QStringLiteral("loaded: unruly\n")));
    QVERIFY(host.hasWritten(QStringLiteral("unloaded: libunruly\n")));
    QCOMPARE(host.process().exitStatus(), QProcess::NormalExit);
    QCOMPARE(host.process().exitCode(), 0);
}

void tst_ZHostEnds::secondSignalEndsAStartThatHangs()
{
    const Folder deployed, hotDeploy;
    QVERIFY(deployed.drop(QStringLiteral("unruly")));
    Running host(loaderOf(deployed, hotDeploy, {QStringLiteral("unruly")}), QStringLiteral("read"));
    QTRY_VERIFY_WITH_TIMEOUT(host.hasWritten(QStringLiteral("unruly: here\n")), Patience);
    host.signal(SIGTERM);
    host.signal(SIGINT);
    QTRY_COMPARE_WITH_TIMEOUT(host.process().state(), QProcess::NotRunning, Patience);
    QCOMPARE(host.process().exitStatus(), QProcess::CrashExit);
}

void tst_ZHostEnds::pluginMayQuit_data()
{
    QTest::addColumn<bool>("atStart");
    QTest::newRow("while the host starts") << true;
    QTest::newRow("when it is dropped") << false;
}

void tst_ZHostEnds::pluginMayQuit()
{
    QFETCH(bool, atStart);
    const Folder deployed, hotDeploy;
    if (atStart)
        QVERIFY(hotDeploy.drop(QStringLiteral("unruly")));
    Running host(loaderOf(deployed, hotDeploy), QStringLiteral("quit"));
    QTRY_VERIFY_WITH_TIMEOUT(host.hasWritten(QStringLiteral("hot-deploy folder changed: ") + hotDeploy.path()),
                             Patience);
    if (!atStart)
        QVERIFY(hotDeploy.drop(QStringLiteral("unruly")));
    QTRY_COMPARE_WITH_TIMEOUT(host.process().state(), QProcess::NotRunning, Patience);
    QVERIFY(host.hasWritten(QStringLiteral("loaded: libunruly\n")));
    QVERIFY(host.hasWritten(QStringLiteral("unloaded: libunruly\n")));
    QCOMPARE(host.process().exitStatus(), QProcess::NormalExit);
    QCOMPARE(host.process().exitCode(), 0);
}

void tst_ZHostEnds::pluginMayExit()
{
    const Folder deployed, hotDeploy;
    QVERIFY(deployed.drop(QStringLiteral("unruly")));
    Running host(loaderOf(deployed, hotDeploy, {QStringLiteral("unruly")}), QStringLiteral("exit"));
    QTRY_COMPARE_WITH_TIMEOUT(host.process().state(), QProcess::NotRunning, Patience);
    QCOMPARE(host.process().exitStatus(), QProcess::NormalExit);
    QCOMPARE(host.process().exitCode(), 3);
}

void tst_ZHostEnds::pluginMayNeedTheEventLoopToDie()
{
    const Folder deployed, hotDeploy;
    QVERIFY(deployed.drop(QStringLiteral("unruly")));
    Running host(loaderOf(deployed, hotDeploy, {QStringLiteral("unruly")}), QStringLiteral("wait"));
    QTRY_VERIFY_WITH_TIMEOUT(host.hasWritten(QStringLiteral("loaded: unruly\n")), Patience);
    host.signal(SIGTERM);
    QTRY_COMPARE_WITH_TIMEOUT(host.process().state(), QProcess::NotRunning, Patience);
    QVERIFY(host.hasWritten(QStringLiteral("unruly: waited\n")));
    QVERIFY(host.hasWritten(QStringLiteral("unloaded: libunruly\n")));
    QCOMPARE(host.process().exitCode(), 0);
}

void tst_ZHostEnds::whatIsHeldToTheEndGoesWhileItsServicesAreThere_data()
{
    QTest::addColumn<QString>("holder");
    QTest::addColumn<int>("remnants");
    for (const char *const holder : {"activity", "thread", "service"}) {
        QTest::addRow("by its %s", holder) << holder << 0;
        QTest::addRow("by its %s, and leaves something behind", holder) << QString(holder) + " remnants" << 4;
    }
}

void tst_ZHostEnds::whatIsHeldToTheEndGoesWhileItsServicesAreThere()
{
    QFETCH(QString, holder);
    QFETCH(int, remnants);
    const Folder deployed, hotDeploy;
    QVERIFY(deployed.drop(QStringLiteral("lasting")));
    Running host(loaderOf(deployed, hotDeploy, {QStringLiteral("lasting")}), holder, QStringLiteral("LASTING"));
    QTRY_VERIFY_WITH_TIMEOUT(host.hasWritten(QStringLiteral("hot-deploy folder changed: ")), Patience);
    QVERIFY(!host.hasWritten(QStringLiteral("gone")));
    host.stop();
    QVERIFY2(host.hasEndedWell(), qPrintable(host.written()));
    const QStringList lines = host.written().split(QLatin1Char('\n')).filter(QStringLiteral("lasting"));
    QVERIFY2(host.written().contains(QStringLiteral("lasting: gone\n")), qPrintable(host.written()));
    QCOMPARE(host.written().count(QStringLiteral(" more\n")), remnants);
    QVERIFY2(lines.last().endsWith(QStringLiteral("unloaded: liblasting")), qPrintable(host.written()));
}

void tst_ZHostEnds::stopWaitsForWhatPluginsScheduled()
{
    const Folder deployed, hotDeploy;
    QVERIFY(deployed.drop(QStringLiteral("worker")));
    Running host(loaderOf(deployed, hotDeploy, {QStringLiteral("worker")}));
    QTRY_VERIFY_WITH_TIMEOUT(host.hasWritten(QStringLiteral("hot-deploy folder changed: ") + hotDeploy.path()),
                             Patience);
    host.signal(SIGTERM);
    QTRY_COMPARE_WITH_TIMEOUT(host.process().state(), QProcess::NotRunning, Patience);
    host.hasWritten(QString());
    QVERIFY2(!host.written().contains(QStringLiteral("left running")), qPrintable(host.written()));
    QCOMPARE(host.process().exitStatus(), QProcess::NormalExit);
    QCOMPARE(host.process().exitCode(), 0);
}

void tst_ZHostEnds::stopNamesWhatDoesNotEnd()
{
    const Folder deployed, hotDeploy;
    QVERIFY(deployed.drop(QStringLiteral("stubborn")));
    Running host(loaderOf(deployed, hotDeploy, {QStringLiteral("stubborn")}));
    QTRY_VERIFY_WITH_TIMEOUT(host.hasWritten(QStringLiteral("hot-deploy folder changed: ") + hotDeploy.path()),
                             Patience);
    host.signal(SIGTERM);
    QTRY_VERIFY_WITH_TIMEOUT(host.hasWritten(QStringLiteral("zhost: left running: ZSchedulerThread-work\n")), Patience);
    QTRY_COMPARE_WITH_TIMEOUT(host.process().state(), QProcess::NotRunning, Patience);
    QCOMPARE(host.process().exitStatus(), QProcess::NormalExit);
    QCOMPARE(host.process().exitCode(), 1);
}

QTEST_GUILESS_MAIN(tst_ZHostEnds)

#include "tst_zhostends.moc"
