// SPDX-License-Identifier: Apache-2.0
#include "pluginfiles.h"

#include <QDir>
#include <QJsonObject>
#include <QPluginLoader>

#include <algorithm>

const QString PluginPattern = QStringLiteral("lib*.so");

QStringList pluginFilesIn(const QString &folder)
{
    return folder.isEmpty() ? QStringList() : QDir(folder).entryList({PluginPattern}, QDir::Files, QDir::Name);
}

/// Does not look by a pattern with the name in it: the name may itself contain pattern characters.
bool hasVersions(const QString &folder, const QString &plugin)
{
    const QString beginning = QStringLiteral("lib%1.").arg(plugin);
    const int shortest = beginning.size() + 3;
    const QStringList files = pluginFilesIn(folder);
    return std::any_of(files.begin(), files.end(), [&](const QString &file) {
        return file.size() >= shortest && file.startsWith(beginning, Qt::CaseInsensitive);
    });
}

QJsonObject metaDataOf(const QString &path)
{
    QPluginLoader loader;
    loader.setLoadHints(QLibrary::ResolveAllSymbolsHint); // the same as in a load: Qt keeps them for the file
    loader.setFileName(path);
    return loader.metaData();
}
