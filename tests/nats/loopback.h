// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QtGlobal>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

inline sockaddr_in loopback(int port)
{
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    address.sin_port = htons(static_cast<quint16>(port));
    return address;
}

/// A socket that listens on this port, or on a free one for 0; -1 if it cannot.
inline int listenAt(int port)
{
    const int listener = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    const sockaddr_in address = loopback(port);
    if (bind(listener, reinterpret_cast<const sockaddr *>(&address), sizeof address) == 0 && listen(listener, 64) == 0)
        return listener;
    close(listener);
    return -1;
}

inline int portOf(int listener)
{
    sockaddr_in address{};
    socklen_t size = sizeof address;
    getsockname(listener, reinterpret_cast<sockaddr *>(&address), &size);
    return ntohs(address.sin_port);
}

/// -1 if nobody listens.
inline int connectTo(int port)
{
    const int client = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    const sockaddr_in address = loopback(port);
    if (connect(client, reinterpret_cast<const sockaddr *>(&address), sizeof address) == 0)
        return client;
    close(client);
    return -1;
}
