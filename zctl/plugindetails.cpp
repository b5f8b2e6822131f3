// SPDX-License-Identifier: Apache-2.0
#include "plugindetails.h"

#include "commands.h"
#include "options.h"
#include "output.h"
#include "reports.h"
#include "words.h"

#include <QJsonArray>
#include <QJsonObject>

namespace {

/// One for each text in `texts`, of which the first tells what they are.
void addAll(Table *table, const char *what, const QJsonValue &texts)
{
    QString title = QString::fromLatin1(what);
    const QJsonArray array = texts.toArray();
    for (const QJsonValue &text : array) {
        table->add({title, text.toString()});
        title.clear();
    }
}

void addComponent(Table *table, const QJsonObject &component)
{
    table->add({QStringLiteral("component"),
                QStringLiteral("%1, made %2").arg(textOf(component, "class"), whenText(textOf(component, "since")))});
    const QJsonArray properties = component.value(QLatin1String("properties")).toArray();
    for (const QJsonValue &value : properties) {
        const QJsonObject property = value.toObject();
        const QString text = QStringLiteral("%1: %2").arg(textOf(property, "name"), textOf(property, "interface"));
        if (property.value(QLatin1String("given")).toBool())
            table->add({QStringLiteral("  given"), text});
        else
            table->add({{QStringLiteral("  left null"), Terminal::Doubtful}, text});
    }
}

void addText(Table *table, const char *what, const QString &text, Terminal::Colour colour = Terminal::Plain)
{
    if (!text.isEmpty())
        table->add({QString::fromLatin1(what), {text, colour}});
}

Table describe(const QJsonObject &plugin)
{
    Table table({{}, {}});
    const bool isInMemory = plugin.value(QLatin1String("inMemory")).toBool();
    addText(&table, "file", textOf(plugin, "file"), Terminal::Title);
    addText(&table, "state", textOf(plugin, "state"), colourOf(textOf(plugin, "state")));
    addText(&table, "reason", textOf(plugin, "reason"), Terminal::Bad);
    addText(&table, "size", sizeText(plugin));
    addText(&table, "loaded", isInMemory ? whenText(textOf(plugin, "loadedSince")) : QStringLiteral("no"));
    addText(&table, "root", textOf(plugin, "root"));
    const QJsonArray components = plugin.value(QLatin1String("components")).toArray();
    for (const QJsonValue &component : components)
        addComponent(&table, component.toObject());
    addAll(&table, "serves", plugin.value(QLatin1String("serves")));
    addAll(&table, "endpoints", plugin.value(QLatin1String("endpoints")));
    addAll(&table, "activities", plugin.value(QLatin1String("activities")));
    const QJsonArray holders = plugin.value(QLatin1String("heldBy")).toArray();
    for (const QJsonValue &holder : holders)
        addText(&table, "held by", textOf(holder.toObject(), "text"));
    addText(&table, "stays for", textOf(plugin, "left"), Terminal::Doubtful);
    return table;
}

} // namespace

ExitCode showPlugin(const Request &request)
{
    Answer answer = request.client.get(QStringLiteral("/v1/report/plugins"));
    const QString &name = request.options.arguments.constFirst();
    QStringList versions;
    QJsonArray found;
    const QJsonArray all = answer.json.array();
    for (const QJsonValue &value : all) {
        if (textOf(value.toObject(), "plugin") != name)
            continue;
        found.append(value);
        versions.append(describe(value.toObject()).lines(Terminal::ofOutput().endless()).join(QLatin1Char('\n')));
    }
    if (answer.error.isEmpty()) {
        answer.body = QJsonDocument(found).toJson(QJsonDocument::Compact) + '\n';
        if (found.isEmpty()) {
            answer.end = Answer::End::No;
            answer.error = QStringLiteral("there is no plugin \"%1\": see zctl plugins").arg(name);
        }
    }
    return tell(request, answer, [&](const QJsonDocument &) { put(versions.join(QStringLiteral("\n\n"))); });
}
