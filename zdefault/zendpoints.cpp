// SPDX-License-Identifier: Apache-2.0
#include "zendpoints.h"

#include <QCoreApplication>
#include <QMutexLocker>

namespace {

QBasicMutex mutex; // guards what follows, and the list of all

const QCoreApplication *heard = nullptr; // whose quit we hear of

} // namespace

void ZEndpoints::add(const QVector<ZEndpoint::Private *> &endpoints)
{
    QCoreApplication *const application = QCoreApplication::instance();
    const QMutexLocker locker(&mutex);
    for (ZEndpoint::Private *endpoint : endpoints) {
        all().removeAll(endpoint); // it has been here before, and has let go
        all().append(endpoint);
    }
    if (!application || application == heard)
        return;
    heard = application;
    QObject::connect(application, &QCoreApplication::aboutToQuit, application, [] { letGo(of(nullptr)); });
    QObject::connect(application, &QObject::destroyed, application, [] {
        const QMutexLocker gone(&mutex);
        heard = nullptr;
    });
}

void ZEndpoints::remove(ZEndpoint::Private *endpoint)
{
    const QMutexLocker locker(&mutex);
    all().removeAll(endpoint);
}

ZEndpoints::Held ZEndpoints::before(const ZEndpoint::Private *endpoint)
{
    bool isEarlier = true; // they are in the order in which they were entered
    const QVector<Held> earlier = select([&](const ZEndpoint::Private *each) {
        isEarlier = isEarlier && each != endpoint;
        return isEarlier && each->dbus == endpoint->dbus && each->key == endpoint->key && each->mayBeReplaced();
    });
    return earlier.isEmpty() ? Held() : earlier.last();
}

QVector<ZEndpoints::Held> ZEndpoints::of(const ZDbus *dbus)
{
    return select([&](const ZEndpoint::Private *each) { return !dbus || each->dbus == dbus; });
}

QStringList ZEndpoints::busy(const ZDbus *dbus)
{
    QStringList urls;
    const QMutexLocker locker(&mutex);
    for (const ZEndpoint::Private *each : qAsConst(all())) {
        if (each->dbus == dbus && each->gate.isBusy())
            urls.append(each->url.toString());
    }
    return urls;
}

void ZEndpoints::letGo(const QVector<Held> &endpoints)
{
    const QVector<Held> closing = close(endpoints);
    if (!ZGate::isAwaitedHere()) { // else somebody who lets go may wait for us
        QVector<ZGate *> gates;
        for (const Held &each : closing)
            gates.append(&each.endpoint->gate);
        ZGate::drain(gates, ZGate::Closed, QDeadlineTimer(PatienceMs));
        for (const Held &each : closing)
            each.endpoint->warnIfBusy();
    }
    drop(closing);
}

QVector<ZEndpoints::Held> ZEndpoints::close(const QVector<Held> &endpoints)
{
    QVector<Held> closing;
    for (const Held &each : endpoints) {
        if (each.self && each.endpoint->close())
            closing.append(each);
    }
    return closing;
}

void ZEndpoints::drop(const QVector<Held> &closing)
{
    for (const Held &each : closing)
        each.endpoint->drop();
}

QVector<ZEndpoint::Private *> &ZEndpoints::all() // never destroyed: an application that ends leaves some of them behind
{
    static auto &instance = *new QVector<ZEndpoint::Private *>;
    return instance;
}

template <class Predicate>
QVector<ZEndpoints::Held> ZEndpoints::select(Predicate isWanted)
{
    QVector<Held> result;
    const QMutexLocker locker(&mutex);
    for (ZEndpoint::Private *each : qAsConst(all())) {
        if (!isWanted(each))
            continue;
        if (const QSharedPointer<ZDbusSubscriber> self = each->self())
            result.append({each, self});
    }
    return result;
}
