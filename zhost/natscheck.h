// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "finding.h"

#include <QVector>

class QJsonObject;

/// What is wrong with the section "nats", and with the files that it names. The plugin that takes the bus past this
/// process says the same.
QVector<Finding> checkNats(const QJsonObject &configuration);
