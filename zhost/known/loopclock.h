// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QElapsedTimer>
#include <QJsonObject>
#include <QMutex>
#include <QWaitCondition>

#include <memory>

/**
 * Measures how long events wait in the application's event loop. It does so only when somebody asks, so that a host
 * that nobody asks need not wake up.
 *
 * Thread: any.
 */
class LoopClock
{
public:
    /// Make it on the loop's own thread.
    LoopClock();

    /// Milliseconds until the loop has come round, or since somebody has first asked without an answer.
    struct Delay
    {
        qint64 ms;
        bool hasCome; ///< else it hangs, or is busy
    };
    Delay measure() const;

private:
    struct Round
    {
        void end();

        QMutex mutex; // guards all
        QWaitCondition come;
        QElapsedTimer since; // invalid if nothing is posted
        qint64 lastMs = 0;
        quint64 count = 0;
    };
    const std::shared_ptr<Round> m_round; // shared, since a posted event may come after our end
};
