// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QString>

/// `text` as one line that does nothing to a terminal: control characters are spelt out, as "\\n" and "\\x1b"; tabs
/// stay.
QString printable(const QString &text);

/// Writes the line "zhost: TEXT" to stderr, as `printable`.
void complain(const QString &text);
/// Writes `text` to stdout as it is, and ends its last line.
void print(const QString &text);
