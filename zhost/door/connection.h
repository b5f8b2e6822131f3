// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QDeadlineTimer>

#include <httplib.h>

/**
 * One connection of a client that may be slow, dead or hostile. All that it sends is limited in time and size as a
 * whole, even if it comes byte by byte; and so is each write.
 *
 * Ownership: does not own the socket.
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
    /// `peer` is the address that requests of this connection have.
    Connection(int socket, std::string peer, const Limits &limits);

    /// Allows so many more bytes to be read.
    void allow(qint64 bytes) { m_toRead += bytes; }
    /// Tells the client that nothing more comes, and waits a little until it has read everything.
    void end();

    bool is_readable() const override;
    bool is_writable() const override;
    ssize_t read(char *to, size_t size) override;
    ssize_t write(const char *from, size_t size) override;
    using Stream::write;
    void get_remote_ip_and_port(std::string &address, int &port) const override;
    void get_local_ip_and_port(std::string &address, int &port) const override;
    /// Returns none, so that nobody else waits for the socket, or closes it.
    socket_t socket() const override { return INVALID_SOCKET; }

private:
    Q_DISABLE_COPY(Connection)
    bool fill();
    bool waitFor(short event, const QDeadlineTimer &deadline) const;

    const int m_socket;
    const std::string m_peer;
    const int m_writeMs;
    const QDeadlineTimer m_deadline; // for all reading
    qint64 m_toRead;
    char m_buffer[4096];
    size_t m_begin = 0, m_end = 0; // of the bytes that were read and not handed out
};
