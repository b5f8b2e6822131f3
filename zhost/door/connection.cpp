// SPDX-License-Identifier: Apache-2.0
#include "connection.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <utility>

#include <poll.h>
#include <sys/socket.h>

namespace {

constexpr int LingerMs = 500;
constexpr int WholeMs = 60000; // for one write, even if the client takes it steadily

} // namespace

Connection::Connection(int socket, std::string peer, const Limits &limits)
    : m_socket(socket), m_peer(std::move(peer)), m_writeMs(limits.writeMs), m_deadline(limits.readMs),
      m_toRead(limits.toRead)
{}

/// Reads what the client has sent to the end: unread bytes would reset the connection, and the answer would be lost.
void Connection::end()
{
    shutdown(m_socket, SHUT_WR);
    char rest[4096];
    for (const QDeadlineTimer deadline(LingerMs); !deadline.hasExpired() && waitFor(POLLIN, deadline);) {
        if (recv(m_socket, rest, sizeof rest, MSG_DONTWAIT) <= 0)
            break;
    }
}

bool Connection::is_readable() const { return m_begin < m_end || waitFor(POLLIN, m_deadline); }

/// Also false if the client has gone: a poll for output alone would not show that.
bool Connection::is_writable() const
{
    pollfd waited = {m_socket, POLLOUT | POLLRDHUP, 0};
    return poll(&waited, 1, m_writeMs) == 1 && (waited.revents & (POLLRDHUP | POLLHUP | POLLERR)) == 0;
}

ssize_t Connection::read(char *to, size_t size)
{
    if (m_begin == m_end && !fill())
        return -1;
    const size_t count = std::min(size, m_end - m_begin);
    std::memcpy(to, m_buffer + m_begin, count);
    m_begin += count;
    return static_cast<ssize_t>(count);
}

ssize_t Connection::write(const char *from, size_t size)
{
    const QDeadlineTimer whole(WholeMs);
    for (size_t written = 0; written < size;) {
        if (whole.hasExpired() || !waitFor(POLLOUT, QDeadlineTimer(m_writeMs)))
            return -1;
        const ssize_t count = send(m_socket, from + written, size - written, MSG_NOSIGNAL | MSG_DONTWAIT);
        if (count > 0)
            written += static_cast<size_t>(count);
        else if (errno != EAGAIN && errno != EINTR)
            return -1;
    }
    return static_cast<ssize_t>(size);
}

void Connection::get_remote_ip_and_port(std::string &address, int &port) const
{
    address = m_peer;
    port = 0;
}

void Connection::get_local_ip_and_port(std::string &address, int &port) const
{
    address.clear();
    port = 0;
}

bool Connection::fill()
{
    if (m_toRead <= 0 || m_deadline.hasExpired() || !waitFor(POLLIN, m_deadline))
        return false;
    const ssize_t count = recv(m_socket, m_buffer, std::min<size_t>(sizeof m_buffer, size_t(m_toRead)), MSG_DONTWAIT);
    if (count <= 0)
        return false;
    m_toRead -= count;
    m_begin = 0;
    m_end = static_cast<size_t>(count);
    return true;
}

bool Connection::waitFor(short event, const QDeadlineTimer &deadline) const
{
    pollfd waited = {m_socket, event, 0};
    int result = -1;
    do {
        result = poll(&waited, 1, int(deadline.remainingTime()));
    } while (result < 0 && errno == EINTR);
    return result == 1;
}
