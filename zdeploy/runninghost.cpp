// SPDX-License-Identifier: Apache-2.0
#include "runninghost.h"

#include <QFile>
#include <QSet>

namespace {

/// By name alone: what the host sees as the folder may be called otherwise here.
std::optional<QStringList> filesIn(const QString &process)
{
    QFile maps(QStringLiteral("/proc/%1/maps").arg(process));
    const QByteArray text = !process.isEmpty() && maps.open(QIODevice::ReadOnly) ? maps.readAll() : QByteArray();
    if (text.isEmpty())
        return {};
    QSet<QString> names;
    const QList<QByteArray> lines = text.split('\n');
    for (const QByteArray &line : lines) {
        const int name = line.lastIndexOf('/') + 1;
        if (name > 0)
            names.insert(QFile::decodeName(line.mid(name)));
    }
    return names.values();
}

} // namespace

RunningHost RunningHost::on(const QString &deployed)
{
    const FolderHolder holder = FolderHolder::of(deployed);
    return {holder, filesIn(holder.process)};
}
