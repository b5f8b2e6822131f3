// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "zdefaultemitter.h"

#include <QMutex>
#include <QVector>
#include <QWeakPointer>

/**
 * An emitter that destroys its services one by one, in reverse order, each with all that it leaves behind.
 *
 * A service leaves behind objects that are to be deleted later. One of these may be the last to hold a plugin, such as
 * the object of a thread that has ended; and a plugin may use any service when it is destroyed. So these objects are
 * deleted while the services that came before are still there. Otherwise as `ZDefaultEmitter`.
 */
class ZDEFAULT_EXPORT ZOrderlyEmitter : public ZDefaultEmitter
{
    Q_OBJECT

public:
    ZOrderlyEmitter();
    ~ZOrderlyEmitter() override;

    QSharedPointer<ZReference> bind0(QSharedPointer<ZDelegate> delegate) override;

    /// Lets go of all services that came after `first`. If `first` is null, lets go of all: then the caller has the
    /// last share of this object. Call it on the application's thread, when everything that was scheduled has ended.
    /// Jobs may still run: they are waited for when their pools are destroyed.
    void end(const ZDelegate *first = nullptr);

    /// Handles the events that are posted to objects of the calling thread, deletions included, and the events that
    /// these post in turn. Ends when no more come, or when they seem never to end.
    static void settle();

private:
    QSharedPointer<ZDelegate> takeLast(const ZDelegate *first);

    QMutex m_mutex;                               // guards m_delegates, and is held during no call
    QVector<QWeakPointer<ZDelegate>> m_delegates; // in the order in which they came; some may be gone
};
