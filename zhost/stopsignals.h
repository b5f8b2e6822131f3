// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "signalpipe.h"

/// Turns the first SIGINT or SIGTERM into a Qt signal, which the event loop emits. The second one ends the process, as
/// if there were no handler: so an operator can always end it. One object in a process.
class StopSignals : public QObject
{
    Q_OBJECT

public:
    StopSignals();
    ~StopSignals() override;

    /// Whether one of the signals has come, even if the event loop has not emitted it yet.
    static bool isStopWanted();

Q_SIGNALS:
    void received();

private:
    SignalPipe m_pipe;
};

/// Limits the time of a stop: half a minute after the first call the process is ended with exit status 1, and a line on
/// stderr, unless it has ended by itself. The first SIGINT or SIGTERM does so, too, since the event loop may hang. A
/// signal handler may call it.
void boundStop();
