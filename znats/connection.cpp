// SPDX-License-Identifier: Apache-2.0
#include "connection.h"

#include "brokeroptions.h"
#include "pin.h"

#include <QMutexLocker>

#include <algorithm>
#include <cstdlib>
#include <utility>

namespace {

constexpr int AgainMs = 500;  // until another link is tried
constexpr int SpreadMs = 200; // until the brokers of a cluster know of a new link
constexpr int MoveMs = 2000;  // for what is on its way over the link before
constexpr int FlushMs = 500;
constexpr int DoubtMs = 1000; // for the client library to tell that a connection is lost

/// The broker says, with more words, publish to "this", or subscription to "this". The client library cuts a long text.
Denial denialIn(const QString &text)
{
    const QStringList parts = text.split(QLatin1Char('"'));
    return {parts.value(1).toUtf8(), parts.size() < 3,
            parts.constFirst().contains(QLatin1String("publish"), Qt::CaseInsensitive)};
}

/// All that it knows: a broker tells of the others of its cluster.
QStringList serversOf(const std::shared_ptr<Link> &link)
{
    QStringList servers;
    char **urls = nullptr;
    int count = 0;
    if (link && natsConnection_GetDiscoveredServers(link->handle(), &urls, &count) == NATS_OK) {
        for (int i = 0; i < count; ++i) {
            servers.append(QString::fromUtf8(urls[i]));
            std::free(urls[i]);
        }
        std::free(urls);
    }
    return servers;
}

QString serverOf(const Link &link)
{
    char url[256] = "";
    if (natsConnection_GetConnectedUrl(link.handle(), url, sizeof(url)) != NATS_OK)
        return {};
    return QString::fromUtf8(url);
}

} // namespace

Connection::Connection(NatsSettings settings, Log log) : m_settings(std::move(settings)), m_log(std::move(log)) {}

Connection::~Connection() = default;

void Connection::open(Watcher watcher, int msecs)
{
    m_watcher = std::move(watcher);
    nats_Open(0); // locks are waited for, and not spun on: those who hold one may be writing to a socket
    m_keeper.reset(QThread::create([this] { keep(); }));
    m_keeper->setObjectName(QStringLiteral("nats"));
    m_keeper->start();
    const QDeadlineTimer deadline(msecs);
    QMutexLocker locker(&m_mutex);
    while (!m_isReady && m_error.isNull() && m_changed.wait(&m_mutex, deadline)) {
    }
}

void Connection::listen(const QByteArray &subject, Listening::Kind kind, MessageHandler handler)
{
    if (subject.size() > MostSubjectBytes) {
        m_log.warn(QStringLiteral("not listened to, for it is too long: %1…").arg(QString::fromUtf8(subject.left(80))));
        return;
    }
    const Listening listening{subject, kind, std::make_shared<const MessageHandler>(std::move(handler))};
    std::shared_ptr<Link> link;
    {
        const QMutexLocker locker(&m_mutex);
        m_listenings.insert(subject, listening);
        link = m_link;
    }
    if (link && !link->listen(listening))
        m_log.warn(QStringLiteral("cannot listen to %1").arg(QString::fromUtf8(subject)));
}

void Connection::unlisten(const QByteArray &subject)
{
    std::shared_ptr<Link> link;
    {
        const QMutexLocker locker(&m_mutex);
        m_listenings.remove(subject);
        link = m_link;
    }
    if (link)
        link->drain(subject);
}

void Connection::flush(int msecs)
{
    const std::shared_ptr<Link> current = link();
    if (current && isConnected())
        current->flush(msecs);
}

natsStatus Connection::send(natsMsg *message, int *number)
{
    std::shared_ptr<Link> link;
    int connections = 0;
    {
        const QMutexLocker locker(&m_mutex);
        // A client that is not connected would keep the message, and send it when nobody waits for its answer any more.
        if (!isUsable())
            return NATS_CONNECTION_DISCONNECTED;
        link = m_link;
        connections = m_connections;
        if (number)
            *number = m_number;
    }
    const natsStatus status = natsConnection_PublishMsg(link->handle(), message);
    if (status == NATS_IO_ERROR)
        noteBroken(connections);
    return status;
}

