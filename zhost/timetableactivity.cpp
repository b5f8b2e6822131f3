// SPDX-License-Identifier: Apache-2.0
#include "timetableactivity.h"

#include "buscall.h"
#include "furtherservices.h"
#include "warn.h"

#include <QElapsedTimer>
#include <QJsonObject>
#include <QMutexLocker>

#include <zdailywindow.h>
#include <zservices.h>

namespace {

QSharedPointer<ZSchedule> scheduleOf(const TimetableEntry &entry)
{
    if (entry.isDaily())
        return QSharedPointer<ZDailySchedule>::create(entry.from, entry.to, entry.every);
    return QSharedPointer<ZPeriodicSchedule>::create(entry.every);
}

QDateTime nextRun(const TimetableEntry &entry)
{
    const QDateTime now = QDateTime::currentDateTime();
    if (entry.isDaily()) {
        const ZDailyWindow window = ZDailyWindow::at(now, entry.from, entry.to, entry.every);
        if (!window.isOpen)
            return window.start;
    }
    return now.addMSecs(entry.every);
}

} // namespace

TimetableActivity::TimetableActivity(const TimetableEntry &entry, int index, const ZServices &services,
                                     const FurtherServices &further)
    : ZDbusActivity(scheduleOf(entry), services.dbus, entry.url, entry.repeat), m_entry(entry), m_services(services),
      m_further(further), m_turn(entry, further.lease), m_index(index)
{}

TimetableActivity::~TimetableActivity() = default;

bool TimetableActivity::wait()
{
    enter(Waiting, nextRun(m_entry));
    if (!m_entry.once.isEmpty())
        m_turn.want();
    if (ZDbusActivity::wait())
        return true;
    m_turn.forget();
    end(QStringLiteral("cancelled"));
    return false;
}

bool TimetableActivity::run()
{
    enter(Running, QDateTime::currentDateTime());
    const auto [failure, skip] = call(&m_turn);
    const bool goesOn = m_entry.repeat && (failure.isNull() || m_entry.keep);
    if (!goesOn) {
        m_turn.forget();
        end(!failure.isNull() ? failure
            : skip.isNull()   ? QStringLiteral("it was to run once")
                              : QStringLiteral("it was to run once, and was skipped: %1").arg(skip));
    }
    if (!failure.isNull() && failure != m_told && !isCancelled()) // the same warning comes only once in a row
        warn(*m_services.logger, QStringLiteral("schedule[%1] %2: %3")
                                     .arg(QString::number(index()),
                                          goesOn ? QStringLiteral("is kept") : QStringLiteral("has ended"), failure));
    m_told = failure;
    return goesOn;
}

void TimetableActivity::cancel()
{
    {
        const QMutexLocker locker(&m_mutex);
        m_isCancelled = true;
    }
    ZDbusActivity::cancel();
}

TimetableActivity::Status TimetableActivity::status() const
{
    const QMutexLocker locker(&m_mutex);
    Status status = m_status;
    status.isCancelled = m_isCancelled;
    if (m_isCancelled && status.state == Waiting) { // it ends as soon as it wakes up
        status.state = Ended;
        status.end = QStringLiteral("cancelled");
    }
    if (m_isCalledNow)
        status.state = Running;
    return status;
}

void TimetableActivity::inherit(const TimetableActivity &before)
{
    Status status = before.status();
    status.state = Idle;
    status.end.clear();
    status.isCancelled = false;
    const QMutexLocker locker(&m_mutex);
    m_status = status;
}

int TimetableActivity::index() const
{
    const QMutexLocker locker(&m_mutex);
    return m_index;
}

void TimetableActivity::setIndex(int index)
{
    const QMutexLocker locker(&m_mutex);
    m_index = index;
}

bool TimetableActivity::does(const TimetableEntry &entry) const
{
    return m_entry == entry && !(status().state == Ended && entry.repeat);
}

bool TimetableActivity::beginNow()
{
    const QMutexLocker locker(&m_mutex);
    if (m_status.state == Running)
        return false;
    return !std::exchange(m_isCalledNow, true);
}

QString TimetableActivity::callNow()
{
    Turn turn(m_entry, m_further.lease); // an entry that has ended does not want the lease any more
    const QString failure = call(&turn).failure;
    turn.forget();
    endNow();
    return failure;
}

void TimetableActivity::endNow()
{
    const QMutexLocker locker(&m_mutex);
    m_isCalledNow = false;
}

TimetableActivity::Made TimetableActivity::call(Turn *turn)
{
    const QDateTime begin = QDateTime::currentDateTime();
    QElapsedTimer timer;
    timer.start();
    QString failure;
    if (!m_entry.once.isEmpty()) {
        const Turn::Whose whose = turn->begin(&failure, [this] { return isCancelled(); });
        if (whose == Turn::Theirs)
            return skip(failure);
    }
    if (failure.isNull())
        failure = callBus(*m_services.dbus, m_further.dbusOutcome, m_entry.url, nullptr, nullptr);
    const double duration = double(timer.nsecsElapsed()) / 1e6;
    const QMutexLocker locker(&m_mutex);
    ++m_status.runs;
    m_status.failures += failure.isNull() ? 0 : 1;
    m_status.inARow = failure.isNull() ? 0 : m_status.inARow + 1;
    m_status.last = begin;
    m_status.lastMs = duration;
    m_status.lastReason = failure;
    m_status.lastSkip.clear();
    return {failure, {}};
}

TimetableActivity::Made TimetableActivity::skip(const QString &reason)
{
    const QMutexLocker locker(&m_mutex);
    ++m_status.skipped;
    m_status.lastSkip = reason;
    return {{}, reason};
}

bool TimetableActivity::isCancelled() const
{
    const QMutexLocker locker(&m_mutex);
    return m_isCancelled;
}

QJsonObject TimetableActivity::describe() const
{
    QJsonObject result{{QStringLiteral("name"), name()}, {QStringLiteral("repeat"), m_entry.repeat}};
    const QMutexLocker locker(&m_mutex);
    const QString time = m_status.time.toString(Qt::ISODateWithMs);
    switch (m_status.state) {
    case Idle:
        break;
    case Waiting:
        result.insert(QStringLiteral("next"), time);
        break;
    case Running:
        result.insert(QStringLiteral("running since"), time);
        break;
    case Ended:
        result.insert(QStringLiteral("ended"), true);
        break;
    }
    return result;
}

void TimetableActivity::enter(State state, const QDateTime &time)
{
    const QMutexLocker locker(&m_mutex);
    m_status.state = state;
    m_status.time = time;
}

void TimetableActivity::end(const QString &reason)
{
    const QMutexLocker locker(&m_mutex);
    m_status.state = Ended;
    m_status.end = m_isCancelled ? QStringLiteral("cancelled") : reason;
}
