// SPDX-License-Identifier: Apache-2.0
#include "pluginfiles.h"

#include <QDir>

const QString PluginPattern = QStringLiteral("lib*.so");

QStringList pluginFilesIn(const QString &folder)
{
    return folder.isEmpty() ? QStringList() : QDir(folder).entryList({PluginPattern}, QDir::Files, QDir::Name);
}
