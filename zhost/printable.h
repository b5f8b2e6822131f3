// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QString>

/// `text` as one line that does nothing to a terminal: what would move its cursor, change its colours or turn its text
/// around is spelt out, as "\n", "\x1b" or "\u202e"; tabs stay. It may come from a file's name, or from a plugin.
QString printable(const QString &text);
