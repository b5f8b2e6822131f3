// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QSharedPointer>

#include <array>
#include <atomic>
#include <new>
#include <utility>

class QObject;

/**
 * The component behind a delegate from one exchange to the next.
 *
 * Ownership: shares the component until the last of its own shares goes. The delegate has one, and each call that an
 *            exchange has caught running.
 * Thread:    any.
 * Failure:   none.
 */
class ZTarget
{
public:
    explicit ZTarget(QSharedPointer<QObject> called) : component(std::move(called)) {}

    void share() { m_shares.fetch_add(1, std::memory_order_relaxed); }
    void letGo()
    {
        if (m_shares.fetch_sub(1, std::memory_order_acq_rel) == 1)
            delete this;
    }

    const QSharedPointer<QObject> component;

private:
    ~ZTarget() = default;

    std::atomic<int> m_shares{1};
};

/**
 * Where a thread notes the target that it calls. A note keeps the target while the delegate does: who takes the target
 * away from the delegate looks at all notes afterwards, and makes a share of each that still stands.
 *
 *        caller                                  exchanger
 *     1. note = target                        2. current = another
 *        current == target? else give back    3. note == target? share, note = null, else undo
 *     4. note == target? note = null,            let the delegate's share go
 *        else let the share go
 *
 * Steps 1 and 2 each write one of two places and then read the other. All four accesses are sequentially consistent, so
 * that at least one side sees what the other wrote: a caller that still reads its target is seen by the exchanger.
 * Step 4 releases what the call did, and step 3 acquires it where it finds the note struck out, so it happens before
 * the end of the component. Where step 3 strikes it out, that releases the share, and step 4 acquires it before it lets
 * it go.
 *
 * Ownership: keeps the target while the delegate does.
 * Thread:    `take` by the thread whose note it is, the rest by any.
 * Failure:   none.
 */
class ZCallNote
{
public:
    /// Acquires what the call before did, should it have ended on another thread, as calls do whose stack is moved.
    bool isFree() const { return !m_target.load(std::memory_order_acquire); }

    /// Notes the target that `current` has, and returns it; null if it has none.
    ZTarget *take(const std::atomic<ZTarget *> &current)
    {
        ZTarget *target = current.load(std::memory_order_relaxed); // not looked into before it is read once more
        while (target) {
            m_target.store(target, std::memory_order_seq_cst);
            ZTarget *const now = current.load(std::memory_order_seq_cst);
            if (now == target)
                break;
            giveBack(target);
            target = now;
        }
        return target;
    }

    /// The call is over.
    void giveBack(ZTarget *target)
    {
        ZTarget *noted = target;
        if (!m_target.compare_exchange_strong(noted, nullptr, std::memory_order_release, std::memory_order_acquire))
            target->letGo();
    }

    /// The delegate has `target` no longer: if it is noted here, the call gets a share.
    void turnIntoShare(ZTarget *target)
    {
        if (m_target.load(std::memory_order_seq_cst) != target)
            return;
        target->share(); // first, for the call may let it go at once
        ZTarget *standing = target;
        if (!m_target.compare_exchange_strong(standing, nullptr, std::memory_order_release, std::memory_order_acquire))
            target->letGo();
    }

private:
    std::atomic<ZTarget *> m_target{nullptr};
};

class ZCallNoteBlock;

/// The notes of one thread, for calls within calls, on cache lines that no other thread writes to.
struct alignas(128) ZCallNotes
{
    /// One that is free; null if there is none.
    ZCallNote *free()
    {
        for (ZCallNote &note : notes) {
            if (note.isFree())
                return &note;
        }
        return nullptr;
    }

    std::array<ZCallNote, 8> notes;
    ZCallNoteBlock *block = nullptr;
};

/**
 * The notes of some threads, side by side, since those who exchange read them all.
 *
 * Ownership: none, and it is never destroyed.
 * Thread:    any.
 * Failure:   null where all are taken.
 */
class ZCallNoteBlock
{
public:
    ZCallNoteBlock()
    {
        for (ZCallNotes &notes : m_notes)
            notes.block = this;
    }

    /// Notes that are nobody's; null if there are none. Sequentially consistent as the notes are: a walk that does not
    /// find these taken came before their first note, and so did the exchange before the walk.
    ZCallNotes *take()
    {
        unsigned taken = m_taken.load(std::memory_order_relaxed);
        for (unsigned i = 0; i < Size;) {
            if (taken >> i & 1)
                ++i;
            else if (m_taken.compare_exchange_weak(taken, taken | 1U << i, std::memory_order_seq_cst,
                                                   std::memory_order_relaxed))
                return &m_notes[i];
        }
        return nullptr;
    }

    /// Releases what the calls did. Where one of them still stands, as it does if it never returns, they stay taken.
    void giveBack(ZCallNotes *notes)
    {
        for (const ZCallNote &note : notes->notes) {
            if (!note.isFree())
                return;
        }
        m_taken.fetch_sub(1U << (notes - m_notes.data()), std::memory_order_release);
    }

    void turnIntoShares(ZTarget *target)
    {
        const unsigned taken = m_taken.load(std::memory_order_seq_cst);
        for (unsigned i = 0; i < Size; ++i) {
            if (taken >> i & 1) {
                for (ZCallNote &note : m_notes[i].notes)
                    note.turnIntoShare(target);
            }
        }
    }

    ZCallNoteBlock *next = nullptr;

private:
    static constexpr unsigned Size = 31; // with the rest it fills a page

    std::array<ZCallNotes, Size> m_notes;
    std::atomic<unsigned> m_taken{0};
};

/**
 * The notes of all threads. There is no lock, which a child process might find locked by a thread that it does not
 * have.
 *
 * Ownership: its blocks, which it never destroys: the notes of a thread that has ended are the next one's.
 * Thread:    any.
 * Failure:   null where there is no memory.
 */
class ZAllCallNotes
{
public:
    /// Notes for the calling thread; null if there is no memory for them.
    ZCallNotes *take()
    {
        for (ZCallNoteBlock *block = first(); block; block = block->next) {
            if (ZCallNotes *const notes = block->take())
                return notes;
        }
        auto *const block = new (std::nothrow) ZCallNoteBlock;
        if (!block)
            return nullptr;
        ZCallNotes *const notes = block->take();
        add(block);
        return notes;
    }

    /// Lets the share go of a delegate that has `target` no longer, once each call in it has one of its own.
    void retire(ZTarget *target)
    {
        for (ZCallNoteBlock *block = first(); block; block = block->next)
            block->turnIntoShares(target);
        target->letGo();
    }

private:
    /// Sequentially consistent for the same reason as a block's `take`: a walk may not find the block. To read it with
    /// acquire would order what the block holds, but not a later note behind the adding of the block.
    ZCallNoteBlock *first() const { return m_first.load(std::memory_order_seq_cst); }
    void add(ZCallNoteBlock *block)
    {
        ZCallNoteBlock *first = m_first.load(std::memory_order_relaxed);
        do
            block->next = first;
        while (!m_first.compare_exchange_weak(first, block, std::memory_order_seq_cst, std::memory_order_relaxed));
    }

    std::atomic<ZCallNoteBlock *> m_first{nullptr};
};
