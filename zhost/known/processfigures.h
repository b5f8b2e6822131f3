// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QJsonArray>
#include <QJsonObject>

/// All threads of the process, each with its state in the kernel ("S" sleeps, "R" runs, "D" waits for a disk), and the
/// milliseconds of CPU time that it has used.
QJsonArray threadFigures();

/// Bytes of memory, milliseconds of CPU time, the number of threads and of open descriptors.
QJsonObject processFigures();
