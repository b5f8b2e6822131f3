// SPDX-License-Identifier: Apache-2.0
#include "zdbuscalls.h"

#include "zcaught.h"
#include "zdbusoutcomes.h"
#include "ztexts.h"

#include <QMutexLocker>

#include <atomic>
#include <optional>
#include <utility>

namespace {

constexpr int MostRunning = 16;
constexpr int MostWaiting = 1024;

const QLatin1String In("in");
const QLatin1String Out("out");

thread_local const ZDbusCalls *working = nullptr; // those that this thread makes

/// Not of each service: a receiver may have begun calls with one, and with the one that has taken its place.
qint64 nextNumber()
{
    static std::atomic<qint64> last{0};
    return ++last;
}

std::optional<QJsonObject> part(const QJsonObject &request, QLatin1String name)
{
    const QJsonValue value = request.value(name);
    return value.isObject() ? std::optional<QJsonObject>(value.toObject()) : std::nullopt;
}

QJsonObject answer(bool isHandled, const std::optional<QJsonObject> &in, const std::optional<QJsonObject> &out,
                   const QJsonObject &outcome)
{
    QJsonObject result{{QStringLiteral("handled"), isHandled}, {QStringLiteral("outcome"), outcome}};
    if (in)
        result.insert(In, *in);
    if (out)
        result.insert(Out, *out);
    return result;
}

/// The answer to a call that is not made, since the service ends.
QJsonObject unmade(const QJsonObject &request)
{
    return answer(false, part(request, In), part(request, Out), zFailed(503, QStringLiteral("ended"), false));
}

} // namespace

ZDbusCalls::ZDbusCalls() { m_threads.setMaxThreadCount(MostRunning); }

ZDbusCalls::~ZDbusCalls()
{
    end();
    m_threads.waitForDone();
    log->close();
}

qint64 ZDbusCalls::begin(const QUrl &url, const QJsonObject &request, const QWeakPointer<ZDbusReceiver> &receiver)
{
    const qint64 number = nextNumber();
    const QUrl kept = zDeepCopy(url); // the caller may be a plugin, which may be gone by then
    const Call call{kept, request, std::make_shared<ZDbusReply>(number, kept, receiver, log)};
    const QMutexLocker locker(&m_mutex);
    if (m_isClosed || m_waiting.size() + m_running.size() >= MostRunning + MostWaiting)
        return 0;
    m_waiting.enqueue(call);
    if (m_workers < MostRunning) {
        ++m_workers;
        m_threads.start([this] { work(); });
    }
    return number;
}

void ZDbusCalls::end()
{
    const QMutexLocker locker(&m_mutex);
    if (std::exchange(m_isClosed, true) || m_waiting.isEmpty())
        return;
    ++m_workers;
    m_threads.setMaxThreadCount(MostRunning + 1); // all others may be in calls that take long
    m_threads.start([this] { work(); });
}

QStringList ZDbusCalls::busy()
{
    const QMutexLocker locker(&m_mutex);
    QStringList urls = QUrl::toStringList(m_running);
    for (const Call &call : qAsConst(m_waiting))
        urls.append(call.url.toString());
    urls.removeDuplicates();
    return urls;
}

bool ZDbusCalls::isOwnThread() const { return working == this; }

/// Makes calls, or answers that they are not made, until none waits.
void ZDbusCalls::work()
{
    working = this;
    Call call;
    bool isToBeMade = false;
    while (next(&call, &isToBeMade)) {
        call.reply->tell(isToBeMade ? make(call) : unmade(call.request));
        const QUrl url = std::exchange(call, {}).url; // the receiver may end before the call has
        const QMutexLocker locker(&m_mutex);
        m_running.removeOne(url);
    }
    working = nullptr;
}

bool ZDbusCalls::next(Call *call, bool *isToBeMade)
{
    const QMutexLocker locker(&m_mutex);
    if (m_waiting.isEmpty()) {
        --m_workers;
        return false;
    }
    *call = m_waiting.dequeue();
    *isToBeMade = !m_isClosed;
    m_running.append(call->url);
    return true;
}

QJsonObject ZDbusCalls::make(const Call &call)
{
    std::optional<QJsonObject> in = part(call.request, In), out = part(call.request, Out);
    QJsonObject result;
    bool isHandled = false;
    const QString thrown = zCaught(
        [&] { isHandled = outcome && outcome->call0(call.url, in ? &*in : nullptr, out ? &*out : nullptr, &result); });
    if (!thrown.isNull()) {
        result = zFailed(500, QStringLiteral("thrown"), true);
        log->warn(QStringLiteral("%1: %2").arg(call.url.toString(), thrown));
    } else if (result.isEmpty()) { // nobody serves ZDbusOutcome
        result = zNobody();
    }
    return answer(isHandled, in, out, result);
}
