// SPDX-License-Identifier: Apache-2.0
// To be preloaded: has a program's calls fail. FAILING holds the call's name, the error's number, and a part of the
// path that it is about, which may be left out.
#include "systemcalls.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace {

char failing[32];
int failingWith = 0;
char failingPart[256];

int judge(const char *call, const char *path)
{
    return std::strcmp(call, failing) == 0 && std::strstr(path, failingPart) ? failingWith : 0;
}

[[gnu::constructor]] void begin()
{
    const char *wanted = std::getenv("FAILING");
    if (wanted && std::sscanf(wanted, "%31s %d %255s", failing, &failingWith, failingPart) >= 2)
        SystemCalls::setJudge(judge);
}

} // namespace
