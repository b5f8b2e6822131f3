// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "explorer.h"

#include <array>

namespace model {

constexpr int MaxThreads = 5; // with the one that begins and ends
constexpr int MaxPlaces = 64;

using Bits = std::uint64_t;

/// What happens before the next operation of a thread, or before what acquires a message.
struct View
{
    std::array<std::uint8_t, MaxPlaces> oldest{}; // the message of each place that hides all before it
    std::array<std::uint8_t, MaxThreads> clock{};
    Bits strong = 0; // the sequentially consistent operations that strongly happen before
};

struct Message
{
    std::uint64_t value;
    int writer;            // a name that does not depend on the order of running
    bool isNextTo = false; // wrote what it read-modified: nothing comes between it and the one before
    View released;
};

/// One of the ways in which an operation can turn out.
struct Choice
{
    int message = 0; // that is read, or behind which the store comes
    bool writes = false;
};

struct Hash
{
    std::uint64_t a = 1, b = 2;

    void add(std::uint64_t value)
    {
        a = (a ^ value) * 0x9E3779B97F4A7C15;
        a ^= a >> 29;
        b = (b + value + 1) * 0xC2B2AE3D27D4EB4F;
        b ^= b >> 31;
    }
    bool operator==(const Hash &other) const { return a == other.a && b == other.b; }
};

/// The messages of all atomics, and the order S.
class Memory
{
public:
    int add(int name, std::uint64_t value);
    const Message &message(int place, int index) const { return m_places[place].messages[index]; }

    /// What can become of an operation now, in a thread that knows `view`.
    std::vector<Choice> choices(const Operation &operation, const View &view, bool mayRelease) const;
    /// Lets it come true.
    void access(const Operation &operation, View &view, int name, const Choice &choice);

    void join(View &view, const View &other) const;
    void addTo(Hash &hash) const;

private:
    struct Place
    {
        int rank(int message) const;

        int name;
        std::vector<Message> messages;
        std::vector<std::uint8_t> order; // of modification
    };

    /// An operation in S. It takes the rank of the message that it wrote, or else read.
    struct Consistent
    {
        int place;
        int message;
        bool isWrite;
        Bits before;
    };

    void neighbours(int place, int rank, bool writes, Bits &before, Bits &after) const;
    Bits withAllBefore(Bits operations) const;
    bool fits(const View &view, int place, int rank, bool writes) const;
    Bits insert(const View &view, int place, int rank, bool writes, int message);
    void write(const Operation &operation, View &view, int name, int behind);

    std::vector<Place> m_places;
    std::vector<Consistent> m_consistents;
    bool m_weakHasFailed = false; // for no reason, which is tried once in a run
};

/// What the calling thread knows.
const View &viewOfThisThread();

void forgetLives();

} // namespace model
