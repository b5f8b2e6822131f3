// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QDeadlineTimer>
#include <QMutex>
#include <QVector>
#include <QWaitCondition>
#include <Qt>

#include <memory>

/**
 * Where a component's work passes: counts what is under way, waits until nothing is, and has who comes meanwhile wait.
 *
 * Ownership: none of who passes, who must keep it as long.
 * Thread:    any. What a thread begins within work of this gate passes at all times, for that work would wait for it;
 *            and so does what it begins within other work for whose end somebody waits.
 * Failure:   a wait ends after its time.
 */
class ZGate
{
public:
    enum State
    {
        Closed,   ///< Who comes is sent away.
        Entering, ///< Who comes waits until it is another. What is inside may begin more.
        Open,
        Draining, ///< As `Entering`, but nothing new begins: what is under way comes to its end.
        Held,     ///< Nothing is under way.
        Moved,    ///< Another one is open in its place.
        Closing   ///< As `Draining`, but who comes is sent away.
    };

    ZGate() = default;

    /// Work that waits, or is under way: counted while this lives.
    class Ticket
    {
    public:
        ~Ticket();

    private:
        Q_DISABLE_COPY(Ticket)
        friend class ZGate;
        explicit Ticket(ZGate *gate) : m_gate(gate) {}
        ZGate *const m_gate;
    };

    /// Marks that this thread does the work of a ticket.
    class Scope
    {
    public:
        explicit Scope(ZGate *gate);
        ~Scope();

    private:
        Q_DISABLE_COPY(Scope)
        friend class ZGate;
        ZGate *const m_gate;
        const Scope *const m_outer;
    };

    /// Marks that others wait for what this thread does, though it is not the work of a ticket.
    class Awaited
    {
    public:
        Awaited();
        ~Awaited();

    private:
        Q_DISABLE_COPY(Awaited)
    };

    State state() const;

    /// Takes a ticket, for the caller to give back by `leave`, and answers `Open`; or the state that sends him away.
    State enter(bool mayWait);
    void leave();
    /// A ticket for what the component itself begins; null if it is to begin nothing more.
    std::shared_ptr<Ticket> begin();

    /// False, and nothing happens, if it is not `from`. Who comes on the thread that has others wait is sent away.
    bool change(State from, State to);
    void set(State state);
    /// Waits while it is another's turn: until it is open, or closed. False if that takes longer, or this thread has
    /// others wait.
    bool settle(QDeadlineTimer deadline);

    /// Waits until nothing is under way but what this thread is within; false if that takes longer.
    bool drain(QDeadlineTimer deadline);
    /// Waits until in none of `gates` anything is under way, at one moment, and in this moment sets them all to
    /// `state`. That happens at the deadline, too.
    static void drain(QVector<ZGate *> gates, State state, QDeadlineTimer deadline);
    /// Whether anything is under way but what this thread is within.
    bool isBusy() const;
    /// Whether somebody waits for the end of work that this thread does.
    static bool isAwaitedHere();

private:
    Q_DISABLE_COPY(ZGate)
    bool isBusyHere() const;
    int depthHere() const;
    bool isHoldersTurn() const;

    mutable QMutex m_mutex; // guards all that follow
    QWaitCondition m_changed;
    State m_state = Closed;
    int m_tickets = 0;
    Qt::HANDLE m_holder = nullptr; // the thread that has others wait
};
