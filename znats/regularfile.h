// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QByteArray>
#include <QString>

struct stat;

/// What keeps an open file from being used; empty if nothing does.
using FileRule = QString (*)(const struct stat &status);

/// What the file at `path` has. It must be a regular file that is not empty, of at most `mostKiB`, and keep the `rule`;
/// else `problem` says what is wrong, and nothing is returned. Nobody is waited for, as a pipe would have it.
QByteArray readRegularFile(const QString &path, int mostKiB, FileRule rule, QString *problem);
