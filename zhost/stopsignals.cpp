// SPDX-License-Identifier: Apache-2.0
#include "stopsignals.h"

#include <QSocketNotifier>

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>

#include <fcntl.h>
#include <unistd.h>

namespace {

constexpr int numbers[] = {SIGINT, SIGTERM};
constexpr unsigned StopSeconds = 30;

// All that a signal handler can reach, and may use.
volatile std::sig_atomic_t writeEnd = -1;
volatile std::sig_atomic_t isReceived = false;
volatile std::sig_atomic_t isBounded = false;

void restoreDefault()
{
    for (const int number : numbers)
        std::signal(number, SIG_DFL);
}

void handle(int)
{
    const int error = errno;
    isReceived = true;
    restoreDefault();
    boundStop();
    const char byte = 0;
    if (write(writeEnd, &byte, 1) != 1) // cannot be told to the event loop
        _exit(EXIT_FAILURE);
    errno = error;
}

} // namespace

StopSignals::StopSignals()
{
    int ends[2];
    if (pipe2(ends, O_CLOEXEC | O_NONBLOCK) != 0) {
        std::perror("zhost: cannot make a pipe for signals");
        std::exit(EXIT_FAILURE);
    }
    m_readEnd = ends[0];
    writeEnd = ends[1];
    m_notifier = new QSocketNotifier(m_readEnd, QSocketNotifier::Read, this);
    connect(m_notifier, &QSocketNotifier::activated, this, [this] {
        m_notifier->setEnabled(false);
        Q_EMIT received();
    });
    struct sigaction action = {};
    action.sa_handler = handle;
    action.sa_flags = SA_RESTART;
    for (const int number : numbers) // each waits for the other's handler, which restores both
        sigaddset(&action.sa_mask, number);
    for (const int number : numbers)
        sigaction(number, &action, nullptr);
}

StopSignals::~StopSignals()
{
    restoreDefault();
    delete m_notifier; // before the descriptor that it watches
    close(m_readEnd);
    close(writeEnd);
}

bool StopSignals::isStopWanted() { return isReceived; }

void boundStop()
{
    if (isBounded)
        return;
    isBounded = true;
    std::signal(SIGALRM, [](int) {
        const char line[] = "zhost: something does not end; ended by force\n";
        if (write(STDERR_FILENO, line, sizeof line - 1) >= 0)
            _exit(EXIT_FAILURE);
        _exit(EXIT_FAILURE);
    });
    alarm(StopSeconds);
}
