// SPDX-License-Identifier: Apache-2.0
#include "load.h"

#include <QFile>
#include <QTimer>

#include <zdefaultdbus.h>
#include <zdefaultpoolset.h>
#include <zdefaultscheduler.h>

#include <algorithm>

namespace {

constexpr qint64 Patience = 60000; // milliseconds

/// By name in the order of their numbers, as those are taken that are there at once.
QString fileOf(int version)
{
    return version == 0 ? QStringLiteral("libversion.so")
                        : QStringLiteral("libversion.%1.so").arg(version, 8, 10, QLatin1Char('0'));
}

} // namespace

Load::Load(bool isLaden)
{
    setOn(qApp);
    if (isLaden) {
        (*m_host)->zemit0(ZDefaultThreadPoolSet::TypeName);
        m_bus = qobject_cast<ZDbus *>((*m_host)->zemit0(ZDefaultDbus::TypeName));
        (*m_host)->zemit0(ZDefaultScheduler::TypeName);
    }
    (*m_host)->bind0(m_service); // last, so that the provider goes before the services that it uses
    m_hot.drop(QStringLiteral("version"));
    m_host->wire(
        QJsonObject{{QStringLiteral("hot-deploy"), m_hot.path()}, {QStringLiteral("deployed"), m_deployed.path()}});
}

Outcome Load::run(int versions, int atOnce, bool quiet)
{
    m_clock.start();
    for (Caller &caller : m_callers)
        caller.thread = std::thread([&] { call(caller); });
    m_slowCaller = std::thread([this] { callSlowly(); });

    bool isWarm = false;
    while (m_last < versions && replace(std::min(atOnce, versions - m_last))) {
        if (std::exchange(isWarm, m_last >= versions / 5) != isWarm)
            m_outcome.before = Footprint::now();
    }
    m_outcome.after = Footprint::now();
    m_outcome.swapping = m_clock.nsecsElapsed();
    if (quiet) {
        m_isQuiet = true;
        waitUntil([] { return false; }, m_outcome.swapping / 1000000);
    }

    m_isOver = true;
    m_goOn.release(); // had it not come as far
    m_slowCall.release();
    m_slowCaller.join();
    for (Caller &caller : m_callers) {
        caller.thread.join();
        m_outcome.calls += caller.calls;
        m_outcome.lost += caller.lost;
        m_outcome.wrong += caller.wrong;
        m_outcome.backwards += caller.backwards;
        m_outcome.busyCalls.add(caller.busyCalls);
        m_outcome.quietCalls.add(caller.quietCalls);
    }
    m_outcome.warnings = m_journal->take();
    m_host.reset();
    settle();
    std::copy(m_born.begin(), m_born.end(), m_outcome.born.begin());
    std::copy(m_dead.begin(), m_dead.end(), m_outcome.dead.begin());
    return m_outcome;
}

void Load::Caller::judge(int version, std::atomic<int> &newest, int last)
{
    ++calls;
    if (version == Versioned::Nobody)
        ++lost;
    else if (version < 0 || version > last)
        ++wrong;
    else if (version < newest)
        ++backwards;
    else
        newest = version;
}

void Load::works(Part part, int version)
{
    int before = m_worked[part];
    while (before < version && !m_worked[part].compare_exchange_weak(before, version)) {
    }
    if (before < version)
        wake();
}

void Load::dies(Part part)
{
    ++m_dead[part];
    wake();
}

void Load::lingers()
{
    m_isInside.release();
    m_goOn.acquire();
}

