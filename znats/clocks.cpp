// SPDX-License-Identifier: Apache-2.0
#include "clocks.h"

#include <QMutexLocker>

#include <algorithm>

namespace {

constexpr int MostSenders = 1024;
constexpr qint64 OldMs = 600000;

} // namespace

qint64 Clocks::age(const QByteArray &sender, qint64 sentMs, qint64 nowMs, std::optional<qint64> echoMs)
{
    const QMutexLocker locker(&m_mutex);
    forgetOld(nowMs);
    Sender &known = m_senders[sender];
    known.lastMs = nowMs;
    const qint64 passed = nowMs - sentMs;
    if (echoMs && *echoMs <= nowMs) {
        const qint64 since = nowMs - *echoMs;
        known.skewMs = passed - since;
        return since;
    }
    // A sender who is not known yet is taken to have our time, unless its request would come from the future.
    known.skewMs = std::min(known.skewMs, passed);
    return passed - known.skewMs;
}

void Clocks::forgetOld(qint64 nowMs)
{
    if (m_senders.size() < MostSenders)
        return;
    QList<QByteArray> old;
    for (auto sender = m_senders.cbegin(); sender != m_senders.cend(); ++sender) {
        if (nowMs - sender->lastMs > OldMs)
            old.append(sender.key());
    }
    if (old.isEmpty())
        m_senders.clear();
    for (const QByteArray &sender : qAsConst(old))
        m_senders.remove(sender);
}
