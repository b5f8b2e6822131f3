// SPDX-License-Identifier: Apache-2.0
#include "door/doorhost.h"
#include "testcase.h"

#include <QRegularExpression>
#include <QSet>

/// Calls of the timetable that one of several hosts makes: the one that has the lease.
class tst_ZHostOnce : public TestCase
{
    Q_OBJECT

private Q_SLOTS:
    void makesTheCallThatIsItsTurn();
    void leavesTheCallToTheHostThatHasTheLease_data();
    void leavesTheCallToTheHostThatHasTheLease();
    void goesOnWhenTheLeaseComes();
    void endsWithoutLeases_data();
    void endsWithoutLeases();
    void goesOnWhenSomebodyServesLeases();
    void wantsTheLeaseFromWhoeverServesIt();
    void letsTheLeaseGo();
    void asksForTheLeaseToRunNow();
    void runsOnceInEachSlotOnTwoHosts();
};

namespace {

const QString Echo = QStringLiteral("echo");
const QString Lessor = QStringLiteral("lessor");
const QString Call = QStringLiteral("echo: //echo/once\n");
constexpr int Hour = 3600000;

QJsonObject once(int every, bool repeat = true, bool keep = false)
{
    return {{QStringLiteral("url"), QStringLiteral("//echo/once")},
            {QStringLiteral("every"), every},
            {QStringLiteral("repeat"), repeat},
            {QStringLiteral("keep"), keep},
            {QStringLiteral("once"), QStringLiteral("report")},
            {QStringLiteral("lease"), 600}};
}

QJsonObject entryOf(const DoorHost &host) { return host.find("schedule", "index", 0); }

bool has(DoorHost &host, const char *text, int times = 1)
{
    return host.running->hasWritten(QLatin1String(text)) && host.running->written().count(QLatin1String(text)) >= times;
}

/// What it has written, from the last stop on.
QString writtenBy(DoorHost &host)
{
    host.running->hasWritten(QString());
    return host.running->written();
}

bool start(DoorHost &host, const QStringList &plugins, const QString &deed)
{
    return host.startsWith(plugins, deed, QStringLiteral("LESSOR"));
}

/// The slots that have begun, by what the service of the leases has logged.
QVector<qint64> slotsOf(const QString &written)
{
    static const QRegularExpression granted(QStringLiteral("lessor: begin report (\\d+) 1\\n"));
    QVector<qint64> result;
    for (auto match = granted.globalMatch(written); match.hasNext();)
        result.append(match.next().captured(1).toLongLong());
    return result;
}

} // namespace

void tst_ZHostOnce::makesTheCallThatIsItsTurn()
{
    DoorHost host;
    host.schedule = {once(50)};
    const qint64 before = QDateTime::currentMSecsSinceEpoch() / 50;
    QVERIFY(start(host, {Echo, Lessor}, QStringLiteral("mine")));
    QTRY_VERIFY_WITH_TIMEOUT(has(host, "echo: //echo/once\n", 3), Patience);
    const QJsonObject entry = entryOf(host);
    QCOMPARE(textIn(entry, "once"), QStringLiteral("report"));
    QCOMPARE(numberIn(entry, "skipped"), 0);
    QCOMPARE(textIn(entry, "lastSkip"), QString());
    host.running->stop();
    QVERIFY2(host.running->hasEndedWell(), qPrintable(host.running->written()));
    const QString written = host.running->written();
    QCOMPARE(written.count(QStringLiteral("lessor: want report 600\n")), 1);
    const QVector<qint64> begun = slotsOf(written);
    QCOMPARE(begun.size(), written.count(Call));
    const qint64 after = QDateTime::currentMSecsSinceEpoch() / 50;
    for (const qint64 slot : begun)
        QVERIFY(slot >= before && slot <= after);
}

void tst_ZHostOnce::leavesTheCallToTheHostThatHasTheLease_data()
{
    QTest::addColumn<QString>("deed");
    QTest::addColumn<QString>("reason");
    QTest::newRow("with a reason") << "theirs"
                                   << "node7 has the lease";
    QTest::newRow("without one") << "silent"
                                 << "another host has the lease";
}

