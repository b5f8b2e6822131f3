// SPDX-License-Identifier: Apache-2.0
#include "tcpaddress.h"

#include <cerrno>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <unistd.h>

namespace {

constexpr int Backlog = SOMAXCONN; // a client that does not fit in tries again only after a second

template <class Address>
Address *as(sockaddr_storage *address)
{
    return reinterpret_cast<Address *>(address);
}

template <class Address>
const Address *as(const sockaddr_storage &address)
{
    return reinterpret_cast<const Address *>(&address);
}

} // namespace

bool TcpAddress::isNumber(const QString &text)
{
    in6_addr address;
    const QByteArray number = text.toLatin1();
    return inet_pton(AF_INET, number.constData(), &address) == 1 ||
           inet_pton(AF_INET6, number.constData(), &address) == 1;
}

TcpAddress::TcpAddress(const QString &number, int port)
{
    const QByteArray text = number.toLatin1();
    if (auto *four = as<sockaddr_in>(&m_address); inet_pton(AF_INET, text.constData(), &four->sin_addr) == 1) {
        four->sin_family = AF_INET;
        four->sin_port = htons(uint16_t(port));
        m_size = sizeof *four;
    } else {
        auto *six = as<sockaddr_in6>(&m_address);
        inet_pton(AF_INET6, text.constData(), &six->sin6_addr);
        six->sin6_family = AF_INET6;
        six->sin6_port = htons(uint16_t(port));
        m_size = sizeof *six;
    }
}

int TcpAddress::listen()
{
    const int listener = socket(m_address.ss_family, SOCK_STREAM | SOCK_CLOEXEC, 0);
    const int yes = 1;
    setsockopt(listener, SOL_SOCKET, SO_REUSEADDR, &yes, sizeof yes); // so that the port can be used again at once
    if (bind(listener, as<sockaddr>(m_address), m_size) == 0 && ::listen(listener, Backlog) == 0 &&
        getsockname(listener, as<sockaddr>(&m_address), &m_size) == 0)
        return listener;
    const int reason = errno;
    close(listener);
    errno = reason;
    return -1;
}

int TcpAddress::port() const
{
    return ntohs(m_address.ss_family == AF_INET ? as<sockaddr_in>(m_address)->sin_port
                                                : as<sockaddr_in6>(m_address)->sin6_port);
}

QString TcpAddress::text() const
{
    char number[INET6_ADDRSTRLEN] = {};
    if (m_address.ss_family == AF_INET) {
        inet_ntop(AF_INET, &as<sockaddr_in>(m_address)->sin_addr, number, sizeof number);
        return QStringLiteral("%1:%2").arg(QLatin1String(number)).arg(port());
    }
    inet_ntop(AF_INET6, &as<sockaddr_in6>(m_address)->sin6_addr, number, sizeof number);
    return QStringLiteral("[%1]:%2").arg(QLatin1String(number)).arg(port());
}
