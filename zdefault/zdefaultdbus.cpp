// SPDX-License-Identifier: Apache-2.0
#include "zdefaultdbus.h"

#include "zparking.h"
#include "ztypename.h"
#include "zwiring.h"

#include <QMutexLocker>
#include <QScopeGuard>
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
        return invokeAll(url, in, out);
    const QSharedPointer<ZDbusSubscriber> subscriber = take(host, url);
    return subscriber && subscriber->invoked(url, in, out);
}

ZLogger *ZDefaultDbus::getSetZLogger(ZLogger *logger)
{
    if (logger)
        m_log = ZNamedLogger(logger, QStringLiteral("zdefault"));
    return logger;
}

ZEmitter *ZDefaultDbus::getSetZEmitter(ZEmitter *emitter) { return zAnnounce<ZDbusDelegate>(this, emitter); }

bool ZDefaultDbus::invokeAll(const QUrl &url, QJsonObject *in, QJsonObject *out)
{
    bool handled = false;
    forEachAlive([&](const QString &key, ZDbusSubscriber &subscriber) {
        if (!url.hasFragment())
            m_log.log(Called, [&] { return QStringLiteral("(>) %1 (%2)").arg(url.toString(), key); });
        handled |= subscriber.invoked(url, in, out);
    });
    return handled;
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
