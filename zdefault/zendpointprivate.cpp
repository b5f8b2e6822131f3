// SPDX-License-Identifier: Apache-2.0
#include "zendpointprivate.h"

#include "zcaught.h"
#include "zendpoints.h"
#include "zfunction.h"

#include <QCoreApplication>
#include <QMutexLocker>
#include <QScopeGuard>
#include <QThread>

#include <algorithm>
#include <stdexcept>
#include <utility>

namespace {

constexpr int LineKind = 1;
constexpr int PatienceMs = 10000; // with another one that takes over, or is taken over
constexpr int MaxForwards = 200;  // whoever is sent on more often is sent in a circle
const QLatin1String ReleasePath("/release");

thread_local int forwards = 0;

bool isBroadcast(const QUrl &url) { return url.host(QUrl::FullyDecoded).isEmpty(); }

/// The deleter of a pointer that stands for a share.
struct LetGo
{
    QSharedPointer<QObject> share;
    void operator()(ZDbusSubscriber *) const {}
};

} // namespace

/// Is called by those who want it to let go, where its URL has a path: the bus would not lead them to the endpoint.
class ZEndpoint::Private::Release : public ZDbusSubscriber
{
public:
    Release(Private *endpoint, const QSharedPointer<ZDbusSubscriber> &self) : m_endpoint(endpoint), m_self(self) {}

    bool invoked(const QUrl &address, QJsonObject *, QJsonObject *) override
    {
        if (isBroadcast(address))
            return false;
        ZEndpoints::letGo({{m_endpoint, m_self.toStrongRef()}});
        return true;
    }

private:
    Private *const m_endpoint; // there as long as its self is
    const QWeakPointer<ZDbusSubscriber> m_self;
};

ZEndpoint::Private::~Private()
{
    ZEndpoints::remove(this);
    // A pool waits for its threads, and this may be one of them: where there is no event loop that we could end in.
    if (!m_jobs || QThread::currentThread() == q->thread())
        return;
    if (QCoreApplication *application = QCoreApplication::instance())
        QMetaObject::invokeMethod(
            application, [pool = std::shared_ptr<ZJobPool>(std::move(m_jobs))] {}, Qt::QueuedConnection);
    else
        m_jobs.release();
}

bool ZEndpoint::Private::enter()
{
    if (!dbus || self())
        return false;
    {
        const QSharedPointer<QObject> share = root->shared();
        const QMutexLocker locker(&m_mutex);
        m_self = {q, LetGo{share}};
        m_hasHandedOver = m_isRetiring = m_isToLetGo = false; // it may have been here before
    }
    gate.set(ZGate::Entering);
    return true;
}

bool ZEndpoint::Private::bind()
{
    const QSharedPointer<ZDbusSubscriber> self = this->self();
    if (!self) // it has let go of itself
        return true;
    if (!dbus->bind0(url, self))
        return false;
    if (url.path().isEmpty())
        return true;
    QUrl releaseUrl = url;
    releaseUrl.setPath(url.path() + ReleasePath);
    const auto release = QSharedPointer<Release>::create(this, self);
    dbus->bind0(releaseUrl, release);
    const QMutexLocker locker(&m_mutex);
    if (m_self)
        m_release = release;
    return true;
}

bool ZEndpoint::Private::answer(const QUrl &address, QJsonObject *in, QJsonObject *out)
{
    const bool isForAll = isBroadcast(address);
    if (!isForAll && address.path() == url.path() + ReleasePath) {
        ZEndpoints::letGo({{this, self()}});
        return true;
    }
    const ZGate::State state = gate.enter(!isForAll); // the bus is locked while it calls all
    if (state == ZGate::Moved && !isForAll)
        return forward(address, in, out);
    if (state != ZGate::Open)
        return false;
    const auto leave = qScopeGuard([this] { gate.leave(); });
    const ZGate::Scope scope(&gate);
    return q->called(address, in, out);
}

/// To the next version, which is bound now.
bool ZEndpoint::Private::forward(const QUrl &address, QJsonObject *in, QJsonObject *out) const
{
    if (forwards == MaxForwards)
        return false;
    ++forwards;
    const auto back = qScopeGuard([] { --forwards; });
    return dbus->invoke0(address, in, out);
}

bool ZEndpoint::Private::mayBeReplaced() const
{
    const ZGate::State state = gate.state();
    return state != ZGate::Closing && state != ZGate::Closed && state != ZGate::Moved;
}

bool ZEndpoint::Private::retire()
{
    const QDeadlineTimer deadline(PatienceMs);
    for (;;) {
        if (!gate.settle(deadline))
            fail(" is just being replaced");
        const QMutexLocker locker(&m_mutex);
        if (gate.change(ZGate::Open, ZGate::Draining)) {
            m_isRetiring = true;
            break;
        }
        if (!mayBeReplaced())
            return false;
    }
    zCaught([&] { log.log(LineKind, [&] { return QStringLiteral("hands over: %1").arg(url.toString()); }); });
    return true;
}

QJsonObject ZEndpoint::Private::handOver()
{
    m_state = q->handOver();
    m_hasHandedOver = true;
    endActivities();
    return m_state;
}

void ZEndpoint::Private::leave()
{
    gate.change(ZGate::Held, ZGate::Moved);
    drop();
}

