// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QElapsedTimer>
#include <QJsonObject>
#include <QMutex>
#include <QWaitCondition>

#include <memory>

/**
 * How long the application's event loop lets what is posted to it wait. It is measured when somebody asks, so that a
 * host which nobody asks sleeps on.
 *
 * Thread: any.
 */
class LoopClock
{
public:
    /// The loop's own thread makes it.
    LoopClock();

    /// Milliseconds until the loop has come round, or since somebody has first asked in vain; waits for a little while.
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
    const std::shared_ptr<Round> m_round; // what is posted may come later than our end
};
