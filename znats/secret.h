// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QByteArray>
#include <QString>

/// What the file at `path` has, without the line break at its end. It must be a regular file of at most 64 KiB and of
/// mode 0600 or 0400, owned by this process's user or by root; else `problem` says what is wrong, and nothing is
/// returned.
QByteArray readSecret(const QString &path, QString *problem);
