// SPDX-License-Identifier: Apache-2.0
#include "signalpipe.h"

#include <QSocketNotifier>

#include <cstdio>
#include <cstdlib>

#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

SignalPipe::SignalPipe()
{
    int ends[2];
    if (pipe2(ends, O_CLOEXEC | O_NONBLOCK) != 0) {
        std::perror("zhost: cannot make a pipe for signals");
        std::exit(EXIT_FAILURE);
    }
    m_readEnd = ends[0];
    m_writeEnd = ends[1];
    m_notifier = new QSocketNotifier(m_readEnd, QSocketNotifier::Read, this);
    connect(m_notifier, &QSocketNotifier::activated, this, [this] {
        drain();
        Q_EMIT written();
    });
#ifdef __SANITIZE_THREAD__
    // The sanitizer makes its notes about a thread's signals as the thread first waits, and loses a signal that comes
    // meanwhile: so it makes them before there is a handler.
    poll(nullptr, 0, 0);
#endif
}

SignalPipe::~SignalPipe()
{
    delete m_notifier; // before the descriptor that it watches
    close(m_readEnd);
    close(m_writeEnd);
}

void SignalPipe::setEnabled(bool isEnabled) { m_notifier->setEnabled(isEnabled); }

void SignalPipe::drain()
{
    char bytes[64];
    while (read(m_readEnd, bytes, sizeof bytes) > 0) {
    }
}
