// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "child.h"
#include "folder.h"

#include <QString>
#include <QStringList>

#include <memory>
#include <vector>

/// A port of this machine that nobody listened on a moment ago.
int freePort();

/**
 * A `nats-server` on loopback, with a port of its own, which it keeps when it is started again.
 *
 * What it takes a while to do is waited for by connecting to it.
 */
class Broker
{
public:
    /// `configuration` is text for its configuration file; address and port are written before it.
    explicit Broker(const QString &configuration = QString());
    ~Broker();

    /// Starts it, and waits until it greets who connects. False, with a warning, if it does not.
    bool start();
    /// It has no time to say farewell.
    void kill();
    /// It closes what it has, and ends.
    void terminate();
    /// It stops where it is, or goes on.
    void stop();
    void resume();
    /// It asks its clients to go elsewhere, and ends when they have.
    void beLameDuck();
    /// It reads its configuration file, which has this text from now on.
    bool reload(const QString &configuration);

    bool isRunning() const;
    int port() const { return m_port; }
    QString url() const;
    QString log() const;

    /// For the configuration: streams are kept in `folder`.
    static QString jetStream(const QString &folder);

private:
    Q_DISABLE_COPY(Broker)
    void write(const QString &configuration) const;
    bool isGreeting() const;

    const int m_port;
    QString m_configuration;
    const Folder m_folder;
    std::unique_ptr<Child> m_process;
};

/// So many brokers that know each other, each with `configuration`; those that could not be started are not running.
std::vector<std::unique_ptr<Broker>> cluster(int count, const QString &configuration = QString());
