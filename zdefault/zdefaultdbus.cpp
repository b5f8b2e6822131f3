// SPDX-License-Identifier: Apache-2.0
#include "zdefaultdbus.h"

#include "zparking.h"
#include "ztypename.h"
#include "zwiring.h"

#include <QMutexLocker>
#include <QScopeGuard>
#include <QScopedValueRollback>
#include <QStringList>
#include <QVector>

namespace {

enum LineKind
{
    TableChanged = 4,
    Called = 8
};

QString hostOf(const QUrl &url) { return url.host(QUrl::FullyDecoded); }

QString keyOf(const QString &host, const QString &path = QString())
{
    QString key;
    key.reserve(2 + host.size() + path.size());
    return key.append(QLatin1String("//")).append(host).append(path);
}

QString keyOf(const QString &host, const QUrl &url) { return keyOf(host, url.path(QUrl::FullyDecoded)); }

/// A call of `reach0` on this thread, and whether it has reached an endpoint.
struct Reach
{
    const ZDefaultDbus *bus;
    bool isReached = false;
};

thread_local Reach *reach = nullptr; // the innermost; null if there is none

void noteReached(const ZDefaultDbus *bus)
{
    if (reach && reach->bus == bus)
        reach->isReached = true;
}

void tellGone(const ZNamedLogger &log, const QString &key)
{
    log.log(TableChanged, [&] { return QStringLiteral("(-) %1").arg(key); });
}

} // namespace

const char *zDefaultDbusTypeName() { return zTypeName<ZDefaultDbus>("ZDefaultDbus*"); }

const char *const ZDefaultDbus::TypeName = zDefaultDbusTypeName();

ZDefaultDbus::ZDefaultDbus() = default;

bool ZDefaultDbus::bind0(const QUrl &url, QWeakPointer<ZDbusSubscriber> subscriber)
{
    const QString host = hostOf(url);
    if (host.isEmpty())
        return false;
    const QString key = keyOf(host, url);
    const QMutexLocker locker(&m_mutex);
    m_endpoints.insert(key, subscriber);
    m_log.log(TableChanged, [&] { return QStringLiteral("(+) %1").arg(key); });
    return true;
}

bool ZDefaultDbus::find0(const QUrl &url)
{
    const QString key = keyOf(hostOf(url), url);
    const QMutexLocker locker(&m_mutex);
    return m_endpoints.contains(key);
}

QList<QUrl> ZDefaultDbus::findAll0(const QRegularExpression &re)
{
    QList<QUrl> urls;
    if (!re.isValid())
        return urls;
    forEachAlive([&](const QString &key, ZDbusSubscriber &) {
        if (re.match(key).hasMatch())
            urls.append(QUrl(key));
    });
    return urls;
}

bool ZDefaultDbus::invoke0(const QUrl &url, QJsonObject *in, QJsonObject *out)
{
    if (!url.hasFragment())
        m_log.log(Called, [&] { return QStringLiteral("(>) %1").arg(url.toString()); });
    const QString host = hostOf(url);
    if (host.isEmpty())
        return invokeAll([](const QString &) { return true; }, url, in, out) == Handled;
    const QSharedPointer<ZDbusSubscriber> subscriber = take(host, url);
    if (!subscriber)
        return false;
    noteReached(this);
    return subscriber->invoked(url, in, out);
}

ZDbusReach::Reached ZDefaultDbus::reach0(const QUrl &url, QJsonObject *in, QJsonObject *out)
{
    Reach mine{this};
    const QScopedValueRollback<Reach *> innermost(reach, &mine);
    if (invoke0(url, in, out))
        return Handled;
    return mine.isReached ? Refused : Nobody;
}

ZDbusReach::Reached ZDefaultDbus::reachAll0(const QRegularExpression &re, const QUrl &url, QJsonObject *in,
                                            QJsonObject *out)
{
    if (!re.isValid())
        return Nobody;
    return invokeAll([&](const QString &key) { return re.match(key).hasMatch(); }, url, in, out);
}

ZLogger *ZDefaultDbus::getSetZLogger(ZLogger *logger)
{
    if (logger)
        m_log = ZNamedLogger(logger, QStringLiteral("zdefault"));
    return logger;
}

