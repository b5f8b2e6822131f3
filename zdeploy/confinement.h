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

/// Has plugins' code run by processes of their own, which this one watches over: it has the rights of the owner of a
/// folder, and leaves nothing behind. One object in a process, which has nothing else to do, and whose stdin is a pipe
/// that closes when nobody wants to know any more.
class Confinement
{
public:
    /// Makes this process, if it is root's, one of the owner of `folder`. All that is done may take `seconds`.
    Confinement(const QString &folder, int seconds);

    /// Why nothing can be done; empty if it can.
    QString error() const { return m_error; }
    /// Whether nobody wants to know any more.
    bool isForNobody() const;
    /// A folder, in which anything may be left.
    QString scratch() const { return m_scratch->path(); }

    /// Answers what is wrong, empty if nothing is. `answer` is the descriptor to which an `Account` is written of what
    /// is done.
    using Work = std::function<QString(int answer)>;
    /// Has `work` done by a process with an application object and limits; what is wrong with it, or with how the
    /// process has ended. `processorSeconds` is what it may use. One that does not end is aborted before it is killed,
    /// so that it can write down where it hangs.
    Verdict run(const Work &work, int processorSeconds) const;

private:
    QString m_error;
    QDeadlineTimer m_deadline;
    sigset_t m_signals = {};
    std::unique_ptr<QTemporaryDir> m_scratch; // made with the rights that are left
};

/// The verdict where that is for no fault of the plugin.
Verdict notTriedOut(const QString &reason);

/// Starts this program once more with `arguments`, as one that confines, and answers the verdict that it writes to
/// stdout. It ends by itself after some `seconds`.
Verdict askAnotherProcess(const QStringList &arguments, int seconds);
