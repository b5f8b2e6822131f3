// SPDX-License-Identifier: Apache-2.0
#include "testcase.h"

#include <QElapsedTimer>
#include <QSharedPointer>

#include <zdailywindow.h>
#include <zschedule.h>

#include <algorithm>
#include <climits>
#include <ctime>
#include <future>
#include <type_traits>
#include <vector>

static_assert(std::is_base_of_v<ZSchedule, ZPeriodicSchedule>);
static_assert(std::is_base_of_v<ZPeriodicSchedule, ZDailySchedule>);
static_assert(!std::is_base_of_v<QObject, ZDailySchedule>);
static_assert(std::has_virtual_destructor_v<ZSchedule>);

namespace {

using Schedule = QSharedPointer<ZSchedule>;

constexpr int LongTime = 30000;
constexpr int TimeToGoWrong = 100;
constexpr int TenMinutes = 10 * 60 * 1000;

const QTime Midnight(0, 0);
const QTime LastMoment(23, 59, 59, 999);

Schedule every(int period) { return QSharedPointer<ZPeriodicSchedule>::create(period); }

Schedule daily(const QTime &from, const QTime &to, int period)
{
    return QSharedPointer<ZDailySchedule>::create(from, to, period);
}

/// In a window that is open now, and for hours.
Schedule open(int period)
{
    const QTime now = QTime::currentTime();
    return now < QTime(2, 0) ? daily(Midnight, LastMoment, period)
                             : daily(now.addSecs(-3600), now.addSecs(-2 * 3600), period);
}

/// Due in some time from now, and then not before tomorrow.
Schedule onceIn(int msecs)
{
    const QTime time = QTime::currentTime().addMSecs(msecs);
    return daily(time, time, TenMinutes);
}

/// A wait on another thread, which is cancelled in the end.
class Waiter
{
public:
    explicit Waiter(Schedule schedule)
        : m_schedule(std::move(schedule)),
          m_answer(std::async(std::launch::async, [this] { return m_schedule->wait(); }))
    {}
    ~Waiter() { m_schedule->cancel(); }

    bool returned(int time = LongTime) const
    {
        return m_answer.wait_for(std::chrono::milliseconds(time)) == std::future_status::ready;
    }
    bool answer() { return m_answer.get(); }

private:
    Q_DISABLE_COPY(Waiter)
    const Schedule m_schedule;
    std::future<bool> m_answer;
};

/// The local time of this process, as long as it lives.
class TimeZone
{
public:
    explicit TimeZone(const QByteArray &zone) : m_before(qgetenv("TZ")), m_wasSet(qEnvironmentVariableIsSet("TZ"))
    {
        qputenv("TZ", zone);
        tzset();
    }
    ~TimeZone()
    {
        if (m_wasSet)
            qputenv("TZ", m_before);
        else
            qunsetenv("TZ");
        tzset();
    }

private:
    Q_DISABLE_COPY(TimeZone)
    const QByteArray m_before;
    const bool m_wasSet;
};

const QByteArray NoSummerTime("UTC0");
const QByteArray SummerTime("CET-1CEST,M3.5.0,M10.5.0/3"); // in 2023: from 26 March at 2:00 to 29 October at 3:00

const QByteArray NoMidnight("BRT3BRST,M10.3.0/0,M2.3.0/0"); // 21 October 1979 and 15 October 2023 begin at 1:00

QDateTime moment(const char *text) { return QDateTime::fromString(QString::fromLatin1(text), Qt::ISODateWithMs); }

QTime timeOf(const char *text) { return QTime::fromString(QString::fromLatin1(text), Qt::ISODateWithMs); }

const QDateTime Open; // the next run is one period from now

/// What a daily schedule does, found by looking at each hour for itself. -1 when the next run is one period from now,
/// else the hour of it, from today's midnight on.
int expectedHour(int now, int from, int to, int period)
{
    std::vector<bool> inWindow(48);
    int hour = from;
    for (inWindow[std::size_t(hour)] = true; hour % 24 != to; inWindow[std::size_t(hour)] = true)
        ++hour;
    const auto begin = inWindow.begin() + now;
    if (now + period < 48 && std::all_of(begin, begin + period + 1, [](bool in) { return in; }))
        return -1;
    do {
        ++now;
    } while (now % 24 != from);
    return now;
}

} // namespace

Q_DECLARE_METATYPE(Schedule)

