// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QtGlobal>

/**
 * A network namespace of its own, in which this thread is, and the processes that it starts, until this goes. It takes
 * root's rights.
 */
class Island
{
public:
    Island();
    ~Island();

    /// Whether the thread is there.
    bool isReached() const { return m_isReached; }
    /// Whether what is sent arrives. Else it vanishes, and nobody is told.
    void setConnected(bool isConnected);

private:
    Q_DISABLE_COPY(Island)

    const int m_home;
    bool m_isReached = false;
};
