// SPDX-License-Identifier: Apache-2.0
#include "pluginfiles.h"

#include <QDir>

#include <algorithm>

const QString PluginPattern = QStringLiteral("lib*.so");

QStringList pluginFilesIn(const QString &folder)
{
    return folder.isEmpty() ? QStringList() : QDir(folder).entryList({PluginPattern}, QDir::Files, QDir::Name);
}

/// Not by a pattern with the name in it, which may itself be one, and a wrong one.
bool hasVersions(const QString &folder, const QString &plugin)
{
    const QString beginning = QStringLiteral("lib%1.").arg(plugin);
    const int shortest = beginning.size() + 3;
    const QStringList files = pluginFilesIn(folder);
    return std::any_of(files.begin(), files.end(), [&](const QString &file) {
        return file.size() >= shortest && file.startsWith(beginning, Qt::CaseInsensitive);
    });
}
