// SPDX-License-Identifier: Apache-2.0
#include "client.h"

#include "eventstream.h"

#include <QFile>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <csignal>
#include <ctime>
#include <mutex>
#include <thread>

#include <httplib.h>

namespace {

constexpr int ConnectionSeconds = 5;
constexpr int MaxAnswer = 256 << 20;           // bytes; no host has so much to tell
constexpr int GraceSeconds = 5;                // beyond the deadline of a call
constexpr int FollowSeconds = 365 * 24 * 3600; // a host may have nothing to say for long

enum Status // of HTTP
{
    Unauthorized = 401,
    Forbidden = 403,
    Misdirected = 421
};

/// A host that goes while it is written to is an error like others, and not a signal.
class NoBrokenPipe
{
public:
    NoBrokenPipe()
    {
        sigemptyset(&m_signal);
        sigaddset(&m_signal, SIGPIPE);
        pthread_sigmask(SIG_BLOCK, &m_signal, &m_before);
    }
    ~NoBrokenPipe()
    {
        const timespec atOnce = {};
        if (sigismember(&m_before, SIGPIPE) == 0)
            sigtimedwait(&m_signal, nullptr, &atOnce);
        pthread_sigmask(SIG_SETMASK, &m_before, nullptr);
    }

private:
    Q_DISABLE_COPY(NoBrokenPipe)
    sigset_t m_signal = {}, m_before = {};
};

/// Ends a connection after a time, however steadily its other end trickles.
class Deadline
{
public:
    Deadline(httplib::Client *client, int seconds)
        : m_thread([this, client, seconds] {
              std::unique_lock lock(m_mutex);
              if (m_ended.wait_for(lock, std::chrono::seconds(seconds), [this] { return m_isOver; }))
                  return;
              m_hasExpired = true;
              client->stop();
          })
    {}
    ~Deadline()
    {
        {
            const std::lock_guard lock(m_mutex);
            m_isOver = true;
        }
        m_ended.notify_one();
        m_thread.join();
    }
    bool hasExpired() const { return m_hasExpired; }

private:
    Q_DISABLE_COPY(Deadline)
    std::mutex m_mutex; // guards m_isOver
    std::condition_variable m_ended;
    bool m_isOver = false;
    std::atomic_bool m_hasExpired{false};
    std::thread m_thread;
};

std::string headerHost(const Address &address)
{
    return address.socket.isEmpty() ? address.url.authority(QUrl::FullyEncoded).toStdString() : "localhost";
}

httplib::Client connectionTo(const Address &address, int seconds)
{
    const bool isSocket = !address.socket.isEmpty();
    httplib::Client client(isSocket ? QFile::encodeName(address.socket).toStdString()
                                    : address.url.host(QUrl::FullyEncoded).toStdString(),
                           address.url.port(80));
    if (isSocket)
        client.set_address_family(AF_UNIX);
    httplib::Headers headers{{"Host", headerHost(address)}};
    if (!address.token.isEmpty())
        headers.emplace("Authorization", "Bearer " + address.token.toStdString());
    client.set_default_headers(headers);
    client.set_connection_timeout(ConnectionSeconds);
    client.set_read_timeout(seconds);
    return client;
}

std::string textOf(const QJsonObject &object)
{
    return QJsonDocument(object).toJson(QJsonDocument::Compact).toStdString();
}

} // namespace

Answer Client::get(const QString &path, int seconds) const { return ask("GET", path, {}, seconds); }

Answer Client::post(const QString &path, const QJsonObject &body, int seconds) const
{
    return ask("POST", path, textOf(body), seconds);
}

Answer Client::put(const QString &path, const QJsonObject &body) const
{
    return ask("PUT", path, textOf(body), PatienceSeconds);
}

Answer Client::call(const QString &url, const QJsonObject &in, int deadlineMs) const
{
    const QString path = QStringLiteral("/v1/call?url=%1&deadline=%2")
                             .arg(QString::fromLatin1(QUrl::toPercentEncoding(url)), QString::number(deadlineMs));
    Answer answer = post(path, in, deadlineMs / 1000 + GraceSeconds);
    const QJsonObject object = answer.json.object();
    if (answer.end != Answer::End::Done || object.value(QLatin1String("handled")).toBool())
        return answer;
    const QString reason = object.value(QLatin1String("reason")).toString();
    answer.end = Answer::End::No;
    answer.error = reason.isEmpty() ? QStringLiteral("nobody handled %1").arg(url) : reason;
    return answer;
}

Answer Client::follow(const QString &path, const Receiver &receive) const
{
    EventStream events(receive);
    QByteArray refusal;
    int status = 0;
    httplib::Client client = connectionTo(m_address, FollowSeconds);
    const httplib::Result result = client.Get(
        path.toStdString(), {{"Accept", "text/event-stream"}},
        [&](const httplib::Response &response) {
            status = response.status;
            return true;
        },
        [&](const char *data, size_t size) {
            const QByteArray bytes(data, static_cast<int>(size));
            if (status == 200)
                events.feed(bytes);
            else
                refusal += bytes;
            return true;
        });
    if (status == 0)
        return failure(result, FollowSeconds, false);
    return status == 200 ? Answer() : judge(status, refusal);
}

Answer Client::ask(const char *method, const QString &path, const std::string &body, int seconds) const
{
    httplib::Client client = connectionTo(m_address, seconds + 1); // the deadline below comes first, and is told
    httplib::Request request;
    request.method = method;
    request.path = path.toStdString();
    request.body = body;
    if (!body.empty())
        request.set_header("Content-Type", "application/json");
    QByteArray content;
    request.content_receiver = [&](const char *data, size_t size, uint64_t, uint64_t) {
        content.append(data, static_cast<int>(size));
        return content.size() < MaxAnswer;
    };
    const NoBrokenPipe noSignal;
    const Deadline deadline(&client, seconds);
    const httplib::Result result = client.send(request);
    if (!result)
        return failure(result, seconds, deadline.hasExpired());
    return judge(result->status, content);
}

Answer Client::failure(const httplib::Result &result, int seconds, bool isOverdue) const
{
    Answer answer;
    if (result.error() == httplib::Error::Connection || result.error() == httplib::Error::ConnectionTimeout) {
        answer.end = Answer::End::Nobody;
        answer.error = QStringLiteral("nobody answers at %1").arg(m_address.text());
        return answer;
    }
    answer.end = Answer::End::No;
    answer.error = isOverdue ? QStringLiteral("the host at %1 has not answered within %2 seconds")
                                   .arg(m_address.text(), QString::number(seconds))
                             : QStringLiteral("the host at %1 has gone before it has answered").arg(m_address.text());
    return answer;
}

Answer Client::judge(int status, const QByteArray &body) const
{
    Answer answer;
    answer.body = body;
    answer.json = QJsonDocument::fromJson(body);
    if (status / 100 == 2 && !answer.json.isNull())
        return answer;
    const bool isNoAccess = status == Unauthorized || status == Forbidden || status == Misdirected;
    answer.error = answer.json.object().value(QStringLiteral("error")).toString();
    answer.end = answer.error.isEmpty() || isNoAccess ? Answer::End::Nobody : Answer::End::No;
    if (answer.error.isEmpty())
        answer.error = QStringLiteral("what answers at %1 is no host: HTTP status %2")
                           .arg(m_address.text(), QString::number(status));
    return answer;
}
