// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "link.h"
#include "log.h"
#include "natssettings.h"

#include <QDateTime>
#include <QDeadlineTimer>
#include <QElapsedTimer>
#include <QJsonObject>
#include <QMutex>
#include <QThread>
#include <QWaitCondition>

#include <functional>
#include <memory>

/// What the broker does not let this process do.
struct Denial
{
    QByteArray subject;
    bool isCut = false;      ///< the subject was longer: how it ended is not known
    bool isToPublish = true; ///< else to listen
};

/**
 * The connection to the brokers. A thread of its own keeps it: it makes another link when the client library gives one
 * up, as it does when credentials are refused, and when a broker says that it is about to stop. All that is listened to
 * moves over before the link before it is let go.
 *
 * Ownership: to be closed before it is destroyed.
 * Thread:    any.
 * Failure:   a status of the client library's.
 */
class Connection
{
public:
    /// They are called on a thread of the client library's, and must not wait.
    struct Watcher
    {
        std::function<void(int link)> lost; ///< what was sent by this link may not be answered
        std::function<void(const Denial &denial)> denied;
    };

    /// A broker closes the connection at a longer one: its lines have 4096 bytes, and two subjects.
    static constexpr int MostSubjectBytes = 3000;

    Connection(NatsSettings settings, Log log);
    ~Connection();

    /// Begins to connect, and waits a while for that.
    void open(Watcher watcher, int msecs);
    /// Does nothing, with a warning, if the subject is too long.
    void listen(const QByteArray &subject, Listening::Kind kind, MessageHandler handler);
    void unlisten(const QByteArray &subject);
    /// Waits until the broker knows all that is listened to; not if there is none.
    void flush(int msecs);

    /// Sends at once, or not at all: `link` is that by which it was sent.
    natsStatus send(natsMsg *message, int *link = nullptr);
    /// Waits for a broker, if there was one a moment ago.
    bool waitConnected(const QDeadlineTimer &deadline, int patienceMs);
    bool isConnected() const;
    /// Null if there was none yet.
    std::shared_ptr<Link> link() const;
    /// The number of the link by which is sent now.
    int number() const;

    /// Listens to answers only, once what else is on its way has arrived.
    void drain(const QDeadlineTimer &deadline);
    /// False if something of it may still run: then it must not be destroyed.
    bool close(const QDeadlineTimer &deadline);

    QJsonObject describe() const;

private:
    Q_DISABLE_COPY(Connection)
    void keep();
    std::shared_ptr<Link> make(int number);
    bool moveTo(const std::shared_ptr<Link> &link, int number);
    void letGo(const std::shared_ptr<Link> &link, const QDeadlineTimer &deadline);
    template <class Wanted>
    void listen(Link &link, Wanted isWanted);
    Link::Events eventsOf(int number);
    void noteConnected(int number);
    void noteLost(int number);
    void noteBroken(int connections);
    bool isUsable() const;
    void noteFailed(int number, natsStatus status, const QString &text);
    void wantAnother(int number);

    const NatsSettings m_settings;
    const Log m_log;
    Watcher m_watcher;
    std::unique_ptr<QThread> m_keeper;

    mutable QMutex m_mutex; // guards all that follow; nobody is called under it
    QWaitCondition m_changed;
    std::shared_ptr<Link> m_link;
    int m_number = 0; // of the link, counted from 1
    QHash<QByteArray, Listening> m_listenings;
    bool m_isEnding = false;
    bool m_isAnotherWanted = true;
    bool m_isConnected = false;
    bool m_isReady = false;  // all is listened to, for the first time
    bool m_isAllLeft = true; // no link was left behind that may still call
    QElapsedTimer m_lost;    // when the last connection was
    QDeadlineTimer m_doubt;  // until then it is not used, though nobody has told that it is lost
    int m_connections = 0;
    QString m_error;
    QDateTime m_since;
};
