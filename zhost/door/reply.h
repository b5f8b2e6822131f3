// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QString>

/// What the door answers.
struct Reply
{
    int status = 200; ///< of HTTP
    QByteArray body;
    QByteArray type = QByteArrayLiteral("application/json");

    static Reply of(const QJsonObject &object, int status = 200)
    {
        return {status, QJsonDocument(object).toJson(QJsonDocument::Compact) + '\n'};
    }
    static Reply of(const QJsonArray &array)
    {
        return {200, QJsonDocument(array).toJson(QJsonDocument::Compact) + '\n'};
    }
    static Reply of(const QJsonValue &value) { return value.isArray() ? of(value.toArray()) : of(value.toObject()); }
    /// `reason` is a sentence without a full stop, for people.
    static Reply failure(int status, const QString &reason)
    {
        return of(QJsonObject{{QStringLiteral("error"), reason}}, status);
    }
};
