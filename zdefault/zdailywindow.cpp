// SPDX-License-Identifier: Apache-2.0
#include "zdailywindow.h"

namespace {

/// A time that the clock leaves out that day comes as long after the gap, and of two the first is meant. `QDateTime`
/// finds no time left until the one, and makes up its mind about the other each time anew.
QDateTime moment(const QDate &date, const QTime &time)
{
    const QDateTime asUtc(date, time, Qt::UTC);
    const auto withOffsetOf = [&](const QDateTime &other) {
        return asUtc.addSecs(-other.offsetFromUtc()).toLocalTime();
    };
    const QDateTime before = withOffsetOf(asUtc.addDays(-1).toLocalTime()); // that of the day may begin after a gap
    const QDateTime after = withOffsetOf(before);
    return after.time() == time ? after : before;
}

} // namespace

ZDailyWindow ZDailyWindow::at(const QDateTime &now, const QTime &from, const QTime &to, int period)
{
    const QDate today = now.date();
    const QDateTime start = moment(today, from);
    const QDateTime end = moment(from > to ? today.addDays(1) : today, to);
    const bool isInside = now >= start && now <= end;
    if (isInside && now.msecsTo(end) >= period)
        return {true, {}};
    return {false, now < start ? start : moment(today.addDays(1), from)};
}
