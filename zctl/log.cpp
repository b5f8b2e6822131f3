// SPDX-License-Identifier: Apache-2.0
#include "commands.h"
#include "options.h"
#include "output.h"
#include "printable.h"
#include "terminal.h"
#include "words.h"

#include <QJsonArray>
#include <QJsonObject>

#include <syslog.h>

namespace {

Terminal::Colour colourOf(int severity)
{
    if (severity <= LOG_ERR)
        return Terminal::Bad;
    return severity == LOG_WARNING ? Terminal::Doubtful : Terminal::Plain;
}

void putLine(const QJsonObject &line, const Terminal &terminal)
{
    const QString text = printable(textOf(line, "text"));
    const int severity = line.value(QLatin1String("severity")).toInt(LOG_INFO);
    put(clockText(textOf(line, "time")) + QStringLiteral("  ") + terminal.paint(text, colourOf(severity)));
}

ExitCode followLog(const Request &request, const QString &path)
{
    endWithReader();
    const Terminal terminal = Terminal::ofOutput();
    const Answer answer = request.client.follow(path, [&](const QByteArray &data) {
        if (request.options.isJson)
            putJson(data + '\n');
        else
            putLine(QJsonDocument::fromJson(data).object(), terminal);
    });
    complain(answer.error.isEmpty() ? QStringLiteral("the host has ended, and so its log") : answer.error);
    return exitCodeOf(answer);
}

} // namespace

ExitCode showLog(const Request &request)
{
    const QString path = QStringLiteral("/v1/log?lines=%1").arg(request.options.lines);
    if (request.options.follows)
        return followLog(request, path);
    return tell(request, request.client.get(path), [](const QJsonDocument &json) {
        const Terminal terminal = Terminal::ofOutput();
        const QJsonArray lines = json.array();
        for (const QJsonValue &line : lines)
            putLine(line.toObject(), terminal);
    });
}
