// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "zglobal.h"

#include <QObject>
#include <QSharedPointer>
#include <QWeakPointer>

#include <type_traits>

class ZOwned;

/// Qt tells this base of each `QSharedPointer` that is made from a raw pointer to the object. Qt's own version takes
/// pointers of one type; ours takes those to any of a component's bases.
template <>
class QEnableSharedFromThis<ZOwned>
{
protected:
    mutable QWeakPointer<QObject> m_owner;
    mutable bool m_hadOwner = false; // one that is being destroyed by its owner gets no other

private:
    template <class Pointee>
    friend class QSharedPointer;

    template <class Pointee>
    void initializeFromSharedPointer(const QSharedPointer<Pointee> &pointer) const
    {
        if (m_hadOwner)
            return;
        if constexpr (std::is_convertible_v<Pointee *, QObject *>)
            m_owner = pointer;
        else if constexpr (std::is_polymorphic_v<Pointee>)
            m_owner = qSharedPointerDynamicCast<QObject>(pointer);
        m_hadOwner = !m_owner.isNull();
    }
};

/**
 * A component that knows its one owner.
 *
 * Qt does not notice a second `QSharedPointer` made from one raw pointer, and the object would be deleted twice. A
 * component may well be announced more than once, so it derives from this class beside `QObject`, and a delegate
 * that is given it by raw pointer shares the owner that there is.
 *
 * Ownership: on the heap, without a parent; the first `QSharedPointer` that is made from a pointer to the component's
 *            class, or else the one that `shared()` makes.
 * Thread:    any.
 * Failure:   null when it cannot be shared any more.
 */
class ZDEFAULT_EXPORT ZOwned : public QEnableSharedFromThis<ZOwned>
{
public:
    ZOwned();
    virtual ~ZOwned();

    /// This component as its one owner has it; if it has none yet, one that destroys it on the thread in which it
    /// lives, if that is another one with an event loop than where the last holder lets go. Nobody may delete it by
    /// other means afterwards.
    virtual QSharedPointer<QObject> shared();

protected:
    /// The same, but an owner that is made here destroys it where its last holder lets go.
    QSharedPointer<QObject> owned();
    /// The owner, if there is one: for an operation that is not called through a delegate, and in which the component
    /// may be exchanged.
    QSharedPointer<QObject> held() const;

private:
    Q_DISABLE_COPY(ZOwned)
    friend class ZDelegate;

    QSharedPointer<QObject> own(QSharedPointer<QObject> (*makeOwner)(QObject *));
};
