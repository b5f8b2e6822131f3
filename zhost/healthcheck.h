// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QObject>
#include <QThread>
#include <QUrl>

#include <atomic>
#include <memory>

class ZDbus;

/**
 * Asks one plugin each second whether it is healthy, on a thread that may hang.
 *
 * Whom nobody can ask is healthy: who has neither an endpoint "//NAME/healthy" nor names another one in his metadata.
 */
class HealthCheck : public QObject
{
    Q_OBJECT

public:
    /// `path` is the file of the plugin, which is loaded.
    HealthCheck(const QString &path, ZDbus *bus, QObject *parent);
    /// Waits for the call that is being made.
    ~HealthCheck() override;

    /// Asks no more, holds nothing against the plugin, loses its name, and deletes itself as soon as the call that is
    /// being made has come back.
    void end();
    /// The file's name, without its folder.
    QString file() const { return m_file; }
    QUrl url() const { return m_url; }
    /// By its last answer.
    bool isHealthy() const { return m_failures == 0; }
    /// What is wrong with it by its last two answers, as `failed()` says it; null if they were not both bad.
    QString failure() const;
    /// Whether a call hangs, after waiting a second for its end.
    bool hangs() { return m_call && !m_call->wait(PeriodMs); }

Q_SIGNALS:
    /// Two calls in a row were not handled, or took more than a second.
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
    bool m_isLate = false; // the call has been judged already, as too slow
    QString m_lastFailure;
    int m_failures = 0; // in a row
};
