// SPDX-License-Identifier: Apache-2.0
#include "systemcalls.h"

#include <atomic>
#include <cerrno>
#include <cstdarg>
#include <cstdio>

#include <dirent.h>
#include <dlfcn.h>
#include <fcntl.h>
#include <pthread.h>
#include <sched.h>
#include <sys/inotify.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#define INTERPOSED extern "C" __attribute__((visibility("default")))

namespace {

std::atomic<SystemCalls::Judge> currentJudge{nullptr};
std::atomic_int judging{0}; // how many threads may be with the judge
thread_local bool isJudging = false;

/// The error with which the call fails; 0 if it goes on.
int judged(const char *call, const char *path = "")
{
    if (!currentJudge.load() || isJudging)
        return 0;
    isJudging = true;
    ++judging;
    const SystemCalls::Judge judge = currentJudge.load();
    const int error = judge ? judge(call, path ? path : "") : 0;
    --judging;
    isJudging = false;
    return error;
}

/// As `judged`, in the way of most calls: true, and errno, if it fails.
bool fails(const char *call, const char *path = "")
{
    const int before = errno;
    const int error = judged(call, path);
    errno = error ? error : before;
    return error != 0;
}

bool failsOnDescriptor(const char *call, int descriptor)
{
    if (!currentJudge.load())
        return false;
    char link[32];
    char path[4096];
    std::snprintf(link, sizeof link, "/proc/self/fd/%d", descriptor);
    const ssize_t size = readlink(link, path, sizeof path - 1);
    path[size < 0 ? 0 : size] = 0;
    return fails(call, path);
}

} // namespace

/// What would be called if it were not for us.
#define NEXT(call) static const auto next = reinterpret_cast<decltype(&call)>(dlsym(RTLD_NEXT, #call)) // NOLINT

void SystemCalls::setJudge(Judge judge)
{
    currentJudge = judge;
    while (!judge && judging > 0)
        sched_yield();
}

INTERPOSED int rename(const char *from, const char *to)
{
    NEXT(rename);
    return fails("rename", from) ? -1 : next(from, to);
}

INTERPOSED int renameat2(int fromFolder, const char *from, int toFolder, const char *to, unsigned flags)
{
    NEXT(renameat2);
    return fails("renameat2", from) ? -1 : next(fromFolder, from, toFolder, to, flags);
}

/// Judged by the name that is made: what gets it may have none yet.
INTERPOSED int linkat(int fromFolder, const char *from, int toFolder, const char *to, int flags)
{
    NEXT(linkat);
    return fails("linkat", to) ? -1 : next(fromFolder, from, toFolder, to, flags);
}

INTERPOSED int open64(const char *path, int flags, ...)
{
    NEXT(open64);
    mode_t mode = 0;
    if (flags & (O_CREAT | __O_TMPFILE)) {
        va_list arguments;
        va_start(arguments, flags);
        mode = va_arg(arguments, mode_t);
        va_end(arguments);
    }
    return fails("open", path) ? -1 : next(path, flags, mode);
}

INTERPOSED __attribute__((alias("open64"))) int open(const char *path, int flags, ...);

INTERPOSED int fcntl(int descriptor, int command, ...)
{
    NEXT(fcntl);
    va_list arguments;
    va_start(arguments, command);
    void *const argument = va_arg(arguments, void *); // or a number, which takes no more room
    va_end(arguments);
    return failsOnDescriptor("fcntl", descriptor) ? -1 : next(descriptor, command, argument);
}

INTERPOSED DIR *opendir(const char *path)
{
    NEXT(opendir);
    return fails("opendir", path) ? nullptr : next(path);
}

INTERPOSED int mkdir(const char *path, mode_t mode)
{
    NEXT(mkdir);
    return fails("mkdir", path) ? -1 : next(path, mode);
}

INTERPOSED int unlink(const char *path)
{
    NEXT(unlink);
    return fails("unlink", path) ? -1 : next(path);
}

INTERPOSED ssize_t read(int descriptor, void *data, size_t size)
{
    NEXT(read);
    return failsOnDescriptor("read", descriptor) ? -1 : next(descriptor, data, size);
}

INTERPOSED ssize_t write(int descriptor, const void *data, size_t size)
{
    NEXT(write);
    return failsOnDescriptor("write", descriptor) ? -1 : next(descriptor, data, size);
}

INTERPOSED int fsync(int descriptor)
{
    NEXT(fsync);
    return failsOnDescriptor("fsync", descriptor) ? -1 : next(descriptor);
}

INTERPOSED int fdatasync(int descriptor)
{
    NEXT(fdatasync);
    return failsOnDescriptor("fdatasync", descriptor) ? -1 : next(descriptor);
}

INTERPOSED void *mmap64(void *address, size_t size, int protection, int flags, int descriptor, off64_t offset)
{
    NEXT(mmap64);
    return failsOnDescriptor("mmap", descriptor) ? MAP_FAILED
                                                 : next(address, size, protection, flags, descriptor, offset);
}

/// Fails in earnest, so that dlerror() has something to say: for want of descriptors, or of memory, or else as if the
/// file were not there.
INTERPOSED void *dlopen(const char *path, int mode)
{
    NEXT(dlopen);
    const int error = judged("dlopen", path);
    if (error != EMFILE && error != ENOMEM)
        return next(error ? "/nowhere/at/all.so" : path, mode);
    const auto resource = error == EMFILE ? RLIMIT_NOFILE : RLIMIT_AS;
    rlimit before;
    getrlimit(resource, &before);
    const rlimit none{0, before.rlim_max};
    setrlimit(resource, &none);
    void *handle = next(path, mode);
    setrlimit(resource, &before);
    return handle;
}

INTERPOSED int dlclose(void *handle)
{
    NEXT(dlclose);
    return judged("dlclose") ? -1 : next(handle);
}

INTERPOSED int pipe2(int *ends, int flags)
{
    NEXT(pipe2);
    return fails("pipe2") ? -1 : next(ends, flags);
}

INTERPOSED int inotify_init1(int flags)
{
    NEXT(inotify_init1);
    return fails("inotify_init") ? -1 : next(flags);
}

INTERPOSED int inotify_init()
{
    NEXT(inotify_init);
    return fails("inotify_init") ? -1 : next();
}

INTERPOSED int inotify_add_watch(int descriptor, const char *path, uint32_t mask)
{
    NEXT(inotify_add_watch);
    return fails("inotify_add_watch", path) ? -1 : next(descriptor, path, mask);
}

INTERPOSED int pthread_create(pthread_t *thread, const pthread_attr_t *attributes, void *(*start)(void *),
                              void *argument)
{
    NEXT(pthread_create);
    const int error = judged("pthread_create");
    return error ? error : next(thread, attributes, start, argument);
}
