// SPDX-License-Identifier: Apache-2.0
// When a daily schedule is due, against a walk along the clock of the C library.
#include "fuzz.h"

#include <QVector>

#include <zdailywindow.h>
#include <zschedule.h>

#include <fuzzer/FuzzedDataProvider.h>

#include <climits>
#include <cstdio>
#include <ctime>

namespace {

constexpr qint64 Day = 24 * 3600 * 1000;
constexpr qint64 Minute = 60 * 1000;

const char *const zones[] = {
    "UTC0",
    "CET-1CEST,M3.5.0,M10.5.0/3",
    "EST5EDT,M3.2.0,M11.1.0",
    "BRT3BRST,M10.3.0/0,M2.3.0/0",      // a day without a midnight
    "LHST-10:30LHDT-11,M10.1.0,M4.1.0", // half an hour
    "<+14>-14",
    "<-12>12",
};

/// Milliseconds since 1970 as if `when` were UTC's local time.
qint64 localOf(qint64 when)
{
    const time_t seconds = static_cast<time_t>((when - (when % 1000 + 1000) % 1000) / 1000);
    tm parts;
    localtime_r(&seconds, &parts);
    return when + static_cast<qint64>(parts.tm_gmtoff) * 1000;
}

/// When the clock first shows `local`, found by looking at each minute; a time that it leaves out comes when it would
/// have, had the clock not been changed.
qint64 momentOf(qint64 local)
{
    const qint64 rest = local % Minute;
    const qint64 goal = local - rest;
    for (qint64 when = goal - 15 * 60 * Minute;; when += Minute) {
        if (localOf(when) == goal)
            return when + rest;
        if (localOf(when) > goal) {
            const qint64 before = when - Minute;
            return before + (goal - localOf(before)) + rest;
        }
    }
}

QTime timeOf(int msecs) { return QTime::fromMSecsSinceStartOfDay(msecs); }

void compareWithClock(FuzzedDataProvider &data)
{
    static const char *current = nullptr;
    const char *zone = data.PickValueInArray(zones);
    if (zone != current) {
        qputenv("TZ", zone);
        tzset();
        current = zone;
    }
    // Either any moment of half a century, or one of the two days of 2023 that matter in most zones.
    const qint64 start = data.PickValueInArray<qint64>({0, 1679702400000, 1698364800000, 1697328000000});
    const qint64 now = start + data.ConsumeIntegralInRange<qint64>(Day, start == 0 ? 66 * 365 * Day : 4 * Day);
    const auto time = [&] {
        const int msecs = data.ConsumeIntegralInRange<int>(0, int(Day) - 1);
        return data.ConsumeBool() ? msecs - msecs % int(15 * Minute) : msecs;
    };
    const int from = time();
    const int to = time();
    const int period = data.ConsumeIntegralInRange<int>(1, data.ConsumeBool() ? INT_MAX : int(Day));

    const qint64 local = localOf(now);
    const qint64 today = local - local % Day;
    const qint64 opening = momentOf(today + from);
    const qint64 closing = momentOf(today + to + (from > to ? Day : 0));
    const bool isOpen = opening <= now && now <= closing && closing - now >= period;

    const QDateTime nowInQt = QDateTime::fromMSecsSinceEpoch(now);
    const ZDailyWindow window = ZDailyWindow::at(nowInQt, timeOf(from), timeOf(to), period);
    const QString detail =
        QStringLiteral("%1 %2 %3-%4 %5").arg(QString::fromLatin1(zone)).arg(now).arg(from).arg(to).arg(period);
    promise(window.isOpen == isOpen, "a window is open while a whole period fits", detail);
    if (!isOpen) {
        const qint64 next = now < opening ? opening : momentOf(today + Day + from);
        promise(window.start.toMSecsSinceEpoch() == next, "the next run is at the next opening",
                detail + QStringLiteral(": %1 for %2").arg(window.start.toMSecsSinceEpoch()).arg(next));
    }
}

/// Any numbers at all: nothing is promised but an end.
void survive(FuzzedDataProvider &data)
{
    const auto time = [&] { return timeOf(data.ConsumeIntegral<int>()); };
    const QTime from = time();
    const QTime to = time();
    const int period = data.ConsumeIntegral<int>();
    ZDailyWindow::at(QDateTime::fromMSecsSinceEpoch(data.ConsumeIntegral<qint64>()), from, to, period);
    const QDate date = QDate::fromJulianDay(data.ConsumeIntegral<qint64>());
    ZDailyWindow::at(QDateTime(date, time()), from, to, period);

    ZDailySchedule daily(from, to, period);
    if (from.isValid() && to.isValid()) {
        char name[80];
        std::snprintf(name, sizeof name, "ZDailySchedule(%02d:%02d:%02d-%02d:%02d:%02d, %d)", from.hour(),
                      from.minute(), from.second(), to.hour(), to.minute(), to.second(), period);
        promise(daily.name() == QLatin1String(name), "a daily schedule tells its times and its period", daily.name());
    }
    if (period < 1 || !from.isValid() || !to.isValid())
        promise(!daily.wait(), "without times and a period nothing is ever due");

    ZPeriodicSchedule periodic(period);
    promise(periodic.name() == QStringLiteral("ZPeriodicSchedule(") + QString::number(period) + QLatin1Char(')'),
            "a periodic schedule tells its period", periodic.name());
    periodic.cancel();
    promise(!periodic.wait(), "a cancelled schedule says stop");
}

} // namespace

void fuzz(const QByteArray &input)
{
    FuzzedDataProvider data(reinterpret_cast<const uint8_t *>(input.constData()), static_cast<size_t>(input.size()));
    if (data.ConsumeBool())
        compareWithClock(data);
    else
        survive(data);
}
