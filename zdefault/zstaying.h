// SPDX-License-Identifier: Apache-2.0
// Files that never leave memory.
#pragma once

#include <QString>

/// Keeps the file in which `code` lies in memory for good, and notes `reason`. Does nothing for the application's own
/// file.
void zKeepInMemory(const void *code, const QString &reason);

/// Keeps the plugin at `path` for good, if the environment variable ZDEFAULT_KEEP_PLUGINS is set: debuggers and
/// sanitizers can name the code of a file only as long as the file is in memory.
void zKeepForDebugging(const QString &path);

/// Keeps all libraries of Qt that are in memory there for good. Without this, such a library would be unloaded with the
/// only plugin that needs it. But these libraries are not made to be unloaded: they give Qt Core pointers to their
/// code, such as functions to be called when the application ends.
void zKeepQtInMemory();

/// Why the file at `path` is still in memory, although it has been unloaded; null if it is not.
QString zReasonToStay(const QString &path);
