// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QMutex>
#include <QObject>
#include <QStringList>

#include <atomic>
#include <memory>
#include <thread>

/**
 * Moves files that were dropped from one folder to another. If the other folder is on another file system, a file is
 * copied, and appears under its name when it is complete and on the disk. The source is removed last, and only if it
 * has not changed since, and nobody writes it.
 *
 * Ownership: owns its thread, and what that has copied; both end with it, and the source stays.
 * Thread:    any; it is destroyed on its own, which needs an event loop. A large file is copied by a thread that lives
 *            only for that.
 * Failure:   `Failed`: the source stays, and no file has the name of the target.
 */
class ZDeployment : public QObject
{
    Q_OBJECT

public:
    enum Result
    {
        Moved,
        Failed,
        Later // the source is being written, or copied; `due` is emitted for it
    };

    ZDeployment();
    ~ZDeployment() override;

    /// Never replaces a file that is there.
    Result move(const QString &source, const QString &target);

Q_SIGNALS:
    /// Emitted when it is time to try again to move `source`, if that is still wanted.
    void due(const QString &source);

private:
    class Copy;

    Result copy(const QString &source, const QString &target);
    Result copyAside(std::unique_ptr<Copy> copy);
    Result lookAgain(const QString &source);
    void announceWaiting();
    void announceCopied();
    void forgetCopied();

    QStringList m_waiting;         // sources to be looked at again
    std::unique_ptr<Copy> m_aside; // the copy that the thread makes, or has made
    std::thread m_thread;
    std::atomic_bool m_isStopped{false};
    QMutex m_mutex; // guards all but the flag
};
