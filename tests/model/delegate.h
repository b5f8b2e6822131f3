// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "zcallnotes.h"

/// Stands for a mutex.
class Mutex
{
public:
    void lock() { model::perform({model::Operation::Lock, m_lock}); }
    void unlock() { model::unlock(m_lock); }

private:
    int m_lock = model::addLock();
};

/// What zcall.cpp does around the notes, in its order, without Qt.
class Delegate
{
public:
    Delegate(ZAllCallNotes &allNotes, QObject *component) : m_allNotes(allNotes), m_target(target(component)) {}

    template <class Body>
    void call(ZCallNotes *notes, Body body)
    {
        ZCallNote *const note = notes ? notes->free() : nullptr;
        ZTarget *const target = note ? note->take(m_target) : share();
        if (!target)
            return;
        const QObject *const component = target->component.data();
        component->call();
        body();
        component->call();
        if (note)
            note->giveBack(target);
        else
            target->letGo();
    }

    void replace(QObject *component)
    {
        ZTarget *before = target(component);
        m_mutex.lock();
        before = m_target.exchange(before, std::memory_order_seq_cst);
        m_mutex.unlock();
        if (before)
            m_allNotes.retire(before);
    }

private:
    static ZTarget *target(QObject *component)
    {
        return component ? new ZTarget(QSharedPointer<QObject>(component)) : nullptr;
    }

    ZTarget *share()
    {
        m_mutex.lock();
        ZTarget *const target = m_target.load(std::memory_order_relaxed);
        if (target)
            target->share();
        m_mutex.unlock();
        return target;
    }

    ZAllCallNotes &m_allNotes;
    Mutex m_mutex;
    Atomic<ZTarget *> m_target;
};
