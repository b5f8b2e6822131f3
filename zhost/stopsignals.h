// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QObject>

class QSocketNotifier;

/// Turns the first SIGINT or SIGTERM into a Qt signal, given by the event loop. The second ends the process as if
/// nobody were listening: an operator can always get rid of it. One object in a process.
class StopSignals : public QObject
{
    Q_OBJECT

public:
    StopSignals();
    ~StopSignals() override;

Q_SIGNALS:
    void received();

private:
    int m_readEnd = -1;
    QSocketNotifier *m_notifier = nullptr;
};

/// Ends the process with exit status 1, and a line on stderr, unless it has ended by itself within so many seconds.
void endWithin(unsigned seconds);
