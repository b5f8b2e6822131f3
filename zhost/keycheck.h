// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "finding.h"

#include <QStringList>
#include <QVector>

class QJsonObject;

/// What the services would ignore silently: unknown keys, values of a wrong type, missing folders. And values that they
/// would use, but that do harm.
QVector<Finding> checkKeys(const QJsonObject &configuration);

/// The keys that are known, by their paths: "loader", "loader.deployed", "schedule[].url".
QStringList knownKeyPaths();
