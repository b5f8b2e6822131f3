// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QString>

class QJsonObject;
class QUrl;
class ZDbus;

/// Calls the bus; answers in words why the call was not handled, null if it was. What the one that is called throws
/// ends here.
QString callBus(ZDbus &dbus, const QUrl &url, QJsonObject *in, QJsonObject *out);
