// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "zendpointprivate.h"

#include <QStringList>

/**
 * The endpoints of this process.
 *
 * Ownership: none of them.
 * Thread:    any.
 * Failure:   what does not end in time is waited for no longer.
 */
class ZEndpoints
{
public:
    /// One of them, and what keeps it.
    struct Held
    {
        ZEndpoint::Private *endpoint = nullptr;
        QSharedPointer<ZDbusSubscriber> self;
    };

    static constexpr int PatienceMs = 5000; // with what runs in one that is to end

    /// From when they hold themselves until each is destroyed: a plugin's all at once. They let go when the application
    /// quits.
    static void add(const QVector<ZEndpoint::Private *> &endpoints);
    static void remove(ZEndpoint::Private *endpoint);

    /// The last of those that were entered before this one under the same URL of the same bus. None if there is none.
    static Held before(const ZEndpoint::Private *endpoint);
    /// Those that hold themselves and are called over this bus; all where it is null.
    static QVector<Held> of(const ZDbus *dbus);
    /// The URLs of those called over this bus in which something runs, also of those that have let go.
    static QStringList busy(const ZDbus *dbus);

    /// Has these let go, all at once.
    static void letGo(const QVector<Held> &endpoints);
    /// Has these begin to let go, and answers those that do, for the caller to wait for what runs in them.
    static QVector<Held> close(const QVector<Held> &endpoints);
    /// Has these, which have begun to, let go now.
    static void drop(const QVector<Held> &closing);

private:
    static QVector<ZEndpoint::Private *> &all();
    template <class Predicate>
    static QVector<Held> select(Predicate isWanted);
};
