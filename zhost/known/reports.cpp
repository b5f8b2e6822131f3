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

const Reports::Part Reports::parts[] = {
    {"host", [](const Reports &reports) -> QJsonValue { return reports.host(); }},
    {"plugins", [](const Reports &reports) -> QJsonValue { return reports.plugins(); }},
    {"services", [](const Reports &reports) -> QJsonValue { return reports.services(); }},
    {"endpoints", [](const Reports &reports) -> QJsonValue { return reports.m_known.endpoints.describe(); }},
    {"schedule", [](const Reports &reports) -> QJsonValue { return reports.schedule(); }},
    {"threads", [](const Reports &) -> QJsonValue { return threadFigures(); }},
    {"configuration", [](const Reports &reports) -> QJsonValue { return reports.configuration(); }},
    {"events", [](const Reports &reports) -> QJsonValue { return reports.m_known.history.describe(); }},
};

QJsonObject Reports::all() const
{
    QJsonObject result;
    for (const Part &part : parts)
        result.insert(QLatin1String(part.key), part.describe(*this));
    return result;
}

QJsonValue Reports::part(const QString &key) const
{
    for (const Part &part : parts) {
        if (key == QLatin1String(part.key))
            return part.describe(*this);
    }
    return QJsonValue::Undefined;
}

Reports::Loop Reports::loop() const
{
    LoopClock::Delay delay = m_known.loop.measure();
    while (!delay.hasCome && delay.ms < HangMs && m_known.state != Known::Stopping)
        delay = m_known.loop.measure(); // the first who asks is to be told, too, that it hangs
    const bool hangs = !delay.hasCome && delay.ms >= HangMs;
    return {delay.ms, hangs, hangs ? Whereabouts::ask() : QString()};
}

QString Reports::Loop::illness() const
{
    if (!hangs)
        return {};
    const QString since = QStringLiteral("the event loop has not come round for %1 s").arg(delayMs / 1000);
    return where.isEmpty() ? since : QStringLiteral("%1: it is in %2").arg(since, where);
}

QJsonObject Reports::host() const
{
    const Loop loop = this->loop();
    const QString illness = loop.illness();
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
    result.insert(QStringLiteral("loop"), QJsonObject{{QStringLiteral("delayMs"), loop.delayMs},
                                                      {QStringLiteral("hangs"), loop.hangs},
                                                      {QStringLiteral("where"), loop.where}});
    result.insert(QStringLiteral("notKnown"), notKnown());
    return result;
}

QString Reports::illness() const { return loop().illness(); }

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
            {QStringLiteral("once"), entry.entry().once},
            {QStringLiteral("skipped"), status.skipped},
            {QStringLiteral("lastSkip"), status.lastSkip},
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
