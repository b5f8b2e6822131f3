// SPDX-License-Identifier: Apache-2.0
#include "access.h"

#include "tcpaddress.h"

#include <QSysInfo>
#include <QUrl>

#include <httplib.h>

namespace {

/// Compares in a time that does not show how much of the texts is the same.
bool areSame(const QByteArray &one, const QByteArray &other)
{
    unsigned difference = unsigned(one.size()) ^ unsigned(other.size());
    for (int i = 0; i < other.size(); ++i)
        difference |= unsigned(uchar(other[i])) ^ unsigned(uchar(one.isEmpty() ? 0 : one[i % one.size()]));
    return difference == 0;
}

} // namespace

Access::Refusal Access::refusal(const httplib::Request &request, bool isOpen) const
{
    const std::string host = request.get_header_value("Host");
    if (!isAddressed(host))
        return {421, QStringLiteral("this host is not called that: ask for its address, or localhost")};
    const std::string origin = request.get_header_value("Origin");
    if (!origin.empty() && origin != "http://" + host)
        return {403, QStringLiteral("no page of another origin may ask")};
    const std::string shown = request.get_header_value("Authorization");
    if (isOpen || isShown(shown))
        return {};
    if (!shown.empty())
        return {401, QStringLiteral("that is not the token of this host")};
    return {401, QStringLiteral("this takes the token, in a header \"Authorization: Bearer …\"")};
}

/// Whether the request names the host by a number, or by a name that only this machine has. Somebody may point a name
/// of his own to this machine; such a name would let his pages in.
bool Access::isAddressed(const std::string &host) const
{
    const QUrl url(QStringLiteral("http://") + QString::fromStdString(host), QUrl::StrictMode);
    const QString name = url.host();
    return url.isValid() && url.path().isEmpty() && url.userInfo().isEmpty() && url.port(80) == m_port &&
           (name == QLatin1String("localhost") || TcpAddress::isNumber(name) ||
            name == QSysInfo::machineHostName().toLower());
}

bool Access::isShown(const std::string &authorization) const
{
    static const QByteArray scheme("Bearer ");
    const QByteArray shown = QByteArray::fromStdString(authorization);
    return shown.startsWith(scheme) && areSame(m_token, shown.mid(scheme.size()));
}

bool isDeliberate(const httplib::Request &request)
{
    const QByteArray type = QByteArray::fromStdString(request.get_header_value("Content-Type")).toLower();
    return type.split(';').first().trimmed() == "application/json";
}
