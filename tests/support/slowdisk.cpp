// SPDX-License-Identifier: Apache-2.0
// To be preloaded: a disk that takes a few kilobytes at a time, and its time for each.
#include <algorithm>

#include <dlfcn.h>
#include <sys/types.h>
#include <time.h>

extern "C" __attribute__((visibility("default"))) ssize_t write(int descriptor, const void *data, size_t size)
{
    using Write = ssize_t (*)(int, const void *, size_t);
    static const auto next = reinterpret_cast<Write>(dlsym(RTLD_NEXT, "write"));
    const timespec pause{0, 2000000};
    nanosleep(&pause, nullptr);
    return next(descriptor, data, std::min<size_t>(size, 4096));
}
