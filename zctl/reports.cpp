// SPDX-License-Identifier: Apache-2.0
#include "reports.h"

#include "commands.h"
#include "options.h"
#include "output.h"
#include "plugindetails.h"
#include "words.h"

#include <QJsonObject>

namespace {

/// The plugins' own files, and the host's.
QString fileOf(const QJsonObject &object)
{
    const QString file = textOf(object, "file");
    return file.isEmpty() ? QStringLiteral("zhost") : file;
}

QString noteOf(const QJsonObject &plugin)
{
    QString reason = textOf(plugin, "reason");
    if (!reason.isEmpty())
        return reason;
    const QString left = textOf(plugin, "left");
    if (!left.isEmpty())
        return QStringLiteral("stays in memory: ") + left;
    const QJsonArray holders = plugin.value(QLatin1String("heldBy")).toArray();
    if (textOf(plugin, "state") != QLatin1String("gone") || holders.isEmpty())
        return {};
    return QStringLiteral("held by ") + textOf(holders.first().toObject(), "text");
}

ExitCode show(const Request &request, const char *what, Table (*tableOf)(const QJsonArray &), const char *ifEmpty)
{
    const Answer answer = request.client.get(QStringLiteral("/v1/report/") + QLatin1String(what));
    return tell(request, answer, [&](const QJsonDocument &json) {
        const Table table = tableOf(json.array());
        put(table.isEmpty() ? QString::fromLatin1(ifEmpty) : table.lines(Terminal::ofOutput()).join(QLatin1Char('\n')));
    });
}

} // namespace

QString sizeText(const QJsonObject &plugin)
{
    const double bytes = plugin.value(QLatin1String("size")).toDouble();
    return bytes > 0 ? bytesText(bytes) : QString();
}

Terminal::Colour colourOf(const QString &state)
{
    if (state == QLatin1String("good") || state == QLatin1String("running"))
        return Terminal::Good;
    if (state == QLatin1String("quarantined"))
        return Terminal::Bad;
    if (state == QLatin1String("on probation"))
        return Terminal::Doubtful;
    return Terminal::Plain;
}

QString threadState(const QString &letter)
{
    static const std::pair<const char *, const char *> names[] = {
        {"R", "runs"}, {"S", "sleeps"}, {"D", "waits for a disk"}, {"T", "is stopped"}, {"t", "is traced"}};
    for (const auto &[known, name] : names) {
        if (letter == QLatin1String(known))
            return QString::fromLatin1(name);
    }
    return letter;
}

Table pluginTable(const QJsonArray &plugins)
{
    Table table({{QStringLiteral("PLUGIN")},
                 {QStringLiteral("VERSION")},
                 {QStringLiteral("STATE"), Table::Short},
                 {QStringLiteral("LOADED"), Table::Short},
                 {QStringLiteral("SIZE"), Table::Number},
                 {QStringLiteral("SERVES")},
                 {QStringLiteral("NOTE")}});
    for (const QJsonValue &value : plugins) {
        const QJsonObject plugin = value.toObject();
        const QString state = textOf(plugin, "state");
        const bool isInMemory = plugin.value(QLatin1String("inMemory")).toBool();
        const QString version = textOf(plugin, "version");
        table.add({textOf(plugin, "plugin"),
                   version.isEmpty() ? QStringLiteral("-") : version,
                   {state, colourOf(state)},
                   isInMemory ? whenText(textOf(plugin, "loadedSince")) : QStringLiteral("no"),
                   sizeText(plugin),
                   listText(plugin.value(QLatin1String("serves"))),
                   noteOf(plugin)});
    }
    return table;
}

Table serviceTable(const QJsonArray &services)
{
    Table table({{QStringLiteral("INTERFACE")},
                 {QStringLiteral("SERVED BY")},
                 {QStringLiteral("FILE")},
                 {QStringLiteral("SINCE"), Table::Short},
                 {QStringLiteral("EXCHANGES"), Table::Number},
                 {QStringLiteral("BEFORE")}});
    for (const QJsonValue &value : services) {
        const QJsonObject service = value.toObject();
        const bool isServed = service.value(QLatin1String("served")).toBool();
        const QJsonObject before = service.value(QLatin1String("before")).toArray().first().toObject();
        const QString held = before.value(QLatin1String("held")).toBool() ? QStringLiteral(", still held") : QString();
        table.add(
            {textOf(service, "interface"),
             isServed ? Table::Cell(textOf(service, "class"))
                      : Table::Cell(QStringLiteral("nobody"), Terminal::Doubtful),
             isServed ? fileOf(service) : QString(), whenText(textOf(service, "since")),
             QString::number(numberOf(service, "exchanges")),
             before.isEmpty() ? QString() : textOf(before, "class") + QStringLiteral(" of ") + fileOf(before) + held});
    }
    return table;
}