class tst_Schedule : public TestCase
{
    Q_OBJECT

private Q_SLOTS:
    void tellsItsName_data();
    void tellsItsName();

    void aPeriodBelowOneNeverRuns_data();
    void aPeriodBelowOneNeverRuns();
    void aRunIsDueAfterThePeriod_data();
    void aRunIsDueAfterThePeriod();
    void thePeriodCountsFromTheWait();
    void aDailyRunIsDueAtTheOpening();
    void aWindowThatIsTooShortRunsOnceADay();
    void aDailyScheduleWithoutATimeNeverRuns();

    void cancelEndsAWait_data() { eachLongSchedule(); }
    void cancelEndsAWait();
    void cancelBeforeAWaitIsRemembered_data() { eachLongSchedule(); }
    void cancelBeforeAWaitIsRemembered();
    void eachCancelStopsOneWait_data();
    void eachCancelStopsOneWait();
    void cancelsFromSeveralThreadsAreAllCounted();

    void theWindowDecides_data();
    void theWindowDecides();
    void theWindowDecidesAtEachHour_data();
    void theWindowDecidesAtEachHour();
    void anHourThatIsSkippedIsMadeUpFor();
    void aMidnightThatIsSkippedIsMadeUpFor_data();
    void aMidnightThatIsSkippedIsMadeUpFor();
    void anHourThatComesTwiceOpensOnce();

private:
    static void eachLongSchedule();
};

void tst_Schedule::tellsItsName_data()
{
    QTest::addColumn<Schedule>("schedule");
    QTest::addColumn<QString>("name");
    QTest::newRow("periodic") << every(60000) << "ZPeriodicSchedule(60000)";
    QTest::newRow("longest") << every(INT_MAX) << "ZPeriodicSchedule(2147483647)";
    QTest::newRow("no period") << every(0) << "ZPeriodicSchedule(0)";
    QTest::newRow("negative period") << every(-5) << "ZPeriodicSchedule(-5)";
    QTest::newRow("daily") << daily({8, 0}, {18, 30}, 60000) << "ZDailySchedule(08:00:00-18:30:00, 60000)";
    QTest::newRow("one digit") << daily({7, 5}, {9, 1, 2}, 1) << "ZDailySchedule(07:05:00-09:01:02, 1)";
    QTest::newRow("milliseconds") << daily(Midnight, LastMoment, -1) << "ZDailySchedule(00:00:00-23:59:59, -1)";
    QTest::newRow("across midnight") << daily({22, 0}, {2, 0}, 5) << "ZDailySchedule(22:00:00-02:00:00, 5)";
}

void tst_Schedule::tellsItsName()
{
    QFETCH(Schedule, schedule);
    QTEST(schedule->name(), "name");
}

void tst_Schedule::aPeriodBelowOneNeverRuns_data()
{
    QTest::addColumn<Schedule>("schedule");
    for (const int period : {0, -1, -5, INT_MIN}) {
        QTest::addRow("every %d", period) << every(period);
        QTest::addRow("daily, inside, every %d", period) << open(period);
        const QTime later = QTime::currentTime().addSecs(3600);
        QTest::addRow("daily, outside, every %d", period) << daily(later, later, period);
    }
}

void tst_Schedule::aPeriodBelowOneNeverRuns()
{
    QFETCH(Schedule, schedule);
    Waiter waiter(schedule);
    QVERIFY(waiter.returned());
    QVERIFY(!waiter.answer());
    QVERIFY(!schedule->wait()); // for good
}

void tst_Schedule::aRunIsDueAfterThePeriod_data()
{
    QTest::addColumn<Schedule>("schedule");
    QTest::addColumn<int>("period");
    for (const int period : {1, 30, 300}) {
        QTest::addRow("every %d", period) << every(period) << period;
        QTest::addRow("daily, every %d", period) << open(period) << period;
    }
}

void tst_Schedule::aRunIsDueAfterThePeriod()
{
    QFETCH(Schedule, schedule);
    QFETCH(int, period);
    for (int i = 0; i < 2; ++i) {
        QElapsedTimer timer;
        timer.start();
        QVERIFY(schedule->wait());
        QVERIFY2(timer.elapsed() >= period - 1, qPrintable(QString::number(timer.elapsed())));
        QVERIFY(timer.elapsed() < period + LongTime);
    }
}

