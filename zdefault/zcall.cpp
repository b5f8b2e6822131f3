// SPDX-License-Identifier: Apache-2.0
#include "zcallnotes.h"
#include "zdelegate.h"

#include <QMutex>
#include <QMutexLocker>

#include <new>

namespace {

ZAllCallNotes allNotes;
QBasicMutex freeMutex;
ZCallNotes *freeNotes = nullptr; // of threads that have ended

// Looked at by each call. The library is linked to programs, or loaded once and for good: the faster way to find it
// will do.
thread_local ZCallNotes *ownNotes [[gnu::tls_model("initial-exec")]] = nullptr;
thread_local bool hasEnded = false; // its own objects are being destroyed

/// Passes the notes of a thread on when it ends.
struct Farewell
{
    ~Farewell()
    {
        const QMutexLocker locker(&freeMutex);
        ownNotes->nextFree = freeNotes;
        freeNotes = ownNotes;
        ownNotes = nullptr;
        hasEnded = true;
    }
};

/// Gives the calling thread notes; null if it is too late or no memory is left for that: then a share must do.
ZCallNotes *enlist()
{
    if (hasEnded)
        return nullptr;
    {
        const QMutexLocker locker(&freeMutex);
        ownNotes = freeNotes;
        if (ownNotes)
            freeNotes = ownNotes->nextFree;
    }
    if (!ownNotes) {
        ownNotes = new (std::nothrow) ZCallNotes;
        if (!ownNotes)
            return nullptr;
        allNotes.add(ownNotes);
    }
    static thread_local const Farewell farewell;
    Q_UNUSED(farewell)
    return ownNotes;
}

} // namespace

ZDelegate::Call::Call(const ZDelegate &delegate)
{
    ZCallNotes *const notes = Q_LIKELY(ownNotes) ? ownNotes : enlist();
    m_note = notes ? notes->free() : nullptr;
    m_target = m_note ? m_note->take(delegate.m_target) : share(delegate);
    if (m_target)
        m_component = m_target->component.data();
}

ZTarget *ZDelegate::Call::share(const ZDelegate &delegate)
{
    const QMutexLocker locker(&delegate.m_mutex); // which an exchange takes as well: the target stays meanwhile
    ZTarget *const target = delegate.m_target.load(std::memory_order_relaxed);
    if (target)
        target->share();
    return target;
}

void ZDelegate::Call::end()
{
    if (m_note)
        m_note->giveBack(m_target);
    else
        m_target->letGo();
}

const QSharedPointer<QObject> &ZDelegate::Call::component() const { return m_target->component; }

ZTarget *ZDelegate::target(const QSharedPointer<ZReference> &reference)
{
    return reference && reference->m_object ? new ZTarget(reference->m_object) : nullptr;
}

QSharedPointer<ZReference> ZDelegate::replace(QSharedPointer<ZReference> reference)
{
    ZTarget *before = target(reference);
    {
        const QMutexLocker locker(&m_mutex);
        m_reference.swap(reference);
        before = m_target.exchange(before, std::memory_order_seq_cst);
    }
    if (before)
        allNotes.retire(before);
    return reference;
}
