// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QSharedPointer>

#include <array>
#include <atomic>
#include <new>
#include <utility>

class QObject;

/**
 * The component that a delegate has from one exchange to the next.
 *
 * Ownership: shares the component until the last of its own shares goes. The delegate has one of these shares; each
 *            call that was running during an exchange has one, too.
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
 * The place in which a thread notes the target that it calls. A note keeps the target as long as the delegate does. An
 * exchange, after it has taken the target from the delegate, looks at all notes, and gives the call a share for each
 * note that still has the target.
 *
 *        caller                                  exchanger
 *     1. note = target                        2. current = another
 *        current == target? else give back    3. note == target? share, note = null, else undo
 *     4. note == target? note = null,            let the delegate's share go
 *        else let the share go
 *
 * The caller writes the note, and then reads `current`; the exchanger writes `current`, and then reads the note. All
 * four accesses are sequentially consistent, so at least one side sees what the other wrote: if a caller still reads
 * its target, the exchanger sees the note.
 *
 * Step 4 releases what the call did. If step 3 finds the note null already, it acquires that, so the call happens
 * before the end of the component. If step 3 sets the note to null, that releases the share, and step 4 acquires the
 * share before it lets it go.
 *
 * Ownership: keeps the target while the delegate does.
 * Thread:    `take` is called by the thread whose note it is, the rest by any thread.
 * Failure:   none.
 */
class ZCallNote
{
public:
    /// Acquires what the call before did: it may have ended on another thread, if its stack was moved to that.
    bool isFree() const { return !m_target.load(std::memory_order_acquire); }

    /// Notes the target of `current`, and returns it; null if there is none.
    ZTarget *take(const std::atomic<ZTarget *> &current)
    {
        ZTarget *target = current.load(std::memory_order_relaxed); // may be gone: used only after it was read again
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

    /// Called when the delegate has given `target` up: if it is noted here, the call gets a share.
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
    /// A note that is free; null if there is none.
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
 * The notes of some threads. They lie side by side, since an exchange reads all of them.
 *
 * Ownership: none, and it is never destroyed.
 * Thread:    any.
 * Failure:   null if all are taken.
 */
class ZCallNoteBlock
{
public:
    ZCallNoteBlock()
    {
        for (ZCallNotes &notes : m_notes)
            notes.block = this;
    }

    /// Notes that no thread has; null if there are none. This is sequentially consistent like the notes: if a walk does
    /// not find these taken, then the walk, and the exchange before it, came before their first note.
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

    /// Releases what the calls did. If one of the notes still has a target, because its call never returns, the notes
    /// stay taken.
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
 * The notes of all threads. There is no lock: a child process might inherit it locked by a thread that the child does
 * not have.
 *
 * Ownership: owns its blocks, and never destroys them: the notes of a thread that has ended go to the next one.
 * Thread:    any.
 * Failure:   null if there is no memory.
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

    /// Lets the delegate's share of `target` go, after each call in it has got a share of its own. Called when the
    /// delegate has given `target` up.
    void retire(ZTarget *target)
    {
        for (ZCallNoteBlock *block = first(); block; block = block->next)
            block->turnIntoShares(target);
        target->letGo();
    }

private:
    /// Sequentially consistent for the same reason as a block's `take`: a walk may not find the block. Acquire would
    /// order the content of the block, but would not order a later note after the adding of the block.
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
