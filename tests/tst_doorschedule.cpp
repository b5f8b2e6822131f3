// SPDX-License-Identifier: Apache-2.0
// What the door tells of a host's schedule, and does with it.
#include "door/doorhost.h"
#include "testcase.h"

#include <QScopeGuard>

#include <thread>

class tst_DoorSchedule : public TestCase
{
    Q_OBJECT

private Q_SLOTS:
    void runsAnEntry();
    void countsFailuresInARow();
    void doesNotRunWhatRuns();
    void doesNotRunWhatSomebodyElseRuns();
    void tellsWhyAnEntryHasEnded_data();
    void tellsWhyAnEntryHasEnded();
    void cancelsAnEntry();
    void restartsAnEntry();
    void knowsNoSuchEntry_data();
    void knowsNoSuchEntry();
};

namespace {

const QString Echo = QStringLiteral("echo");
const QString Lodger = QStringLiteral("lodger");
constexpr int Hour = 3600000;

QJsonObject every(int ms, const QString &url, bool repeat = true, bool keep = true)
{
    return {{QStringLiteral("url"), url},
            {QStringLiteral("every"), ms},
            {QStringLiteral("repeat"), repeat},
            {QStringLiteral("keep"), keep}};
}

QJsonObject entryOf(const DoorHost &host) { return host.find("schedule", "index", 0); }

} // namespace

void tst_DoorSchedule::runsAnEntry()
{
    DoorHost host;
    host.schedule = {every(Hour, QStringLiteral("//echo/often"))};
    QVERIFY(host.startsWith({Echo}));
    QTRY_VERIFY_WITH_TIMEOUT(!textIn(entryOf(host), "next").isEmpty(), Patience);
    const QJsonObject before = entryOf(host);
    QCOMPARE(textIn(before, "url"), QStringLiteral("//echo/often"));
    QCOMPARE(textIn(before, "state"), QStringLiteral("waiting"));
    QCOMPARE(numberIn(before, "runs"), 0);
    QCOMPARE(textIn(before, "last"), QString());
    QCOMPARE(textIn(before, "ended"), QString());
    QVERIFY(!isIn(before, "cancelled"));

    const Answered run = host.post("/v1/schedule/0/run");
    QCOMPARE(run.status, 200);
    QCOMPARE(run.object(), entryOf(host));
    QCOMPARE(numberIn(run.object(), "runs"), 1);
    QCOMPARE(numberIn(run.object(), "failures"), 0);
    QVERIFY(!textIn(run.object(), "last").isEmpty());
    QVERIFY(run.object().value(QStringLiteral("lastMs")).toDouble(-1) > 0);
    QCOMPARE(textIn(run.object(), "next"), textIn(before, "next")); // it is one more
    QTRY_VERIFY_WITH_TIMEOUT(host.running->hasWritten(QStringLiteral("echo: //echo/often\n")), Patience);
}

void tst_DoorSchedule::countsFailuresInARow()
{
    DoorHost host;
    const QString file = host.folder.filePath(QStringLiteral("there"));
    host.schedule = {every(Hour, QStringLiteral("//echo/while") + file)};
    QVERIFY(host.startsWith({Echo}));
    host.post("/v1/schedule/0/run");
    QJsonObject entry = host.post("/v1/schedule/0/run").object();
    QCOMPARE(numberIn(entry, "runs"), 2);
    QCOMPARE(numberIn(entry, "failures"), 2);
    QCOMPARE(numberIn(entry, "failuresInARow"), 2);
    QVERIFY(host.folder.write(QStringLiteral("there"), "x"));
    entry = host.post("/v1/schedule/0/run").object();
    QCOMPARE(numberIn(entry, "runs"), 3);
    QCOMPARE(numberIn(entry, "failures"), 2);
    QCOMPARE(numberIn(entry, "failuresInARow"), 0);
    QCOMPARE(textIn(entry, "state"), QStringLiteral("waiting"));
}

void tst_DoorSchedule::doesNotRunWhatRuns()
{
    DoorHost host;
    host.schedule = {every(1, QStringLiteral("//lodger/wait"), false)};
    QVERIFY(host.startsWith({Lodger}));
    QTRY_COMPARE_WITH_TIMEOUT(textIn(entryOf(host), "state"), QStringLiteral("running"), Patience);
    QCOMPARE(textIn(entryOf(host), "next"), QString());
    for (const auto &[deed, reason] : {std::pair{"run", "it is running"}, std::pair{"restart", "it has not ended"}}) {
        const Answered answered = host.post(std::string("/v1/schedule/0/") + deed);
        QCOMPARE(answered.status, 409);
        QCOMPARE(answered.error(), QLatin1String(reason));
    }
    QCOMPARE(host.call("//lodger/go").status, 200);
    QTRY_COMPARE_WITH_TIMEOUT(textIn(entryOf(host), "ended"), QStringLiteral("it was to run once"), Patience);
}

