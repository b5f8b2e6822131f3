// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QString>
#include <QStringList>

#include <sys/stat.h>

class QJsonObject;

/// The wildcard pattern of the names of plugin files.
extern const QString PluginPattern;

/// The mode of a plugin's file that is dropped, whatever mode its source has. Everybody may read it, such as the user
/// as whom the program runs. Nobody may write into it, since that would change the code of a loaded plugin: to copy
/// over it is refused, or replaces the file.
constexpr mode_t DroppedMode = S_IRUSR | S_IRGRP | S_IROTH;

/// The plugin files in `folder`, in the order in which a loader takes versions; none if the folder's name is empty.
QStringList pluginFilesIn(const QString &folder);

/// Whether a loader finds versions of `plugin` in `folder`.
bool hasVersions(const QString &folder, const QString &plugin);

/// The metadata of the plugin file at `path`, as moc has written it; empty if it is not a plugin. The file may be
/// loaded, and can be unloaded afterwards.
QJsonObject metaDataOf(const QString &path);
