// SPDX-License-Identifier: Apache-2.0
#include "processend.h"

#include <atomic>

namespace {

std::atomic<bool> isEnding{false};

/// Destroyed before the variables of Qt, which was there before this plugin.
struct Sentinel
{
    ~Sentinel() { isEnding = true; }
};
const Sentinel sentinel;

} // namespace

bool isProcessEnding() { return isEnding; }
