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
 * Has a running host follow its configuration file at each SIGHUP. A file that is wrong changes nothing, and what takes
 * a restart stays as it is; both are said. One object in a process.
 *
 * Thread: the application's.
 */
class Reload
{
public:
    /// `started` is what the host starts with, and `file` holds. A signal that comes from now on waits.
    Reload(const QString &file, const Configuration &started);
    ~Reload();

    /// Follows the file from now on. Neither of the two is owned.
    void begin(Host *host, ServiceManager *serviceManager);
    /// Signals do nothing any more.
    void end();

private:
    Q_DISABLE_COPY(Reload)
    void reload();
    bool follow();
    QJsonObject inForce(QJsonObject wanted) const;
    void tellUnloaded(const QJsonObject &configuration);
    void tellPlugins(const QJsonObject &configuration) const;
    void switchSeverities(QJsonObject section) const;

    const QString m_file;        // absolute: a plugin may change the working directory
    const QJsonObject m_started; // what takes a restart is as it was then
    QJsonObject m_now;
    QStringList m_listed;     // the plugins of all that was followed
    QJsonObject m_severities; // as they are where no configuration says more
    SignalPipe m_pipe;
    Host *m_host = nullptr;
    ServiceManager *m_serviceManager = nullptr;
};
