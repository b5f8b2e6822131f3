// SPDX-License-Identifier: Apache-2.0
#include "busfigures.h"

#include <QDateTime>
#include <QJsonArray>

#include <algorithm>
#include <cmath>

namespace {

constexpr int MaxText = 1000;
constexpr int MaxItems = 1000;
constexpr double MaxNumber = 1e15; // greater ones are no whole numbers for all readers

QString text(const QJsonObject &object, const char *key)
{
    return object.value(QLatin1String(key)).toString().left(MaxText);
}

double number(const QJsonObject &object, const char *key)
{
    const double value = object.value(QLatin1String(key)).toDouble();
    return std::isfinite(value) ? std::clamp(value, -MaxNumber, MaxNumber) : 0;
}

double count(const QJsonObject &object, const char *key) { return std::trunc(std::max(0.0, number(object, key))); }

QString time(const QJsonObject &object, const char *key)
{
    const QDateTime value = QDateTime::fromString(text(object, key), Qt::ISODateWithMs);
    return value.isValid() ? value.toUTC().toString(Qt::ISODateWithMs) : QString();
}

QJsonObject object(const QJsonObject &parent, const char *key) { return parent.value(QLatin1String(key)).toObject(); }

/// What `describe` makes of each object in the array under `key`.
template <class Describe>
QJsonArray each(const QJsonObject &parent, const char *key, Describe describe)
{
    QJsonArray result;
    const QJsonArray values = parent.value(QLatin1String(key)).toArray();
    for (int i = 0; i < std::min(values.size(), MaxItems); ++i)
        result.append(describe(values.at(i).toObject()));
    return result;
}

QJsonArray texts(const QJsonObject &parent, const char *key)
{
    QJsonArray result;
    const QJsonArray values = parent.value(QLatin1String(key)).toArray();
    for (int i = 0; i < std::min(values.size(), MaxItems); ++i)
        result.append(values.at(i).toString().left(MaxText));
    return result;
}

QString stateOf(const QJsonObject &connection)
{
    const QString state = text(connection, "state");
    return QStringList{QStringLiteral("connected"), QStringLiteral("connecting"), QStringLiteral("closed")}.contains(
               state)
               ? state
               : QStringLiteral("unknown");
}

QJsonObject connectionOf(const QJsonObject &connection)
{
    return {{QStringLiteral("state"), stateOf(connection)},
            {QStringLiteral("server"), text(connection, "server")},
            {QStringLiteral("since"), time(connection, "since")},
            {QStringLiteral("rttMs"), number(connection, "rtt ms")},
            {QStringLiteral("reconnects"), count(connection, "reconnects")},
            {QStringLiteral("error"), text(connection, "error")}};
}

/// `refused` is the key of those that were not handled.
QJsonObject callsOf(const QJsonObject &calls, const char *refused)
{
    return {{QStringLiteral("calls"), count(calls, "n")},
            {QStringLiteral("failures"), std::max(count(calls, "failed"), count(calls, refused))},
            {QStringLiteral("underWay"), count(calls, "under way")},
            {QStringLiteral("p50Ms"), number(calls, "p50 ms")},
            {QStringLiteral("p99Ms"), number(calls, "p99 ms")}};
}

QJsonArray reasonsOf(const QJsonObject &reasons)
{
    QJsonArray result;
    for (auto reason = reasons.begin(); reason != reasons.end() && result.size() < MaxItems; ++reason)
        result.append(QJsonObject{{QStringLiteral("reason"), reason.key().left(MaxText)},
                                  {QStringLiteral("failures"), count(reasons, reason.key().toUtf8().constData())}});
    return result;
}

QJsonObject hostOf(const QJsonObject &host)
{
    return {{QStringLiteral("name"), text(host, "name")},
            {QStringLiteral("seen"), time(host, "seen")},
            {QStringLiteral("skewMs"), number(host, "skew ms")}};
}

QJsonObject leaseOf(const QJsonObject &lease)
{
    return {{QStringLiteral("name"), text(lease, "name")},
            {QStringLiteral("state"), text(lease, "state")},
            {QStringLiteral("holder"), text(lease, "holder")},
            {QStringLiteral("ageMs"), number(lease, "age ms")},
            {QStringLiteral("slot"), count(lease, "slot")}};
}

} // namespace

QJsonObject busFigures(const QJsonObject &told, const QString &error)
{
    const QJsonObject calls = object(told, "calls");
    const QJsonObject queue = object(told, "queue");
    return {{QStringLiteral("error"), error.left(MaxText)},
            {QStringLiteral("layer"), text(told, "layer")},
            {QStringLiteral("name"), text(told, "name")},
            {QStringLiteral("domain"), text(told, "domain")},
            {QStringLiteral("connection"), connectionOf(object(told, "connection"))},
            {QStringLiteral("served"), texts(told, "served")},
            {QStringLiteral("hosts"), each(told, "hosts", hostOf)},
            {QStringLiteral("out"), callsOf(object(calls, "out"), "failed")},
            {QStringLiteral("in"), callsOf(object(calls, "in"), "refused")},
            {QStringLiteral("reasons"), reasonsOf(object(told, "reasons"))},
            {QStringLiteral("queue"), QJsonObject{{QStringLiteral("waiting"), count(queue, "waiting")},
                                                  {QStringLiteral("running"), count(queue, "running")},
                                                  {QStringLiteral("workers"), count(queue, "workers")},
                                                  {QStringLiteral("most"), count(queue, "most")}}},
            {QStringLiteral("leases"), each(told, "leases", leaseOf)}};
}
