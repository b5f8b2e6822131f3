// SPDX-License-Identifier: Apache-2.0
#include "fakehost.h"

#include <QFile>
#include <QMutexLocker>

FakeHost::FakeHost(const QString &socket)
{
    m_server.set_address_family(AF_UNIX);
    if (!m_server.bind_to_port(QFile::encodeName(socket).toStdString(), m_port))
        qFatal("cannot listen at %s", qPrintable(socket));
    begin();
}

FakeHost::FakeHost()
{
    m_port = m_server.bind_to_any_port("127.0.0.1");
    begin();
}

FakeHost::~FakeHost()
{
    endLog();
    m_end.release();
    m_server.stop();
    m_thread.join();
}

void FakeHost::begin()
{
    const auto handler = [this](const httplib::Request &request, httplib::Response &response) {
        handle(request, response);
    };
    m_server.Get(".*", handler);
    m_server.Post(".*", handler);
    m_server.Put(".*", handler);
    m_thread = std::thread([this] { m_server.listen_after_bind(); });
    while (!m_server.is_running())
        std::this_thread::yield(); // it listens already; what does not run cannot be stopped
}

void FakeHost::answer(const QString &what, const QByteArray &body, int status)
{
    const QMutexLocker locker(&m_mutex);
    m_answers[what] = {body, status};
}

void FakeHost::hangAt(const QString &what)
{
    const QMutexLocker locker(&m_mutex);
    m_hanging = what;
}

void FakeHost::refuseFollowers(const QByteArray &body, int status)
{
    const QMutexLocker locker(&m_mutex);
    m_refusal = {body, status};
}

QStringList FakeHost::asked() const
{
    const QMutexLocker locker(&m_mutex);
    return m_asked;
}

QString FakeHost::header(const char *name) const
{
    const QMutexLocker locker(&m_mutex);
    const auto found = m_headers.find(name);
    return found == m_headers.end() ? QString() : QString::fromStdString(found->second);
}

void FakeHost::handle(const httplib::Request &request, httplib::Response &response)
{
    const QString method = QString::fromStdString(request.method);
    const QString asked =
        QStringLiteral("%1 %2 %3")
            .arg(method, QString::fromStdString(request.target), QString::fromStdString(request.body));
    const QString what = method + ' ' + QString::fromStdString(request.path);
    bool hangs = false;
    bool refuses = false;
    {
        const QMutexLocker locker(&m_mutex);
        m_asked.append(asked.trimmed());
        m_headers = request.headers;
        hangs = what == m_hanging;
        refuses = !m_refusal.first.isEmpty();
    }
    if (hangs)
        m_end.acquire();
    if (request.get_header_value("Accept") == "text/event-stream" && !refuses)
        return follow(response);
    const QByteArray missing = "{\"error\": \"there is no such thing\"}";
    const QMutexLocker locker(&m_mutex);
    const auto [body, status] = refuses ? m_refusal : m_answers.value(what, qMakePair(missing, 404));
    response.status = status;
    response.set_content(body.toStdString(), "application/json");
}

void FakeHost::follow(httplib::Response &response)
{
    response.set_content_provider("text/event-stream", [this](size_t, httplib::DataSink &sink) {
        m_sent.acquire();
        const QMutexLocker locker(&m_mutex);
        const QByteArray events = m_events.takeFirst();
        if (events.isEmpty())
            sink.done();
        else
            sink.write(events.constData(), size_t(events.size()));
        return true;
    });
}

void FakeHost::send(const QByteArray &events)
{
    const QMutexLocker locker(&m_mutex);
    m_events.append(events);
    m_sent.release();
}

void FakeHost::endLog() { send(QByteArray()); }
