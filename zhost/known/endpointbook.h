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
 * What is bound on the host's bus, and whose it is. Nobody is asked for it, so it can be read while the bus is held.
 *
 * Ownership: none of a subscriber.
 * Thread:    any.
 */
class EndpointBook
{
public:
    void bound(const QUrl &url, const QWeakPointer<ZDbusSubscriber> &subscriber);

    QJsonArray describe() const;
    /// The endpoints of `file` that are alive, also those in whose place another one has been bound. Whoever has one
    /// keeps it alive.
    QVector<QPair<QUrl, QSharedPointer<ZDbusSubscriber>>> endpoints(const QString &file) const;
    /// Where they can be called.
    QStringList addresses(const QString &file) const;
    /// Those at which there is another by now as well.
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
    QMultiHash<QString, Endpoint> m_endpoints; // by address, the last first; some are dead
    int m_room = 64;
};

/// A bus that enters in a book what is bound on it.
class RecordingDbus : public ZDefaultDbus
{
public:
    explicit RecordingDbus(EndpointBook *book) : m_book(book) {}
    bool bind0(const QUrl &url, QWeakPointer<ZDbusSubscriber> subscriber) override;

private:
    EndpointBook *const m_book;
};
