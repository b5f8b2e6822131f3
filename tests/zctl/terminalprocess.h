// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QProcess>

/// A program at a terminal of its own.
class TerminalProcess : public QProcess
{
public:
    TerminalProcess(int columns, int rows);
    ~TerminalProcess() override;

    /// Until the program has written this, or has ended, or half a minute has gone.
    bool waitFor(const QByteArray &text);
    /// All that it has written, as the terminal gets it.
    QByteArray output() const { return m_output; }
    void forget() { m_output.clear(); }
    void resize(int columns, int rows) const;
    void type(const QByteArray &keys) const;
    /// Whether keys come at once and unseen.
    bool isRaw() const;
    /// Whether the program is, by a signal.
    bool isStopped() const;
    /// Waits for its end.
    bool end();

protected:
    void setupChildProcess() override;

private:
    Q_DISABLE_COPY(TerminalProcess)
    void read();

    int m_master = -1;
    int m_slave = -1; // held open: so the master can be read to the end
    QByteArray m_output;
};
