// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QFile>
#include <QString>

#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

/// One end of a Unix socket.
class SocketEnd
{
public:
    explicit SocketEnd(const QString &path) : m_socket(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0))
    {
        m_address.sun_family = AF_UNIX;
        qstrncpy(m_address.sun_path, QFile::encodeName(path).constData(), sizeof m_address.sun_path);
    }
    ~SocketEnd() { close(m_socket); }

protected:
    const sockaddr *address() const { return reinterpret_cast<const sockaddr *>(&m_address); }
    const int m_socket;
    sockaddr_un m_address = {};

private:
    Q_DISABLE_COPY(SocketEnd)
};

/// Listens, and says nothing.
class SilentHost : public SocketEnd
{
public:
    /// `room`: how many may wait; Linux takes one more.
    SilentHost(const QString &path, int room) : SocketEnd(path)
    {
        if (bind(m_socket, address(), sizeof m_address) != 0 || listen(m_socket, room) != 0)
            qFatal("cannot listen at %s", qPrintable(path));
    }

    /// Lets `count` in, and closes behind each at once. Waits for them.
    void hangUpOn(int count) const
    {
        for (int i = 0; i < count; ++i) {
            pollfd waited = {m_socket, POLLIN, 0};
            poll(&waited, 1, -1);
            close(accept(m_socket, nullptr, nullptr));
        }
    }
};

/// Connects, and says nothing.
class SilentClient : public SocketEnd
{
public:
    explicit SilentClient(const QString &path) : SocketEnd(path)
    {
        m_isConnected = connect(m_socket, address(), sizeof m_address) == 0;
    }
    bool isConnected() const { return m_isConnected; }

private:
    bool m_isConnected;
};
