// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QJsonObject>
#include <QString>

/// The switches of the severities "debug", "info", "warning" and "critical". They are the same for the whole process.
namespace Severities {

/// All switches, each as true or false. On any thread.
QJsonObject now();
/// Sets the switches that are in `switches`. On any thread.
void set(const QJsonObject &switches);
/// Why `switches` cannot be set; empty if they can.
QString whyNot(const QJsonObject &switches);

} // namespace Severities
