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

/// The colour for the state of a plugin, or of an entry of the timetable.
Terminal::Colour colourOf(const QString &state);
/// The size of a plugin's file; empty if that is gone.
QString sizeText(const QJsonObject &plugin);
/// The kernel's letter as a word: "sleeps" for "S".
QString threadState(const QString &letter);
