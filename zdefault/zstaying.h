// SPDX-License-Identifier: Apache-2.0
// Files that never leave memory.
#pragma once

#include <QString>

/// Keeps the file in which `code` lies in memory for good, and notes `reason`. Does nothing to the application's own.
void zKeepInMemory(const void *code, const QString &reason);

/// Why the file at `path`, which has been unloaded, is in memory all the same; null if it is not.
QString zReasonToStay(const QString &path);
