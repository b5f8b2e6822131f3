// SPDX-License-Identifier: Apache-2.0
#include "reports.h"

#include "known.h"
#include "pluginreport.h"
#include "processfigures.h"
#include "whereabouts.h"

#include "../host.h"

#include <QCoreApplication>
#include <QUrl>

namespace {

constexpr int HangMs = 2000; // until a loop that is busy counts as one that hangs

QString text(const QDateTime &time) { return time.isValid() ? time.toUTC().toString(Qt::ISODateWithMs) : QString(); }

QString textOf(Known::State state)
{
    switch (state) {
    case Known::Starting:
        return QStringLiteral("starting");
    case Known::Running:
        return QStringLiteral("running");
    case Known::Stopping:
        break;
    }
    return QStringLiteral("stopping");
}

QString illnessOf(qint64 ms, const QString &where)
{
    const QString since = QStringLiteral("the event loop has not come round for %1 s").arg(ms / 1000);
    return where.isEmpty() ? since : QStringLiteral("%1: it is in %2").arg(since, where);
}

QString stateOf(TimetableActivity::State state)
{
    switch (state) {
    case TimetableActivity::Running:
        return QStringLiteral("running");
    case TimetableActivity::Ended:
        return QStringLiteral("ended");
    case TimetableActivity::Idle: // it is about to wait
    case TimetableActivity::Waiting:
        break;
    }
    return QStringLiteral("waiting");
}

/// What this report would have to touch a hot path for.
QJsonArray notKnown()
{
    return {
        QStringLiteral("how often endpoints are called: only the calls of the schedule and of the door are counted"),
        QStringLiteral("what was bound on a bus, or scheduled with a scheduler, that a plugin has put in place of "
                       "the host's own")};
}

} // namespace

QJsonObject Reports::all() const
{
    return {{QStringLiteral("host"), host()},
            {QStringLiteral("plugins"), plugins()},
            {QStringLiteral("services"), services()},
            {QStringLiteral("endpoints"), m_known.endpoints.describe()},
            {QStringLiteral("schedule"), schedule()},
            {QStringLiteral("threads"), threadFigures()},
            {QStringLiteral("configuration"), configuration()},
            {QStringLiteral("events"), m_known.history.describe()}};
}

QJsonValue Reports::part(const QString &key) const
{
    // Not out of all of it: who asks for one key is not to wait for the others.
    if (key == QLatin1String("host"))
        return host();
    if (key == QLatin1String("plugins"))
        return plugins();
    if (key == QLatin1String("services"))
        return services();
    if (key == QLatin1String("endpoints"))
        return m_known.endpoints.describe();
    if (key == QLatin1String("schedule"))
        return schedule();
    if (key == QLatin1String("threads"))
        return threadFigures();
    if (key == QLatin1String("configuration"))
        return configuration();
    if (key == QLatin1String("events"))
        return m_known.history.describe();
    return QJsonValue::Undefined;
}

QJsonObject Reports::host() const
{
    LoopClock::Delay delay = m_known.loop.measure();
    while (!delay.hasCome && delay.ms < HangMs && m_known.state != Known::Stopping)
        delay = m_known.loop.measure(); // the first who asks is to be told, too, that it hangs
    const bool hangs = !delay.hasCome && delay.ms >= HangMs;
    const QString where = hangs ? Whereabouts::ask() : QString();
    const QString illness = hangs ? illnessOf(delay.ms, where) : QString();
    QJsonObject result = processFigures();
    result.insert(QStringLiteral("version"), QCoreApplication::applicationVersion());
    result.insert(QStringLiteral("process"), QCoreApplication::applicationPid());
    result.insert(QStringLiteral("configuration"), m_known.file);
    result.insert(QStringLiteral("door"), QJsonArray::fromStringList(m_known.places()));
    result.insert(QStringLiteral("now"), text(QDateTime::currentDateTimeUtc()));
    result.insert(QStringLiteral("since"), text(m_known.since));
    result.insert(QStringLiteral("state"), textOf(m_known.state));
    result.insert(QStringLiteral("healthy"), illness.isEmpty());
    result.insert(QStringLiteral("reason"), illness);
    result.insert(QStringLiteral("loop"), QJsonObject{{QStringLiteral("delayMs"), delay.ms},
                                                      {QStringLiteral("hangs"), hangs},
                                                      {QStringLiteral("where"), where}});
    result.insert(QStringLiteral("notKnown"), notKnown());
    return result;
}

QString Reports::illness() const { return host().value(QStringLiteral("reason")).toString(); }

QJsonArray Reports::plugins() const { return pluginReport(m_known); }

QJsonArray Reports::services() const { return m_known.wiring.services(); }

QJsonArray Reports::schedule() const
{
    QJsonArray result;
    if (!m_host)
        return result;
    const QVector<QSharedPointer<TimetableActivity>> entries = m_host->timetable().activities();
    for (const QSharedPointer<TimetableActivity> &entry : entries)
        result.append(describe(*entry));
    return result;
}

QJsonObject Reports::describe(const TimetableActivity &entry)
{
    const TimetableActivity::Status status = entry.status();
    return {{QStringLiteral("index"), entry.index()},
            {QStringLiteral("url"), entry.entry().url.toString()},
            {QStringLiteral("state"), stateOf(status.state)},
            {QStringLiteral("runs"), status.runs},
            {QStringLiteral("failures"), status.failures},
            {QStringLiteral("failuresInARow"), status.inARow},
            {QStringLiteral("last"), text(status.last)},
            {QStringLiteral("lastMs"), status.lastMs},
            {QStringLiteral("lastFailure"), status.lastReason},
            {QStringLiteral("next"), status.state == TimetableActivity::Waiting ? text(status.time) : QString()},
            {QStringLiteral("ended"), status.end},
            {QStringLiteral("cancelled"), status.isCancelled}};
}

/// A section of a plugin's may hold a password.
QJsonObject Reports::configuration() const
{
    static const QStringList own = {QStringLiteral("door"),   QStringLiteral("filesystem"), QStringLiteral("guard"),
                                    QStringLiteral("loader"), QStringLiteral("logger"),     QStringLiteral("schedule")};
    const QJsonObject configuration = m_known.configuration();
    QJsonObject keys;
    QJsonArray others;
    for (auto section = configuration.begin(); section != configuration.end(); ++section) {
        if (own.contains(section.key()))
            keys.insert(section.key(), section.value());
        else if (!section.key().startsWith(QLatin1Char('#')))
            others.append(section.key());
    }
    return {{QStringLiteral("file"), m_known.file}, {QStringLiteral("keys"), keys}, {QStringLiteral("others"), others}};
}