void tst_Schedule::thePeriodCountsFromTheWait()
{
    constexpr int Period = 100;
    const Schedule schedule = every(Period);
    QVERIFY(schedule->wait());
    QElapsedTimer timer;
    timer.start();
    while (!timer.hasExpired(2 * Period)) { // a run that takes its time
    }
    timer.restart();
    QVERIFY(schedule->wait());
    QVERIFY(timer.elapsed() >= Period - 1);
}

void tst_Schedule::aDailyRunIsDueAtTheOpening()
{
    const QDateTime opening = QDateTime::currentDateTime().addMSecs(300);
    const Schedule schedule = daily(opening.time(), opening.time().addSecs(1), TenMinutes);
    QVERIFY(schedule->wait());
    QVERIFY(QDateTime::currentDateTime() >= opening);
    QVERIFY(opening.msecsTo(QDateTime::currentDateTime()) < LongTime);
}

void tst_Schedule::aWindowThatIsTooShortRunsOnceADay()
{
    const Schedule schedule = onceIn(200);
    QVERIFY(schedule->wait());
    const Waiter waiter(schedule);
    QVERIFY(!waiter.returned(TimeToGoWrong));
}

void tst_Schedule::aDailyScheduleWithoutATimeNeverRuns()
{
    for (const Schedule &schedule : {daily({}, LastMoment, 1), daily(Midnight, {}, 1), daily({}, {}, 1)}) {
        Waiter waiter(schedule);
        QVERIFY(waiter.returned());
        QVERIFY(!waiter.answer());
    }
}

void tst_Schedule::eachLongSchedule()
{
    QTest::addColumn<Schedule>("schedule");
    QTest::newRow("periodic") << every(TenMinutes);
    QTest::newRow("longest") << every(INT_MAX);
    QTest::newRow("daily, inside") << open(TenMinutes);
    QTest::newRow("daily, before") << onceIn(TenMinutes);
    const QTime now = QTime::currentTime();
    QTest::newRow("daily, after") << daily(now.addSecs(-2), now.addSecs(-1), 1);
    QTest::newRow("daily, too little left") << daily(now.addSecs(-2), now.addSecs(600), INT_MAX);
}

void tst_Schedule::cancelEndsAWait()
{
    QFETCH(Schedule, schedule);
    Waiter waiter(schedule);
    QVERIFY(!waiter.returned(TimeToGoWrong));
    schedule->cancel();
    QVERIFY(waiter.returned());
    QVERIFY(!waiter.answer());
}

void tst_Schedule::cancelBeforeAWaitIsRemembered()
{
    QFETCH(Schedule, schedule);
    schedule->cancel();
    Waiter waiter(schedule);
    QVERIFY(waiter.returned());
    QVERIFY(!waiter.answer());
}

void tst_Schedule::eachCancelStopsOneWait_data()
{
    QTest::addColumn<Schedule>("schedule");
    QTest::newRow("periodic") << every(1);
    QTest::newRow("daily") << open(1);
}

void tst_Schedule::eachCancelStopsOneWait()
{
    QFETCH(Schedule, schedule);
    schedule->cancel();
    schedule->cancel();
    QVERIFY(!schedule->wait());
    QVERIFY(!schedule->wait());
    QVERIFY(schedule->wait());
}

void tst_Schedule::cancelsFromSeveralThreadsAreAllCounted()
{
    constexpr int Threads = 4;
    constexpr int Cancels = 500;
    const Schedule schedule = every(1);
    int stopped = 0;
    {
        std::vector<std::future<void>> threads;
        for (int t = 0; t < Threads; ++t) {
            threads.push_back(std::async(std::launch::async, [&] {
                for (int i = 0; i < Cancels; ++i)
                    schedule->cancel();
            }));
        }
        QElapsedTimer timer;
        for (timer.start(); stopped < Threads * Cancels && !timer.hasExpired(LongTime);)
            stopped += !schedule->wait();
    }
    QCOMPARE(stopped, Threads * Cancels);
    QVERIFY(schedule->wait());
}

