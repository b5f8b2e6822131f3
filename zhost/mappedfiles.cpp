// SPDX-License-Identifier: Apache-2.0
#include "mappedfiles.h"

#include <QFile>
#include <QList>

QStringList mappedFiles()
{
    QFile maps(QStringLiteral("/proc/self/maps"));
    maps.open(QIODevice::ReadOnly);
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
