// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <folderlock.h>

#include <QString>
#include <QStringList>

#include <optional>

/// The program that runs on a deployed folder, as another process sees it.
struct RunningHost
{
    FolderHolder holder;
    /// The names of the files in its memory; nothing if they cannot be read, which needs the same user, or root.
    std::optional<QStringList> files;

    bool isThere() const { return !holder.name.isNull(); }

    static RunningHost on(const QString &deployed);
};
