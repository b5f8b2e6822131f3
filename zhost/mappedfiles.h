// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QStringList>

/// The files that `process` has in memory, by their paths, sorted; none where that cannot be read.
QStringList mappedFiles(const QString &process = QStringLiteral("self"));
