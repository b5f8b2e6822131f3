// SPDX-License-Identifier: Apache-2.0
#include "zschedule.h"

#include "zdailywindow.h"

#include <climits>

ZPeriodicSchedule::ZPeriodicSchedule(int period) : m_period(period) {}

ZPeriodicSchedule::~ZPeriodicSchedule() = default;

QString ZPeriodicSchedule::name() const { return QStringLiteral("ZPeriodicSchedule(%1)").arg(m_period); }

bool ZPeriodicSchedule::wait() { return m_period >= 1 && sleep(m_period); }

void ZPeriodicSchedule::cancel() { m_semaphore.release(); }

bool ZPeriodicSchedule::sleep(int msecs) { return !m_semaphore.tryAcquire(1, msecs); }

ZDailySchedule::ZDailySchedule(const QTime &from, const QTime &to, int period)
    : ZPeriodicSchedule(period), m_from(from), m_to(to)
{}

ZDailySchedule::~ZDailySchedule() = default;

QString ZDailySchedule::name() const
{
    const QString format = QStringLiteral("hh:mm:ss");
    return QStringLiteral("ZDailySchedule(%1-%2, %3)")
        .arg(m_from.toString(format), m_to.toString(format), QString::number(m_period));
}

bool ZDailySchedule::wait()
{
    if (m_period < 1 || !m_from.isValid() || !m_to.isValid())
        return false;
    const QDateTime now = QDateTime::currentDateTime();
    const ZDailyWindow window = ZDailyWindow::at(now, m_from, m_to, m_period);
    if (window.isOpen)
        return sleep(m_period);
    // The time that is left is computed after each sleep: a sleep may end early, and the clock may be set meanwhile,
    // even by months.
    for (qint64 left = now.msecsTo(window.start); left >= 1;
         left = QDateTime::currentDateTime().msecsTo(window.start)) {
        if (!sleep(static_cast<int>(qMin<qint64>(left, INT_MAX))))
            return false;
    }
    return true;
}
