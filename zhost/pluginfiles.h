// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QString>
#include <QStringList>

#include <sys/stat.h>

/// What the name of a plugin's file is like, for a folder's list.
extern const QString PluginPattern;

/// What a plugin's file that is dropped may be used for, whatever its source has: everybody may read it, such as the
/// user as whom the program runs. And nobody may write into it, for that changes the code of a plugin that is loaded;
/// who copies over it is refused, or has to replace it.
constexpr mode_t DroppedMode = S_IRUSR | S_IRGRP | S_IROTH;

/// The plugins' files in `folder`, in the order in which a loader takes versions; none if the folder's name is empty.
QStringList pluginFilesIn(const QString &folder);

/// Whether a loader finds versions of `plugin` in `folder`.
bool hasVersions(const QString &folder, const QString &plugin);
