// SPDX-License-Identifier: Apache-2.0
#include "status.h"

#include "commands.h"
#include "output.h"
#include "printable.h"
#include "reports.h"
#include "words.h"

#include <QJsonArray>
#include <QJsonObject>
#include <QMap>

namespace {

QJsonObject hostOf(const QJsonObject &report) { return report.value(QLatin1String("host")).toObject(); }

QString failureOfPlugin(const QJsonObject &plugin)
{
    const QString file = textOf(plugin, "file");
    const QString reason = textOf(plugin, "reason");
    if (textOf(plugin, "state") == QLatin1String("quarantined"))
        return QStringLiteral("%1 is taken back: %2").arg(file, reason);
    if (!reason.isEmpty())
        return QStringLiteral("%1: %2").arg(file, reason);
    const QString left = textOf(plugin, "left");
    return left.isEmpty() ? QString() : QStringLiteral("%1 stays in memory: %2").arg(file, left);
}

QString failureOfService(const QJsonObject &service)
{
    return service.value(QLatin1String("served")).toBool()
               ? QString()
               : QStringLiteral("nobody serves %1 any more").arg(textOf(service, "interface"));
}

QString failureOfEntry(const QJsonObject &entry)
{
    const int failed = numberOf(entry, "failuresInARow");
    if (failed == 0 || entry.value(QLatin1String("cancelled")).toBool())
        return {};
    const QString name = entryText(entry);
    const QString ended = textOf(entry, "ended");
    return ended.isEmpty() ? QStringLiteral("%1 has failed %2 in a row").arg(name, countText(failed, "time"))
                           : QStringLiteral("%1 has ended: %2").arg(name, ended);
}

/// What was refused, and has not been taken since, is no plugin of which anything else would tell.
QStringList refusals(const QJsonObject &report)
{
    QMap<QString, QString> reasons; // by file
    const QJsonArray events = report.value(QLatin1String("events")).toArray();
    for (const QJsonValue &value : events) {
        const QJsonObject event = value.toObject();
        if (textOf(event, "kind") == QLatin1String("refused"))
            reasons.insert(textOf(event, "subject"), textOf(event, "text"));
        else
            reasons.remove(textOf(event, "subject"));
    }
    const QJsonArray plugins = report.value(QLatin1String("plugins")).toArray();
    for (const QJsonValue &plugin : plugins) {
        if (!failureOfPlugin(plugin.toObject()).isEmpty())
            reasons.remove(textOf(plugin.toObject(), "file"));
    }
    QStringList result;
    for (auto reason = reasons.begin(); reason != reasons.end(); ++reason)
        result.append(QStringLiteral("%1 was refused: %2").arg(reason.key(), reason.value()));
    return result;
}

/// What runs.
QJsonArray inMemory(const QJsonObject &report)
{
    QJsonArray result;
    const QJsonArray plugins = report.value(QLatin1String("plugins")).toArray();
    for (const QJsonValue &plugin : plugins) {
        if (plugin.toObject().value(QLatin1String("inMemory")).toBool())
            result.append(plugin);
    }
    return result;
}

QJsonObject busOf(const QJsonObject &report) { return report.value(QLatin1String("bus")).toObject(); }

/// Why the bus reaches no other process; empty if it does, or is not to.
QString failureOfBus(const QJsonObject &bus)
{
    if (bus.isEmpty())
        return {};
    if (const QString error = textOf(bus, "error"); !error.isEmpty())
        return QStringLiteral("what the bus does is not known: %1").arg(error);
    const QJsonObject connection = bus.value(QLatin1String("connection")).toObject();
    const QString state = textOf(connection, "state");
    const QString error = textOf(connection, "error");
    if (state == QLatin1String("connected"))
        return {};
    return QStringLiteral("the bus reaches no other process: ") +
           (error.isEmpty() ? state : QStringLiteral("%1, %2").arg(state, error));
}

Table::Cell describeConnection(const QJsonObject &bus)
{
    const QJsonObject connection = bus.value(QLatin1String("connection")).toObject();
    const QString state = textOf(connection, "state");
    if (state != QLatin1String("connected"))
        return {state, Terminal::Bad};
    return {QStringLiteral("connected to %1, as %2, %3 seen")
                .arg(textOf(connection, "server"), textOf(bus, "name"),
                     countText(bus.value(QLatin1String("hosts")).toArray().size(), "host"))};
}

QString describeCalls(const QJsonObject &calls)
{
    return QStringLiteral("%1 of %2 failed, half within %3, 99 % within %4")
        .arg(QString::number(numberOf(calls, "failures")), QString::number(numberOf(calls, "calls")),
             latencyText(calls.value(QLatin1String("p50Ms")).toDouble()),
             latencyText(calls.value(QLatin1String("p99Ms")).toDouble()));
}

Table describeHost(const QJsonObject &host, const QJsonObject &bus)
{
    Table table({{}, {}});
    const QString since = textOf(host, "since");
    table.add({QStringLiteral("host"), QStringLiteral("zhost %1, process %2")
                                           .arg(textOf(host, "version"), QString::number(numberOf(host, "process")))});
    table.add({QStringLiteral("configuration"), textOf(host, "configuration")});
    table.add({QStringLiteral("since"), QStringLiteral("%1, %2").arg(clockText(since), whenText(since))});
    table.add({QStringLiteral("event loop"), describeLoop(host)});
    table.add({QStringLiteral("size"), describeSize(host)});
    if (bus.isEmpty())
        return table;
    table.add({QStringLiteral("bus"), describeConnection(bus)});
    for (const char *const direction : {"out", "in"}) {
        const QJsonObject calls = bus.value(QLatin1String(direction)).toObject();
        if (numberOf(calls, "calls") > 0)
            table.add({QStringLiteral("calls %1").arg(QLatin1String(direction)), describeCalls(calls)});
    }
    return table;
}

QStringList describe(const QJsonObject &report, const Terminal &terminal)
{
    const Table::Cell head = headline(report);
    QStringList lines{terminal.paint(printable(head.text), head.colour)};
    lines += describeHost(hostOf(report), busOf(report)).lines(terminal.endless());
    if (!report.contains(QLatin1String("plugins")))
        return lines + QStringList{QString(), QStringLiteral("the host tells no more at the moment")};
    const Table plugins = pluginTable(inMemory(report));
    lines.append(QString());
    lines += plugins.isEmpty() ? QStringList(QStringLiteral("no plugin is in memory")) : plugins.lines(terminal);
    const QStringList failed = failures(report);
    lines.append(QString());
    if (failed.isEmpty())
        lines.append(QStringLiteral("nothing has failed"));
    for (const QString &failure : failed)
        lines.append(terminal.paint(printable(failure), Terminal::Bad));
    return lines;
}

constexpr int ReportSeconds = 5;

/// Where the host hangs in something that the whole report waits for, it tells of itself alone.
Answer ask(const Client &client)
{
    Answer report = client.get(QStringLiteral("/v1/report"), ReportSeconds);
    if (report.end != Answer::End::No || !report.body.isEmpty())
        return report;
    Answer host = client.get(QStringLiteral("/v1/report/host"));
    if (!host.error.isEmpty())
        return host;
    host.json = QJsonDocument(QJsonObject{{QStringLiteral("host"), host.json.object()}});
    host.body = host.json.toJson(QJsonDocument::Compact) + '\n';
    return host;
}

} // namespace

