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
    // By a handler that does nothing: what is ignored stays so in the programs that plugins start.
    struct sigaction action = {};
    action.sa_handler = [](int) {};
    action.sa_flags = SA_RESTART;
    sigaction(SIGPIPE, &action, nullptr);
}
