// SPDX-License-Identifier: Apache-2.0
#include "door.h"

#include "tcpaddress.h"
#include "token.h"

#include "../known/known.h"
#include "../known/logring.h"

#include <QScopeGuard>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <utility>

namespace {

constexpr int MaxFollowers = 16;
constexpr int PatienceMs = 2000; // for requests that are being answered
const char ByTcp[] = "tcp";

void fill(HttpServer::Response &response, const Reply &reply)
{
    response.status = reply.status;
    response.set_content(reply.body.toStdString(), reply.type.constData());
}

/// The headers of every answer: a browser must do nothing with it but what the page asks for.
httplib::Headers guards()
{
    return {{"Content-Security-Policy",
             "default-src 'none'; script-src 'self'; style-src 'self'; connect-src 'self'; img-src 'self'; "
             "base-uri 'none'; form-action 'none'; frame-ancestors 'none'"},
            {"X-Content-Type-Options", "nosniff"},
            {"Referrer-Policy", "no-referrer"},
            {"Cache-Control", "no-store"}};
}

Routes::Question questionOf(const HttpServer::Request &request)
{
    Routes::Question question;
    question.method = QByteArray::fromStdString(request.method);
    question.path = QString::fromStdString(request.path);
    for (const auto &[name, value] : request.params)
        question.parameters.insert(QString::fromStdString(name), QString::fromStdString(value));
    question.body = QByteArray::fromStdString(request.body);
    return question;
}

/// Whether the length of the body is unambiguous: else a request could contain another one that only a proxy sees.
bool isClear(const HttpServer::Request &request)
{
    const size_t lengths = request.get_header_value_count("Content-Length");
    const size_t codings = request.get_header_value_count("Transfer-Encoding");
    if (lengths == 0)
        return codings == 1 && request.get_header_value("Transfer-Encoding") == "chunked";
    const std::string length = request.get_header_value("Content-Length");
    return lengths == 1 && codings == 0 &&
           std::all_of(length.begin(), length.end(), [](char digit) { return digit >= '0' && digit <= '9'; });
}

bool changesSomething(const std::string &method) { return method != "GET" && method != "HEAD"; }

} // namespace

/// Registers the resource: in a static library that does not happen by itself. The macro must not be in a namespace.
static void initResource() { Q_INIT_RESOURCE(door); }

Door::Door(const DoorSettings &settings, const Known *known)
    : m_routes(known), m_server([this](const auto &request, auto &response) { return admit(request, response); },
                                [this](const auto &request, auto &response) { answer(request, response); })
{
    initResource();
    m_server.set_default_headers(guards());
    const QString path = settings.socket.isEmpty() ? defaultDoorPath(known->file) : settings.socket;
    if (path.isEmpty()) {
        m_error = QStringLiteral("the door has no place: there is no folder that only this user can enter");
        return;
    }
    m_socket.emplace(path);
    if (!m_socket->error().isNull()) {
        m_error = QStringLiteral("the door cannot be opened at %1: %2").arg(path, m_socket->error());
        return;
    }
    m_server.add(m_socket->descriptor(), DoorSocket::peer);
    m_places.append(path);
    if (!settings.address.isEmpty())
        addTcp(settings);
}

bool Door::open() { return m_server.begin(); }

QStringList Door::leave() { return m_routes.leave(); }

bool Door::close() { return m_server.end(PatienceMs); }

void Door::addTcp(const DoorSettings &settings)
{
    const QByteArray token = readToken(settings.tokenFile, &m_error);
    if (!m_error.isNull()) { // the error was found when the settings were read
        m_error = QStringLiteral("the door cannot be opened at %1: %2").arg(settings.address, m_error);
        return;
    }
    TcpAddress address(settings.address, settings.port);
    const int listener = address.listen();
    if (listener < 0) {
        m_error = QStringLiteral("the door cannot be opened at %1: %2").arg(address.text(), qt_error_string(errno));
        return;
    }
    m_server.add(listener, [](int) { return std::string(ByTcp); });
    m_access.emplace(token, address.port());
    m_places.append(address.text());
}

/// Called before the body is read, so that a client without access cannot fill memory with one.
bool Door::admit(const HttpServer::Request &request, HttpServer::Response &response) const
{
    const auto refuse = [&](int status, const QString &reason) {
        fill(response, Reply::failure(status, reason));
        return false;
    };
    if (request.remote_addr == ByTcp) {
        const bool isOpen = !changesSomething(request.method) && Routes::isOpen(QString::fromStdString(request.path));
        if (const Access::Refusal refusal = m_access->refusal(request, isOpen); refusal.status != 0) {
            if (refusal.status == 401)
                response.set_header("WWW-Authenticate", "Bearer");
            return refuse(refusal.status, refusal.reason);
        }
    }
    if (!isClear(request))
        return refuse(400, QStringLiteral("how long this request is can be read in two ways"));
    if (request.has_header("Content-Encoding")) // some compressed bytes can become a gigabyte
        return refuse(415, QStringLiteral("a request is not compressed"));
    if (std::strtoll(request.get_header_value("Content-Length").c_str(), nullptr, 10) > HttpServer::MaxBodySize)
        return refuse(413, QStringLiteral("a request has %1 bytes at most").arg(HttpServer::MaxBodySize));
    if (changesSomething(request.method) && !isDeliberate(request))
        return refuse(415, QStringLiteral("a request that changes something has the content type application/json"));
    return true;
}

void Door::answer(const HttpServer::Request &request, HttpServer::Response &response)
{
    const Routes::Question question = questionOf(request);
    const int count = Routes::linesWanted(question);
    if (request.method == "GET" && request.path == "/v1/log" && count >= 0 &&
        request.get_header_value("Accept").find("text/event-stream") != std::string::npos)
        return follow(count, response);
    fill(response, m_routes.answer(question));
}

/// Sends the last lines, and then each new one, as long as the client reads.
void Door::follow(int count, HttpServer::Response &response)
{
    if (++m_followers > MaxFollowers) {
        --m_followers;
        return fill(response, Reply::failure(503, QStringLiteral("%1 follow the log already").arg(MaxFollowers)));
    }
    const LogRing &ring = LogRing::get();
    const quint64 last = ring.lastNumber();
    quint64 next = last - std::min(quint64(count), last);
    response.set_chunked_content_provider(
        "text/event-stream",
        [this, next](size_t, httplib::DataSink &sink) mutable {
            constexpr int PauseMs = 1000;
            const QVector<LogRing::Line> lines = LogRing::get().after(next, PauseMs);
            QByteArray text;
            for (const LogRing::Line &line : lines) {
                if (line.number > next + 1)
                    text += "event: lost\ndata: " + QByteArray::number(line.number - next - 1) + "\n\n";
                next = line.number;
                text += "id: " + QByteArray::number(line.number) +
                        "\ndata: " + QJsonDocument(line.describe()).toJson(QJsonDocument::Compact) + "\n\n";
            }
            if (text.isEmpty())
                text = ":\n\n"; // a comment, to find out whether the client is still there
            return !m_server.isEnding() && sink.is_writable() && sink.write(text.constData(), size_t(text.size()));
        },
        [this](bool) { --m_followers; });
}
