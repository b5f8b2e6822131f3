// SPDX-License-Identifier: Apache-2.0
#include "busquestion.h"

#include "../buscall.h"
#include "../known/busfigures.h"

#include <QMutexLocker>
#include <QUrl>

namespace {

constexpr int PatienceMs = 500;

} // namespace

void BusQuestion::begin(ZDbus *bus)
{
    const QMutexLocker locker(&m_mutex);
    if (m_call && m_calls->wait(m_call, 0).end == BusCalls::Result::Late)
        return;
    m_isLate = false;
    const QUrl url(QStringLiteral("//nats/printd"));
    m_call = m_calls->begin(
        url.toString(),
        [bus, url](QJsonObject *out) {
            QJsonObject in;
            return callBus(*bus, nullptr, url, &in, out);
        },
        BusCalls::Own);
}

QJsonObject BusQuestion::answer()
{
    std::shared_ptr<BusCalls::Call> call;
    int patienceMs = 0;
    {
        const QMutexLocker locker(&m_mutex);
        call = m_call;
        patienceMs = m_isLate ? 0 : PatienceMs;
    }
    if (!call)
        return busFigures({}, QStringLiteral("%1 calls are under way already").arg(BusCalls::MaxCalls));
    const BusCalls::Result result = m_calls->wait(call, patienceMs);
    if (result.end != BusCalls::Result::Late)
        return busFigures(result.out, result.reason);
    const QMutexLocker locker(&m_mutex);
    m_isLate = m_isLate || m_call == call;
    return busFigures({}, QStringLiteral("//nats/printd has not come back yet"));
}
