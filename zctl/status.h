// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "table.h"

class QJsonObject;

/// A line on whether the host of `report` is healthy.
Table::Cell headline(const QJsonObject &report);

/// What has failed, a line each: versions that were taken back or could not be loaded, those that cannot leave memory,
/// services without anybody to serve them, calls of the timetable.
QStringList failures(const QJsonObject &report);

/// Where the event loop hangs; if it does not, how long posted events wait.
Table::Cell describeLoop(const QJsonObject &host);

/// "38 MiB of memory, 12 threads, 45 descriptors".
QString describeSize(const QJsonObject &host);
