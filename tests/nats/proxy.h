// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QString>
#include <QThread>

#include <atomic>

/**
 * A piece of network between a client and a broker, which can be cut: then nothing that is sent arrives, and nobody is
 * told. It works on a thread of its own, so that who waits does not hold it up.
 */
class Proxy
{
public:
    /// Leads to this port of the machine.
    explicit Proxy(int port);
    ~Proxy();

    QString url() const;
    /// Nothing passes any more.
    void cut() { m_isCut = true; }
    /// What has been held up passes, and whatever comes.
    void mend() { m_isCut = false; }

private:
    Q_DISABLE_COPY(Proxy)
    void serve();

    const int m_target;
    const int m_listener;
    const int m_port;
    std::atomic_bool m_isCut{false}, m_isOver{false};
    QThread *m_thread = nullptr;
};
