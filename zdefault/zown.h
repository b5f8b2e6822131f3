// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "zeventloop.h"

#include <QObject>
#include <QSharedPointer>

/// Room that keeps the counts of one owner off the cache lines of the next: every call through a delegate counts, and
/// calls of two components must not wait for each other.
struct ZOwnLine
{
    char room[112];
};

/// Makes a pointer the one owner of `object`, which is deleted where its last holder lets go.
inline QSharedPointer<QObject> zOwn(QObject *object)
{
    struct Deleter
    {
        ZOwnLine line;

        void operator()(QObject *owned) const { delete owned; }
    };
    return object ? QSharedPointer<QObject>(object, Deleter()) : QSharedPointer<QObject>();
}

/// The same, but `object` is deleted on the thread in which it lives: see `zLetGoAtHome`.
inline QSharedPointer<QObject> zOwnAtHome(QObject *object)
{
    struct Deleter
    {
        ZOwnLine line;

        void operator()(QObject *owned) const { zLetGoAtHome(owned, std::shared_ptr<QObject>(owned)); }
    };
    return object ? QSharedPointer<QObject>(object, Deleter()) : QSharedPointer<QObject>();
}
