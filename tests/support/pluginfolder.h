// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "folder.h"

#include <QCoreApplication>

/// Restores the application's library paths, which loaders add to.
class LibraryPaths
{
public:
    LibraryPaths() = default;
    ~LibraryPaths() { QCoreApplication::setLibraryPaths(m_before); }

private:
    Q_DISABLE_COPY(LibraryPaths)
    const QStringList m_before = QCoreApplication::libraryPaths();
};

/// A folder that is one of the application's library paths, so that plugins are found in it by name.
class PluginFolder : public Folder
{
public:
    PluginFolder() { QCoreApplication::addLibraryPath(path()); }

private:
    LibraryPaths m_paths;
};
