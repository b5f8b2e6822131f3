// SPDX-License-Identifier: Apache-2.0
#include "zcallnotes.h"
#include "zdelegate.h"

#include <QMutexLocker>

#include <pthread.h>

namespace {

ZAllCallNotes allNotes;

// Each call reads this variable. "initial-exec" finds it faster. That is possible, since the library is linked to the
// program, or loaded once and for good.
thread_local ZCallNotes *ownNotes [[gnu::tls_model("initial-exec")]] = nullptr;
thread_local bool hasEnded = false;

/// Frees the notes of a thread when it ends, for another one; calls that come after that use shares. This is not the
/// destructor of a thread_local object: calls may come after those destructors, and if memory is short, such an object
/// ends the process.
void passOn(void *notes)
{
    ownNotes = nullptr;
    hasEnded = true;
    static_cast<ZCallNotes *>(notes)->block->giveBack(static_cast<ZCallNotes *>(notes));
}

pthread_key_t endOfThread;
const bool hasKey = pthread_key_create(&endOfThread, passOn) == 0; // a process can have only so many

/// Gives the calling thread notes; null if that is not possible: then the call uses a share.
ZCallNotes *enlist()
{
    if (hasEnded || !hasKey)
        return nullptr;
    ZCallNotes *const notes = allNotes.take();
    if (notes && pthread_setspecific(endOfThread, notes) != 0) { // no memory
        notes->block->giveBack(notes);
        return nullptr;
    }
    return ownNotes = notes;
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
    const QMutexLocker locker(&delegate.m_mutex); // an exchange takes it as well, so the target stays meanwhile
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
