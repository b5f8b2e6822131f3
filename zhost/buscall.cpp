// SPDX-License-Identifier: Apache-2.0
#include "buscall.h"

#include "services.h"

#include <QUrl>

#include <zcaught.h>
#include <zdbusoutcome.h>

namespace {

/// What has come of a call, in words that say more than that nobody handled it; else empty.
QString reasonOf(const QJsonObject &outcome)
{
    const int code = outcome.value(QStringLiteral("code")).toInt(404);
    return code == 404 || code == 503 ? QString() : outcome.value(QStringLiteral("reason")).toString();
}

} // namespace

QString callBus(ZDbus &dbus, ZDbusOutcome *outcome, const QUrl &url, QJsonObject *in, QJsonObject *out)
{
    bool isHandled = false;
    QJsonObject come;
    const QString thrown = zCaught(
        [&] { isHandled = behind(outcome) ? outcome->call0(url, in, out, &come) : dbus.invoke0(url, in, out); });
    if (!thrown.isNull())
        return QStringLiteral("%1 has thrown: %2").arg(url.toString(), thrown);
    if (isHandled)
        return {};
    const QString reason = reasonOf(come);
    return QStringLiteral("nobody handled %1%2")
        .arg(url.toString(), reason.isEmpty() ? QString() : QStringLiteral(": ") + reason);
}
