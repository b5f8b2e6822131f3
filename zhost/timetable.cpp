// SPDX-License-Identifier: Apache-2.0
#include "timetable.h"

#include "buscall.h"
#include "services.h"
#include "warn.h"

#include <QMutexLocker>

#include <zdailywindow.h>

#include <algorithm>
#include <limits>
#include <tuple>

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

    const auto flag = [&](const char *key, bool otherwise) {
        const QJsonValue isSet = object.value(QLatin1String(key));
        if (!isSet.isUndefined() && !isSet.isBool())
            problems->append(QStringLiteral("\"%1\" must be true or false").arg(QLatin1String(key)));
        return isSet.toBool(otherwise);
    };
    entry.repeat = flag("repeat", true);
    entry.keep = flag("keep", false);
    return entry;
}

bool TimetableEntry::operator==(const TimetableEntry &other) const
{
    const auto all = [](const TimetableEntry &entry) {
        return std::tie(entry.url, entry.every, entry.from, entry.to, entry.repeat, entry.keep);
    };
    return all(*this) == all(other);
}

TimetableActivity::TimetableActivity(const TimetableEntry &entry, const QString &label, ZDbus *dbus, ZLogger *logger)
    : ZDbusActivity(scheduleOf(entry), dbus, entry.url, entry.repeat), m_entry(entry), m_dbus(dbus), m_logger(logger),
      m_label(label)
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
    const QString failure = callBus(*m_dbus, m_entry.url, nullptr, nullptr);
    const bool goesOn = m_entry.repeat && (failure.isNull() || m_entry.keep);
    if (!goesOn)
        enter(Ended, {});
    if (!failure.isNull() && failure != m_failure && !m_isCancelled) // once for a row of the same
        warn(*m_logger, QStringLiteral("%1 %2: %3")
                            .arg(label(), goesOn ? QStringLiteral("is kept") : QStringLiteral("has ended"), failure));
    m_failure = failure;
    return goesOn;
}

void TimetableActivity::cancel()
{
    m_isCancelled = true;
    ZDbusActivity::cancel();
}

bool TimetableActivity::isIdle() const
{
    const QMutexLocker locker(&m_mutex);
    return m_state == Idle;
}

bool TimetableActivity::does(const TimetableEntry &entry) const
{
    const QMutexLocker locker(&m_mutex);
    return m_entry == entry && !(m_state == Ended && entry.repeat);
}

void TimetableActivity::setLabel(const QString &label)
{
    const QMutexLocker locker(&m_mutex);
    m_label = label;
}

QString TimetableActivity::label() const
{
    const QMutexLocker locker(&m_mutex);
    return m_label;
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

QStringList Timetable::follow(const QJsonValue &section, const Services &services)
{
    QVector<QSharedPointer<TimetableActivity>> before = activities();
    QVector<QSharedPointer<TimetableActivity>> all;
    QVector<QSharedPointer<TimetableActivity>> added;
    const QJsonArray entries = section.toArray();
    for (int i = 0; i < entries.size(); ++i) {
        QStringList problems;
        const TimetableEntry entry = TimetableEntry::read(entries.at(i), &problems);
        if (!problems.isEmpty())
            continue;
        const QString label = QStringLiteral("schedule[%1]").arg(i);
        const auto same =
            std::find_if(before.begin(), before.end(), [&](const auto &activity) { return activity->does(entry); });
        if (same != before.end()) {
            (*same)->setLabel(label);
            all.append(*same);
            before.erase(same);
        } else {
            added.append(QSharedPointer<TimetableActivity>::create(entry, label, services.dbus, services.logger));
            all.append(added.last());
        }
    }
    {
        const QMutexLocker locker(&m_mutex);
        m_activities = all;
    }
    for (const auto &activity : qAsConst(before))
        activity->cancel();
    QStringList refused;
    for (const auto &activity : qAsConst(added)) {
        if (!services.scheduler->schedule0(activity) && activity->isIdle())
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