void tst_ZHostOnce::leavesTheCallToTheHostThatHasTheLease()
{
    QFETCH(QString, deed);
    DoorHost host;
    host.schedule = {once(10)};
    QVERIFY(start(host, {Echo, Lessor}, deed));
    QTRY_VERIFY_WITH_TIMEOUT(numberIn(entryOf(host), "skipped") > 3, Patience);
    const QJsonObject entry = entryOf(host);
    QTEST(textIn(entry, "lastSkip"), "reason");
    QCOMPARE(numberIn(entry, "runs"), 0);
    QCOMPARE(numberIn(entry, "failures"), 0);
    QCOMPARE(textIn(entry, "ended"), QString());
    QVERIFY(host.get("/metrics").body.contains("zhost_schedule_skipped_total{index=\"0\""));
    QVERIFY(!writtenBy(host).contains(Call));
    QVERIFY(!writtenBy(host).contains(QStringLiteral("schedule[0]")));
}

void tst_ZHostOnce::goesOnWhenTheLeaseComes()
{
    DoorHost host;
    host.schedule = {once(10)};
    QVERIFY(start(host, {Echo, Lessor}, QStringLiteral("theirs")));
    QTRY_VERIFY_WITH_TIMEOUT(numberIn(entryOf(host), "skipped") > 1, Patience);
    QCOMPARE(host.call("//lessor/mine").status, 200);
    QTRY_VERIFY_WITH_TIMEOUT(has(host, "echo: //echo/once\n", 2), Patience);
    QCOMPARE(textIn(entryOf(host), "lastSkip"), QString());
}

void tst_ZHostOnce::endsWithoutLeases_data()
{
    QTest::addColumn<QStringList>("plugins");
    QTest::addColumn<QString>("reason");
    QTest::newRow("nobody serves them") << QStringList{Echo} << R"(nobody serves ZLease, which "once" needs)";
    QTest::newRow("an exception") << QStringList{Echo, Lessor} << "ZLease has thrown: no lease";
}

void tst_ZHostOnce::endsWithoutLeases()
{
    QFETCH(QStringList, plugins);
    QFETCH(QString, reason);
    DoorHost host;
    host.schedule = {once(1)};
    QVERIFY(start(host, plugins, QStringLiteral("throws")));
    QTRY_COMPARE_WITH_TIMEOUT(textIn(entryOf(host), "ended"), reason, Patience);
    QCOMPARE(numberIn(entryOf(host), "failures"), 1);
    QCOMPARE(numberIn(entryOf(host), "skipped"), 0);
    host.running->stop();
    QVERIFY2(host.running->hasEndedWell(), qPrintable(host.running->written()));
    const QString written = host.running->written();
    QCOMPARE(written.count(QStringLiteral("zhost: schedule[0] has ended: %1\n").arg(reason)), 1);
    QVERIFY(!written.contains(Call));
}

void tst_ZHostOnce::goesOnWhenSomebodyServesLeases()
{
    DoorHost host;
    host.schedule = {once(10, true, true)};
    QVERIFY(start(host, {Echo}, QStringLiteral("mine")));
    QTRY_VERIFY_WITH_TIMEOUT(has(host, "zhost: schedule[0] is kept: nobody serves ZLease, which \"once\" needs\n"),
                             Patience);
    QVERIFY(host.hotDeploy.drop(Lessor));
    QTRY_VERIFY_WITH_TIMEOUT(has(host, "echo: //echo/once\n"), Patience);
    QVERIFY(writtenBy(host).contains(QStringLiteral("lessor: want report 600\n")));
}

