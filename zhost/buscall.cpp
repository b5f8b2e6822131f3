// SPDX-License-Identifier: Apache-2.0
#include "buscall.h"

#include <QUrl>

#include <zcaught.h>
#include <zdbus.h>

QString callBus(ZDbus &dbus, const QUrl &url, QJsonObject *in, QJsonObject *out)
{
    bool isHandled = false;
    const QString thrown = zCaught([&] { isHandled = dbus.invoke0(url, in, out); });
    if (!thrown.isNull())
        return QStringLiteral("%1 has thrown: %2").arg(url.toString(), thrown);
    return isHandled ? QString() : QStringLiteral("nobody handled %1").arg(url.toString());
}
