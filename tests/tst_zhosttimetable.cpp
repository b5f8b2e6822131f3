// SPDX-License-Identifier: Apache-2.0
#include "runninghost.h"
#include "testcase.h"

/// The calls that zhost makes on a timetable.
class tst_ZHostTimetable : public TestCase
{
    Q_OBJECT

private Q_SLOTS:
    void callsTheTimetable();
};

void tst_ZHostTimetable::callsTheTimetable()
{
    const Folder deployed, hotDeploy;
    QVERIFY(deployed.drop(QStringLiteral("echo")));
    QJsonObject configuration = loaderOf(deployed, hotDeploy, {QStringLiteral("echo")});
    configuration.insert(QStringLiteral("logger"), QJsonObject{{QStringLiteral("info"), 1}});
    configuration.insert(QStringLiteral("schedule"),
                         QJsonArray{entry("//echo/once", false), 3, entry("//echo/often", true)});
    Running host(configuration);
    QTRY_VERIFY_WITH_TIMEOUT(
        host.hasWritten(QString()) && host.written().count(QStringLiteral("echo: //echo/often\n")) >= 5, Patience);
    QCOMPARE(host.written().count(QStringLiteral("echo: //echo/once\n")), 1);
    QVERIFY(host.written().contains(QStringLiteral("\"schedule[1]\": must be an object; it does not run\n")));
    host.signal(SIGTERM);
    QTRY_COMPARE_WITH_TIMEOUT(host.process().state(), QProcess::NotRunning, Patience);
    QCOMPARE(host.process().exitCode(), 0);
}

QTEST_GUILESS_MAIN(tst_ZHostTimetable)

#include "tst_zhosttimetable.moc"
