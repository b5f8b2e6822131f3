// SPDX-License-Identifier: Apache-2.0
#include "proxy.h"

#include "loopback.h"

#include <QVector>

#include <netinet/tcp.h>
#include <poll.h>

namespace {

constexpr int PauseMs = 2;

/// Passes on what there is. False when the one side has ended.
bool pass(int from, int to)
{
    char buffer[65536];
    const ssize_t count = recv(from, buffer, sizeof buffer, 0);
    for (ssize_t sent = 0; sent < count;) {
        const ssize_t more = send(to, buffer + sent, static_cast<size_t>(count - sent), MSG_NOSIGNAL);
        if (more <= 0)
            return false;
        sent += more;
    }
    return count > 0;
}

void makeQuick(int socket)
{
    const int yes = 1;
    setsockopt(socket, IPPROTO_TCP, TCP_NODELAY, &yes, sizeof yes);
}

} // namespace

Proxy::Proxy(int port) : m_target(port), m_listener(listenAt(0)), m_port(portOf(m_listener))
{
    m_thread = QThread::create([this] { serve(); });
    m_thread->start();
}

Proxy::~Proxy()
{
    m_isOver = true;
    m_thread->wait();
    delete m_thread;
    close(m_listener);
}

QString Proxy::url() const { return QStringLiteral("nats://127.0.0.1:%1").arg(m_port); }

void Proxy::serve()
{
    QVector<pollfd> ends{{m_listener, POLLIN, 0}}; // after the first, clients and servers take turns
    while (!m_isOver) {
        if (m_isCut) {
            QThread::msleep(PauseMs);
            continue;
        }
        if (poll(ends.data(), static_cast<nfds_t>(ends.size()), PauseMs) <= 0 || m_isCut)
            continue;
        for (int i = ends.size() - 2; i > 0; i -= 2) {
            const bool isOver = (ends[i].revents && !pass(ends[i].fd, ends[i + 1].fd)) ||
                                (ends[i + 1].revents && !pass(ends[i + 1].fd, ends[i].fd));
            if (isOver) {
                close(ends[i].fd);
                close(ends[i + 1].fd);
                ends.remove(i, 2);
            }
        }
        if (ends[0].revents) {
            const int client = accept4(m_listener, nullptr, nullptr, SOCK_CLOEXEC);
            const int server = connectTo(m_target);
            if (server < 0) { // as if nobody had listened here
                close(client);
                continue;
            }
            makeQuick(client);
            makeQuick(server);
            ends << pollfd{client, POLLIN, 0} << pollfd{server, POLLIN, 0};
        }
    }
    for (int i = 1; i < ends.size(); ++i)
        close(ends[i].fd);
}
