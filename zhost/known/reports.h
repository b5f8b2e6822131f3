// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QJsonArray>
#include <QJsonObject>
#include <QString>

class Host;
class TimetableActivity;
struct Known;

/// The reports of a host on itself, as zhost-door.openapi.json describes them.
class Reports
{
public:
    /// `host` is null while the host is being made, and when it ends: then less is known.
    Reports(const Known &known, Host *host) : m_known(known), m_host(host) {}

    QJsonObject all() const;
    /// The part of the report under `key`; undefined if there is no such key.
    QJsonValue part(const QString &key) const;

    QJsonObject host() const;
    QJsonArray plugins() const;
    QJsonArray services() const;
    QJsonArray schedule() const;
    /// Why the host is not healthy; empty if it is.
    QString illness() const;

    static QJsonObject describe(const TimetableActivity &entry);

private:
    struct Part
    {
        const char *key;
        QJsonValue (*describe)(const Reports &);
    };
    static const Part parts[];

    /// How the event loop of the application does.
    struct Loop
    {
        qint64 delayMs;
        bool hangs;
        QString where; ///< It hangs; empty if that is not known.

        QString illness() const;
    };
    Loop loop() const;

    QJsonObject configuration() const;

    const Known &m_known;
    Host *const m_host;
};
