// SPDX-License-Identifier: Apache-2.0
// The requests of the door that read.
#include "metrics.h"
#include "routes.h"

#include "../host.h"
#include "../known/known.h"
#include "../known/logring.h"
#include "../known/reports.h"

#include <doorlimits.h>

#include <QFile>
#include <QFileInfo>
#include <QReadLocker>

namespace {

Reply stateOf(const QString &reason)
{
    return Reply::of(QJsonObject{{QStringLiteral("ok"), reason.isEmpty()}, {QStringLiteral("reason"), reason}},
                     reason.isEmpty() ? 200 : 503);
}

QByteArray typeOf(const QString &file)
{
    if (file.endsWith(QLatin1String(".js")))
        return QByteArrayLiteral("text/javascript; charset=utf-8");
    if (file.endsWith(QLatin1String(".css")))
        return QByteArrayLiteral("text/css; charset=utf-8");
    if (file.endsWith(QLatin1String(".svg")))
        return QByteArrayLiteral("image/svg+xml");
    if (file.endsWith(QLatin1String(".json")))
        return QByteArrayLiteral("application/json");
    return QByteArrayLiteral("text/html; charset=utf-8");
}

} // namespace

/// What is known of the bus past this process; undefined if no plugin takes it there.
QJsonValue Routes::bus() const
{
    {
        const QReadLocker locker(&m_lock);
        if (!m_host || !m_known->endpoints.isThere(QStringLiteral("//nats")))
            return QJsonValue::Undefined;
        m_busQuestion.begin(m_host->localBus());
    }
    return m_busQuestion.answer(); // it may take a while
}

Reply Routes::report(const Question &) const
{
    const QJsonValue bus = this->bus();
    const QReadLocker locker(&m_lock);
    QJsonObject report = Reports(*m_known, m_host).all();
    report.insert(QStringLiteral("bus"), bus); // which does nothing if it is undefined
    return Reply::of(report);
}

Reply Routes::reportPart(const Question &question) const
{
    const QString name = question.parts.first();
    if (name == QLatin1String("bus")) {
        const QJsonValue bus = this->bus();
        return bus.isUndefined()
                   ? Reply::failure(
                         404, QStringLiteral("no plugin takes the bus past this process: nobody has bound //nats"))
                   : Reply::of(bus);
    }
    const QReadLocker locker(&m_lock);
    const QJsonValue part = Reports(*m_known, m_host).part(name);
    return part.isUndefined() ? Reply::failure(404, QStringLiteral("the report has no part \"%1\"").arg(name))
                              : Reply::of(part);
}

int Routes::linesWanted(const Question &question)
{
    return question.number(QStringLiteral("lines"), Limits::DefaultLines, 0, Limits::MaxLines);
}

Reply Routes::log(const Question &question) const
{
    const int count = linesWanted(question);
    if (count < 0)
        return Reply::failure(400, QStringLiteral("\"lines\" must be a number, up to %1").arg(Limits::MaxLines));
    QJsonArray lines;
    const QVector<LogRing::Line> last = LogRing::get().last(count);
    for (const LogRing::Line &line : last)
        lines.append(line.describe());
    return Reply::of(lines);
}

Reply Routes::healthy(const Question &) const { return stateOf(Reports(*m_known, nullptr).illness()); }

Reply Routes::ready(const Question &) const
{
    switch (m_known->state) {
    case Known::Starting:
        return stateOf(QStringLiteral("the plugins are being loaded"));
    case Known::Stopping:
        return stateOf(QStringLiteral("the host is stopping"));
    case Known::Running:
        break;
    }
    return stateOf({});
}

Reply Routes::metrics(const Question &) const
{
    const QJsonObject bus = this->bus().toObject();
    const QReadLocker locker(&m_lock);
    return {200, metricsText(Reports(*m_known, m_host), m_calls.counts(), bus),
            "text/plain; version=0.0.4; charset=utf-8"};
}

/// The page and its files, which are built into the program.
Reply Routes::file(const Question &question) const
{
    QString name = question.path.mid(1);
    if (name.isEmpty())
        name = QStringLiteral("page/index.html");
    QFile file(QStringLiteral(":/door/") + name);
    if (!QFileInfo(file).isFile() || !file.open(QIODevice::ReadOnly))
        return Reply::failure(404, QStringLiteral("there is nothing at %1").arg(question.path));
    return {200, file.readAll(), typeOf(name)};
}
