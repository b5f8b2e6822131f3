// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QObject>

class QSocketNotifier;

/// By which a signal handler tells the event loop that there has been a signal.
class SignalPipe : public QObject
{
    Q_OBJECT

public:
    SignalPipe();
    ~SignalPipe() override;

    /// Where a byte is to be written, which never blocks.
    int writeEnd() const { return m_writeEnd; }
    /// What is written meanwhile waits; several are told of once.
    void setEnabled(bool isEnabled);

Q_SIGNALS:
    void written();

private:
    void drain();

    int m_readEnd = -1;
    int m_writeEnd = -1;
    QSocketNotifier *m_notifier = nullptr;
};
