// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "table.h"

#include <QJsonArray>
#include <QJsonObject>

// What a host reports of itself, as tables.

Table pluginTable(const QJsonArray &plugins);
Table serviceTable(const QJsonArray &services);
Table endpointTable(const QJsonArray &endpoints);
Table scheduleTable(const QJsonArray &entries);
Table threadTable(const QJsonArray &threads);

/// As a plugin has it, or an entry of the timetable.
Terminal::Colour colourOf(const QString &state);
/// Of a plugin's file; empty if that is gone.
QString sizeText(const QJsonObject &plugin);
/// "sleeps", for the kernel's "S".
QString threadState(const QString &letter);
