// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QJsonArray>
#include <QStringList>

struct Known;

/// The plugins' files that are in memory, each by the name under which it was loaded.
QStringList loadedFiles();

/// The plugins' files in the deployed folder, and those that are in memory and were there, by plugin and in the order
/// in which a loader takes them.
QJsonArray pluginReport(const Known &known);
