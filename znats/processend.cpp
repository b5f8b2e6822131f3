// SPDX-License-Identifier: Apache-2.0
#include "processend.h"

#include <atomic>
#include <chrono>
#include <thread>

namespace {

constexpr std::chrono::milliseconds Patience(1000);

std::atomic<bool> isEnding{false};
std::atomic<int> looks{0};

/// Destroyed before the variables of Qt, which was there before this plugin.
struct Sentinel
{
    ~Sentinel()
    {
        isEnding = true;
        const auto latest = std::chrono::steady_clock::now() + Patience; // it may be the one who looks that ends all
        while (looks > 0 && std::chrono::steady_clock::now() < latest)
            std::this_thread::yield();
    }
};
const Sentinel sentinel;

bool begin()
{
    ++looks;
    return !isEnding;
}

} // namespace

Look::Look() : m_isAllowed(begin()) {}

Look::~Look() { --looks; }