Table endpointTable(const QJsonArray &endpoints)
{
    Table table({{QStringLiteral("URL")},
                 {QStringLiteral("STATE"), Table::Short},
                 {QStringLiteral("FILE")},
                 {QStringLiteral("SINCE"), Table::Short}});
    for (const QJsonValue &value : endpoints) {
        const QJsonObject endpoint = value.toObject();
        const bool isAlive = endpoint.value(QLatin1String("alive")).toBool();
        table.add({textOf(endpoint, "url"),
                   isAlive ? Table::Cell(QStringLiteral("alive"), Terminal::Good)
                           : Table::Cell(QStringLiteral("gone"), Terminal::Doubtful),
                   fileOf(endpoint), whenText(textOf(endpoint, "since"))});
    }
    return table;
}

Table scheduleTable(const QJsonArray &entries)
{
    Table table({{QStringLiteral("N"), Table::Number},
                 {QStringLiteral("URL")},
                 {QStringLiteral("STATE"), Table::Short},
                 {QStringLiteral("RUNS"), Table::Number},
                 {QStringLiteral("FAILED"), Table::Number},
                 {QStringLiteral("SKIPPED"), Table::Number},
                 {QStringLiteral("LAST"), Table::Short},
                 {QStringLiteral("TOOK"), Table::Number},
                 {QStringLiteral("NEXT"), Table::Short},
                 {QStringLiteral("ENDED")}});
    for (const QJsonValue &value : entries) {
        const QJsonObject entry = value.toObject();
        const QString state = textOf(entry, "state");
        const bool fails = numberOf(entry, "failuresInARow") > 0;
        const QString last = whenText(textOf(entry, "last"));
        table.add({QString::number(numberOf(entry, "index")),
                   textOf(entry, "url"),
                   {state, colourOf(state)},
                   QString::number(numberOf(entry, "runs")),
                   {QString::number(numberOf(entry, "failures")), fails ? Terminal::Bad : Terminal::Plain},
                   textOf(entry, "once").isEmpty() ? QString() : QString::number(numberOf(entry, "skipped")),
                   last,
                   last.isEmpty() ? QString() : durationText(entry.value(QLatin1String("lastMs")).toDouble()),
                   whenText(textOf(entry, "next")),
                   {textOf(entry, "ended"), fails ? Terminal::Bad : Terminal::Plain}});
    }
    return table;
}

Table threadTable(const QJsonArray &threads)
{
    Table table({{QStringLiteral("ID"), Table::Number},
                 {QStringLiteral("NAME")},
                 {QStringLiteral("STATE"), Table::Short},
                 {QStringLiteral("CPU TIME"), Table::Number}});
    for (const QJsonValue &value : threads) {
        const QJsonObject thread = value.toObject();
        table.add({QString::number(numberOf(thread, "id")), textOf(thread, "name"),
                   threadState(textOf(thread, "state")),
                   durationText(thread.value(QLatin1String("cpuMs")).toDouble())});
    }
    return table;
}

ExitCode showPlugins(const Request &request)
{
    if (!request.options.arguments.isEmpty())
        return showPlugin(request);
    return show(request, "plugins", pluginTable, "there are no plugins");
}

ExitCode showServices(const Request &request)
{
    return show(request, "services", serviceTable, "nobody has served anything");
}

ExitCode showEndpoints(const Request &request)
{
    return show(request, "endpoints", endpointTable, "nothing is bound on the bus");
}

ExitCode showSchedule(const Request &request)
{
    return show(request, "schedule", scheduleTable, "the configuration schedules nothing");
}

ExitCode showThreads(const Request &request) { return show(request, "threads", threadTable, "no thread is known"); }
