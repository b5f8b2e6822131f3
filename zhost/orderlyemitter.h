// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QMutex>
#include <QVector>
#include <QWeakPointer>

#include <zdefaultemitter.h>

class WiringBook;

/**
 * An emitter whose services go one by one, the last that came first, and each with all that it leaves behind.
 *
 * What is left behind are objects that are to be deleted later. One of them may be the last to hold a plugin, as the
 * object of a thread that has ended is, and what it deletes may use any service: so it goes while those that came
 * before are still there.
 */
class OrderlyEmitter : public ZDefaultEmitter
{
    Q_OBJECT

public:
    /// What is wired is entered in `book`, which must live longer.
    explicit OrderlyEmitter(WiringBook *book) : m_book(book) {}

    QSharedPointer<ZReference> bind0(QSharedPointer<ZDelegate> delegate) override;

    /// Lets go of all services. To be called on the application's thread, when all that was scheduled has ended; jobs
    /// may still run, and are waited for as their pools go. Afterwards the caller's is the last share in this object.
    void end();

    /// Handles what is posted to objects of the calling thread, and what that posts, deletions included, until nothing
    /// more comes, or it seems to come for ever.
    static void settle();

protected:
    void bound(int interfaceType, const QSharedPointer<QObject> &component) override;
    void injected(QObject *object, const QMetaProperty &property, bool isGiven) override;

private:
    QSharedPointer<ZDelegate> takeLast();

    WiringBook *const m_book;
    QMutex m_mutex;                               // guards m_delegates, and is held during no call
    QVector<QWeakPointer<ZDelegate>> m_delegates; // in the order in which they came; those that were not filed die
};
