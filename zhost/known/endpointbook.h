// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QDateTime>
#include <QJsonArray>
#include <QMultiHash>
#include <QMutex>
#include <QPair>
#include <QStringList>
#include <QUrl>
#include <QVector>
#include <QWeakPointer>

#include <zdefaultdbus.h>

/**
 * Records what is bound on the host's bus, and to which plugin it belongs. It does not ask the bus, so it can be read
 * while the bus is locked.
 *
 * Ownership: owns no subscriber.
 * Thread:    any.
 */
class EndpointBook
{
public:
    void bound(const QUrl &url, const QWeakPointer<ZDbusSubscriber> &subscriber);

    QJsonArray describe() const;
    /// Whether an endpoint is bound at `address`, and is alive.
    bool isThere(const QString &address) const;
    /// The endpoints of `file` that are alive, also those in whose place another one has been bound. The returned
    /// pointers keep them alive.
    QVector<QPair<QUrl, QSharedPointer<ZDbusSubscriber>>> endpoints(const QString &file) const;
    /// The addresses at which they can be called.
    QStringList addresses(const QString &file) const;
    /// The same, with the addresses at which there is another endpoint by now.
    QStringList allAddresses(const QString &file) const;

private:
    struct Endpoint
    {
        QUrl url;
        QWeakPointer<ZDbusSubscriber> subscriber;
        QString file;
        QDateTime since;
    };

    void forgetDead();

    mutable QMutex m_mutex;                    // guards all that follow
    QMultiHash<QString, Endpoint> m_endpoints; // by address, the last first; some are gone
    int m_room = 64;
};

/// A bus that records in a book what is bound on it.
class RecordingDbus : public ZDefaultDbus
{
public:
    explicit RecordingDbus(EndpointBook *book) : m_book(book) {}
    bool bind0(const QUrl &url, QWeakPointer<ZDbusSubscriber> subscriber) override;

private:
    EndpointBook *const m_book;
};
