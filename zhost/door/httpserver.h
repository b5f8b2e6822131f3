// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QDeadlineTimer>

#include <atomic>
#include <condition_variable>
#include <csignal>
#include <deque>
#include <functional>
#include <map>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include <httplib.h>

/// Keeps what the process does about SIGPIPE, and restores it: the HTTP library switches the signal off, and programs
/// that plugins start would inherit that.
class KeptDisposition
{
protected:
    KeptDisposition() { sigaction(SIGPIPE, nullptr, &m_action); }
    void putBack() const { sigaction(SIGPIPE, &m_action, nullptr); }

private:
    struct sigaction m_action = {};
};

/**
 * Serves HTTP on given sockets, with limits for all that a client can use up. A connection serves one request, and has
 * a thread. The number of threads is limited: beyond that, clients are told to try again.
 *
 * Thread: made, begun and ended by one thread; the handlers are called on others, several at a time.
 */
class HttpServer : private KeptDisposition, private httplib::Server
{
public:
    using Request = httplib::Request;
    using Response = httplib::Response;

    static constexpr int MaxConnections = 64;    // for each listener, so that none can block another
    static constexpr int MaxBodySize = 1 << 20;  // bytes
    static constexpr int MaxHeadSize = 64 << 10; // bytes
    static constexpr int RequestMs = 10000;      // until a whole request has come
    static constexpr int WriteMs = 5000;         // for each part of an answer

    /// Called before the body of a request is read: whether the request may go on; if not, it has filled in the answer.
    using Admission = std::function<bool(const Request &, Response &)>;
    using Answer = std::function<void(const Request &, Response &)>;
    HttpServer(Admission admit, Answer answer);
    ~HttpServer() override;

    /// Headers of all answers, also to what is not a valid request.
    using Server::set_default_headers;

    /// The other end of a connection, as `Request::remote_addr`; an empty text if it is not to be served.
    using Peer = std::function<std::string(int socket)>;
    /// Serves the clients of `listener`, which it owns from now on. Call it before `begin`.
    void add(int listener, Peer peer);
    /// False if there is no room for one more thread.
    bool begin();
    /// Waits a moment for all connections, then cuts them, and waits a while for their threads. False if some threads
    /// are left, which still use this object.
    bool end(int patienceMs);

    /// Whether answers that are endless should end.
    bool isEnding() const { return m_isEnding; }

private:
    Q_DISABLE_COPY(HttpServer)
    struct Listener
    {
        int socket;
        Peer peer;
    };

    /// A connection that has been told to try again.
    struct Refused
    {
        int socket;
        QDeadlineTimer until; // so long it may go on writing
    };

    void acceptAll();
    void acceptOne(size_t index);
    bool hasRoom(size_t index) const;
    template <class Condition>
    void dropRefused(const Condition &isToGo);
    void serve(int socket, const std::string &peer);

    std::vector<Listener> m_listeners;
    int m_wakeUp = -1; // an eventfd
    std::atomic_bool m_isEnding{false};
    std::deque<Refused> m_refused; // the last at the end; only for the acceptor
    std::thread m_acceptor;
    std::mutex m_mutex;
    std::condition_variable m_served;
    std::map<int, size_t> m_connections; // by their sockets, the index of the listener; guarded by m_mutex
};
