// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QMutex>
#include <QObject>
#include <QStringList>

#include <atomic>
#include <memory>
#include <thread>

/**
 * Moves what was dropped into one folder to another, which may lie on another file system: there a file is copied, and
 * appears under its name when it is complete and on the disk. The source goes last, and only if it is still what was
 * copied and nobody writes it.
 *
 * Ownership: its thread and what that has copied; both end with it, and the source stays.
 * Thread:    any, and it dies on its own, which needs an event loop. A large file is copied by a thread that lives for
 * it. Failure:   `Failed`: the source stays, and nothing has the name of the target.
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

    /// Never replaces what is there.
    Result move(const QString &source, const QString &target);

Q_SIGNALS:
    /// It is time to try again to move `source`, if that is still wanted.
    void due(const QString &source);

private:
    class Copy;

    Result copy(const QString &source, const QString &target);
    Result copyAside(std::unique_ptr<Copy> copy);
    Result lookAgain(const QString &source);
    void announceWaiting();
    void announceCopied();
    void forgetCopied();

    QStringList m_waiting;         // to be looked at again
    std::unique_ptr<Copy> m_aside; // the one that a thread makes, or has made
    std::thread m_thread;
    std::atomic_bool m_isStopped{false};
    QMutex m_mutex; // guards all but the flag
};
