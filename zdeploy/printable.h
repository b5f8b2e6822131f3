// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QString>

/// `text` for a terminal: what would move its cursor, change its colours or turn its text around is spelled out, as
/// "\x1b" or "\u202e". It may come from a file's name, or from a plugin.
QString printable(const QString &text);
