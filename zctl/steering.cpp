// SPDX-License-Identifier: Apache-2.0
#include "commands.h"
#include "options.h"
#include "output.h"
#include "printable.h"
#include "words.h"

#include <QJsonArray>
#include <QUrl>

namespace {

constexpr int DropSeconds = 180; // what is dropped is tried out first

QString encoded(const QString &text) { return QString::fromLatin1(QUrl::toPercentEncoding(text)); }

QString textOf(const QJsonDocument &json, const char *key) { return textOf(json.object(), key); }

/// Says one line for people; what is in it may come from anybody.
void say(const QString &text) { put(printable(text)); }

QString describeState(const QJsonObject &entry)
{
    QString result = textOf(entry, "state");
    if (const QString next = whenText(textOf(entry, "next")); !next.isEmpty())
        result += QStringLiteral(", runs %1").arg(next);
    if (const QString ended = textOf(entry, "ended"); !ended.isEmpty())
        result += QStringLiteral(": %1").arg(ended);
    return result;
}

QString entryPath(const Request &request, const char *how)
{
    return QStringLiteral("/v1/schedule/%1/%2")
        .arg(request.options.arguments.constFirst().toInt())
        .arg(QLatin1String(how));
}

ExitCode steerEntry(const Request &request, const char *how)
{
    return tell(request, request.client.post(entryPath(request, how)), [](const QJsonDocument &json) {
        say(QStringLiteral("%1: %2").arg(entryText(json.object()), describeState(json.object())));
    });
}

QString pluginPath(const Request &request, const char *how)
{
    return QStringLiteral("/v1/plugins/%1/%2").arg(encoded(request.options.arguments.constFirst()), QLatin1String(how));
}

ExitCode tellHost(const Request &request, const char *path, const char *what)
{
    return tell(request, request.client.post(QLatin1String(path)),
                [&](const QJsonDocument &) { put(QString::fromLatin1(what)); });
}

QString describeSwitches(const QJsonObject &switches)
{
    QStringList result;
    const QJsonObject severities = switches.value(QLatin1String("severities")).toObject();
    for (auto severity = severities.begin(); severity != severities.end(); ++severity)
        result.append(severity.key() + (severity.value().toBool() ? QStringLiteral(" on") : QStringLiteral(" off")));
    const QJsonObject masks = switches.value(QLatin1String("log")).toObject();
    for (auto mask = masks.begin(); mask != masks.end(); ++mask)
        result.append(QStringLiteral("%1 %2").arg(mask.key(), QString::number(mask.value().toInt())));
    return result.join(QStringLiteral(", "));
}

} // namespace

ExitCode callBus(const Request &request)
{
    const Options &options = request.options;
    const Answer answer = request.client.call(options.arguments.constFirst(), options.request, options.deadlineMs);
    return tell(request, answer, [](const QJsonDocument &json) {
        putJson(QJsonDocument(json.object().value(QLatin1String("out")).toObject()).toJson());
    });
}

ExitCode runEntry(const Request &request)
{
    Answer answer = request.client.post(entryPath(request, "run"));
    const QJsonObject entry = answer.json.object();
    const QString failure = textOf(entry, "lastFailure");
    if (answer.end == Answer::End::Done && textOf(entry, "state") != QLatin1String("running") && !failure.isEmpty()) {
        answer.end = Answer::End::No;
        answer.error = QStringLiteral("%1 was run, and has failed: %2").arg(entryText(entry), failure);
    }
    if (const QString skip = textOf(entry, "lastSkip"); answer.end == Answer::End::Done && !skip.isEmpty()) {
        answer.end = Answer::End::No;
        answer.error = QStringLiteral("%1 was not run: %2").arg(entryText(entry), skip);
    }
    return tell(request, answer, [](const QJsonDocument &json) {
        say(QStringLiteral("%1 was run: %2").arg(entryText(json.object()), describeState(json.object())));
    });
}

ExitCode cancelEntry(const Request &request) { return steerEntry(request, "cancel"); }
ExitCode restartEntry(const Request &request) { return steerEntry(request, "restart"); }

ExitCode rollBack(const Request &request)
{
    const Answer answer = request.client.post(pluginPath(request, "rollback"), {}, DropSeconds);
    return tell(request, answer, [](const QJsonDocument &json) {
        say(QStringLiteral("%1 is dropped again, as %2").arg(textOf(json, "from"), textOf(json, "to")));
    });
}

ExitCode release(const Request &request)
{
    return tell(request, request.client.post(pluginPath(request, "release")), [](const QJsonDocument &json) {
        const QString asked = listText(json.object().value(QLatin1String("asked")));
        say(asked.isEmpty() ? QStringLiteral("nobody holds an older version who could be asked")
                            : QStringLiteral("asked to let go: %1").arg(asked));
    });
}

ExitCode setLogLevel(const Request &request)
{
    const QString &name = request.options.arguments.constFirst();
    const QString &level = request.options.arguments.constLast();
    bool isMask = false;
    const int mask = level.toInt(&isMask);
    const QJsonObject wanted =
        isMask ? QJsonObject{{QStringLiteral("log"), QJsonObject{{name, mask}}}}
               : QJsonObject{{QStringLiteral("severities"), QJsonObject{{name, level == QLatin1String("on")}}}};
    return tell(request, request.client.put(QStringLiteral("/v1/log"), wanted), [](const QJsonDocument &json) {
        say(QStringLiteral("the log has, until the host ends: %1").arg(describeSwitches(json.object())));
    });
}

ExitCode reload(const Request &request)
{
    return tellHost(request, "/v1/reload",
                    "the host is told to read its configuration anew: the log says what comes of it");
}

ExitCode stop(const Request &request) { return tellHost(request, "/v1/stop", "the host is told to stop"); }
