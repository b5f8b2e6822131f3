// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QJsonObject>
#include <QStringList>

class Timetable;
class ZHost;

/// The files in memory that lie in one of the folders from which plugins are loaded.
QStringList pluginsInMemory();

/// A report for an operator on the running process: who serves what, and what is stuck. Without `askBus` the endpoints
/// are left out, and the bus is not used: in a broadcast it must not be.
QJsonObject report(const ZHost &host, const Timetable &timetable, bool askBus);
