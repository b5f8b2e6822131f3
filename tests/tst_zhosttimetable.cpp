// SPDX-License-Identifier: Apache-2.0
#include "runninghost.h"
#include "testcase.h"

/// The calls that zhost makes on a timetable.
class tst_ZHostTimetable : public TestCase
{
    Q_OBJECT

private Q_SLOTS:
    void callsTheTimetable();
    void saysWhyAnEntryEnds_data();
    void saysWhyAnEntryEnds();
    void saysNothingOfACallThatWasToBeMadeOnce();
    void keepsAnEntryThatNobodyHandles();
    void livesThroughExceptionsOfAnEntryThatIsKept();
};

namespace {

QJsonObject kept(QJsonObject entry)
{
    entry.insert(QStringLiteral("keep"), true);
    return entry;
}

/// The host with the plugin "echo" and this timetable.
QJsonObject calling(const Folder &deployed, const Folder &hotDeploy, const QJsonArray &schedule,
                    const QStringList &names = {QStringLiteral("echo")})
{
    deployed.drop(QStringLiteral("echo"));
    QJsonObject configuration = loaderOf(deployed, hotDeploy, names);
    configuration.insert(QStringLiteral("schedule"), schedule);
    return configuration;
}

} // namespace

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

void tst_ZHostTimetable::saysWhyAnEntryEnds_data()
{
    QTest::addColumn<QString>("url");
    QTest::addColumn<bool>("repeat");
    QTest::addColumn<QString>("reason");
    QTest::newRow("nobody is there") << "//nobody" << true << "nobody handled //nobody";
    QTest::newRow("nobody handles it") << "//echo/deaf" << true << "nobody handled //echo/deaf";
    QTest::newRow("an exception") << "//echo/throw" << true << "//echo/throw has thrown: no more";
    QTest::newRow("something else is thrown")
        << "//echo/odd" << true << "//echo/odd has thrown: an exception of an unknown type";
    QTest::newRow("what is called once") << "//nobody" << false << "nobody handled //nobody";
}

void tst_ZHostTimetable::saysWhyAnEntryEnds()
{
    QFETCH(QString, url);
    QFETCH(bool, repeat);
    QFETCH(QString, reason);
    const Folder deployed, hotDeploy;
    Running host(calling(deployed, hotDeploy, {entry("//echo/often"), entry(qPrintable(url), repeat)}));
    QTRY_VERIFY_WITH_TIMEOUT(host.hasWritten(QStringLiteral("zhost: schedule[1] has ended: %1\n").arg(reason)),
                             Patience);
    const int calls = host.written().count(QStringLiteral("echo: //echo/often\n"));
    QTRY_VERIFY_WITH_TIMEOUT(host.hasWritten(QString()) &&
                                 host.written().count(QStringLiteral("echo: //echo/often\n")) > calls + 5,
                             Patience);
    host.stop();
    QVERIFY2(host.hasEndedWell(), qPrintable(host.written()));
    QCOMPARE(host.written().count(QStringLiteral("schedule[")), 1);
}

void tst_ZHostTimetable::saysNothingOfACallThatWasToBeMadeOnce()
{
    const Folder deployed, hotDeploy;
    Running host(calling(deployed, hotDeploy, {entry("//echo/once", false), entry("//echo/often")}));
    QTRY_VERIFY_WITH_TIMEOUT(host.hasWritten(QStringLiteral("echo: //echo/once\n")), Patience);
    QTRY_VERIFY_WITH_TIMEOUT(host.hasWritten(QStringLiteral("echo: //echo/often\n")), Patience);
    host.stop();
    QVERIFY2(host.hasEndedWell(), qPrintable(host.written()));
    QVERIFY2(!host.written().contains(QStringLiteral("schedule[")), qPrintable(host.written()));
}

void tst_ZHostTimetable::keepsAnEntryThatNobodyHandles()
{
    const Folder deployed, hotDeploy;
    Running host(calling(deployed, hotDeploy, {kept(entry("//echo/late"))}, {}));
    QTRY_VERIFY_WITH_TIMEOUT(
        host.hasWritten(QStringLiteral("zhost: schedule[0] is kept: nobody handled //echo/late\n")), Patience);
    QTRY_VERIFY_WITH_TIMEOUT(host.hasWritten(QStringLiteral("hot-deploy folder changed: ")), Patience);
    QVERIFY(hotDeploy.drop(QStringLiteral("echo"), QStringLiteral("libecho.2.so")));
    QTRY_VERIFY_WITH_TIMEOUT(host.hasWritten(QStringLiteral("echo: //echo/late\n")), Patience);
    QCOMPARE(host.written().count(QStringLiteral("schedule[0]")), 1); // not for each of its calls
    host.stop();
    QVERIFY2(host.hasEndedWell(), qPrintable(host.written()));
}

void tst_ZHostTimetable::livesThroughExceptionsOfAnEntryThatIsKept()
{
    const Folder deployed, hotDeploy;
    QJsonObject configuration = calling(deployed, hotDeploy, {kept(entry("//echo/throw"))});
    configuration.insert(QStringLiteral("logger"),
                         QJsonObject{{QStringLiteral("log"), QJsonObject{{QStringLiteral("zdefault"), 8}}}});
    Running host(configuration);
    const QString call = QStringLiteral("(>) //echo/throw\n");
    QTRY_VERIFY_WITH_TIMEOUT(host.hasWritten(QString()) && host.written().count(call) > 5, Patience);
    QCOMPARE(host.written().count(QStringLiteral("zhost: schedule[0] is kept: //echo/throw has thrown: no more\n")), 1);
    host.stop();
    QVERIFY2(host.hasEndedWell(), qPrintable(host.written()));
}

QTEST_GUILESS_MAIN(tst_ZHostTimetable)

#include "tst_zhosttimetable.moc"
