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

    /// `number` is such as 127.0.0.1 or ::1; for port 0 the system chooses one.
    TcpAddress(const QString &number, int port);

    /// A socket that listens there, which the caller owns; -1, with errno, if that fails.
    int listen();

    /// The port; after `listen` the one that the system has chosen.
    int port() const;
    /// Such as 127.0.0.1:8080 or [::1]:8080.
    QString text() const;

private:
    sockaddr_storage m_address = {};
    socklen_t m_size;
};
