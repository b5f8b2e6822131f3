// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "zglobal.h"

#include <QObject>
#include <QSharedPointer>
#include <QWeakPointer>

#include <type_traits>

class ZOwned;

/// Notes the owner of an object. Qt calls this base when a `QSharedPointer` is made from a raw pointer to the object.
/// Qt's own version works for pointers of one type only; this one works for pointers to any base of a component.
template <>
class QEnableSharedFromThis<ZOwned>
{
protected:
    /// How many owners there were. Plugins that are built with older headers read a `bool` here: so `None` is 0, and
    /// the other values are odd.
    enum class Owners : quint8
    {
        None = 0,
        One = 1, ///< the owner may be gone already: an object that is being destroyed gets no other owner
        Two = 3  ///< a second owner beside the first; each of them would delete the object
    };

    mutable QWeakPointer<QObject> m_owner; // the first owner
    mutable Owners m_owners = Owners::None;

private:
    template <class Pointee>
    friend class QSharedPointer;

    template <class Pointee>
    void initializeFromSharedPointer(const QSharedPointer<Pointee> &pointer) const
    {
        if (m_owners != Owners::None) {
            if (m_owner)
                m_owners = Owners::Two;
            return;
        }
        if constexpr (std::is_convertible_v<Pointee *, QObject *>)
            m_owner = pointer;
        else if constexpr (std::is_polymorphic_v<Pointee>)
            m_owner = qSharedPointerDynamicCast<QObject>(pointer);
        m_owners = m_owner ? Owners::One : Owners::None;
    }
};

/**
 * A component that knows its only owner.
 *
 * If two `QSharedPointer` are made from one raw pointer, Qt does not notice, and the object is deleted twice. A
 * component may well be announced more than once. So it derives from this class, beside `QObject`: then a delegate that
 * is given the raw pointer shares the owner that exists. A delegate that is given a second owner also shares the first
 * one. It keeps the second owner from ever deleting the component, and the emitter to which it is bound logs a warning.
 *
 * Ownership: the component is on the heap, and has no parent. Its owner is the first `QSharedPointer` that is made from
 *            a pointer to its class, or else the one that `shared()` makes.
 * Thread:    any.
 * Failure:   null when it cannot be shared any more.
 */
class ZDEFAULT_EXPORT ZOwned : public QEnableSharedFromThis<ZOwned>
{
public:
    ZOwned();
    virtual ~ZOwned();

    /// This component, shared with its only owner. If it has no owner yet, one is made, and nobody may delete the
    /// component by other means afterwards. That owner destroys the component when the last holder lets go: on the
    /// thread in which the component lives, if that is another one and has an event loop; else at once.
    virtual QSharedPointer<QObject> shared();

protected:
    /// The same, but an owner that is made here destroys the component on the thread of the last holder, at once.
    QSharedPointer<QObject> owned();
    /// The owner, if there is one. Hold it in an operation that is not called through a delegate, and in which the
    /// component may be exchanged.
    QSharedPointer<QObject> held() const;

private:
    Q_DISABLE_COPY(ZOwned)
    friend class ZDelegate;

    QSharedPointer<QObject> own(QSharedPointer<QObject> (*makeOwner)(QObject *));
};
