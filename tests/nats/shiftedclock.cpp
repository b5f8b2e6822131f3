// SPDX-License-Identifier: Apache-2.0
// To be preloaded: the clock of the day is off by as many seconds as the file that SHIFTED_CLOCK names begins with, as
// eight bytes. They may be changed at any time.
#include <cstdint>
#include <cstdlib>
#include <ctime>

#include <dlfcn.h>
#include <fcntl.h>
#include <pthread.h>
#include <sys/mman.h>
#include <sys/syscall.h>
#include <sys/time.h>
#include <unistd.h>

#define EXPORTED extern "C" __attribute__((visibility("default")))

namespace {

constexpr std::time_t Uptime = 1000000000; // times above are of the day, and not since the machine was started

std::time_t shift()
{
    static const volatile std::int64_t *const seconds = [] {
        const char *const name = getenv("SHIFTED_CLOCK");
        const int file = name ? open(name, O_RDONLY | O_CLOEXEC) : -1;
        void *const page = file < 0 ? MAP_FAILED : mmap(nullptr, sizeof(std::int64_t), PROT_READ, MAP_SHARED, file, 0);
        if (file >= 0)
            close(file);
        return page == MAP_FAILED ? nullptr : static_cast<const volatile std::int64_t *>(page);
    }();
    return seconds ? static_cast<std::time_t>(*seconds) : 0;
}

/// What the system is to wait for, whose own clock is right.
timespec real(const timespec *time)
{
    timespec result = *time;
    if (result.tv_sec > Uptime)
        result.tv_sec -= shift();
    return result;
}

} // namespace

EXPORTED int clock_gettime(clockid_t clock, timespec *time) noexcept
{
    const long result = syscall(SYS_clock_gettime, clock, time);
    if (clock == CLOCK_REALTIME || clock == CLOCK_REALTIME_COARSE)
        time->tv_sec += shift();
    return static_cast<int>(result);
}

EXPORTED int gettimeofday(timeval *time, void *) noexcept
{
    timespec now;
    const int result = clock_gettime(CLOCK_REALTIME, &now);
    time->tv_sec = now.tv_sec;
    time->tv_usec = now.tv_nsec / 1000;
    return result;
}

EXPORTED time_t time(time_t *result) noexcept
{
    timespec now;
    clock_gettime(CLOCK_REALTIME, &now);
    if (result)
        *result = now.tv_sec;
    return now.tv_sec;
}

EXPORTED int pthread_cond_timedwait(pthread_cond_t *condition, pthread_mutex_t *mutex, const timespec *time)
{
    using Wait = int (*)(pthread_cond_t *, pthread_mutex_t *, const timespec *);
    static const Wait wait = [] {
        void *const newest = dlvsym(RTLD_NEXT, "pthread_cond_timedwait", "GLIBC_2.3.2"); // there is an older one
        return reinterpret_cast<Wait>(newest ? newest : dlsym(RTLD_NEXT, "pthread_cond_timedwait"));
    }();
    const timespec until = real(time);
    return wait(condition, mutex, &until);
}

EXPORTED int pthread_cond_clockwait(pthread_cond_t *condition, pthread_mutex_t *mutex, clockid_t clock,
                                    const timespec *time)
{
    using Wait = int (*)(pthread_cond_t *, pthread_mutex_t *, clockid_t, const timespec *);
    static const auto wait = reinterpret_cast<Wait>(dlsym(RTLD_NEXT, "pthread_cond_clockwait"));
    const timespec until = real(time);
    return wait(condition, mutex, clock, &until);
}
