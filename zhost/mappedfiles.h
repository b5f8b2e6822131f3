// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QStringList>

/// The paths of the files that `process` has in memory, sorted; none if that cannot be read.
QStringList mappedFiles(const QString &process = QStringLiteral("self"));
