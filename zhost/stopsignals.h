// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "signalpipe.h"

/// Turns the first SIGINT or SIGTERM into a Qt signal, given by the event loop. The second ends the process as if
/// nobody were listening: an operator can always get rid of it. One object in a process.
class StopSignals : public QObject
{
    Q_OBJECT

public:
    StopSignals();
    ~StopSignals() override;

    /// Whether one of them has come, be it heard of yet or not.
    static bool isStopWanted();

Q_SIGNALS:
    void received();

private:
    SignalPipe m_pipe;
};

/// Ends the process with exit status 1, and a line on stderr, unless it has ended by itself within half a minute from
/// the first call on. A signal that is turned into a Qt signal does so, too: the event loop may hang. May be called by
/// a signal handler.
void boundStop();
