// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QString>

/// Renames a file in one step. False, and errno, where it fails; what has the name `to` already is never replaced.
bool renameTo(const QString &from, const QString &to);
