// SPDX-License-Identifier: Apache-2.0
#include "ztestbus.h"

#include "ztexts.h"

#include <QMutexLocker>

#include <algorithm>
#include <utility>

namespace {

QString addressOf(const QUrl &url) { return zDeepCopy(url.host(QUrl::FullyDecoded) + url.path(QUrl::FullyDecoded)); }

} // namespace

ZTestBus::ZTestBus() = default;

ZTestBus::~ZTestBus() = default;

void ZTestBus::answer(const QUrl &url, const QJsonObject &out)
{
    const QMutexLocker locker(&m_mutex);
    m_answers.insert(addressOf(url), out);
}

void ZTestBus::refuse(const QUrl &url)
{
    const QMutexLocker locker(&m_mutex);
    m_answers.insert(addressOf(url), std::nullopt);
}

QVector<ZTestBus::Call> ZTestBus::take()
{
    const QMutexLocker locker(&m_mutex);
    return std::exchange(m_calls, {});
}

int ZTestBus::count(const QUrl &url) const
{
    const QString address = addressOf(url);
    const auto isThere = [&](const Call &call) { return addressOf(call.url) == address; };
    const QMutexLocker locker(&m_mutex);
    return static_cast<int>(std::count_if(m_calls.begin(), m_calls.end(), isThere));
}

bool ZTestBus::find0(const QUrl &url)
{
    {
        const QMutexLocker locker(&m_mutex);
        if (m_answers.contains(addressOf(url)))
            return true;
    }
    return ZDefaultDbus::find0(url);
}

bool ZTestBus::invoke0(const QUrl &url, QJsonObject *in, QJsonObject *out)
{
    {
        const QMutexLocker locker(&m_mutex);
        m_calls.append({QUrl(zDeepCopy(url.toString())), in ? *in : QJsonObject()});
        const auto said = m_answers.constFind(addressOf(url));
        if (said != m_answers.constEnd()) {
            if (*said && out)
                *out = **said;
            return said->has_value();
        }
    }
    return ZDefaultDbus::invoke0(url, in, out);
}
