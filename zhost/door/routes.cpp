// SPDX-License-Identifier: Apache-2.0
#include "routes.h"

#include "../known/known.h"

#include <QReadLocker>
#include <QWriteLocker>

namespace {

constexpr int PatienceMs = 1000; // with calls, as the host ends
const QLatin1String Star("*");

QStringList partsOf(const QString &path) { return path.split(QLatin1Char('/')); }

Reply notThere(const QString &path) { return Reply::failure(404, QStringLiteral("there is nothing at %1").arg(path)); }

} // namespace

int Routes::Question::number(const QString &name, int otherwise, int min, int max) const
{
    bool isNumber = false;
    const int number = parameters.value(name, QString::number(otherwise)).toInt(&isNumber);
    return isNumber && number >= min && number <= max ? number : -1;
}

Routes::Routes(const Known *known) : m_known(known)
{
    add("GET", "/v1/report", &Routes::report);
    add("GET", "/v1/report/*", &Routes::reportPart);
    add("POST", "/v1/call", &Routes::call);
    add("POST", "/v1/schedule/*/run", &Routes::runEntry);
    add("POST", "/v1/schedule/*/cancel", &Routes::cancelEntry);
    add("POST", "/v1/schedule/*/restart", &Routes::restartEntry);
    add("POST", "/v1/plugins/*/rollback", &Routes::rollBack);
    add("POST", "/v1/plugins/*/release", &Routes::release);
    add("GET", "/v1/log", &Routes::log);
    add("PUT", "/v1/log", &Routes::switchLog);
    add("POST", "/v1/reload", &Routes::reload);
    add("POST", "/v1/stop", &Routes::stop);
    add("GET", "/healthz", &Routes::healthy);
    add("GET", "/readyz", &Routes::ready);
    add("GET", "/metrics", &Routes::metrics);
    add("GET", "/", &Routes::file);
    add("GET", "/page/*", &Routes::file);
    add("GET", "/openapi.json", &Routes::file);
}

void Routes::add(const char *method, const char *path, Reply (Routes::*reply)(const Question &) const)
{
    m_routes.push_back({method, partsOf(QLatin1String(path)),
                        [this, reply](const Question &question) { return (this->*reply)(question); }});
}

bool Routes::isOpen(const QString &path)
{
    return path == QLatin1String("/") || path == QLatin1String("/healthz") || path == QLatin1String("/readyz") ||
           path == QLatin1String("/openapi.json") || path.startsWith(QLatin1String("/page/"));
}

Reply Routes::answer(Question question) const
{
    const QStringList parts = partsOf(question.path);
    bool isKnown = false;
    for (const Route &route : m_routes) {
        if (route.path.size() != parts.size())
            continue;
        question.parts.clear();
        bool fits = true;
        for (int i = 0; fits && i < parts.size(); ++i) {
            if (route.path[i] == Star)
                question.parts.append(parts[i]);
            else
                fits = route.path[i] == parts[i];
        }
        if (fits && (route.method == question.method || (route.method == "GET" && question.method == "HEAD")))
            return route.answer(question);
        isKnown |= fits;
    }
    return isKnown ? Reply::failure(405, QStringLiteral("%1 cannot be asked for with %2")
                                             .arg(question.path, QString::fromLatin1(question.method)))
                   : notThere(question.path);
}

void Routes::enter(Host *host)
{
    const QWriteLocker locker(&m_lock);
    m_host = host;
}

QStringList Routes::leave()
{
    {
        const QWriteLocker locker(&m_lock);
        m_host = nullptr;
    }
    return m_calls.end(PatienceMs);
}

Reply Routes::withHost(const std::function<Reply(Host &)> &deed) const
{
    const QReadLocker locker(&m_lock);
    return m_host ? deed(*m_host)
                  : Reply::failure(503, m_known->state == Known::Starting
                                            ? QStringLiteral("the host has not loaded all its plugins yet")
                                            : QStringLiteral("the host is stopping"));
}
