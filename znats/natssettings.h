// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QString>
#include <QStringList>

class QJsonObject;

/**
 * The section "nats" of the configuration.
 *
 * Thread:  a value; one at a time.
 * Failure: a key that is missing or wrong leaves its default.
 */
struct NatsSettings
{
    /// By which files the connection is protected. Files are absolute; a path that is empty is not given.
    struct Tls
    {
        bool isOn = false; ///< For all servers: the section is there, or the address of one begins with tls://.
        QString ca;
        QString certificate;
        QString key;
        QString name; ///< Whom the server's certificate must name; empty: the host of its address.
    };

    /// Where leases are kept.
    struct Leases
    {
        QString bucket = QStringLiteral("zleases");
        int replicas = 1;
        QString storage = QStringLiteral("file"); ///< Or "memory".
    };

    QString name; ///< This process among others.
    QString domain = QStringLiteral("default");
    QStringList servers = {QStringLiteral("nats://127.0.0.1:4222")};
    QStringList serve; ///< In lower case, as a URL has its host.
    int timeoutMs = 2000;
    int findMs = 250;
    int gatherMs = 250;
    int stallMs = 50;
    int patienceMs = 1000;
    bool broadcastAll = false;
    int workers = 8;
    int queue = 256;
    int hops = 8;
    int clockToleranceMs = 500;
    QString user;
    QString passwordFile;
    QString credentialsFile;
    QString tokenFile;
    QString inbox; ///< The prefix of the subjects of answers.
    Tls tls;
    Leases leases;

    /// Reads the section. What is wrong is appended to `problems`, unless that is null: "nats.timeout: must be a whole
    /// number from 1 to 3600000". No file is touched.
    static NatsSettings read(const QJsonObject &section, QStringList *problems);

    /// Whether a process may have this name.
    static bool isName(const QString &name);

    /// What is wrong with the files: those that are secret must belong to this user or root, and be for nobody else.
    /// All must hold what they are for.
    QStringList fileProblems() const;
    /// Whether others may call endpoints of `host`. What the host program has bound is named in full, or not served;
    /// //nats never is.
    bool serves(const QString &host) const;
};
