// SPDX-License-Identifier: Apache-2.0
// Which threads of the door take signals.
#pragma once

#include <csignal>

/// Leaves signals to the application's thread, but for those that are caused by a crash of the calling thread.
inline void leaveSignals()
{
    sigset_t others;
    sigfillset(&others);
    for (const int own : {SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGTRAP, SIGSYS, SIGABRT})
        sigdelset(&others, own);
    pthread_sigmask(SIG_SETMASK, &others, nullptr);
}

/// Lets the calling thread take all signals: its calls may start programs, which inherit the mask.
inline void takeSignals()
{
    sigset_t none;
    sigemptyset(&none);
    pthread_sigmask(SIG_SETMASK, &none, nullptr);
}
