// SPDX-License-Identifier: Apache-2.0
#include "timetable.h"

#include <QMutexLocker>

#include <zdailywindow.h>
#include <zdbus.h>
#include <zscheduler.h>

#include <limits>

namespace {

const QString timeFormat = QStringLiteral("hh:mm:ss");

QSharedPointer<ZSchedule> scheduleOf(const TimetableEntry &entry)
{
    if (entry.isDaily())
        return QSharedPointer<ZDailySchedule>::create(entry.from, entry.to, entry.every);
    return QSharedPointer<ZPeriodicSchedule>::create(entry.every);
}

QDateTime nextRun(const TimetableEntry &entry)
{
    const QDateTime now = QDateTime::currentDateTime();
    if (entry.isDaily()) {
        const ZDailyWindow window = ZDailyWindow::at(now, entry.from, entry.to, entry.every);
        if (!window.isOpen)
            return window.start;
    }
    return now.addMSecs(entry.every);
}

} // namespace

TimetableEntry TimetableEntry::read(const QJsonValue &value, QStringList *problems)
{
    TimetableEntry entry;
    const auto wrong = [&](const char *what) { problems->append(QLatin1String(what)); };
    if (!value.isObject()) {
        wrong("must be an object");
        return entry;
    }
    const QJsonObject object = value.toObject();

    entry.url = QUrl(object.value(QStringLiteral("url")).toString(), QUrl::StrictMode);
    if (entry.url.isEmpty() || !entry.url.isValid())
        wrong("\"url\" must be the URL to call, as //host/path");

    const double every = object.value(QStringLiteral("every")).toDouble();
    if (every >= 1 && every <= std::numeric_limits<int>::max() && every == static_cast<int>(every))
        entry.every = static_cast<int>(every);
    else
        wrong("\"every\" must be a whole number of milliseconds, at least 1");

    const auto time = [&](const char *key) {
        const QJsonValue text = object.value(QLatin1String(key));
        const QTime result = QTime::fromString(text.toString(), timeFormat);
        if (!text.isUndefined() && !result.isValid())
            problems->append(QStringLiteral("\"%1\" must be a time of day, as hh:mm:ss").arg(QLatin1String(key)));
        return result;
    };
    entry.from = time("from");
    entry.to = time("to");
    if (object.contains(QStringLiteral("from")) != object.contains(QStringLiteral("to")))
        wrong("needs both \"from\" and \"to\", or neither");

    const QJsonValue repeat = object.value(QStringLiteral("repeat"));
    entry.repeat = repeat.toBool(true);
    if (!repeat.isUndefined() && !repeat.isBool())
        wrong("\"repeat\" must be true or false");
    return entry;
}

TimetableActivity::TimetableActivity(const TimetableEntry &entry, ZDbus *dbus)
    : ZDbusActivity(scheduleOf(entry), dbus, entry.url, entry.repeat), m_entry(entry)
{}

TimetableActivity::~TimetableActivity() = default;

bool TimetableActivity::wait()
{
    enter(Waiting, nextRun(m_entry));
    return ZDbusActivity::wait() || enter(Ended, {});
}

bool TimetableActivity::run()
{
    enter(Running, QDateTime::currentDateTime());
    return ZDbusActivity::run() || enter(Ended, {});
}

bool TimetableActivity::isIdle() const
{
    const QMutexLocker locker(&m_mutex);
    return m_state == Idle;
}

QJsonObject TimetableActivity::describe() const
{
    QJsonObject result{{QStringLiteral("name"), name()}, {QStringLiteral("repeat"), m_entry.repeat}};
    const QMutexLocker locker(&m_mutex);
    const QString time = m_time.toString(Qt::ISODateWithMs);
    switch (m_state) {
    case Idle:
        break;
    case Waiting:
        result.insert(QStringLiteral("next"), time);
        break;
    case Running:
        result.insert(QStringLiteral("running since"), time);
        break;
    case Ended:
        result.insert(QStringLiteral("ended"), true);
        break;
    }
    return result;
}

/// Always false: the end of an activity.
bool TimetableActivity::enter(State state, const QDateTime &time)
{
    const QMutexLocker locker(&m_mutex);
    m_state = state;
    m_time = time;
    return false;
}

QStringList Timetable::start(const QJsonValue &section, ZDbus *dbus, ZScheduler *scheduler)
{
    QStringList refused;
    const QJsonArray entries = section.toArray();
    for (const auto &value : entries) {
        QStringList problems;
        const TimetableEntry entry = TimetableEntry::read(value, &problems);
        if (!problems.isEmpty())
            continue;
        const auto activity = QSharedPointer<TimetableActivity>::create(entry, dbus);
        {
            const QMutexLocker locker(&m_mutex);
            m_activities.append(activity);
        }
        if (!scheduler->schedule0(activity) && activity->isIdle())
            refused.append(activity->name());
    }
    return refused;
}

void Timetable::cancel()
{
    const QVector<QSharedPointer<TimetableActivity>> all = activities();
    for (const QSharedPointer<TimetableActivity> &activity : all)
        activity->cancel();
}

QJsonArray Timetable::describe() const
{
    QJsonArray result;
    const QVector<QSharedPointer<TimetableActivity>> all = activities();
    for (const QSharedPointer<TimetableActivity> &activity : all)
        result.append(activity->describe());
    return result;
}

QVector<QSharedPointer<TimetableActivity>> Timetable::activities() const
{
    const QMutexLocker locker(&m_mutex);
    return m_activities;
}
