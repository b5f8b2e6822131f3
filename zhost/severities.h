// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QJsonObject>
#include <QString>

/// The switches of the severities, which are the process's: "debug", "info", "warning" and "critical".
namespace Severities {

/// Each as true or false. On any thread.
QJsonObject now();
/// Those that `switches` has. On any thread.
void set(const QJsonObject &switches);
/// Why `switches` cannot be set; empty if they can.
QString whyNot(const QJsonObject &switches);

} // namespace Severities
