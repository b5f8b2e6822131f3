// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QDeadlineTimer>

#include <httplib.h>

/**
 * One connection of a client that may be slow, dead or hostile: what it sends is limited in time and size as a whole,
 * however it trickles, and so is each write.
 *
 * Ownership: not the socket's.
 * Thread:    its own.
 * Failure:   -1, or false: the connection is over.
 */
class Connection : public httplib::Stream
{
public:
    struct Limits
    {
        int readMs;    ///< for all that is read
        int writeMs;   ///< until some of what is written is taken
        qint64 toRead; ///< in bytes, until more is allowed
    };
    /// `peer` is what requests of this connection tell as their address.
    Connection(int socket, std::string peer, const Limits &limits);

    /// Has so many bytes more read.
    void allow(qint64 bytes) { m_toRead += bytes; }
    /// Says that there is nothing more to come, and waits a little for the client to have it all.
    void end();

    bool is_readable() const override;
    bool is_writable() const override;
    ssize_t read(char *to, size_t size) override;
    ssize_t write(const char *from, size_t size) override;
    using Stream::write;
    void get_remote_ip_and_port(std::string &address, int &port) const override;
    void get_local_ip_and_port(std::string &address, int &port) const override;
    /// None: nobody else is to wait for it, or to close it.
    socket_t socket() const override { return INVALID_SOCKET; }

private:
    Q_DISABLE_COPY(Connection)
    bool fill();
    bool waitFor(short event, const QDeadlineTimer &deadline) const;

    const int m_socket;
    const std::string m_peer;
    const int m_writeMs;
    const QDeadlineTimer m_deadline; // of all that is read
    qint64 m_toRead;
    char m_buffer[4096];
    size_t m_begin = 0, m_end = 0; // of what is read and not handed out
};
