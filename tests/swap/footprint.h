// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QtGlobal>

/// What this process takes.
struct Footprint
{
    qint64 memory = 0;   ///< Bytes that are allocated. Sanitizers allocate elsewhere, and look for leaks themselves.
    qint64 resident = 0; ///< Bytes that are in memory, shared ones included.
    qint64 descriptors = 0;
    qint64 mappings = 0;

    static Footprint now();
};