void tst_Schedule::theWindowDecides_data()
{
    QTest::addColumn<QDateTime>("now");
    QTest::addColumn<QTime>("from");
    QTest::addColumn<QTime>("to");
    QTest::addColumn<int>("period");
    QTest::addColumn<QDateTime>("next");
    const auto row = [](const char *what, const char *now, const char *from, const char *to, int period,
                        const QDateTime &next) {
        QTest::newRow(what) << moment(now) << timeOf(from) << timeOf(to) << period << next;
    };
    const QDateTime today = moment("2023-05-10T08:00:00");
    const QDateTime tomorrow = moment("2023-05-11T08:00:00");
    const auto day = [&](const char *what, const char *now, const QDateTime &next) {
        row(what, now, "08:00:00", "18:30:00", 60000, next);
    };
    day("midnight", "2023-05-10T00:00:00", today);
    day("just before", "2023-05-10T07:59:59.999", today);
    day("at the opening", "2023-05-10T08:00:00", Open);
    day("just after the opening", "2023-05-10T08:00:00.001", Open);
    day("inside", "2023-05-10T12:00:00", Open);
    day("one period left", "2023-05-10T18:29:00", Open);
    day("less than one period left", "2023-05-10T18:29:00.001", tomorrow);
    day("at the end", "2023-05-10T18:30:00", tomorrow);
    day("after", "2023-05-10T18:30:00.001", tomorrow);
    day("last moment of the day", "2023-05-10T23:59:59.999", tomorrow);

    row("shorter than the period, before", "2023-05-10T07:00:00", "08:00:00", "08:00:30", 60000, today);
    row("shorter than the period, open", "2023-05-10T08:00:00", "08:00:00", "08:00:30", 60000, tomorrow);
    row("an instant, before", "2023-05-10T07:59:59.999", "08:00:00", "08:00:00", 1, today);
    row("an instant", "2023-05-10T08:00:00", "08:00:00", "08:00:00", 1, tomorrow);
    row("an instant, after", "2023-05-10T08:00:00.001", "08:00:00", "08:00:00", 1, tomorrow);
    row("just one period long", "2023-05-10T08:00:00", "08:00:00", "08:01:00", 60000, Open);
    row("longest period", "2023-05-10T08:00:00", "08:00:00", "07:59:59.999", INT_MAX, tomorrow);

    const QDateTime tonight = moment("2023-05-10T22:00:00");
    const auto night = [&](const char *what, const char *now, const QDateTime &next) {
        row(what, now, "22:00:00", "02:00:00", 60000, next);
    };
    night("across midnight, yesterday's window", "2023-05-10T01:00:00", tonight);
    night("across midnight, at its end", "2023-05-10T02:00:00", tonight);
    night("across midnight, between", "2023-05-10T12:00:00", tonight);
    night("across midnight, just before", "2023-05-10T21:59:59.999", tonight);
    night("across midnight, at the opening", "2023-05-10T22:00:00", Open);
    night("across midnight, last moment of the day", "2023-05-10T23:59:59.999", Open);
    night("across midnight, the day after", "2023-05-11T00:00:00", moment("2023-05-11T22:00:00"));
    row("across midnight, one period left", "2023-05-10T22:00:00", "22:00:00", "02:00:00", 4 * 3600000, Open);
    row("across midnight, less left", "2023-05-10T22:00:00.001", "22:00:00", "02:00:00", 4 * 3600000,
        moment("2023-05-11T22:00:00"));

    row("all day", "2023-05-10T23:59:59.998", "00:00:00", "23:59:59.999", 1, Open);
    row("all day, last moment", "2023-05-10T23:59:59.999", "00:00:00", "23:59:59.999", 1,
        moment("2023-05-11T00:00:00"));
    row("end of a month", "2023-04-30T09:00:00", "08:00:00", "08:30:00", 1, moment("2023-05-01T08:00:00"));
    row("end of a year", "2023-12-31T09:00:00", "08:00:00", "08:30:00", 1, moment("2024-01-01T08:00:00"));
    row("leap day", "2024-02-28T09:00:00", "08:00:00", "08:30:00", 1, moment("2024-02-29T08:00:00"));
}

void tst_Schedule::theWindowDecides()
{
    const TimeZone zone(NoSummerTime);
    QFETCH(QDateTime, now);
    QFETCH(QTime, from);
    QFETCH(QTime, to);
    QFETCH(int, period);
    QFETCH(QDateTime, next);
    const ZDailyWindow window = ZDailyWindow::at(now, from, to, period);
    QCOMPARE(window.isOpen, !next.isValid());
    if (!window.isOpen)
        QCOMPARE(window.start, next);
}

