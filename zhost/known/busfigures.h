// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QJsonObject>
#include <QString>

/// What a plugin tells of the bus past this process, in the form of the report: "bus" in zhost-door.openapi.json. It
/// may tell anything: what is missing, or of another type, is empty or 0, and there is not more than a reader can take.
/// `error` says why it tells nothing.
QJsonObject busFigures(const QJsonObject &told, const QString &error);
