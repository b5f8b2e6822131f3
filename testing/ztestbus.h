// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "zdefaultdbus.h"

#include <QHash>
#include <QMutex>
#include <QVector>

#include <optional>

/**
 * A bus that records all calls, and gives the answers that the test has set. All other calls go to the endpoints that
 * are bound, as on the bus from which it derives.
 *
 * Ownership: as any component. Keeps copies that do not point into a plugin.
 * Thread:    any.
 * Failure:   false, or an empty list.
 */
class ZTestBus : public ZDefaultDbus
{
    Q_OBJECT

public:
    struct Call
    {
        QUrl url;
        QJsonObject in; // empty, too, if the caller gave none
    };

    ZTestBus();
    ~ZTestBus() override;

    /// From now on a call of the host and path of `url` is answered with `out`, even if an endpoint is bound there.
    void answer(const QUrl &url, const QJsonObject &out);
    /// From now on a call of the host and path of `url` is not handled.
    void refuse(const QUrl &url);

    /// Returns all calls since the last `take()`, in the order in which they began, and forgets them. Calls that nobody
    /// handled are among them.
    QVector<Call> take();
    /// How many of these calls are to the host and path of `url`.
    int count(const QUrl &url) const;

    /// Also true for an address for which the test has set an answer or a refusal.
    bool find0(const QUrl &url) override;
    bool invoke0(const QUrl &url, QJsonObject *in, QJsonObject *out) override;

private:
    mutable QMutex m_mutex;
    QHash<QString, std::optional<QJsonObject>> m_answers; // by host and path; an empty one is a refusal
    QVector<Call> m_calls;
};
