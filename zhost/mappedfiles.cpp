// SPDX-License-Identifier: Apache-2.0
#include "mappedfiles.h"

#include <QFile>
#include <QList>

QStringList mappedFiles(const QString &process)
{
    QFile maps(QStringLiteral("/proc/%1/maps").arg(process));
    if (!maps.open(QIODevice::ReadOnly))
        return {};
    QStringList files;
    const QList<QByteArray> lines = maps.readAll().split('\n');
    for (const QByteArray &line : lines) {
        const int path = line.indexOf('/');
        if (path >= 0)
            files.append(QFile::decodeName(line.mid(path)));
    }
    files.sort();
    files.removeDuplicates();
    return files;
}
