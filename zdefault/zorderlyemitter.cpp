// SPDX-License-Identifier: Apache-2.0
#include "zorderlyemitter.h"

#include <QCoreApplication>
#include <QMutexLocker>

#include <algorithm>

ZOrderlyEmitter::ZOrderlyEmitter() = default;

ZOrderlyEmitter::~ZOrderlyEmitter() = default;

QSharedPointer<ZReference> ZOrderlyEmitter::bind0(QSharedPointer<ZDelegate> delegate)
{
    QSharedPointer<ZReference> before = ZDefaultEmitter::bind0(delegate);
    const QMutexLocker locker(&m_mutex);
    m_delegates.erase(std::remove(m_delegates.begin(), m_delegates.end(), nullptr), m_delegates.end());
    if (delegate)
        m_delegates.append(delegate);
    return before;
}

void ZOrderlyEmitter::end(const ZDelegate *first)
{
    settle();
    while (const QSharedPointer<ZDelegate> delegate = takeLast(first)) {
        while (delegate->replace({})) // a component may put another one in its place while it is destroyed
            settle();
    }
}

void ZOrderlyEmitter::settle()
{
    // Each round handles the events that the one before has posted. An empty round takes almost no time. The number is
    // limited, since an object may post events to itself for ever.
    constexpr int Rounds = 100;
    for (int round = 0; round < Rounds; ++round) {
        QCoreApplication::sendPostedEvents();
        QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
    }
}

/// Takes the service that came last; null when none is left that came after `first`.
QSharedPointer<ZDelegate> ZOrderlyEmitter::takeLast(const ZDelegate *first)
{
    const QMutexLocker locker(&m_mutex);
    QSharedPointer<ZDelegate> delegate;
    while (!delegate && !m_delegates.isEmpty()) {
        delegate = m_delegates.constLast().toStrongRef();
        if (delegate && delegate == first)
            return {};
        m_delegates.removeLast();
    }
    return delegate;
}
