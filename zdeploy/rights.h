// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QString>

/// If this process is root's, gives it the rights of the user who owns `folder`, with that user's groups, for good. In
/// any case the process can get no further rights afterwards. Returns what went wrong, or an empty text.
QString giveUpRights(const QString &folder);

/// Limits what this process may use: memory beyond what it has, seconds on the processors, open files, core files.
void limitResources(unsigned seconds);
