// SPDX-License-Identifier: Apache-2.0
#include "runninghost.h"

#include <QSet>

#include <mappedfiles.h>

namespace {

/// By name alone: what the host sees as the folder may be called otherwise here.
std::optional<QStringList> filesIn(const QString &process)
{
    const QStringList files = process.isEmpty() ? QStringList() : mappedFiles(process);
    if (files.isEmpty())
        return {};
    QSet<QString> names;
    for (const QString &file : files)
        names.insert(file.section(QLatin1Char('/'), -1));
    return names.values();
}

} // namespace

RunningHost RunningHost::on(const QString &deployed)
{
    const FolderHolder holder = FolderHolder::of(deployed);
    return {holder, filesIn(holder.process)};
}
