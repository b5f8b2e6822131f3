// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QStringList>

/// The files that are in memory, by their paths, sorted.
QStringList mappedFiles();