void tst_Schedule::theWindowDecidesAtEachHour_data()
{
    QTest::addColumn<int>("period");
    for (const int hours : {1, 2, 5, 23, 24})
        QTest::addRow("every %d hours", hours) << hours;
}

void tst_Schedule::theWindowDecidesAtEachHour()
{
    const TimeZone zone(NoSummerTime);
    QFETCH(int, period);
    const QDate today(2023, 12, 31);
    for (int from = 0; from < 24; ++from) {
        for (int to = 0; to < 24; ++to) {
            for (int now = 0; now < 24; ++now) {
                const ZDailyWindow window =
                    ZDailyWindow::at({today, QTime(now, 0)}, QTime(from, 0), QTime(to, 0), period * 3600000);
                const qint64 hours = window.isOpen ? -1 : today.startOfDay().secsTo(window.start) / 3600;
                const int expected = expectedHour(now, from, to, period);
                if (hours != expected) {
                    QFAIL(qPrintable(QStringLiteral("at %1, from %2 to %3: %4, expected %5")
                                         .arg(now)
                                         .arg(from)
                                         .arg(to)
                                         .arg(hours)
                                         .arg(expected)));
                }
            }
        }
    }
}

void tst_Schedule::anHourThatIsSkippedIsMadeUpFor()
{
    const TimeZone zone(SummerTime);
    const QTime skipped(2, 30);
    const QDateTime madeUp = moment("2023-03-26T03:30:00");
    QVERIFY(!QDateTime(madeUp.date(), skipped).isValid());

    for (const char *now :
         {"2023-03-25T02:30:00", "2023-03-25T12:00:00", "2023-03-26T00:00:00", "2023-03-26T01:59:59"}) {
        const ZDailyWindow window = ZDailyWindow::at(moment(now), skipped, skipped, 60000);
        QVERIFY(!window.isOpen);
        QVERIFY(moment(now).msecsTo(window.start) >= 1); // else it would run over and over
        QCOMPARE(window.start, madeUp);
    }
    // It ran: the next day is as any other.
    const ZDailyWindow window = ZDailyWindow::at(madeUp, skipped, skipped, 60000);
    QVERIFY(!window.isOpen);
    QCOMPARE(window.start, moment("2023-03-27T02:30:00"));
    // The end of a window may be skipped too.
    QVERIFY(ZDailyWindow::at(moment("2023-03-26T01:00:00"), {0, 0}, skipped, 60000).isOpen);
}

void tst_Schedule::aMidnightThatIsSkippedIsMadeUpFor_data()
{
    QTest::addColumn<QByteArray>("now");
    QTest::addColumn<QByteArray>("madeUp");
    QTest::newRow("the noon before") << QByteArray("1979-10-20T12:00:00") << QByteArray("1979-10-21T01:09:10.124");
    QTest::newRow("the hour before") << QByteArray("1979-10-20T23:30:00") << QByteArray("1979-10-21T01:09:10.124");
    QTest::newRow("a later year") << QByteArray("2023-10-14T12:00:00") << QByteArray("2023-10-15T01:09:10.124");
}

void tst_Schedule::aMidnightThatIsSkippedIsMadeUpFor()
{
    const TimeZone zone(NoMidnight);
    QFETCH(QByteArray, now);
    QFETCH(QByteArray, madeUp);
    const QTime skipped(0, 9, 10, 124);
    const ZDailyWindow window = ZDailyWindow::at(moment(now), skipped, skipped, 60000);
    QVERIFY(!window.isOpen);
    QCOMPARE(window.start, moment(madeUp));
}

void tst_Schedule::anHourThatComesTwiceOpensOnce()
{
    const TimeZone zone(SummerTime);
    const QTime twice(2, 30);
    const QDateTime opening = ZDailyWindow::at(moment("2023-10-29T00:30:00"), twice, twice, 60000).start;
    QCOMPARE(opening.date(), QDate(2023, 10, 29));
    QCOMPARE(opening.time(), twice);
    for (const int hours : {0, 1, 2}) {
        const QDateTime now = QDateTime::fromMSecsSinceEpoch(opening.toMSecsSinceEpoch() + hours * 3600000);
        QCOMPARE(ZDailyWindow::at(now, twice, twice, 60000).start, moment("2023-10-30T02:30:00"));
    }
}

QTEST_GUILESS_MAIN(tst_Schedule)

#include "tst_schedule.moc"
