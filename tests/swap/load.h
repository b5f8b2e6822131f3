// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "footprint.h"
#include "histogram.h"
#include "host.h"
#include "journal.h"
#include "versioned.h"

#include <QElapsedTimer>
#include <QEventLoop>
#include <QSemaphore>

#include <zdbus.h>

#include <array>
#include <atomic>
#include <optional>
#include <thread>

/// What became of a service that was called without pause while it was replaced. Times are nanoseconds.
struct Outcome
{
    int versions = 0; // that took over, after the first
    quint64 calls = 0, lost = 0, wrong = 0, backwards = 0;
    int leftUnderCalls = 0; // versions that had nobody left but a call in the middle of them, and died after it
    int overstayed = 0;     // files that were still in memory when nobody was in their code any more
    std::array<int, 3> born{}, dead{};
    QStringList warnings;
    Footprint before, after;
    qint64 swapping = 0; // how long it took
    Histogram takeover;  // from the rename to the first answer of the new version
    Histogram busyCalls, quietCalls;
};

/**
 * Four threads call a service without pause, while new versions of the plugin that provides it are dropped into a
 * hot-deploy folder. A fifth makes one call for each other drop, which stays in the old version until the others have
 * left it. With `isLaden`, the plugin is called over the bus too, and has something scheduled and a job running.
 */
class Load final : private Census
{
public:
    explicit Load(bool isLaden);

    /// Replaces the service so many times, by so many files at once; after that, with `quiet`, nothing is replaced for
    /// as long again. Comes back early if a version does not take over, or an old one does not leave.
    Outcome run(int versions, int atOnce, bool quiet);

private:
    static constexpr int NoneYet = -3;

    struct Caller
    {
        void judge(int version, std::atomic<int> &newest, int last);

        std::atomic<int> byService{0}, byUrl{0}; // the newest version that has answered
        quint64 calls = 0, lost = 0, wrong = 0, backwards = 0;
        Histogram busyCalls, quietCalls;
        std::thread thread;
    };

    void isBorn(Part part) override { ++m_born[part]; }
    void works(Part part, int version) override;
    void dies(Part part) override;
    void lingers() override;

    void call(Caller &caller);
    void callSlowly();
    bool replace(int count);
    bool beginSlowCall();
    bool endSlowCall(int version);
    template <class Condition>
    bool waitUntil(Condition condition, qint64 msecs);
    bool isAnswering() const;
    bool isWorking() const;
    void wake();

    Folder m_prepared, m_hot, m_deployed;
    std::optional<Host> m_host{std::in_place};
    QSharedPointer<Journal> m_journal = Journal::bind(m_host->emitter(), 0);
    ZDbus *m_bus = nullptr;
    const QSharedPointer<VersionedDelegate> m_service{new VersionedDelegate({})};
    QEventLoop m_loop;
    QElapsedTimer m_clock;
    int m_drops = 0;
    Outcome m_outcome;

    std::array<Caller, 4> m_callers;
    std::atomic<bool> m_isQuiet{false}, m_isOver{false};
    std::atomic<int> m_last{0}; // the newest version that was dropped
    std::atomic<qint64> m_firstAnswer{0};
    std::array<std::atomic<int>, 3> m_born{}, m_dead{}, m_worked{};

    std::thread m_slowCaller;
    QSemaphore m_slowCall, m_isInside, m_goOn; // it is to make one, is in the middle of it, may go on
    std::atomic<int> m_slowAnswer{NoneYet};
};
