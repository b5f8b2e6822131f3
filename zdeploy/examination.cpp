// SPDX-License-Identifier: Apache-2.0
#include "examination.h"

#include "inspection.h"
#include "pluginname.h"
#include "tryout.h"
#include "warnings.h"

#include "../zctl/table.h"

#include <QFileInfo>
#include <QJsonArray>
#include <QJsonObject>

#include <pluginfiles.h>

namespace {

/// What is not there is left out.
void add(Table *table, const char *title, const QString &text)
{
    if (!text.isEmpty())
        table->add({QString::fromLatin1(title), text});
}

/// What the file and its root object are as a whole.
Table overview(const QJsonObject &metaData, const Description &description)
{
    QStringList wanted;
    for (const Description::Property &property : description.properties) {
        if (!property.interface.isEmpty() && !wanted.contains(property.interface))
            wanted.append(property.interface);
    }
    Table table({{}, {}});
    add(&table, "class", description.className);
    add(&table, "identifier", metaData[QStringLiteral("IID")].toString());
    add(&table, "interfaces", metaData[QStringLiteral("zdefault-interfaces")].toArray().first().toString());
    add(&table, "healthy", metaData[QStringLiteral("MetaData")].toObject()[QStringLiteral("healthy")].toString());
    add(&table, "serves", description.serves.join(QStringLiteral(", ")));
    add(&table, "wants", wanted.join(QStringLiteral(", ")));
    return table;
}

Table properties(const Description &description)
{
    Table table({{QStringLiteral("PROPERTY")},
                 {QStringLiteral("TYPE")},
                 {QStringLiteral("WANTS")},
                 {QStringLiteral("WRITABLE"), Table::Short}});
    for (const Description::Property &property : description.properties)
        table.add({property.name, property.type, property.interface,
                   property.isWritable ? QStringLiteral("yes") : QStringLiteral("no")});
    return table;
}

QStringList describe(const QJsonObject &metaData, const Description &description)
{
    const Terminal terminal = Terminal::ofOutput();
    const QStringList rows = properties(description).lines(terminal);
    QStringList lines = overview(metaData, description).lines(terminal.endless());
    if (!description.properties.isEmpty())
        lines += QStringList{QString()} + rows;
    return lines;
}

} // namespace

Examination::Result Examination::run() const
{
    const QString refusal = inspectNamed(file);
    if (!refusal.isEmpty())
        return {{}, {}, {refusal}};
    const QFileInfo info(file);
    const QString path = info.absoluteFilePath();
    const TryOut trial = tryOut(path, PluginName::parse(info.fileName()).plugin, patience);
    return {describe(metaDataOf(path), trial.description), warningsOf(trial.description), trial.verdict};
}
