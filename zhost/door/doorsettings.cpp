// SPDX-License-Identifier: Apache-2.0
#include "doorsettings.h"

#include "tcpaddress.h"
#include "token.h"
#include <doorpath.h>

#include <QCoreApplication>
#include <QDir>
#include <QJsonValue>
#include <QUrl>

#include <arpa/inet.h>

namespace {

bool isLoopback(const QString &address)
{
    in_addr number;
    if (inet_pton(AF_INET, address.toLatin1().constData(), &number) == 1)
        return (ntohl(number.s_addr) >> 24) == 127;
    return address == QLatin1String("::1");
}

} // namespace

DoorSettings DoorSettings::read(const QJsonObject &configuration, QVector<Finding> *findings)
{
    DoorSettings settings;
    const QJsonValue value = configuration.value(QStringLiteral("door"));
    settings.isOn = value != false;
    const QJsonObject section = value.toObject();
    const auto text = [&](const char *key) { return section.value(QLatin1String(key)).toString(); };
    const auto unusable = [&](const char *key, const QString &reason) {
        if (findings)
            findings->append({QStringLiteral("door.") + QLatin1String(key), reason, Finding::Unusable});
    };
    settings.socket = configuredDoor(configuration);
    const QString listen = text("listen");
    if (listen.isEmpty())
        return settings;
    const QUrl url(QStringLiteral("tcp://") + listen, QUrl::StrictMode);
    settings.address = url.host();
    settings.port = url.port(-1);
    if (!TcpAddress::isNumber(settings.address) || settings.port < 0 ||
        url.adjusted(QUrl::RemoveUserInfo | QUrl::RemovePath | QUrl::RemoveQuery | QUrl::RemoveFragment) != url)
        unusable("listen", QStringLiteral("must be an address and a port, such as 127.0.0.1:8080"));
    else if (!isLoopback(settings.address) && !section.value(QStringLiteral("anywhere")).toBool())
        unusable("listen", QStringLiteral("others can connect there: that takes \"anywhere\": true"));
    if (text("token-file").isEmpty()) {
        unusable("token-file", QStringLiteral("who asks by TCP shows a token: name the file that has it"));
        return settings;
    }
    settings.tokenFile = QDir(QCoreApplication::applicationDirPath()).absoluteFilePath(text("token-file"));
    QString error;
    if (findings && readToken(settings.tokenFile, &error).isEmpty())
        unusable("token-file", error);
    return settings;
}