bool Connection::waitConnected(const QDeadlineTimer &deadline, int patienceMs)
{
    QMutexLocker locker(&m_mutex);
    while (!isUsable() && !m_isEnding && m_lost.isValid()) {
        const qint64 left = std::min(deadline.remainingTime(), patienceMs - m_lost.elapsed());
        if (left <= 0)
            break;
        const qint64 doubtMs = m_doubt.remainingTime();
        m_changed.wait(&m_mutex, static_cast<unsigned long>(doubtMs > 0 ? std::min(left, doubtMs) : left));
    }
    return isUsable();
}

/// With the mutex.
bool Connection::isUsable() const { return m_isConnected && m_doubt.hasExpired(); }

bool Connection::isConnected() const
{
    const QMutexLocker locker(&m_mutex);
    return m_isConnected;
}

std::shared_ptr<Link> Connection::link() const
{
    const QMutexLocker locker(&m_mutex);
    return m_link;
}

int Connection::number() const
{
    const QMutexLocker locker(&m_mutex);
    return m_number;
}

void Connection::drain(const QDeadlineTimer &deadline)
{
    std::shared_ptr<Link> link;
    {
        const QMutexLocker locker(&m_mutex);
        m_isEnding = true;
        if (m_isConnected) // without a broker, the client library would wait for one
            link = m_link;
        m_changed.wakeAll();
    }
    if (link) {
        link->drainRequests();
        link->waitDrained(deadline);
    }
}

bool Connection::close(const QDeadlineTimer &deadline)
{
    std::shared_ptr<Link> link;
    {
        const QMutexLocker locker(&m_mutex);
        m_isEnding = true;
        m_isConnected = false;
        link = m_link; // stays: others may be sending by it
        m_changed.wakeAll();
    }
    const bool isClosed = !link || link->close(deadline);
    const bool isKept =
        m_keeper && !m_keeper->wait(static_cast<unsigned long>(std::max<qint64>(deadline.remainingTime(), 1)));
    const QMutexLocker locker(&m_mutex);
    return isClosed && !isKept && m_isAllLeft;
}

QJsonObject Connection::describe() const
{
    std::shared_ptr<Link> link;
    QJsonObject result;
    {
        const QMutexLocker locker(&m_mutex);
        link = m_link;
        const QString state = m_isConnected ? QStringLiteral("connected")
                                            : (m_isEnding ? QStringLiteral("closed") : QStringLiteral("connecting"));
        result = {{QStringLiteral("state"), state}, {QStringLiteral("reconnects"), std::max(m_connections - 1, 0)}};
        if (m_since.isValid())
            result.insert(QStringLiteral("since"), m_since.toString(Qt::ISODateWithMs));
        if (!m_error.isNull())
            result.insert(QStringLiteral("error"), m_error);
    }
    if (link && link->isConnected())
        result.insert(QStringLiteral("server"), serverOf(*link));
    return result;
}

/// Makes links, until the end.
void Connection::keep()
{
    QMutexLocker locker(&m_mutex);
    while (!m_isEnding) {
        if (!m_isAnotherWanted) {
            m_changed.wait(&m_mutex);
            continue;
        }
        m_isAnotherWanted = false;
        const int number = m_number + 1;
        locker.unlock();
        const std::shared_ptr<Link> link = make(number);
        const bool isMoved = link && moveTo(link, number);
        locker.relock();
        if (!isMoved && !m_isEnding) {
            m_isAnotherWanted = true;
            m_changed.wait(&m_mutex, AgainMs);
        }
    }
}

std::shared_ptr<Link> Connection::make(int number)
{
    QString problem;
    const NatsOptions options = brokerOptions(m_settings, serversOf(link()), &problem);
    if (!options) {
        noteFailed(number, NATS_ERR, problem);
        return {};
    }
    auto link = std::make_shared<Link>(eventsOf(number));
    const natsStatus status = link->open(options.get());
    if (status == NATS_OK)
        return link;
    noteFailed(number, status, QStringLiteral("cannot connect: %1").arg(QLatin1String(natsStatus_GetText(status))));
    return {};
}

