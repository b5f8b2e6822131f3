// SPDX-License-Identifier: Apache-2.0
// The requests of the door that steer the host.
#include "routes.h"

#include "../buscall.h"
#include "../host.h"
#include "../known/reports.h"
#include "../severities.h"

#include <doorlimits.h>

#include <QUrl>

#include <csignal>

#include <unistd.h>

namespace {

constexpr int MaxDepth = 500; // readers may not accept more

/// Goes level by level: a recursion would fail on what is too deep.
bool isDeeperThan(int depth, const QJsonObject &object)
{
    QVector<QJsonValue> level{object};
    for (; !level.isEmpty() && depth > 0; --depth) {
        QVector<QJsonValue> next;
        const auto add = [&](const QJsonValue &value) {
            if (value.isObject() || value.isArray())
                next.append(value);
        };
        for (const QJsonValue &value : qAsConst(level)) {
            const QJsonObject members = value.toObject();
            for (const auto &member : members)
                add(member);
            const QJsonArray elements = value.toArray();
            for (const auto &element : elements)
                add(element);
        }
        level = next;
    }
    return !level.isEmpty();
}

Reply tell(int signal, const QString &what)
{
    kill(getpid(), signal);
    return Reply::of(QJsonObject{{QStringLiteral("asked"), what}}, 202);
}

} // namespace

Reply Routes::tooMany()
{
    return Reply::failure(503, QStringLiteral("%1 calls are under way already").arg(BusCalls::MaxCalls));
}

Reply Routes::call(const Question &question) const
{
    const QUrl url(question.parameters.value(QStringLiteral("url")), QUrl::StrictMode);
    if (url.isEmpty() || !url.isValid())
        return Reply::failure(400, QStringLiteral("\"url\" must be the URL to call, as //host/path"));
    const int deadline =
        question.number(QStringLiteral("deadline"), Limits::DefaultDeadlineMs, 1, Limits::MaxDeadlineMs);
    if (deadline < 0)
        return Reply::failure(
            400, QStringLiteral("\"deadline\" must be a number of milliseconds, up to %1").arg(Limits::MaxDeadlineMs));
    const QJsonDocument request =
        QJsonDocument::fromJson(question.body.trimmed().isEmpty() ? QByteArray("{}") : question.body);
    if (!request.isObject())
        return Reply::failure(400, QStringLiteral("the request must be an object of JSON"));

    std::shared_ptr<BusCalls::Call> call;
    const Reply reply = withHost([&](Host &host) {
        call = m_calls.begin(url.toString(),
                             [bus = host.bus(), outcome = host.further().dbusOutcome, url, request](QJsonObject *out) {
                                 QJsonObject in = request.object();
                                 return callBus(*bus, outcome, url, &in, out);
                             });
        return call ? Reply() : tooMany();
    });
    if (!call)
        return reply;
    const BusCalls::Result result = m_calls.wait(call, deadline);
    if (result.end == BusCalls::Result::Late)
        return Reply::failure(504, result.reason);
    if (isDeeperThan(MaxDepth, result.out))
        return Reply::failure(502, QStringLiteral("what %1 answers is nested in more than %2 levels")
                                       .arg(url.toString(), QString::number(MaxDepth)));
    return Reply::of(QJsonObject{{QStringLiteral("handled"), result.end == BusCalls::Result::Done},
                                 {QStringLiteral("out"), result.out},
                                 {QStringLiteral("reason"), result.reason}});
}

Reply Routes::runEntry(const Question &question) const
{
    std::shared_ptr<BusCalls::Call> call;
    const Reply reply = withEntry(question, [&](Host &, const auto &entry) {
        if (!entry->beginNow())
            return Reply::failure(409, QStringLiteral("it is running"));
        call = m_calls.begin(entry->entry().url.toString(), [entry](QJsonObject *) { return entry->callNow(); });
        if (call)
            return Reply();
        entry->endNow();
        return tooMany();
    });
    if (!call)
        return reply;
    m_calls.wait(call, Limits::DefaultDeadlineMs);
    return withEntry(question, [](Host &, const auto &entry) { return Reply::of(Reports::describe(*entry)); });
}

Reply Routes::cancelEntry(const Question &question) const
{
    return withEntry(question, [](Host &, const auto &entry) {
        entry->cancel();
        return Reply::of(Reports::describe(*entry));
    });
}

Reply Routes::restartEntry(const Question &question) const
{
    return withEntry(question, [](Host &host, const auto &entry) {
        if (entry->status().state != TimetableActivity::Ended)
            return Reply::failure(409, QStringLiteral("it has not ended"));
        const auto again = host.restart(entry);
        return again ? Reply::of(Reports::describe(*again))
                     : Reply::failure(409, QStringLiteral("there is no room for one more thread"));
    });
}

Reply Routes::withEntry(const Question &question,
                        const std::function<Reply(Host &, const QSharedPointer<TimetableActivity> &)> &deed) const
{
    return withHost([&](Host &host) {
        bool isNumber = false;
        const int index = question.parts.first().toInt(&isNumber);
        const QSharedPointer<TimetableActivity> entry =
            isNumber ? host.timetable().activity(index) : QSharedPointer<TimetableActivity>();
        return entry ? deed(host, entry)
                     : Reply::failure(404, QStringLiteral("the schedule has no entry %1").arg(question.parts.first()));
    });
}

/// Sets all switches of the request, or none.
Reply Routes::switchLog(const Question &question) const
{
    const QJsonDocument document = QJsonDocument::fromJson(question.body);
    const QJsonObject masks = document.object().value(QStringLiteral("log")).toObject();
    const QJsonObject severities = document.object().value(QStringLiteral("severities")).toObject();
    if (!document.isObject() || (masks.isEmpty() && severities.isEmpty()))
        return Reply::failure(400, QStringLiteral("the request must be an object with \"log\" or \"severities\""));
    const QString wrong = Severities::whyNot(severities);
    if (!wrong.isEmpty())
        return Reply::failure(400, wrong);
    return withHost([&](Host &host) {
        const QJsonObject known = host.logMasks();
        for (auto mask = masks.begin(); mask != masks.end(); ++mask) {
            if (mask->toInt() != mask->toDouble(0.5)) // also if it is too large
                return Reply::failure(400, QStringLiteral("the mask of \"%1\" must be a whole number").arg(mask.key()));
            if (!known.contains(mask.key())) // says why
                return Reply::failure(409, host.setLogMask(mask.key(), 0));
        }
        for (auto mask = masks.begin(); mask != masks.end(); ++mask) {
            if (const QString reason = host.setLogMask(mask.key(), mask->toInt()); !reason.isNull())
                return Reply::failure(409, reason);
        }
        Severities::set(severities);
        return Reply::of(
            QJsonObject{{QStringLiteral("log"), host.logMasks()}, {QStringLiteral("severities"), Severities::now()}});
    });
}

Reply Routes::reload(const Question &) const { return tell(SIGHUP, QStringLiteral("reload")); }

Reply Routes::stop(const Question &) const { return tell(SIGTERM, QStringLiteral("stop")); }
