// SPDX-License-Identifier: Apache-2.0
#include "pin.h"

#include <nats/nats.h>

#include <dlfcn.h>
#include <mutex>
#include <vector>

namespace {

void pin(const void *code)
{
    Dl_info file;
    if (dladdr(code, &file) != 0)
        dlopen(file.dli_fname, RTLD_LAZY | RTLD_NOLOAD | RTLD_NODELETE); // never closed: that is the point
}

} // namespace

void pinClientLibrary() { pin(reinterpret_cast<const void *>(&natsConnection_Connect)); }

void keepForGood(const std::shared_ptr<void> &used)
{
    static std::mutex mutex;
    static auto *const kept = new std::vector<std::shared_ptr<void>>;
    pinThisPlugin();
    const std::lock_guard<std::mutex> lock(mutex);
    kept->push_back(used);
}

void pinThisPlugin() { pin(reinterpret_cast<const void *>(&pinThisPlugin)); }
