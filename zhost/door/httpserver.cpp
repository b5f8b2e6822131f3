// SPDX-License-Identifier: Apache-2.0
#include "httpserver.h"

#include "connection.h"
#include "signalmask.h"

#include <QString>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <system_error>
#include <utility>

#include <poll.h>
#include <pthread.h>
#include <sys/eventfd.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <unistd.h>

namespace {

constexpr int AnswerMs = 500; // for requests that are being answered when the host ends
constexpr int RefusedMs = 500;
constexpr int Niceness = 19; // the host's own work comes first, and a flood of requests must cost it little

/// Lowers the priority of the calling thread: on Linux this is for that thread alone.
void comeSecond(const char *name)
{
    pthread_setname_np(pthread_self(), name);
    setpriority(PRIO_PROCESS, id_t(gettid()), Niceness);
    leaveSignals();
}

void tellThatThereAreTooMany(int socket)
{
    static const char answer[] = "HTTP/1.1 503 Service Unavailable\r\n"
                                 "Retry-After: 1\r\nConnection: close\r\nContent-Type: application/json\r\n"
                                 "Content-Length: 34\r\n\r\n{\"error\": \"too many connections\"}\n";
    if (send(socket, answer, sizeof answer - 1, MSG_NOSIGNAL | MSG_DONTWAIT) > 0)
        shutdown(socket, SHUT_WR);
}

/// Closes a connection, and reads first what has come: else the system would send the client an error, and the answer
/// would be lost.
void drop(int socket)
{
    char rest[4096];
    for (int i = 0; i < 16 && recv(socket, rest, sizeof rest, MSG_DONTWAIT) > 0; ++i) {
    }
    close(socket);
}

} // namespace

HttpServer::HttpServer(Admission admit, Answer answer) : m_wakeUp(eventfd(0, EFD_CLOEXEC))
{
    putBack();
    set_payload_max_length(MaxBodySize);
    set_pre_routing_handler([admit = std::move(admit)](const Request &request, Response &response) {
        return admit(request, response) ? HandlerResponse::Unhandled : HandlerResponse::Handled;
    });
    set_error_handler([](const Request &, Response &response) {
        if (response.body.empty()) // only the library has seen the request
            response.set_content("{\"error\": \"this request cannot be read\"}\n", "application/json");
    });
    set_exception_handler([](const Request &, Response &response, const std::exception_ptr &) {
        response.status = 500;
        response.set_content("{\"error\": \"this request cannot be answered\"}\n", "application/json");
    });
    for (const auto add : {&Server::Options, &Server::Delete})
        (this->*add)(".*", answer);
    Get(".*", answer);
    Post(".*", answer);
    Put(".*", answer);
    Patch(".*", answer);
}

HttpServer::~HttpServer()
{
    for (const Listener &listener : m_listeners)
        close(listener.socket);
    close(m_wakeUp);
}

void HttpServer::add(int listener, Peer peer) { m_listeners.push_back({listener, std::move(peer)}); }

bool HttpServer::begin()
{
    svr_sock_ = m_wakeUp; // without a socket, the server believes that it is shutting down
    try {
        m_acceptor = std::thread([this] { acceptAll(); });
    } catch (const std::system_error &) {
        return false;
    }
    return true;
}

bool HttpServer::end(int patienceMs)
{
    m_isEnding = true;
    svr_sock_ = INVALID_SOCKET;
    eventfd_write(m_wakeUp, 1);
    if (m_acceptor.joinable())
        m_acceptor.join();
    std::unique_lock lock(m_mutex);
    const auto areServed = [this] { return m_connections.empty(); };
    if (m_served.wait_for(lock, std::chrono::milliseconds(AnswerMs),
                          areServed)) // the client that has asked for the stop gets its answer
        return true;
    for (const auto &connection : m_connections)
        shutdown(connection.first, SHUT_RDWR);
    return m_served.wait_for(lock, std::chrono::milliseconds(patienceMs), areServed);
}

void HttpServer::acceptAll()
{
    comeSecond("zhost door");
    std::vector<pollfd> waited{{m_wakeUp, POLLIN, 0}};
    for (const Listener &listener : m_listeners)
        waited.push_back({listener.socket, POLLIN, 0});
    while (!m_isEnding) {
        const int count = poll(waited.data(), waited.size(), m_refused.empty() ? -1 : RefusedMs);
        dropRefused([](const Refused &refused) { return refused.until.hasExpired(); });
        if (count < 0)
            continue;
        for (size_t i = 0; i < m_listeners.size(); ++i) {
            if (waited[i + 1].revents != 0)
                acceptOne(i);
        }
    }
    dropRefused([](const Refused &) { return true; });
}

/// Call it with m_mutex locked.
bool HttpServer::hasRoom(size_t index) const
{
    return std::count_if(m_connections.begin(), m_connections.end(),
                         [index](const auto &connection) { return connection.second == index; }) < MaxConnections;
}

void HttpServer::acceptOne(size_t index)
{
    const Listener &listener = m_listeners[index];
    const int socket = accept4(listener.socket, nullptr, nullptr, SOCK_CLOEXEC);
    if (socket < 0) {
        if (errno == EMFILE || errno == ENFILE || errno == ENOMEM || errno == ENOBUFS)
            std::this_thread::sleep_for(std::chrono::milliseconds(100)); // until a descriptor is free again
        return;
    }
    const std::string peer = listener.peer(socket);
    if (peer.empty()) {
        close(socket);
        return;
    }
    {
        const std::lock_guard lock(m_mutex);
        if (hasRoom(index)) {
            m_connections.emplace(socket, index);
            try {
                std::thread([this, socket, peer] { serve(socket, peer); }).detach();
                return;
            } catch (const std::system_error &) { // no room for one more thread
                m_connections.erase(socket);
            }
        }
    }
    tellThatThereAreTooMany(socket);
    m_refused.push_back({socket, QDeadlineTimer(RefusedMs)}); // what the client sends is still on its way
    dropRefused([this](const Refused &) { return m_refused.size() > size_t(MaxConnections); });
}

template <class Condition>
void HttpServer::dropRefused(const Condition &isToGo)
{
    for (; !m_refused.empty() && isToGo(m_refused.front()); m_refused.pop_front())
        drop(m_refused.front().socket);
}

void HttpServer::serve(int socket, const std::string &peer)
{
    comeSecond("zhost request");
    Connection connection(socket, peer, {RequestMs, WriteMs, MaxHeadSize});
    bool isClosed = false;
    process_request(connection, true, isClosed, [&connection](Request &request) {
        connection.allow(MaxBodySize);
        request.ranges.clear(); // a thousand of them would make a thousand answers in one
        if (!request.has_header("Content-Length") && !request.has_header("Transfer-Encoding"))
            request.set_header("Content-Length", "0"); // else the library would wait for a body that does not come
    });
    connection.end();
    const std::lock_guard lock(m_mutex);
    m_connections.erase(socket);
    close(socket); // last: another connection could get its number
    m_served.notify_all();
}
