// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "table.h"

class QJsonObject;

/// Whether the host that has written `report` is healthy, in a line.
Table::Cell headline(const QJsonObject &report);

/// What has failed, a line each: versions that were taken back or could not be loaded, those that cannot leave memory,
/// services without anybody to serve them, calls of the timetable.
QStringList failures(const QJsonObject &report);

/// Where the event loop is, if it hangs, else how long what is posted to it waits.
Table::Cell describeLoop(const QJsonObject &host);

/// "38 MiB of memory, 12 threads, 45 descriptors".
QString describeSize(const QJsonObject &host);
