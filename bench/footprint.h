// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QtGlobal>

#include <cstdio>
#include <filesystem>

#include <malloc.h>
#include <unistd.h>

/// What the process takes of the machine.
struct Footprint
{
    qint64 heap = 0, resident = 0, descriptors = 0; // bytes, bytes, number

    static Footprint now()
    {
        malloc_trim(0); // what was freed is no longer resident
        const auto memory = mallinfo2();
        long pages = 0;
        if (std::FILE *file = std::fopen("/proc/self/statm", "r")) {
            if (std::fscanf(file, "%*d %ld", &pages) != 1)
                pages = 0;
            std::fclose(file);
        }
        return {static_cast<qint64>(memory.uordblks + memory.hblkhd), pages * sysconf(_SC_PAGESIZE),
                std::distance(std::filesystem::directory_iterator("/proc/self/fd"), {})};
    }

    Footprint operator-(const Footprint &other) const
    {
        return {heap - other.heap, resident - other.resident, descriptors - other.descriptors};
    }
};