void Load::call(Caller &caller)
{
    const QUrl url(QStringLiteral("//version#quietly"));
    while (!m_isOver) {
        const qint64 start = m_clock.nsecsElapsed();
        const int version = m_service->version();
        const qint64 end = m_clock.nsecsElapsed();

        (m_isQuiet ? caller.quietCalls : caller.busyCalls).add(static_cast<quint64>(end - start));
        const int before = caller.byService;
        caller.judge(version, caller.byService, m_last);
        if (caller.byService > before) {
            qint64 none = 0;
            if (version == m_last)
                m_firstAnswer.compare_exchange_strong(none, end);
            wake();
        }
        if (m_bus) {
            QJsonObject out;
            const bool isHandled = m_bus->invoke0(url, nullptr, &out);
            const int byUrl =
                isHandled ? out.value(QStringLiteral("version")).toInt(Versioned::Dead) : Versioned::Nobody;
            const int beforeByUrl = caller.byUrl;
            caller.judge(byUrl, caller.byUrl, m_last);
            if (caller.byUrl > beforeByUrl)
                wake();
        }
        // Whoever was answered by the newest version lets those go first who were not: else all wait for every turn.
        if (caller.byService == m_last && (!m_bus || caller.byUrl == m_last))
            std::this_thread::yield();
    }
}

void Load::callSlowly()
{
    for (m_slowCall.acquire(); !m_isOver; m_slowCall.acquire()) {
        m_slowAnswer = m_service->versionSlowly();
        wake();
    }
}

/// Comes back when the call is in the middle of the version that serves now.
bool Load::beginSlowCall()
{
    m_slowAnswer = NoneYet;
    m_slowCall.release();
    return m_isInside.tryAcquire(1, static_cast<int>(Patience));
}

/// The call must have kept `version` alive, and nobody else.
bool Load::endSlowCall(int version)
{
    const auto roots = [this] { return m_born[Root] - m_dead[Root]; };
    const bool wasAlive = roots() == 2;
    m_goOn.release();
    if (!waitUntil([&] { return m_slowAnswer != NoneYet; }, Patience))
        return false;
    settle();
    m_outcome.wrong += m_slowAnswer != version;
    m_outcome.leftUnderCalls += wasAlive && roots() == 1;
    return true;
}

bool Load::replace(int count)
{
    const int old = m_last;
    const bool isUnderACall = m_drops++ % 2 == 0;
    if (isUnderACall && !beginSlowCall())
        return false;
    for (int version = old + 1; version <= old + count; ++version)
        m_prepared.drop(QStringLiteral("version"), fileOf(version));
    m_firstAnswer = 0;
    m_last = old + count;
    const qint64 start = m_clock.nsecsElapsed();
    for (int version = old + 1; version <= m_last; ++version)
        QFile::rename(m_prepared.filePath(fileOf(version)), m_hot.filePath(fileOf(version)));
    if (!waitUntil([this] { return isAnswering(); }, Patience))
        return false;

    // Each caller has come back from the new version: nobody can be in the old ones' code any more, but the slow one.
    // What they left behind is posted by now.
    settle();
    if (isUnderACall && !endSlowCall(old))
        return false;
    if (!waitUntil([this] { return !m_bus || isWorking(); }, Patience))
        return false;
    settle();
    QStringList mapped = mappedPlugins();
    mapped.removeAll(m_deployed.filePath(fileOf(m_last)));
    m_outcome.overstayed += mapped.size();
    m_outcome.takeover.add(static_cast<quint64>(m_firstAnswer - start));
    m_outcome.versions = m_last;
    for (int version = old; version < m_last; ++version)
        QFile::remove(m_deployed.filePath(fileOf(version)));
    return mapped.isEmpty();
}

template <class Condition>
bool Load::waitUntil(Condition condition, qint64 msecs)
{
    QTimer timer;
    QObject::connect(&timer, &QTimer::timeout, &m_loop, &QEventLoop::quit);
    timer.setSingleShot(true);
    timer.start(static_cast<int>(msecs));
    while (!condition() && timer.isActive())
        m_loop.exec();
    return condition();
}

bool Load::isAnswering() const
{
    return std::all_of(m_callers.begin(), m_callers.end(), [this](const Caller &caller) {
        return caller.byService == m_last && (!m_bus || caller.byUrl == m_last);
    });
}

/// An activity's thread ends by itself after it was cancelled: the old ones may take until later than the callers.
bool Load::isWorking() const
{
    return m_worked[Activity] == m_last && m_worked[Job] == m_last && m_born[Activity] - m_dead[Activity] == 1;
}

void Load::wake() { QMetaObject::invokeMethod(&m_loop, &QEventLoop::quit, Qt::QueuedConnection); }
