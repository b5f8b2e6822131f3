// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QJsonObject>
#include <QStringList>

class Services;
class Timetable;

/// The files in memory that lie in one of the folders from which plugins are loaded.
QStringList pluginsInMemory();

/// What an operator wants to know of the running process: what is wired, and what is stuck. Without `askBus` the bus is
/// not used, as it must not be in a broadcast, and the endpoints are left out.
QJsonObject report(const Services &services, const Timetable &timetable, bool askBus);
