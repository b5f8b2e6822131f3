// SPDX-License-Identifier: Apache-2.0
#include "pin.h"

#include <nats/nats.h>

#include <dlfcn.h>

namespace {

void pin(const void *code)
{
    Dl_info file;
    if (dladdr(code, &file) != 0)
        dlopen(file.dli_fname, RTLD_LAZY | RTLD_NOLOAD | RTLD_NODELETE); // never closed: that is the point
}

} // namespace

void pinClientLibrary() { pin(reinterpret_cast<const void *>(&natsConnection_Connect)); }

void pinThisPlugin() { pin(reinterpret_cast<const void *>(&pinThisPlugin)); }
