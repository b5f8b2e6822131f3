// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QByteArray>
#include <QHash>
#include <QMutex>
#include <QSemaphore>
#include <QString>
#include <QStringList>

#include <thread>

#include <httplib.h>

/// Answers as a host would, at a Unix socket or by TCP on this machine, what it has been told to.
class FakeHost
{
public:
    explicit FakeHost(const QString &socket);
    /// By TCP, at a port that is free.
    FakeHost();
    ~FakeHost();

    int port() const { return m_port; }

    /// To be called before anybody asks. `what` is as "GET /v1/report/host"; all else is answered with 404.
    void answer(const QString &what, const QByteArray &body, int status = 200);
    /// Likewise; this is not answered as long as the host lives.
    void hangAt(const QString &what);
    /// What was asked, a line each: "POST /v1/call?url=x {}".
    QStringList asked() const;
    /// What the last one has had in this header.
    QString header(const char *name) const;

    /// Whoever follows the log gets this as it is.
    void send(const QByteArray &events);
    /// The log comes to its end.
    void endLog();
    /// To be called before anybody asks: nobody may follow the log.
    void refuseFollowers(const QByteArray &body, int status);

private:
    Q_DISABLE_COPY(FakeHost)
    void begin();
    void handle(const httplib::Request &request, httplib::Response &response);
    void follow(httplib::Response &response);

    httplib::Server m_server;
    int m_port = 80;
    QSemaphore m_end;
    mutable QMutex m_mutex; // guards the next six
    QPair<QByteArray, int> m_refusal;
    QString m_hanging;
    QHash<QString, QPair<QByteArray, int>> m_answers;
    QStringList m_asked;
    httplib::Headers m_headers;
    QList<QByteArray> m_events; // an empty one is the end
    QSemaphore m_sent;
    std::thread m_thread;
};
