// SPDX-License-Identifier: Apache-2.0
// What is being loaded, for a host that has to tell why it ends. Not installed.
#pragma once

#include "zglobal.h"

#include <QByteArray>
#include <QString>

/**
 * A load that is under way, from before the file is opened until its root has been injected, or has failed.
 *
 * Ownership: the load's own, on its stack; one may lie within another.
 * Thread:    the one that loads.
 * Failure:   none.
 */
class ZLoading
{
public:
    /// What has become of a load. `Over` comes last, also where neither of the two before has come.
    enum State
    {
        Begun,
        Loaded,
        Failed,
        Over,
        Unloaded, ///< Later: the file has left memory,
        Stays     ///< or nobody uses it any more, and yet it is in memory.
    };

    /// `name` is the file's, as it is loaded.
    explicit ZLoading(const QString &name);
    ~ZLoading();

    /// It has succeeded, or failed for the reason `failure`, which is null otherwise.
    void end(const QString &failure) const;

    /// Has all who listen hear of a file called `name`; `reason` is why a load has failed, or a file stays.
    static void tell(const QByteArray &name, State state, const QString &reason = {});

private:
    Q_DISABLE_COPY(ZLoading)
    const QByteArray m_name;
    const char *const m_before;
};

/// The name of the file that the calling thread is loading, the innermost one; null if there is none. May be called by
/// a signal's handler.
ZDEFAULT_EXPORT const char *zLoadingHere();

/// Has `hear` called, with others, for what becomes of a file of this name, on the thread that loads or unloads it.
/// `reason` may be a plugin's text. To be called before the first load.
ZDEFAULT_EXPORT void zTellLoads(void (*hear)(const QByteArray &name, ZLoading::State state, const QString &reason));
