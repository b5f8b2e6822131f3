// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QObject>

class QSocketNotifier;

/// A pipe by which a signal handler tells the event loop that there has been a signal.
class SignalPipe : public QObject
{
    Q_OBJECT

public:
    SignalPipe();
    ~SignalPipe() override;

    /// The handler writes a byte here; that never blocks.
    int writeEnd() const { return m_writeEnd; }
    /// While it is disabled, written bytes wait; several of them give one Qt signal.
    void setEnabled(bool isEnabled);

Q_SIGNALS:
    void written();

private:
    void drain();

    int m_readEnd = -1;
    int m_writeEnd = -1;
    QSocketNotifier *m_notifier = nullptr;
};
