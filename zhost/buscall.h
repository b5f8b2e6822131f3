// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QString>

class QJsonObject;
class QUrl;
class ZDbus;
class ZDbusOutcome;

/// Calls the bus, by `outcome` if that is served. Returns in words why the call was not handled; null if it was.
/// Exceptions of the endpoint end here.
QString callBus(ZDbus &dbus, ZDbusOutcome *outcome, const QUrl &url, QJsonObject *in, QJsonObject *out);
