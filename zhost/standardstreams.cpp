// SPDX-License-Identifier: Apache-2.0
#include "standardstreams.h"

#include <csignal>

#include <fcntl.h>
#include <unistd.h>

void openStandardStreams()
{
    int descriptor;
    do
        descriptor = open("/dev/null", O_RDWR); // takes the lowest that is free
    while (descriptor >= 0 && descriptor <= STDERR_FILENO);
    if (descriptor >= 0)
        close(descriptor);
}

void outliveReaders()
{
    // By a handler that does nothing: if the signal were ignored, programs that plugins start would ignore it, too.
    struct sigaction action = {};
    action.sa_handler = [](int) {};
    action.sa_flags = SA_RESTART;
    sigaction(SIGPIPE, &action, nullptr);
}
