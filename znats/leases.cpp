// SPDX-License-Identifier: Apache-2.0
#include "leases.h"

#include <QJsonObject>
#include <QMutexLocker>
#include <QUuid>

#include <algorithm>
#include <atomic>
#include <utility>

namespace {

constexpr int LeastMs = 100;
constexpr int MostMs = 24 * 3600 * 1000;
constexpr int MostCharacters = 128; // of a name, which is part of a subject
constexpr int MostPatienceMs = 500; // with the broker: an end waits for it
constexpr int IdleMs = 60000;       // until the keeper looks again, if there is nothing to keep
constexpr int SoonMs = 200;         // the same, while there is no connection
constexpr int Tries = 2;            // of a change: another version of this process may be faster once

/// With the broker. A begin may take twice as long, and half as long before that to find out that it has to ask anew:
/// half of the lease's time.
int patience(int msecs) { return std::min(msecs / 5, MostPatienceMs); }

} // namespace

/// One of them. What asks the broker is done one after the other, under m_turn.
class Leases::Lease
{
public:
    /// `known` is what another version of this process knew.
    Lease(const NatsSettings &settings, const Log &log, Connection &connection, const QString &name, int msecs,
          const QString &id, const LeaseRecord &known)
        : m_log(log), m_name(name), m_msecs(msecs), m_id(id), m_host(settings.name),
          m_book(settings, connection, name, patience(msecs)), m_record(known)
    {}

    int wants = 0;                      // guarded by the mutex of all leases, as the next one
    int inherited = 0;                  // of `wants`
    QDeadlineTimer due;                 // when it is to be looked at next; for the keeper only
    std::atomic<bool> isRetired{false}; // another version of this process goes on, and tells

    int msecs() const { return m_msecs; }

    /// Renews it, or looks whether it can be taken.
    void step()
    {
        const QMutexLocker locker(&m_turn);
        if (m_isForgotten || (m_isHeld && write(m_record.slot) == NATS_OK))
            return;
        natsStatus status = NATS_MISMATCH;
        for (int i = 0; i < Tries && status == NATS_MISMATCH; ++i) {
            status = look();
            if (status == NATS_OK && (isFree() || m_seen.elapsed() >= std::max(m_record.msecs, m_msecs)))
                status = write(m_record.slot);
        }
        tell(status);
    }

    bool begin(qint64 slot, QString *reason)
    {
        QElapsedTimer timer;
        timer.start();
        if (!m_turn.tryLock(patience(m_msecs))) {
            *reason = QStringLiteral("the lease %1 is not known to be ours").arg(m_name);
            return false;
        }
        const bool isBegun = beginLocked(slot, timer, reason);
        m_turn.unlock();
        return isBegun;
    }

    void giveBack()
    {
        const QMutexLocker locker(&m_turn);
        m_isForgotten = true;
        if (m_isHeld) // if a later version of this process has it, that has written since, and this is refused
            write({{}, {}, m_msecs, m_record.slot});
        setHeld(false);
    }

    QJsonObject describe(int count) const
    {
        const QMutexLocker locker(&m_state);
        QJsonObject result{{QStringLiteral("name"), m_name},
                           {QStringLiteral("ms"), m_msecs},
                           {QStringLiteral("id"), m_id},
                           {QStringLiteral("wants"), count},
                           {QStringLiteral("state"), state()}};
        if (!m_record.holder.isEmpty())
            result.insert(QStringLiteral("holder"), m_record.host);
        if (m_renewed.isValid() && m_isHeld)
            result.insert(QStringLiteral("age ms"), double(m_renewed.elapsed()));
        if (m_record.slot >= 0)
            result.insert(QStringLiteral("slot"), QString::number(m_record.slot));
        if (!m_problem.isNull())
            result.insert(QStringLiteral("error"), m_problem);
        return result;
    }

private:
    bool beginLocked(qint64 slot, const QElapsedTimer &timer, QString *reason)
    {
        if (m_isForgotten) {
            *reason = QStringLiteral("nobody wants the lease %1").arg(m_name);
            return false;
        }
        natsStatus status = NATS_MISMATCH;
        if (m_isHeld && !m_renewed.hasExpired(m_msecs) && slot > m_record.slot)
            status = write(slot);
        // It was ours, but that is long ago, or another version of this process has written since. Each write builds on
        // the record that was read: if anybody has begun this slot, the record says so, or the write is refused.
        if (status != NATS_OK && m_record.holder == m_id && slot > m_record.slot &&
            !timer.hasExpired(patience(m_msecs) / 2)) {
            status = look();
            if (status == NATS_OK)
                status = isFree() && slot > m_record.slot && !timer.hasExpired(patience(m_msecs)) ? write(slot)
                                                                                                  : NATS_MISMATCH;
            tell(status);
        }
        if (status == NATS_OK && !m_renewed.hasExpired(m_msecs))
            return true;
        *reason = status == NATS_OK ? QStringLiteral("the lease %1 is lost").arg(m_name) : reasonAgainst(slot);
        return false;
    }

