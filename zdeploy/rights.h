// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QString>

/// Makes this process, if it is root's, one of the user who owns `folder`, with that user's groups; for good, and
/// whoever it is, it gets no further rights. Answers what went wrong, or an empty text.
QString giveUpRights(const QString &folder);

/// Limits what this process may use: memory beyond what it has, seconds on the processors, open files, core files.
void limitResources(unsigned seconds);
