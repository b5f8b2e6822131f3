// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QJsonArray>
#include <QStringList>

struct Known;

/// The plugin files that are in memory, each by the name under which it was loaded.
QStringList loadedFiles();

/// The plugin files in the deployed folder, and those that were there and are still in memory, by plugin and in the
/// order in which a loader takes them.
QJsonArray pluginReport(const Known &known);
