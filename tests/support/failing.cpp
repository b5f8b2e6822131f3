// SPDX-License-Identifier: Apache-2.0
// To be preloaded: has a program's calls fail. FAILING holds the call's name, the error's number, and a part of the
// path that it is about, which may be left out. With the name "kill" the program is killed instead: at that one of the
// calls that write, counted from 1, which the number says; it writes "killed" before that.
#include "systemcalls.h"

#include <atomic>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <initializer_list>

#include <unistd.h>

namespace {

char failing[32];
int failingWith = 0;
char failingPart[256];

bool writes(const char *call)
{
    for (const char *const writing : {"rename", "renameat2", "linkat", "unlink", "write", "fsync", "fdatasync"}) {
        if (std::strcmp(call, writing) == 0)
            return true;
    }
    return false;
}

int kill(const char *call, const char *path)
{
    static std::atomic_int count{0};
    static const char line[] = "killed\n";
    if (writes(call) && std::strstr(path, failingPart) && ++count == failingWith &&
        ::write(STDERR_FILENO, line, sizeof line - 1) > 0)
        std::raise(SIGKILL);
    return 0;
}

int judge(const char *call, const char *path)
{
    return std::strcmp(call, failing) == 0 && std::strstr(path, failingPart) ? failingWith : 0;
}

[[gnu::constructor]] void begin()
{
    const char *wanted = std::getenv("FAILING");
    if (wanted && std::sscanf(wanted, "%31s %d %255s", failing, &failingWith, failingPart) >= 2)
        SystemCalls::setJudge(std::strcmp(failing, "kill") == 0 ? kill : judge);
}

} // namespace
