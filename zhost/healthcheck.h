// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QObject>
#include <QThread>
#include <QUrl>

#include <atomic>
#include <memory>

class ZDbus;

/**
 * Asks one plugin each second whether it is healthy, on a thread of its own, which may hang.
 *
 * A plugin that cannot be asked counts as healthy: one that has no endpoint "//NAME/healthy", and names no other one in
 * its metadata.
 */
class HealthCheck : public QObject
{
    Q_OBJECT

public:
    /// `path` is the file of the plugin, which is loaded.
    HealthCheck(const QString &path, ZDbus *bus, QObject *parent);
    /// Waits for the call that is being made.
    ~HealthCheck() override;

    /// Stops asking, without a verdict, gives up its name, and deletes itself as soon as the running call has returned.
    void end();
    /// The file's name, without its folder.
    QString file() const { return m_file; }
    QUrl url() const { return m_url; }
    /// Whether the plugin's last answer was good.
    bool isHealthy() const { return m_failures == 0; }
    /// The reason of `failed()`, if the last two answers were both bad; else null.
    QString failure() const;
    /// Whether a call hangs. Waits a second for its end.
    bool hangs() { return m_call && !m_call->wait(PeriodMs); }

Q_SIGNALS:
    /// Emitted when two calls in a row were not handled, or took more than a second.
    void failed(const QString &reason);

protected:
    void timerEvent(QTimerEvent *event) override;

private:
    static constexpr int PeriodMs = 1000;

    void ask();
    void judge(bool isOver);

    const QString m_file;
    ZDbus *const m_bus;
    QUrl m_url;
    bool m_isDeclared = false;
    int m_timer = 0;
    std::unique_ptr<QThread> m_call; // null before the first
    std::atomic_bool m_isHandled{false};
    bool m_isLate = false; // the call has been counted already, as too slow
    QString m_lastFailure;
    int m_failures = 0; // in a row
};