ZEmitter *ZDefaultDbus::getSetZEmitter(ZEmitter *emitter) { return zAnnounce<ZDbusDelegate>(this, emitter); }

template <class Wanted>
ZDbusReach::Reached ZDefaultDbus::invokeAll(Wanted isWanted, const QUrl &url, QJsonObject *in, QJsonObject *out)
{
    Reached reached = Nobody;
    forEachAlive([&](const QString &key, ZDbusSubscriber &subscriber) {
        if (!isWanted(key))
            return;
        if (!url.hasFragment())
            m_log.log(Called, [&] { return QStringLiteral("(>) %1 (%2)").arg(url.toString(), key); });
        noteReached(this);
        if (subscriber.invoked(url, in, out))
            reached = Handled;
        else if (reached == Nobody)
            reached = Refused;
    });
    return reached;
}

/// The subscriber to call: the one bound to just this address, else the one bound to the bare host.
QSharedPointer<ZDbusSubscriber> ZDefaultDbus::take(const QString &host, const QUrl &url)
{
    const QString key = keyOf(host, url);
    const QMutexLocker locker(&m_mutex);
    auto endpoint = m_endpoints.find(key);
    if (endpoint == m_endpoints.end())
        endpoint = m_endpoints.find(keyOf(host));
    if (endpoint == m_endpoints.end())
        return {};
    QSharedPointer<ZDbusSubscriber> subscriber = endpoint->toStrongRef();
    if (!subscriber)
        forget(endpoint);
    return subscriber;
}

/// Forgets an endpoint whose subscriber is gone, and returns the one after it.
ZDefaultDbus::Endpoints::iterator ZDefaultDbus::forget(Endpoints::iterator endpoint)
{
    tellGone(m_log, endpoint.key());
    return m_endpoints.erase(endpoint);
}

template <class Call>
void ZDefaultDbus::forEachAlive(Call call)
{
    QVector<QSharedPointer<ZDbusSubscriber>> held; // released at the end: a destructor may call the bus
    QStringList gone;
    const ZParking parking; // what is called may run an event loop
    const QMutexLocker locker(&m_mutex);
    const auto forgetGone = qScopeGuard([&] { // after the walk, even if a subscriber's exception ends it
        for (const QString &key : qAsConst(gone))
            m_endpoints.remove(key);
    });
    held.reserve(m_endpoints.size());
    for (auto endpoint = m_endpoints.cbegin(); endpoint != m_endpoints.cend(); ++endpoint) {
        if (QSharedPointer<ZDbusSubscriber> subscriber = endpoint->toStrongRef()) {
            held.append(std::move(subscriber));
            call(endpoint.key(), *held.constLast());
        } else {
            gone.append(endpoint.key());
            tellGone(m_log, endpoint.key());
        }
    }
}

ZDbusDelegate::ZDbusDelegate(QObject *object) : ZDelegate(refer(object)) { provide<ZDbus>(this); }

ZDbusDelegate::ZDbusDelegate(QSharedPointer<QObject> object) : ZDelegate(refer(std::move(object)))
{
    provide<ZDbus>(this);
}

bool ZDbusDelegate::bind0(const QUrl &url, QWeakPointer<ZDbusSubscriber> subscriber)
{
    return forward(&ZDbus::bind0, false, url, subscriber);
}

bool ZDbusDelegate::find0(const QUrl &url) { return forward(&ZDbus::find0, false, url); }

QList<QUrl> ZDbusDelegate::findAll0(const QRegularExpression &re) { return forward(&ZDbus::findAll0, {}, re); }

bool ZDbusDelegate::invoke0(const QUrl &url, QJsonObject *in, QJsonObject *out)
{
    return forward(&ZDbus::invoke0, false, url, in, out);
}

ZDbusReach::Reached ZDbusReachDelegate::reach0(const QUrl &url, QJsonObject *in, QJsonObject *out)
{
    return call(&ZDbusReach::reach0, Unsupported, url, in, out);
}

ZDbusReach::Reached ZDbusReachDelegate::reachAll0(const QRegularExpression &re, const QUrl &url, QJsonObject *in,
                                                  QJsonObject *out)
{
    return call(&ZDbusReach::reachAll0, Unsupported, re, url, in, out);
}
