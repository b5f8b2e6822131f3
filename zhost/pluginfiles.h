// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QString>
#include <QStringList>

/// What the name of a plugin's file is like, for a folder's list.
extern const QString PluginPattern;

/// The plugins' files in `folder`, in the order in which a loader takes versions; none if the folder's name is empty.
QStringList pluginFilesIn(const QString &folder);

/// Whether a loader finds versions of `plugin` in `folder`.
bool hasVersions(const QString &folder, const QString &plugin);