void tst_DoorSchedule::doesNotRunWhatSomebodyElseRuns()
{
    DoorHost host;
    host.schedule = {every(Hour, QStringLiteral("//lodger/wait"))};
    QVERIFY(host.startsWith({Lodger}));
    Answered first;
    std::thread other([&] { first = host.post("/v1/schedule/0/run"); });
    const auto join = qScopeGuard([&] { other.join(); });
    QTRY_COMPARE_WITH_TIMEOUT(textIn(entryOf(host), "state"), QStringLiteral("running"), Patience);
    QCOMPARE(host.post("/v1/schedule/0/run").status, 409);
    QCOMPARE(host.call("//lodger/go").status, 200);
    QTRY_COMPARE_WITH_TIMEOUT(textIn(entryOf(host), "state"), QStringLiteral("waiting"), Patience);
    QCOMPARE(numberIn(entryOf(host), "runs"), 1);
}

void tst_DoorSchedule::tellsWhyAnEntryHasEnded_data()
{
    QTest::addColumn<QString>("url");
    QTest::addColumn<bool>("repeat");
    QTest::addColumn<QString>("ended");
    QTest::newRow("once") << "//echo/once" << false << "it was to run once";
    QTest::newRow("nobody") << "//nobody" << true << "nobody handled //nobody";
    QTest::newRow("thrown") << "//echo/throw" << true << "//echo/throw has thrown: no more";
    QTest::newRow("nothing to fill in") << "//zhost/printd" << true << "nobody handled //zhost/printd";
}

void tst_DoorSchedule::tellsWhyAnEntryHasEnded()
{
    QFETCH(QString, url);
    QFETCH(bool, repeat);
    QFETCH(QString, ended);
    DoorHost host;
    host.schedule = {every(1, url, repeat, false)};
    QVERIFY(host.startsWith({Echo}));
    QTRY_COMPARE_WITH_TIMEOUT(textIn(entryOf(host), "ended"), ended, Patience);
    const QJsonObject entry = entryOf(host);
    QCOMPARE(textIn(entry, "state"), QStringLiteral("ended"));
    QCOMPARE(textIn(entry, "next"), QString());
    QCOMPARE(numberIn(entry, "runs"), 1);
    QVERIFY(!isIn(entry, "cancelled"));
}

void tst_DoorSchedule::cancelsAnEntry()
{
    DoorHost host;
    host.schedule = {every(Hour, QStringLiteral("//echo/often"))};
    QVERIFY(host.startsWith({Echo}));
    const Answered cancelled = host.post("/v1/schedule/0/cancel");
    QCOMPARE(cancelled.status, 200);
    QTRY_COMPARE_WITH_TIMEOUT(textIn(entryOf(host), "state"), QStringLiteral("ended"), Patience);
    QCOMPARE(textIn(entryOf(host), "ended"), QStringLiteral("cancelled"));
    QVERIFY(isIn(entryOf(host), "cancelled"));
    QCOMPARE(textIn(entryOf(host), "next"), QString());
    QCOMPARE(host.post("/v1/schedule/0/cancel").status, 200); // once more does no harm
}

void tst_DoorSchedule::restartsAnEntry()
{
    DoorHost host;
    host.schedule = {every(Hour, QStringLiteral("//echo/deaf"))};
    QVERIFY(host.startsWith({Echo}));
    QCOMPARE(host.post("/v1/schedule/0/run").status, 200);
    QCOMPARE(host.post("/v1/schedule/0/cancel").status, 200);
    QTRY_COMPARE_WITH_TIMEOUT(textIn(entryOf(host), "state"), QStringLiteral("ended"), Patience);
    const Answered again = host.post("/v1/schedule/0/restart");
    QCOMPARE(again.status, 200);
    QCOMPARE(textIn(again.object(), "state"), QStringLiteral("waiting"));
    QCOMPARE(textIn(again.object(), "ended"), QString());
    QVERIFY(!isIn(again.object(), "cancelled"));
    QCOMPARE(numberIn(again.object(), "runs"), 1); // counted on
    QCOMPARE(numberIn(again.object(), "failuresInARow"), 1);
    QTRY_VERIFY_WITH_TIMEOUT(!textIn(entryOf(host), "next").isEmpty(), Patience);
}

void tst_DoorSchedule::knowsNoSuchEntry_data()
{
    QTest::addColumn<QString>("path");
    QTest::addColumn<QString>("index");
    for (const char *const deed : {"run", "cancel", "restart"}) {
        for (const char *const index : {"1", "-1", "first", "99999999999"})
            QTest::addRow("%s %s", deed, index)
                << QStringLiteral("/v1/schedule/%1/%2").arg(QLatin1String(index), QLatin1String(deed)) << index;
    }
}

void tst_DoorSchedule::knowsNoSuchEntry()
{
    QFETCH(QString, path);
    QFETCH(QString, index);
    DoorHost host;
    host.schedule = {every(Hour, QStringLiteral("//echo/often"))};
    QVERIFY(host.startsWith({Echo}));
    const Answered answered = host.post(path.toStdString());
    QCOMPARE(answered.status, 404);
    QCOMPARE(answered.error(), QStringLiteral("the schedule has no entry %1").arg(index));
}

QTEST_GUILESS_MAIN(tst_DoorSchedule)
#include "tst_doorschedule.moc"
