// SPDX-License-Identifier: Apache-2.0
#include "commands.h"
#include "options.h"
#include "output.h"
#include "table.h"
#include "words.h"

#include <QJsonArray>

#include <algorithm>

namespace {

const QString Url = QStringLiteral("//nats/hosts");
constexpr int DeadlineMs = 10000; // the hosts are asked meanwhile

Table hostTable(const QJsonArray &hosts)
{
    Table table({{QStringLiteral("HOST")},
                 {QStringLiteral("VERSION"), Table::Short},
                 {QStringLiteral("SINCE"), Table::Short},
                 {QStringLiteral("ANSWERED IN"), Table::Number},
                 {QStringLiteral("SERVES")}});
    QVector<QJsonObject> byName;
    for (const QJsonValue &value : hosts) {
        if (value.isObject())
            byName.append(value.toObject());
    }
    std::stable_sort(byName.begin(), byName.end(), [](const QJsonObject &left, const QJsonObject &right) {
        return textOf(left, "name") < textOf(right, "name");
    });
    for (const QJsonObject &host : qAsConst(byName))
        table.add({textOf(host, "name"), textOf(host, "version"), whenText(textOf(host, "started")),
                   latencyText(host.value(QLatin1String("ms")).toDouble()),
                   listText(host.value(QLatin1String("urls")))});
    return table;
}

} // namespace

ExitCode showHosts(const Request &request)
{
    Answer answer = request.client.call(Url, {}, DeadlineMs);
    if (answer.end == Answer::End::No && answer.error == QStringLiteral("nobody handled %1").arg(Url))
        answer.error = QStringLiteral("the bus of this host reaches no other process: no plugin has bound //nats");
    return tell(request, answer, [](const QJsonDocument &json) {
        const QJsonObject out = json.object().value(QLatin1String("out")).toObject();
        const Table table = hostTable(out.value(QLatin1String("hosts")).toArray());
        put(table.isEmpty() ? QStringLiteral("no host answers: those that serve nothing do not")
                            : table.lines(Terminal::ofOutput()).join(QLatin1Char('\n')));
    });
}
