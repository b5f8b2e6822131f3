// SPDX-License-Identifier: Apache-2.0
#include "timetableactivity.h"

#include "buscall.h"
#include "warn.h"

#include <QElapsedTimer>
#include <QJsonObject>
#include <QMutexLocker>

#include <zdailywindow.h>

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

TimetableActivity::TimetableActivity(const TimetableEntry &entry, int index, ZDbus *dbus, ZLogger *logger)
    : ZDbusActivity(scheduleOf(entry), dbus, entry.url, entry.repeat), m_entry(entry), m_dbus(dbus), m_logger(logger),
      m_index(index)
{}

TimetableActivity::~TimetableActivity() = default;

bool TimetableActivity::wait()
{
    enter(Waiting, nextRun(m_entry));
    if (ZDbusActivity::wait())
        return true;
    end(QStringLiteral("cancelled"));
    return false;
}

bool TimetableActivity::run()
{
    enter(Running, QDateTime::currentDateTime());
    const QString failure = call();
    const bool goesOn = m_entry.repeat && (failure.isNull() || m_entry.keep);
    bool isCancelled = false;
    {
        const QMutexLocker locker(&m_mutex);
        isCancelled = m_isCancelled;
    }
    if (!goesOn)
        end(failure.isNull() ? QStringLiteral("it was to run once") : failure);
    if (!failure.isNull() && failure != m_told && !isCancelled) // the same warning comes only once in a row
        warn(*m_logger, QStringLiteral("schedule[%1] %2: %3")
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
    const QString failure = call();
    endNow();
    return failure;
}

void TimetableActivity::endNow()
{
    const QMutexLocker locker(&m_mutex);
    m_isCalledNow = false;
}

QString TimetableActivity::call()
{
    const QDateTime begin = QDateTime::currentDateTime();
    QElapsedTimer timer;
    timer.start();
    const QString failure = callBus(*m_dbus, m_entry.url, nullptr, nullptr);
    const double duration = double(timer.nsecsElapsed()) / 1e6;
    const QMutexLocker locker(&m_mutex);
    ++m_status.runs;
    m_status.failures += failure.isNull() ? 0 : 1;
    m_status.inARow = failure.isNull() ? 0 : m_status.inARow + 1;
    m_status.last = begin;
    m_status.lastMs = duration;
    m_status.lastReason = failure;
    return failure;
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
