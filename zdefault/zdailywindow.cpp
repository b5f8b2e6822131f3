// SPDX-License-Identifier: Apache-2.0
#include "zdailywindow.h"

namespace {

/// The moment at which the local time is `time` on that day. If the clock leaves that time out, it is as long after the
/// end of the gap as `time` lies after its beginning; if `time` comes twice, it is the first one. `QDateTime` alone
/// does not do: for a time in a gap it says that no time is left until then, and of two times it does not always choose
/// the same one.
QDateTime moment(const QDate &date, const QTime &time)
{
    const QDateTime asUtc(date, time, Qt::UTC);
    const auto withOffsetOf = [&](const QDateTime &other) {
        return asUtc.addSecs(-other.offsetFromUtc()).toLocalTime();
    };
    const QDateTime before = withOffsetOf(asUtc.addDays(-1).toLocalTime()); // the day itself may begin after a gap
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
