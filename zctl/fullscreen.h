// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QStringList>

#include <termios.h>

/**
 * Uses the whole terminal, as long as this object lives: keys come at once and are not shown, and the cursor is hidden.
 * Afterwards the former content comes back, even if a signal ends the program.
 *
 * Thread: one, of a process that has no others: its signals wait for `waitForKey`.
 */
class FullScreen
{
public:
    FullScreen();
    ~FullScreen();

    /// Shows as many of `lines` as there is room for.
    void show(const QStringList &lines) const;

    enum Event
    {
        Nothing,
        Key,
        Continued,   ///< after being stopped, as by Ctrl-Z: nothing is shown
        Interrupted, ///< by Ctrl-C
        Ended        ///< by another signal: see `signal`
    };
    /// Waits for something to happen.
    Event wait(int ms);
    /// The last key.
    char key() const { return m_key; }
    /// The signal by which the process should end, once this object is gone.
    int signal() const { return m_signal; }

private:
    Q_DISABLE_COPY(FullScreen)
    void enter();
    void leave() const;
    Event readSignal();
    Event readKey();

    termios m_before = {};
    int m_signals = -1; // a signalfd
    char m_key = 0;
    int m_signal = 0;
};
