// SPDX-License-Identifier: Apache-2.0
#include "stopsignals.h"

#include "lastwords.h"

#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdlib>

#include <unistd.h>

namespace {

constexpr int numbers[] = {SIGINT, SIGTERM};
constexpr unsigned StopSeconds = 30;

// Global, since a signal handler has no other way to reach it.
volatile std::sig_atomic_t writeEnd = -1;
std::atomic_bool isReceived{false};
volatile std::sig_atomic_t isBounded = false;

void restoreDefault()
{
    for (const int number : numbers)
        std::signal(number, SIG_DFL);
}

/// Ends the process by a signal without a handler, on the thread that is handling it.
void end(int number)
{
    std::signal(number, SIG_DFL);
    sigset_t only;
    sigemptyset(&only);
    sigaddset(&only, number);
    pthread_sigmask(SIG_UNBLOCK, &only, nullptr);
    raise(number);
}

void handle(int number)
{
    const int error = errno;
    if (isReceived.exchange(true)) // another thread is handling the first signal
        return end(number);
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
    connect(&m_pipe, &SignalPipe::written, this, &StopSignals::received);
    writeEnd = m_pipe.writeEnd();
    struct sigaction action = {};
    action.sa_handler = handle;
    action.sa_flags = SA_RESTART;
    for (const int number : numbers) // each is blocked during the other's handler, which restores both
        sigaddset(&action.sa_mask, number);
    for (const int number : numbers)
        sigaction(number, &action, nullptr);
}

StopSignals::~StopSignals() { restoreDefault(); }

bool StopSignals::isStopWanted() { return isReceived; }

void boundStop()
{
    if (isBounded)
        return;
    isBounded = true;
    std::signal(SIGALRM, [](int) {
        static FixedText line; // too large for a stack that may be short
        line.add("zhost: something does not end");
        addLoading(&line); // on the main thread, to which the kernel gives the signal
        line.add("; ended by force\n");
        line.writeTo(STDERR_FILENO);
        _exit(EXIT_FAILURE);
    });
    alarm(StopSeconds);
}
