// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QString>

/// Renames a file in one step. A file that has the name `to` already is never replaced. False, with errno, if it fails.
bool renameTo(const QString &from, const QString &to);
