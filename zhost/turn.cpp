// SPDX-License-Identifier: Apache-2.0
#include "turn.h"

#include "services.h"

#include <QDateTime>
#include <QDeadlineTimer>
#include <QThread>

#include <zcaught.h>
#include <zlease.h>

#include <algorithm>

namespace {

constexpr int MaxWaitMs = 2000; // for a lease that is wanted only now
constexpr int PauseMs = 20;

} // namespace

Turn::Turn(const TimetableEntry &entry, ZLease *lease) : m_entry(entry), m_lease(lease) {}

bool Turn::want()
{
    const QSharedPointer<ZReference> server = behind(m_lease);
    if (!server || m_wantedFrom.toStrongRef() == server)
        return false;
    m_wantedFrom = server;
    zCaught([&] { m_lease->want0(m_entry.once, m_entry.leaseMs); });
    return true;
}

void Turn::forget()
{
    const QSharedPointer<ZReference> server = behind(m_lease);
    if (server && m_wantedFrom.toStrongRef() == server)
        zCaught([&] { m_lease->forget0(m_entry.once); });
    m_wantedFrom.clear();
}

Turn::Whose Turn::begin(QString *reason, const std::function<bool()> &isCancelled)
{
    const QDeadlineTimer deadline(want() ? std::min(m_entry.leaseMs / 2, MaxWaitMs) : 0);
    Whose whose = ask(reason);
    while (whose == Theirs && !deadline.hasExpired() && !isCancelled()) {
        QThread::msleep(PauseMs);
        whose = ask(reason);
    }
    return whose;
}

Turn::Whose Turn::ask(QString *reason)
{
    bool isMine = false;
    QString why;
    QString thrown;
    if (behind(m_lease))
        thrown = zCaught(
            [&] { isMine = m_lease->begin0(m_entry.once, QDateTime::currentMSecsSinceEpoch() / m_entry.every, why); });
    if (isMine)
        return Mine;
    if (!thrown.isNull())
        *reason = QStringLiteral("ZLease has thrown: %1").arg(thrown);
    else if (!behind(m_lease))
        *reason = QStringLiteral("nobody serves ZLease, which \"once\" needs");
    else if (why.isEmpty())
        *reason = QStringLiteral("another host has the lease");
    else
        *reason = QString(why.constData(), why.size()); // a literal of a plugin's would go with its file
    return thrown.isNull() && behind(m_lease) ? Theirs : Unknown;
}
