// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QDateTime>
#include <QTime>

/// What a daily schedule does at a given moment. It reads no clock.
struct ZDailyWindow
{
    bool isOpen;     ///< The next run is one period from now.
    QDateTime start; ///< Otherwise it is then.

    /// For the moment `now`, and the window of that day from `from` to `to`, both included, in local time.
    static ZDailyWindow at(const QDateTime &now, const QTime &from, const QTime &to, int period);
};
