// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "signalpipe.h"

#include <QJsonObject>
#include <QString>
#include <QStringList>

struct Configuration;
class Host;
class ServiceManager;

/**
 * Makes a running host apply its configuration file at each SIGHUP. If the file is wrong, nothing changes; keys that
 * need a restart stay as they are. Both are reported. One object in a process.
 *
 * Thread: the application's.
 */
class Reload
{
public:
    /// `started` is the configuration with which the host starts, as it is in `file`. Signals that come from now on
    /// wait.
    Reload(const QString &file, const Configuration &started);
    ~Reload();

    /// Handles signals from now on. Neither of the two is owned.
    void begin(Host *host, ServiceManager *serviceManager);
    /// Ignores signals from now on.
    void end();

private:
    Q_DISABLE_COPY(Reload)
    void reload();
    bool follow();
    QJsonObject inForce(QJsonObject wanted) const;
    void tellUnloaded(const QJsonObject &configuration);
    void tellPlugins(const QJsonObject &configuration) const;
    static void tellSettings(const QJsonObject &before, const QJsonObject &now, const QStringList &heard);
    void switchSeverities(QJsonObject section) const;

    const QString m_file;        // absolute: a plugin may change the working directory
    const QJsonObject m_started; // keys that need a restart stay as in this one
    QJsonObject m_now;
    QStringList m_listed;     // the plugins of all configurations so far
    QJsonObject m_severities; // as they are without a configuration
    SignalPipe m_pipe;
    Host *m_host = nullptr;
    ServiceManager *m_serviceManager = nullptr;
};
