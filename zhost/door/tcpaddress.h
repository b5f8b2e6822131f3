// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QString>

#include <sys/socket.h>

/// An address of the internet, in numbers, and a port.
class TcpAddress
{
public:
    /// Whether `text` is one in numbers, without a port.
    static bool isNumber(const QString &text);

    /// `number` as 127.0.0.1 or ::1; a port of 0 has the system choose one.
    TcpAddress(const QString &number, int port);

    /// A socket that listens there, the caller's; -1, and errno, if that cannot be.
    int listen();

    /// The one that the system has chosen, after `listen`.
    int port() const;
    /// As 127.0.0.1:8080 or [::1]:8080.
    QString text() const;

private:
    sockaddr_storage m_address = {};
    socklen_t m_size;
};
