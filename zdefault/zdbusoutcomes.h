// SPDX-License-Identifier: Apache-2.0
// What a call has come to, as `ZDbusOutcome` says it.
#pragma once

#include <QJsonObject>
#include <QString>

inline QJsonObject zHandled() { return {{QStringLiteral("code"), 200}, {QStringLiteral("called"), true}}; }

/// Why it was not handled; nobody knows yet whether an endpoint was called.
inline QJsonObject zFailed(int code, const QString &reason)
{
    return {{QStringLiteral("code"), code}, {QStringLiteral("reason"), reason}};
}

inline QJsonObject zFailed(int code, const QString &reason, bool isCalled)
{
    QJsonObject outcome = zFailed(code, reason);
    outcome.insert(QStringLiteral("called"), isCalled);
    return outcome;
}

inline QJsonObject zNobody() { return zFailed(503, QStringLiteral("nobody"), false); }
