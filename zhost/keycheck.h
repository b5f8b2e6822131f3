// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "finding.h"

#include <QStringList>
#include <QVector>

class QJsonObject;

/// What no service would understand, and would pass over in silence: unknown keys, values of a wrong type, folders that
/// are missing. And what is understood, but does harm.
QVector<Finding> checkKeys(const QJsonObject &configuration);

/// The keys that are known, by their paths: "loader", "loader.deployed", "schedule[].url".
QStringList knownKeyPaths();
