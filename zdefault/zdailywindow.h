// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QDateTime>
#include <QTime>

/// What a daily schedule does at one moment. Knows no clock: the moment is given.
struct ZDailyWindow
{
    bool isOpen;     ///< The next run is one period from now.
    QDateTime start; ///< Otherwise it is then.

    /// Local time decides: `now`, and today's window from `from` to `to`, both included.
    static ZDailyWindow at(const QDateTime &now, const QTime &from, const QTime &to, int period);
};
