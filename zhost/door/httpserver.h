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

/// What the process does about SIGPIPE, to be put back: the library has it ignored, and the programs that plugins start
/// would inherit that.
class KeptDisposition
{
protected:
    KeptDisposition() { sigaction(SIGPIPE, nullptr, &m_action); }
    void putBack() const { sigaction(SIGPIPE, &m_action, nullptr); }

private:
    struct sigaction m_action = {};
};

/**
 * Serves HTTP on sockets that it is given, with bounds for all that a client can use up. A connection is good for one
 * request, and each has a thread, of which there is a limited number: whoever comes then is told to come again.
 *
 * Thread: made, begun and ended by one; the handlers are called on others, at once.
 */
class HttpServer : private KeptDisposition, private httplib::Server
{
public:
    using Request = httplib::Request;
    using Response = httplib::Response;

    static constexpr int MaxConnections = 64;    // by each listener: one keeps nobody out of another
    static constexpr int MaxBodySize = 1 << 20;  // bytes
    static constexpr int MaxHeadSize = 64 << 10; // bytes
    static constexpr int RequestMs = 10000;      // until it is here as a whole
    static constexpr int WriteMs = 5000;         // for each part of an answer

    /// Whether a request may go on, before its body is read; else it has filled in the answer.
    using Admission = std::function<bool(const Request &, Response &)>;
    using Answer = std::function<void(const Request &, Response &)>;
    HttpServer(Admission admit, Answer answer);
    ~HttpServer() override;

    /// What all answers have, also to what is no request.
    using Server::set_default_headers;

    /// Who is at the other end of a connection, as `Request::remote_addr`; an empty text if he is not to be served.
    using Peer = std::function<std::string(int socket)>;
    /// Serves who comes by `listener`, which it owns from now on. To be called before `begin`.
    void add(int listener, Peer peer);
    /// False if there is no room for one more thread.
    bool begin();
    /// Waits a moment for all connections, then cuts them, and waits a while for their threads: false if there are
    /// still some, which use this object on.
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

    /// Has been told to come again.
    struct Refused
    {
        int socket;
        QDeadlineTimer until; // it may still be writing
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
    std::deque<Refused> m_refused; // the last at the end; the acceptor's
    std::thread m_acceptor;
    std::mutex m_mutex;
    std::condition_variable m_served;
    std::map<int, size_t> m_connections; // by their sockets, the index of the listener; guarded by m_mutex
};