    QString reasonAgainst(qint64 slot) const
    {
        if (m_record.holder == m_id && slot <= m_record.slot)
            return QStringLiteral("it was done already under the lease %1").arg(m_name);
        if (!m_record.holder.isEmpty() && m_record.holder != m_id)
            return QStringLiteral("%1 has the lease %2").arg(m_record.host, m_name);
        const QString text = QStringLiteral("nobody is known to have the lease %1").arg(m_name);
        return m_problem.isNull() ? text : text + QStringLiteral(": ") + m_problem;
    }

    /// Whether nobody else has it.
    bool isFree() const { return m_record.holder.isEmpty() || m_record.holder == m_id; }

    /// Learns who has it.
    natsStatus look()
    {
        LeaseRecord record;
        quint64 revision = 0;
        const natsStatus status = m_book.read(&record, &revision);
        if (status != NATS_OK && status != NATS_NOT_FOUND) {
            setHeld(false);
            return status;
        }
        if (!m_seen.isValid() || revision != m_revision)
            m_seen.start();
        record.slot = std::max(record.slot, m_record.slot); // a broker without a disk has forgotten it
        note(record, revision);
        if (record.holder != m_id)
            setHeld(false);
        return NATS_OK;
    }

    /// Takes it, or renews it, with `slot` as the last one that was begun.
    natsStatus write(qint64 slot) { return write({m_id, m_host, m_msecs, slot}); }

    /// If that fails, it is not ours any more, or nobody knows.
    natsStatus write(const LeaseRecord &record)
    {
        QElapsedTimer begin;
        begin.start();
        quint64 revision = m_revision;
        const natsStatus status = m_book.write(record, &revision);
        if (status == NATS_OK) {
            note(record, revision);
            setHeld(record.holder == m_id);
            const QMutexLocker locker(&m_state);
            m_renewed = begin;
        } else {
            setHeld(false);
        }
        return status;
    }

    /// Logs why nobody knows who has it, and that it is known again.
    void tell(natsStatus status)
    {
        // One answer that comes too late is no news, and says less than a reason that was told already.
        const bool isLate = status == NATS_TIMEOUT;
        const bool isLateAgain = std::exchange(m_isLate, isLate);
        if (isLate && (!isLateAgain || !m_problem.isNull()))
            return;
        const bool isKnown = status == NATS_OK || status == NATS_MISMATCH;
        const QString problem = isKnown ? QString() : m_book.problem();
        if (problem == m_problem || (!isKnown && problem.isNull()))
            return;
        {
            const QMutexLocker locker(&m_state);
            m_problem = problem;
        }
        if (isRetired)
            return;
        if (isKnown)
            m_log.info(QStringLiteral("the lease %1 is known again").arg(m_name));
        else
            m_log.warn(QStringLiteral("the lease %1 is not known: %2").arg(m_name, problem));
    }

    void note(const LeaseRecord &record, quint64 revision)
    {
        const QMutexLocker locker(&m_state);
        m_record = record;
        m_revision = revision;
    }

    void setHeld(bool isHeld)
    {
        {
            const QMutexLocker locker(&m_state);
            if (m_isHeld == isHeld)
                return;
            m_isHeld = isHeld;
        }
        if (isRetired)
            return;
        m_log.info(
            (isHeld ? QStringLiteral("has the lease %1") : QStringLiteral("has the lease %1 no more")).arg(m_name));
    }

    QString state() const
    {
        if (m_isHeld)
            return QStringLiteral("held");
        return m_record.holder.isEmpty() || m_record.holder == m_id ? QStringLiteral("unknown")
                                                                    : QStringLiteral("other");
    }

    const Log &m_log;
    const QString m_name;
    const int m_msecs;
    const QString m_id;
    const QString m_host;
    QMutex m_turn; // guards the following four, and is held while the broker is asked
    bool m_isForgotten = false;
    bool m_isLate = false; // the last answer did not come in time
    LeaseBook m_book;
    QElapsedTimer m_seen;   // since the record was last seen to change
    mutable QMutex m_state; // guards the following, which change under m_turn only
    LeaseRecord m_record;
    quint64 m_revision = 0;
    QElapsedTimer m_renewed;
    bool m_isHeld = false;
    QString m_problem; // why nobody knows who has it
};

Leases::Leases(const NatsSettings &settings, const Log &log, Connection &connection)
    : m_settings(settings), m_log(log), m_connection(connection),
      m_id(QUuid::createUuid().toString(QUuid::WithoutBraces))
{}

Leases::~Leases() = default;

bool Leases::want(const QString &name, int msecs) { return want(name, msecs, {}); }