void tst_ZHostOnce::wantsTheLeaseFromWhoeverServesIt()
{
    DoorHost host;
    host.schedule = {once(10)};
    QVERIFY(start(host, {Echo, Lessor}, QStringLiteral("mine")));
    QTRY_VERIFY_WITH_TIMEOUT(has(host, "echo: //echo/once\n"), Patience);
    QVERIFY(host.hotDeploy.drop(Lessor, QStringLiteral("liblessor.2.so")));
    QTRY_VERIFY_WITH_TIMEOUT(has(host, "lessor: want report 600\n", 2), Patience);
    const int calls = writtenBy(host).count(Call);
    QTRY_VERIFY_WITH_TIMEOUT(has(host, "echo: //echo/once\n", calls + 2), Patience);
    QCOMPARE(numberIn(entryOf(host), "failures"), 0);
}

void tst_ZHostOnce::letsTheLeaseGo()
{
    DoorHost host;
    host.schedule = {once(Hour)};
    QVERIFY(start(host, {Echo, Lessor}, QStringLiteral("mine")));
    QTRY_VERIFY_WITH_TIMEOUT(has(host, "lessor: want report 600\n"), Patience);
    QCOMPARE(host.post("/v1/schedule/0/cancel").status, 200);
    QTRY_VERIFY_WITH_TIMEOUT(has(host, "lessor: forget report\n"), Patience);
    QCOMPARE(host.post("/v1/schedule/0/restart").status, 200);
    QTRY_VERIFY_WITH_TIMEOUT(has(host, "lessor: want report 600\n", 2), Patience);
    host.running->stop();
    QVERIFY2(host.running->hasEndedWell(), qPrintable(host.running->written()));
    QCOMPARE(host.running->written().count(QStringLiteral("lessor: forget report\n")), 2);
}

void tst_ZHostOnce::asksForTheLeaseToRunNow()
{
    DoorHost host;
    host.schedule = {once(Hour)};
    QVERIFY(start(host, {Echo, Lessor}, QStringLiteral("theirs")));
    QJsonObject entry = host.post("/v1/schedule/0/run").object();
    QCOMPARE(textIn(entry, "lastSkip"), QStringLiteral("node7 has the lease"));
    QCOMPARE(numberIn(entry, "skipped"), 1);
    QCOMPARE(numberIn(entry, "runs"), 0);
    QVERIFY(host.get("/metrics").body.contains("zhost_door_call_failures_total 0\n"));
    QCOMPARE(host.call("//lessor/mine").status, 200);
    entry = host.post("/v1/schedule/0/run").object();
    QCOMPARE(textIn(entry, "lastSkip"), QString());
    QCOMPARE(numberIn(entry, "runs"), 1);
    QCOMPARE(textIn(entry, "state"), QStringLiteral("waiting"));
    // Each has wanted the lease for itself, and has let it go.
    QTRY_VERIFY_WITH_TIMEOUT(has(host, "lessor: forget report\n", 2), Patience);
    QCOMPARE(writtenBy(host).count(QStringLiteral("lessor: want report 600\n")), 3);
}

void tst_ZHostOnce::runsOnceInEachSlotOnTwoHosts()
{
    const Folder shared;
    const QString file = shared.filePath(QStringLiteral("slot"));
    DoorHost one, other;
    for (DoorHost *host : {&one, &other}) {
        host->schedule = {once(20)};
        QVERIFY(start(*host, {Echo, Lessor}, file));
    }
    const auto both = [&] { return slotsOf(writtenBy(one)) + slotsOf(writtenBy(other)); };
    QTRY_VERIFY_WITH_TIMEOUT(slotsOf(writtenBy(one)).size() > 5 && both().size() > 30, Patience);
    for (DoorHost *host : {&one, &other}) {
        host->running->stop();
        QVERIFY2(host->running->hasEndedWell(), qPrintable(host->running->written()));
    }
    const QVector<qint64> begun = both();
    QSet<qint64> distinct;
    for (const qint64 slot : begun)
        distinct.insert(slot);
    QCOMPARE(distinct.size(), begun.size());
    // Each may have begun one just as it was stopped, and have had no endpoint any more.
    const int calls = one.running->written().count(Call) + other.running->written().count(Call);
    QVERIFY2(calls <= begun.size() && calls >= begun.size() - 2, qPrintable(QString::number(calls)));
}

QTEST_GUILESS_MAIN(tst_ZHostOnce)

#include "tst_zhostonce.moc"
