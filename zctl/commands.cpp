// SPDX-License-Identifier: Apache-2.0
#include "commands.h"

#include "options.h"
#include "output.h"
#include "printable.h"
#include "terminal.h"

#include <QUrl>

namespace {

QString checkIndex(const QStringList &arguments)
{
    bool isNumber = false;
    const int index = arguments.constFirst().toInt(&isNumber);
    return isNumber && index >= 0 ? QString()
                                  : QStringLiteral("\"%1\" is no index: see zctl schedule").arg(arguments.constFirst());
}

QString checkUrl(const QStringList &arguments)
{
    const QUrl url(arguments.constFirst(), QUrl::StrictMode);
    return url.isValid() && !url.isEmpty() ? QString() : QStringLiteral("call needs a URL, as //host/path");
}

QString checkLogLevel(const QStringList &arguments)
{
    const QString &level = arguments.constLast();
    bool isMask = false;
    const int mask = level.toInt(&isMask);
    return (isMask && mask >= 0) || level == QLatin1String("on") || level == QLatin1String("off")
               ? QString()
               : QStringLiteral("\"%1\" is neither a sum of kinds of lines, nor on or off").arg(level);
}

} // namespace

const std::vector<Command> &commands()
{
    static const std::vector<Command> all = {
        {"status", "", 0, 0, "Tell whether it is healthy, what runs, and what has failed.", showStatus},
        {"plugins", "[NAME]", 0, 1, "List the plugins, or tell all about one.", showPlugins},
        {"services", "", 0, 0, "List the interfaces, and who serves them.", showServices},
        {"endpoints", "", 0, 0, "List what is bound on the bus.", showEndpoints},
        {"schedule", "", 0, 0, "List the timetable: what has run, and runs next.", showSchedule},
        {"threads", "", 0, 0, "List the threads.", showThreads},
        {"log", "[-f] [-n LINES]", 0, 0, "Print the last lines of the log; with -f those that come.", showLog},
        {"hosts", "", 0, 0, "List the hosts that the bus reaches, and what they serve.", showHosts},
        {"call", "URL [--in JSON]", 1, 1, "Call the bus, and print the answer.", callBus, checkUrl},
        {"run", "N", 1, 1, "Make the call of the entry N of the timetable now.", runEntry, checkIndex},
        {"cancel", "N", 1, 1, "End the entry N.", cancelEntry, checkIndex},
        {"restart", "N", 1, 1, "Begin the entry N, which has ended, once more.", restartEntry, checkIndex},
        {"rollback", "NAME", 1, 1, "Deploy the version before the one that runs once more.", rollBack},
        {"release", "NAME", 1, 1, "Ask what holds an older version of a plugin to let go.", release},
        {"log-level", "CATEGORY MASK", 2, 2,
         "Say which kinds of tagged lines are written, until it ends; or\n"
         "                              switch a severity (debug, info, warning, critical) on or off.",
         setLogLevel, checkLogLevel},
        {"reload", "", 0, 0, "Have the configuration read anew.", reload},
        {"stop", "", 0, 0, "Have the host stop.", stop},
        {"top", "", 0, 0, "Show what goes on, each second anew; q ends it.", showTop}};
    return all;
}

void putJson(const QByteArray &json)
{
    if (!Terminal::ofOutput().isOne)
        return putBytes(json);
    QStringList lines = QString::fromUtf8(json).trimmed().split(QLatin1Char('\n'));
    for (QString &line : lines)
        line = printable(line);
    put(lines.join(QLatin1Char('\n')));
}

ExitCode exitCodeOf(const Answer &answer)
{
    switch (answer.end) {
    case Answer::End::Done:
        return Done;
    case Answer::End::No:
        return No;
    case Answer::End::Nobody:
        break;
    }
    return Unusable;
}

ExitCode tell(const Request &request, const Answer &answer, const std::function<void(const QJsonDocument &)> &print)
{
    if (request.options.isJson && !answer.body.isEmpty())
        putJson(answer.body);
    if (!answer.error.isEmpty())
        complain(answer.error);
    else if (!request.options.isJson)
        print(answer.json);
    return exitCodeOf(answer);
}
