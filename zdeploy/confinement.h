// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "verdict.h"

#include <QDeadlineTimer>
#include <QString>
#include <QStringList>
#include <QTemporaryDir>

#include <csignal>
#include <functional>
#include <memory>

/// Runs plugins' code in processes of their own, and watches over them. This process has the rights of the owner of a
/// folder, and leaves nothing behind. One object in a process, which does nothing else. Its stdin is a pipe that closes
/// when nobody waits for the result any more.
class Confinement
{
public:
    /// If this process is root's, gives it the rights of the owner of `folder`. All work together may take `seconds`.
    Confinement(const QString &folder, int seconds);

    /// Why nothing can be run; empty if it can.
    QString error() const { return m_error; }
    /// Whether nobody waits for the result any more.
    bool isForNobody() const;
    /// A folder, in which anything may be left.
    QString scratch() const { return m_scratch->path(); }

    /// Returns what is wrong; empty if nothing is. `answer` is the descriptor to which an `Account` of the work is
    /// written.
    using Work = std::function<QString(int answer)>;
    /// Runs `work` in a process with an application object and limits. Returns what is wrong with it, or with the way
    /// in which the process has ended. The process may use `processorSeconds`. If it does not end, it is aborted before
    /// it is killed, so that it can note where it hangs. Its facts are added to `facts`, if that is not null.
    Verdict run(const Work &work, int processorSeconds, QStringList *facts = nullptr) const;

private:
    QString m_error;
    QDeadlineTimer m_deadline;
    sigset_t m_signals = {};
    std::unique_ptr<QTemporaryDir> m_scratch; // made after the rights were given up
};

/// The verdict if a plugin could not be tried out for a reason that is not its own.
Verdict notTriedOut(const QString &reason);

/// Starts this program once more with `arguments`, as the process that watches, and returns the verdict that it writes
/// to stdout. It ends by itself after some `seconds`. Its facts are added to `facts`, if that is not null.
Verdict askAnotherProcess(const QStringList &arguments, int seconds, QStringList *facts = nullptr);
