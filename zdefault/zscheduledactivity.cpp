// SPDX-License-Identifier: Apache-2.0
#include "zscheduledactivity.h"

#include "zdbus.h"

ZScheduledActivity::ZScheduledActivity(QSharedPointer<ZSchedule> schedule) : m_schedule(std::move(schedule)) {}

ZScheduledActivity::~ZScheduledActivity() = default;

QString ZScheduledActivity::name() const { return m_schedule ? m_schedule->name() : QString(); }

bool ZScheduledActivity::wait() { return m_schedule && m_schedule->wait(); }

void ZScheduledActivity::cancel()
{
    if (m_schedule)
        m_schedule->cancel();
}

ZDbusActivity::ZDbusActivity(QSharedPointer<ZSchedule> schedule, ZDbus *dbus, const QUrl &url, bool repeat)
    : ZScheduledActivity(std::move(schedule)), m_dbus(dbus), m_url(url), m_repeat(repeat)
{}

ZDbusActivity::~ZDbusActivity() = default;

QString ZDbusActivity::name() const
{
    return QStringLiteral("ZDbusActivity(%1, %2)").arg(m_url.toString(), ZScheduledActivity::name());
}

bool ZDbusActivity::run()
{
    if (!m_dbus)
        return false;
    const bool handled = m_dbus->invoke0(m_url, nullptr, nullptr);
    return m_repeat && handled;
}
