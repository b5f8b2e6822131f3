// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QString>
#include <QTimer>

#include <functional>

/**
 * Tells systemd how the program is doing, if systemd has started it and wants to know. Else, and if it was built
 * without libsystemd, it does nothing.
 *
 * Thread: the application's, whose event loop is what systemd's watchdog watches.
 */
class ServiceManager
{
public:
    /// `status` returns one line for the operator; it is called each time.
    explicit ServiceManager(std::function<QString()> status);

    /// Call it when all is loaded, or a reload has ended. From now on the watchdog is told that the event loop runs.
    void ready();
    void reloading();
    void stopping();

private:
    Q_DISABLE_COPY(ServiceManager)
    QByteArray status() const;

    const std::function<QString()> m_status;
    QTimer m_watchdog;
};
