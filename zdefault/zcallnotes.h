// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QSharedPointer>

#include <array>
#include <atomic>
#include <utility>

class QObject;

/// The component behind a delegate from one exchange to the next. It lets its share of the component go with the last
/// of its own shares: the delegate has one, and calls that an exchange has caught running have one each.
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
 * Step 4 releases and step 3 acquires what the call did, which so happens before the end of the component. Where step 3
 * came first, step 4 acquires the share that it lets go.
 *
 * Thread:    `take` by the thread whose note it is, the rest by any.
 */
class ZCallNote
{
public:
    /// Acquires, so that the next call is ordered after an exchange that made a share of the call before.
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
        ZTarget *noted = target;
        if (!m_target.compare_exchange_strong(noted, nullptr, std::memory_order_acq_rel, std::memory_order_acquire))
            target->letGo();
    }

private:
    std::atomic<ZTarget *> m_target{nullptr};
};

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
    ZCallNotes *next = nullptr;     // among all
    ZCallNotes *nextFree = nullptr; // among those whose thread has ended
};

/// The notes of all threads. They are never destroyed: those of a thread that has ended are the next one's.
class ZAllCallNotes
{
public:
    /// Sequentially consistent as the notes are: a walk that misses these came before their first note, and so did the
    /// exchange before the walk.
    void add(ZCallNotes *notes)
    {
        notes->next = m_first.load(std::memory_order_relaxed);
        while (
            !m_first.compare_exchange_weak(notes->next, notes, std::memory_order_seq_cst, std::memory_order_relaxed)) {
        }
    }

    /// Lets the share go of a delegate that has `target` no longer, once each call in it has one of its own.
    void retire(ZTarget *target)
    {
        for (ZCallNotes *notes = m_first.load(std::memory_order_seq_cst); notes; notes = notes->next) {
            for (ZCallNote &note : notes->notes)
                note.turnIntoShare(target);
        }
        target->letGo();
    }

private:
    std::atomic<ZCallNotes *> m_first{nullptr};
};
