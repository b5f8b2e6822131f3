// SPDX-License-Identifier: Apache-2.0
// Which threads of the door take signals.
#pragma once

#include <csignal>

/// Leaves signals to the application's thread, but for those by which the calling thread tells of its own mistakes.
inline void leaveSignals()
{
    sigset_t others;
    sigfillset(&others);
    for (const int own : {SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGTRAP, SIGSYS, SIGABRT})
        sigdelset(&others, own);
    pthread_sigmask(SIG_SETMASK, &others, nullptr);
}

/// Has the calling thread take all: who is called by it may start programs, and these inherit that.
inline void takeSignals()
{
    sigset_t none;
    sigemptyset(&none);
    pthread_sigmask(SIG_SETMASK, &none, nullptr);
}