void ZEndpoint::Private::giveUp()
{
    gate.set(ZGate::Moved);
    endActivities();
    gate.drain(QDeadlineTimer(ZEndpoints::PatienceMs));
    warnIfBusy();
    drop();
}

void ZEndpoint::Private::resume()
{
    bool isToLetGo = false, isToBegin = false;
    {
        const QMutexLocker locker(&m_mutex);
        m_isRetiring = false;
        isToLetGo = std::exchange(m_isToLetGo, false);
        isToBegin = std::exchange(m_hasHandedOver, false);
        if (!isToLetGo)
            gate.set(isToBegin ? ZGate::Entering : ZGate::Open);
    }
    if (isToLetGo) {
        ZEndpoints::letGo({{this, self()}});
    } else if (isToBegin) {
        tellThrown(zCaught([this] { q->begin(m_state); }));
        tellThrown(zCaught([this] { bind(); })); // the next one may have been bound
        gate.change(ZGate::Entering, ZGate::Open);
    }
}

bool ZEndpoint::Private::close()
{
    {
        const QMutexLocker locker(&m_mutex);
        if (m_isRetiring)
            m_isToLetGo = true;
        if (m_isRetiring || !m_self)
            return false;
        gate.set(ZGate::Closing);
    }
    endActivities();
    return true;
}

void ZEndpoint::Private::drop()
{
    QSharedPointer<ZDbusSubscriber> self, release; // go after the lock
    gate.change(ZGate::Closing, ZGate::Closed);
    const QMutexLocker locker(&m_mutex);
    self.swap(m_self);
    release.swap(m_release);
}

void ZEndpoint::Private::warnIfBusy() const
{
    if (gate.isBusy())
        warn(QStringLiteral("what runs has not ended within %1 s").arg(ZEndpoints::PatienceMs / 1000));
}

bool ZEndpoint::Private::schedule(const QSharedPointer<ZSchedule> &timetable, std::function<bool()> deed)
{
    const auto run = [this, deed = std::move(deed)] {
        if (gate.enter(true) != ZGate::Open)
            return mayBeReplaced(); // or it is the end
        const auto leave = qScopeGuard([this] { gate.leave(); });
        const ZGate::Scope scope(&gate);
        bool goesOn = true;
        tellThrown(zCaught([&] { goesOn = deed(); }));
        return goesOn;
    };
    const QSharedPointer<QObject> share = this->share();
    const auto activity = QSharedPointer<ZFunctionActivity>::create(timetable, url.host() + url.path(), share, run);
    if (share && enter(activity) && scheduler && scheduler->schedule0(activity))
        return true;
    warn(QStringLiteral("nobody has scheduled what it wants to be done"));
    return false;
}

/// False if they are to end.
bool ZEndpoint::Private::enter(const QSharedPointer<ZScheduledActivity> &activity)
{
    const QMutexLocker locker(&m_mutex);
    m_activities.erase(std::remove(m_activities.begin(), m_activities.end(), nullptr), m_activities.end());
    const ZGate::State state = gate.state();
    const bool mayBegin = state == ZGate::Entering || state == ZGate::Open;
    if (mayBegin)
        m_activities.append(activity);
    return mayBegin;
}

bool ZEndpoint::Private::start(std::function<void()> job)
{
    const QSharedPointer<QObject> share = this->share();
    const std::shared_ptr<ZGate::Ticket> ticket = share && job ? gate.begin() : nullptr;
    if (!ticket)
        return false;
    ZFunctionJob::start(jobs(), share, [this, ticket, job = std::move(job)] {
        const ZGate::Scope scope(&gate);
        tellThrown(zCaught(job));
    });
    return true;
}

void ZEndpoint::Private::fail(const char *why) const { throw std::runtime_error(url.toString().toStdString() + why); }

void ZEndpoint::Private::warn(const QString &text) const
{
    zCaught([&] { log.warn(LineKind, QStringLiteral("%1: %2").arg(url.toString(), text)); }); // the logger may throw
}

void ZEndpoint::Private::tellThrown(const QString &thrown) const
{
    if (!thrown.isNull())
        warn(thrown);
}

void ZEndpoint::Private::endActivities()
{
    QVector<QWeakPointer<ZScheduledActivity>> activities;
    {
        const QMutexLocker locker(&m_mutex);
        activities.swap(m_activities);
    }
    for (const QWeakPointer<ZScheduledActivity> &each : qAsConst(activities)) {
        if (const QSharedPointer<ZScheduledActivity> activity = each.toStrongRef())
            activity->cancel();
    }
}

QSharedPointer<ZDbusSubscriber> ZEndpoint::Private::self() const
{
    const QMutexLocker locker(&m_mutex);
    return m_self;
}

/// Of what it begins; null before its properties are written, and when it is being destroyed.
QSharedPointer<QObject> ZEndpoint::Private::share() const { return dbus ? root->shared() : QSharedPointer<QObject>(); }

ZJobPool *ZEndpoint::Private::jobs()
{
    const QMutexLocker locker(&m_mutex);
    if (!m_jobs)
        m_jobs = std::make_unique<ZJobPool>(maxJobs, 0);
    return m_jobs.get();
}
