// SPDX-License-Identifier: Apache-2.0
// To be preloaded: the clock of the program is an hour behind that of its disks, as where it was set back.
#include <ctime>

#include <sys/time.h>

extern "C" __attribute__((visibility("default"))) int gettimeofday(timeval *time, void *) noexcept
{
    timespec now;
    const int result = clock_gettime(CLOCK_REALTIME, &now);
    time->tv_sec = now.tv_sec - 3600;
    time->tv_usec = now.tv_nsec / 1000;
    return result;
}