Table::Cell headline(const QJsonObject &report)
{
    const QJsonObject host = hostOf(report);
    const QString state = textOf(host, "state");
    if (host.value(QLatin1String("healthy")).toBool())
        return {state + QStringLiteral(", healthy"), Terminal::Good};
    return {QStringLiteral("%1, not healthy: %2").arg(state, textOf(host, "reason")), Terminal::Bad};
}

QStringList failures(const QJsonObject &report)
{
    QStringList result;
    const std::pair<const char *, QString (*)(const QJsonObject &)> parts[] = {
        {"plugins", failureOfPlugin}, {"services", failureOfService}, {"schedule", failureOfEntry}};
    for (const auto &[part, failureOf] : parts) {
        const QJsonArray values = report.value(QLatin1String(part)).toArray();
        for (const QJsonValue &value : values)
            result.append(failureOf(value.toObject()));
    }
    result.append(failureOfBus(busOf(report)));
    result.removeAll(QString());
    return refusals(report) + result;
}

Table::Cell describeLoop(const QJsonObject &host)
{
    const QJsonObject loop = host.value(QLatin1String("loop")).toObject();
    const QString delay = durationText(loop.value(QLatin1String("delayMs")).toDouble());
    if (!loop.value(QLatin1String("hangs")).toBool())
        return {QStringLiteral("answers within %1").arg(delay)};
    const QString where = textOf(loop, "where");
    return {QStringLiteral("hangs for %1").arg(delay) + (where.isEmpty() ? QString() : QStringLiteral(", in ") + where),
            Terminal::Bad};
}

QString describeSize(const QJsonObject &host)
{
    return QStringLiteral("%1 of memory, %2, %3, %4 of CPU time")
        .arg(bytesText(host.value(QLatin1String("residentBytes")).toDouble()),
             countText(numberOf(host, "threads"), "thread"), countText(numberOf(host, "descriptors"), "descriptor"),
             durationText(host.value(QLatin1String("cpuMs")).toDouble()));
}

ExitCode showStatus(const Request &request)
{
    const Answer answer = ask(request.client);
    const ExitCode exitCode = tell(request, answer, [](const QJsonDocument &json) {
        put(describe(json.object(), Terminal::ofOutput()).join(QLatin1Char('\n')));
    });
    const bool isHealthy = hostOf(answer.json.object()).value(QLatin1String("healthy")).toBool();
    return exitCode == Done && !isHealthy ? No : exitCode;
}
