// SPDX-License-Identifier: Apache-2.0
#include "takennames.h"

#include "mappedfiles.h"
#include "notes.h"
#include "pluginfiles.h"

#include <QDir>

namespace {

QString withoutQuarantine(const QString &name)
{
    const QString before = Notes::nameBeforeQuarantine(name);
    return before.isNull() ? name : before;
}

} // namespace

/// Looks at the folders and at memory in the order in which a file goes, so that none is missed: from the first folder
/// to the second, and into memory, but never back.
QStringList takenNames(const QString &hotDeploy, const QString &deployed, const QStringList &processes)
{
    const QStringList filter{PluginPattern, Notes::QuarantinePattern};
    QStringList names;
    for (const QString &folder : {hotDeploy, deployed}) {
        const QStringList files = QDir(folder).entryList(filter, QDir::AllEntries | QDir::System | QDir::Hidden);
        for (const QString &file : files)
            names.append(withoutQuarantine(file));
    }
    for (const QString &process : processes) {
        const QStringList files = mappedFiles(process);
        for (const QString &file : files)
            names.append(nameInMemory(file));
    }
    return names;
}

QString nameInMemory(const QString &path)
{
    static const QString removed = QStringLiteral(" (deleted)"); // as the kernel marks it
    const QString name = path.section(QLatin1Char('/'), -1);
    return withoutQuarantine(name.endsWith(removed) ? name.chopped(removed.size()) : name);
}
