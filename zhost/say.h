// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QString>

/// Writes the line "zhost: TEXT" to stderr.
void complain(const QString &text);
/// Writes `text` to stdout, and ends its last line.
void print(const QString &text);
