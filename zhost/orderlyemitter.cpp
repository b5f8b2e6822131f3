// SPDX-License-Identifier: Apache-2.0
#include "orderlyemitter.h"

#include "known/wiringbook.h"

#include <QCoreApplication>
#include <QMutexLocker>

#include <algorithm>

QSharedPointer<ZReference> OrderlyEmitter::bind0(QSharedPointer<ZDelegate> delegate)
{
    QSharedPointer<ZReference> before = ZDefaultEmitter::bind0(delegate);
    const QMutexLocker locker(&m_mutex);
    m_delegates.erase(std::remove(m_delegates.begin(), m_delegates.end(), nullptr), m_delegates.end());
    if (delegate)
        m_delegates.append(delegate);
    return before;
}

void OrderlyEmitter::bound(int interfaceType, const QSharedPointer<QObject> &component)
{
    m_book->bound(interfaceType, component);
}

void OrderlyEmitter::injected(QObject *object, const QMetaProperty &property, bool isGiven)
{
    m_book->injected(object, property, isGiven);
}

void OrderlyEmitter::end()
{
    settle();
    while (const QSharedPointer<ZDelegate> delegate = takeLast()) {
        while (delegate->replace({})) // one may put another in its place as it dies
            settle();
    }
}

void OrderlyEmitter::settle()
{
    // Each round handles what the one before has posted. An empty one takes next to no time; who posts to himself for
    // ever is not waited for.
    constexpr int Rounds = 100;
    for (int round = 0; round < Rounds; ++round) {
        QCoreApplication::sendPostedEvents();
        QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
    }
}

/// Null when none is left.
QSharedPointer<ZDelegate> OrderlyEmitter::takeLast()
{
    const QMutexLocker locker(&m_mutex);
    QSharedPointer<ZDelegate> delegate;
    while (!delegate && !m_delegates.isEmpty())
        delegate = m_delegates.takeLast().toStrongRef();
    return delegate;
}
