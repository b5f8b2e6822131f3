// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "folder.h"

#include <QFile>
#include <QHash>
#include <QJsonObject>
#include <QStringList>

/// What several processes append lines to, such as the ids of the calls that they have run.
class JournalFile
{
public:
    QString path() const { return m_folder.filePath(QStringLiteral("journal")); }
    /// For endpoints.
    QJsonObject option() const { return {{QStringLiteral("journal"), path()}}; }

    QStringList lines() const
    {
        QFile file(path());
        if (!file.open(QIODevice::ReadOnly))
            return {};
        return QString::fromUtf8(file.readAll()).split(QLatin1Char('\n'), Qt::SkipEmptyParts);
    }
    int size() const { return lines().size(); }
    /// The lines that are there more than once.
    QStringList twice() const
    {
        QHash<QString, int> counts;
        QStringList result;
        const QStringList all = lines();
        for (const QString &line : all) {
            if (++counts[line] == 2)
                result << line;
        }
        return result;
    }

private:
    const Folder m_folder;
};