bool Leases::want(const QString &name, int msecs, const LeaseRecord &known)
{
    if (name.isEmpty() || name.size() > MostCharacters || msecs < LeastMs || msecs > MostMs)
        return false;
    const QMutexLocker locker(&m_mutex);
    if (m_isEnding)
        return false;
    const QString kept(name.constData(), name.size()); // the caller may be a plugin, which may be unloaded
    std::shared_ptr<Lease> &lease = m_leases[kept];
    if (!lease)
        lease = std::make_shared<Lease>(m_settings, m_log, m_connection, kept, msecs, m_id, known);
    // Who has wanted it before the exchange need not know of that, and may want it again.
    if (lease->inherited > 0)
        --lease->inherited;
    else
        ++lease->wants;
    m_isNew = true;
    if (!m_keeper) {
        m_keeper.reset(QThread::create([this] { keep(); }));
        m_keeper->setObjectName(QStringLiteral("nats leases"));
        m_keeper->start();
    }
    m_changed.wakeAll();
    return true;
}

void Leases::forget(const QString &name)
{
    std::shared_ptr<Lease> lease;
    {
        const QMutexLocker locker(&m_mutex);
        const auto found = m_leases.find(name);
        if (found == m_leases.end())
            return;
        lease = *found;
        lease->inherited = std::min(lease->inherited, --lease->wants);
        if (lease->wants > 0)
            return;
        m_leases.erase(found);
    }
    lease->giveBack();
}

bool Leases::begin(const QString &name, qint64 slot, QString *reason)
{
    std::shared_ptr<Lease> lease;
    {
        const QMutexLocker locker(&m_mutex);
        lease = m_leases.value(name);
    }
    if (lease)
        return lease->begin(slot, reason);
    *reason = QStringLiteral("nobody wants the lease %1").arg(name);
    return false;
}

void Leases::inherit(const QJsonArray &description)
{
    for (const auto &each : description) {
        const QJsonObject lease = each.toObject();
        const QString name = lease.value(QStringLiteral("name")).toString();
        const int msecs = lease.value(QStringLiteral("ms")).toInt();
        const QString id = lease.value(QStringLiteral("id")).toString();
        if (!id.isEmpty()) {
            const QMutexLocker locker(&m_mutex);
            m_id = id;
        }
        // Who has the lease need not wait for the broker to say so: it may begin at once.
        const bool isHeld = lease.value(QStringLiteral("state")) == QLatin1String("held");
        const LeaseRecord known{isHeld ? id : QString(), m_settings.name, msecs,
                                lease.value(QStringLiteral("slot")).toString(QStringLiteral("-1")).toLongLong()};
        for (int i = lease.value(QStringLiteral("wants")).toInt(); i > 0; --i)
            want(name, msecs, known);
        const QMutexLocker locker(&m_mutex);
        if (const std::shared_ptr<Lease> wanted = m_leases.value(name))
            wanted->inherited = wanted->wants;
    }
}

void Leases::retire()
{
    const QMutexLocker locker(&m_mutex);
    m_isEnding = true;
    for (const std::shared_ptr<Lease> &lease : qAsConst(m_leases))
        lease->isRetired = true;
    m_changed.wakeAll();
}

QJsonArray Leases::describe() const
{
    const QMutexLocker locker(&m_mutex);
    QJsonArray result;
    for (const std::shared_ptr<Lease> &lease : m_leases)
        result.append(lease->describe(lease->wants));
    return result;
}

bool Leases::end(const QDeadlineTimer &deadline)
{
    {
        const QMutexLocker locker(&m_mutex);
        m_isEnding = true;
        m_changed.wakeAll();
    }
    const auto left = [&] { return static_cast<unsigned long>(std::max<qint64>(deadline.remainingTime(), 1)); };
    if (m_keeper && !m_keeper->wait(left()))
        return false;
    if (m_connection.isConnected()) {
        const QVector<std::shared_ptr<Lease>> leases = all();
        for (const std::shared_ptr<Lease> &lease : leases) {
            if (!deadline.hasExpired())
                lease->giveBack();
        }
    }
    return true;
}

void Leases::keep()
{
    QMutexLocker locker(&m_mutex);
    while (!m_isEnding) {
        m_isNew = false;
        locker.unlock();
        int waitMs = IdleMs;
        const QVector<std::shared_ptr<Lease>> leases = all();
        for (const std::shared_ptr<Lease> &lease : leases) {
            if (lease->due.hasExpired()) {
                const int next = lease->msecs() / 3;
                lease->due.setRemainingTime(m_connection.isConnected() ? next : std::min(next, SoonMs));
                lease->step();
            }
            waitMs = std::min(waitMs, static_cast<int>(lease->due.remainingTime()));
        }
        locker.relock();
        if (!m_isEnding && !m_isNew && waitMs > 0)
            m_changed.wait(&m_mutex, static_cast<unsigned long>(waitMs));
    }
}

QVector<std::shared_ptr<Leases::Lease>> Leases::all() const
{
    const QMutexLocker locker(&m_mutex);
    QVector<std::shared_ptr<Lease>> leases;
    for (const std::shared_ptr<Lease> &lease : m_leases)
        leases.append(lease);
    return leases;
}
