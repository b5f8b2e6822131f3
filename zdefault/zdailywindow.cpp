// SPDX-License-Identifier: Apache-2.0
#include "zdailywindow.h"

ZDailyWindow ZDailyWindow::at(const QDateTime &now, const QTime &from, const QTime &to, int period)
{
    const QDateTime start(now.date(), from, Qt::LocalTime);
    QDateTime end(now.date(), to, Qt::LocalTime);
    if (from > to)
        end = end.addDays(1);
    const bool isInside = now >= start && now <= end;
    if (isInside && now.msecsTo(end) >= period)
        return {true, {}};
    return {false, now < start ? start : start.addDays(1)};
}
