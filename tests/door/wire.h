// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QByteArray>
#include <QElapsedTimer>
#include <QFile>
#include <QString>

#include <utility>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

/// A client's end of a connection, which sends what it likes.
class Wire
{
public:
    static constexpr int Limit = 30000; // milliseconds for whatever it waits for

    /// To a Unix socket.
    explicit Wire(const QString &path) : m_socket(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0))
    {
        sockaddr_un address = {};
        address.sun_family = AF_UNIX;
        qstrncpy(address.sun_path, QFile::encodeName(path).constData(), sizeof address.sun_path);
        begin(reinterpret_cast<const sockaddr *>(&address), sizeof address);
    }
    /// To a port of this machine.
    explicit Wire(int port) : m_socket(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0))
    {
        sockaddr_in address = {};
        address.sin_family = AF_INET;
        address.sin_port = htons(uint16_t(port));
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        begin(reinterpret_cast<const sockaddr *>(&address), sizeof address);
    }
    Wire(Wire &&other) noexcept : m_socket(std::exchange(other.m_socket, -1)), m_isOpen(other.m_isOpen) {}
    ~Wire() { close(); }

    /// False once the other end has closed, or cannot be written to.
    bool isOpen() const { return m_isOpen; }
    int descriptor() const { return m_socket; }

    /// Waits until all is on its way.
    Wire &send(const QByteArray &bytes)
    {
        for (int sent = 0; m_isOpen && sent < bytes.size();) {
            const ssize_t count = ::send(m_socket, bytes.constData() + sent, size_t(bytes.size() - sent), MSG_NOSIGNAL);
            m_isOpen = count > 0;
            sent += int(count);
        }
        return *this;
    }
    /// There is nothing more to come.
    Wire &finish()
    {
        shutdown(m_socket, SHUT_WR);
        return *this;
    }
    /// Some of what has come; waits for it. Empty where the other end has closed, or nothing comes.
    QByteArray some(int patience = Limit)
    {
        pollfd waited = {m_socket, POLLIN, 0};
        char buffer[16384];
        if (poll(&waited, 1, patience) != 1)
            return {};
        const ssize_t count = recv(m_socket, buffer, sizeof buffer, 0);
        m_isOpen = m_isOpen && count > 0;
        return count > 0 ? QByteArray(buffer, int(count)) : QByteArray();
    }
    /// All that comes until the other end closes.
    QByteArray all()
    {
        QByteArray result;
        for (QByteArray next = some(); !next.isEmpty(); next = some())
            result += next;
        return result;
    }
    /// Reads until `text` has come.
    bool waitFor(const QByteArray &text)
    {
        QByteArray come;
        while (!come.contains(text)) {
            const QByteArray next = some();
            if (next.isEmpty())
                return false;
            come += next;
        }
        return true;
    }
    /// Whether the other end has closed; reads what comes until then.
    bool isOver(int patience)
    {
        QElapsedTimer timer;
        for (timer.start(); m_isOpen && timer.elapsed() < patience;)
            some(int(patience - timer.elapsed()));
        return !m_isOpen;
    }
    void close()
    {
        if (m_socket >= 0)
            ::close(std::exchange(m_socket, -1));
        m_isOpen = false;
    }

private:
    Q_DISABLE_COPY(Wire)
    void begin(const sockaddr *address, socklen_t size)
    {
        const timeval limit = {Limit / 1000, 0};
        setsockopt(m_socket, SOL_SOCKET, SO_SNDTIMEO, &limit, sizeof limit);
        m_isOpen = connect(m_socket, address, size) == 0;
    }

    int m_socket;
    bool m_isOpen = false;
};

/// The status that an answer begins with; 0 if it is none.
inline int statusOf(const QByteArray &answer) { return answer.startsWith("HTTP/1.1 ") ? answer.mid(9, 3).toInt() : 0; }
