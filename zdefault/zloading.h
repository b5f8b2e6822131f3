// SPDX-License-Identifier: Apache-2.0
// What is being loaded: a host reports it when it crashes or hangs. Not installed.
#pragma once

#include "zglobal.h"

#include <QByteArray>
#include <QString>

/**
 * A load that is running: from before the file is opened until its root has been injected, or has failed.
 *
 * Ownership: lies on the stack of the load; one may lie within another.
 * Thread:    the thread that loads.
 * Failure:   none.
 */
class ZLoading
{
public:
    /// What has become of a load. `Over` comes last, even if neither of the two before it has come.
    enum State
    {
        Begun,
        Loaded,
        Failed,
        Over,
        Unloaded, ///< Later: the file has left memory,
        Stays     ///< or nobody uses it any more, and yet it is in memory.
    };

    /// `name` is the name of the file, as it is loaded.
    explicit ZLoading(const QString &name);
    ~ZLoading();

    /// The load has failed for the reason `failure`; if that is null, it has succeeded.
    void end(const QString &failure) const;

    /// Whether another thread loads something.
    static bool isUnderWayElsewhere();

    /// Tells all listeners of a file called `name`. `reason` is why a load has failed, or why a file stays in memory.
    static void tell(const QByteArray &name, State state, const QString &reason = {});

private:
    Q_DISABLE_COPY(ZLoading)
    const QByteArray m_name;
    const char *const m_before;
};

/// The name of the file that the calling thread is loading; the innermost one, if loads are nested; null if there is
/// none. A signal handler may call it.
ZDEFAULT_EXPORT const char *zLoadingHere();

/// Adds a listener: `hear` is called for each file that is loaded or unloaded, with its name, on the thread that does
/// so. `reason` may be a text in the memory of a plugin. Call it before the first load.
ZDEFAULT_EXPORT void zTellLoads(void (*hear)(const QByteArray &name, ZLoading::State state, const QString &reason));