/// Has `link` take the place of the one before it; not if it is lost already.
bool Connection::moveTo(const std::shared_ptr<Link> &link, int number)
{
    listen(*link, [](Listening::Kind kind) { return kind == Listening::Answers; }); // before anything is asked by it
    std::shared_ptr<Link> before;
    bool isTaken = false;
    {
        const QMutexLocker locker(&m_mutex);
        isTaken = !m_isEnding && link->isConnected();
        if (isTaken) {
            before = std::exchange(m_link, link);
            m_number = number;
            m_isConnected = true;
            m_doubt = {};
            m_changed.wakeAll();
        }
    }
    if (!isTaken) {
        letGo(link, QDeadlineTimer(MoveMs));
        return false;
    }
    listen(*link, [](Listening::Kind) { return true; });
    link->flush(FlushMs);
    {
        QMutexLocker locker(&m_mutex);
        m_isReady = true;
        m_isConnected = link->isConnected(); // nobody has told before it was ours
        m_isAnotherWanted = natsConnection_IsClosed(link->handle());
        m_changed.wakeAll();
        if (before && !m_isEnding)
            m_changed.wait(&m_mutex, SpreadMs);
    }
    letGo(before, QDeadlineTimer(MoveMs));
    return true;
}

/// Has `link` listen to what is listened to now.
template <class Wanted>
void Connection::listen(Link &link, Wanted isWanted)
{
    QHash<QByteArray, Listening> listenings;
    {
        const QMutexLocker locker(&m_mutex);
        listenings = m_listenings;
    }
    for (const Listening &listening : qAsConst(listenings)) {
        if (isWanted(listening.kind))
            link.listen(listening);
    }
    QList<QByteArray> given;
    {
        const QMutexLocker locker(&m_mutex);
        for (const Listening &listening : qAsConst(listenings)) {
            if (!m_listenings.contains(listening.subject))
                given.append(listening.subject);
        }
    }
    for (const QByteArray &subject : qAsConst(given)) // up meanwhile
        link.drain(subject);
}

void Connection::letGo(const std::shared_ptr<Link> &link, const QDeadlineTimer &deadline)
{
    if (!link)
        return;
    if (link->isConnected()) {
        link->drainAll();
        link->waitDrained(deadline);
    }
    if (link->close(deadline))
        return;
    keepForGood(link);
    const QMutexLocker locker(&m_mutex);
    m_isAllLeft = false;
}

Link::Events Connection::eventsOf(int number)
{
    return {[this, number] { noteConnected(number); }, [this, number] { noteLost(number); },
            [this, number] {
                m_log.info(QStringLiteral("the broker is about to stop"));
                wantAnother(number);
            },
            [this, number] {
                noteLost(number);
                wantAnother(number);
            },
            [this, number](natsStatus status, const QString &text) { noteFailed(number, status, text); }};
}

void Connection::noteConnected(int number)
{
    {
        const QMutexLocker locker(&m_mutex);
        if (number == m_number) {
            m_isConnected = !m_isEnding;
            m_doubt = {};
            m_isAnotherWanted = false; // by itself, it has found a broker that stays
        }
        m_error.clear();
        m_since = QDateTime::currentDateTime();
        ++m_connections;
        m_changed.wakeAll();
    }
    m_log.info(QStringLiteral("connected, as %1").arg(m_settings.name));
}

void Connection::noteLost(int number)
{
    bool isNews = false;
    {
        const QMutexLocker locker(&m_mutex);
        isNews = number == m_number && m_isConnected;
        if (isNews) {
            m_isConnected = false;
            m_lost.start();
            m_since = QDateTime::currentDateTime();
            m_changed.wakeAll();
        }
    }
    m_watcher.lost(number);
    if (isNews)
        m_log.info(QStringLiteral("the connection is lost"));
}

/// Nothing can be sent any more, but nobody has told so yet. `connections` is how many there had been until then.
void Connection::noteBroken(int connections)
{
    const QMutexLocker locker(&m_mutex);
    if (connections != m_connections || !m_isConnected)
        return;
    m_doubt.setRemainingTime(DoubtMs);
    m_lost.start();
}

void Connection::noteFailed(int number, natsStatus status, const QString &text)
{
    const Denial denial = status == NATS_NOT_PERMITTED ? denialIn(text) : Denial();
    bool isNews = false;
    {
        const QMutexLocker locker(&m_mutex);
        isNews = number >= m_number && m_error != text;
        if (denial.subject.isEmpty() && !m_isConnected) {
            m_error = text;
            m_changed.wakeAll();
        }
    }
    if (!denial.subject.isEmpty())
        m_watcher.denied(denial);
    if (isNews && !(status == NATS_NOT_PERMITTED && denial.isToPublish)) // of which the call tells
        m_log.warn(text);
}

void Connection::wantAnother(int number)
{
    const QMutexLocker locker(&m_mutex);
    if (number >= m_number) { // greater: it is just to take the place of that one
        m_isAnotherWanted = true;
        m_changed.wakeAll();
    }
}
