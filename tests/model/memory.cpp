// SPDX-License-Identifier: Apache-2.0
#include "memory.h"

#include <algorithm>
#include <cstdlib>

namespace model {
namespace {

bool isAcquire(std::memory_order order)
{
    return order != std::memory_order_relaxed && order != std::memory_order_release;
}

bool isRelease(std::memory_order order)
{
    return order != std::memory_order_relaxed && order != std::memory_order_acquire;
}

bool isConsistent(std::memory_order order) { return order == std::memory_order_seq_cst; }

bool compares(const Operation &operation)
{
    return operation.kind == Operation::CompareStrong || operation.kind == Operation::CompareWeak;
}

} // namespace

int Memory::Place::rank(int message) const
{
    return static_cast<int>(std::find(order.begin(), order.end(), message) - order.begin());
}

int Memory::add(int name, std::uint64_t value)
{
    if (m_places.size() == MaxPlaces)
        std::abort();
    m_places.push_back({name, {{value, 0, false, View()}}, {0}});
    return static_cast<int>(m_places.size()) - 1;
}

std::vector<Choice> Memory::choices(const Operation &operation, const View &view, bool mayRelease) const
{
    const Place &place = m_places[operation.place];
    const int count = static_cast<int>(place.order.size());
    const std::memory_order readOrder = compares(operation) ? operation.failureOrder : operation.order;
    const bool writes = operation.kind != Operation::Load && (mayRelease || !isRelease(operation.order));
    const bool failsAtWill = operation.kind == Operation::CompareWeak && !m_weakHasFailed;
    std::vector<Choice> all;
    for (int rank = place.rank(view.oldest[operation.place]); rank < count; ++rank) {
        const int message = place.order[rank];
        const bool isEqual = place.messages[message].value == operation.expected;
        const bool isParted = rank + 1 < count && place.messages[place.order[rank + 1]].isNextTo;
        if (writes && !isParted && (isEqual || !compares(operation)) &&
            (!isConsistent(operation.order) || fits(view, operation.place, rank, true)))
            all.push_back({message, true});
        if ((compares(operation) ? !isEqual || failsAtWill : operation.kind == Operation::Load) &&
            (!isConsistent(readOrder) || fits(view, operation.place, rank, false)))
            all.push_back({message, false});
    }
    return all;
}

void Memory::access(const Operation &operation, View &view, int name, const Choice &choice)
{
    const std::memory_order order = compares(operation) && !choice.writes ? operation.failureOrder : operation.order;
    const Place &place = m_places[operation.place];
    const Message &message = place.messages[choice.message];
    if (compares(operation) && !choice.writes && message.value == operation.expected)
        m_weakHasFailed = true;
    Bits self = 0;
    if (isConsistent(order))
        self = insert(view, operation.place, place.rank(choice.message), choice.writes,
                      choice.writes ? int(place.messages.size()) : choice.message);
    if (operation.kind != Operation::Store) {
        view.oldest[operation.place] = static_cast<std::uint8_t>(choice.message);
        if (isAcquire(order))
            join(view, message.released);
    }
    if (choice.writes)
        write(operation, view, name, choice.message);
    view.strong |= self; // after: it strongly happens before what follows, not before who acquires just this
}

void Memory::write(const Operation &operation, View &view, int name, int behind)
{
    Place &place = m_places[operation.place];
    const int rank = place.rank(behind);
    const auto message = static_cast<std::uint8_t>(place.messages.size());
    const std::uint64_t before = place.messages[behind].value;
    const std::uint64_t value = operation.kind == Operation::Add        ? before + operation.value
                                : operation.kind == Operation::Subtract ? before - operation.value
                                                                        : operation.value;
    place.messages.push_back({value, name, operation.kind != Operation::Store, View()});
    place.order.insert(place.order.begin() + rank + 1, message);
    view.oldest[operation.place] = message;
    View &released = place.messages.back().released;
    if (operation.kind != Operation::Store)
        released = place.messages[behind].released; // a release sequence goes on
    released.oldest[operation.place] = message;
    if (isRelease(operation.order))
        join(released, view);
}

/// The operations before and after one that reads, or writes behind, the message of this rank.
void Memory::neighbours(int place, int rank, bool writes, Bits &before, Bits &after) const
{
    for (std::size_t i = 0; i < m_consistents.size(); ++i) {
        const Consistent &other = m_consistents[i];
        if (other.place != place)
            continue;
        const int otherRank = m_places[place].rank(other.message);
        if (otherRank > rank)
            after |= Bits(1) << i;
        else if (writes || other.isWrite || otherRank < rank)
            before |= Bits(1) << i;
    }
}

Bits Memory::withAllBefore(Bits operations) const
{
    Bits all = operations;
    for (std::size_t i = 0; i < m_consistents.size(); ++i) {
        if (operations >> i & 1)
            all |= m_consistents[i].before;
    }
    return all;
}

/// Whether S can hold a sequentially consistent operation with this outcome.
bool Memory::fits(const View &view, int place, int rank, bool writes) const
{
    Bits before = view.strong;
    Bits after = 0;
    neighbours(place, rank, writes, before, after);
    return !(withAllBefore(before) & after);
}

Bits Memory::insert(const View &view, int place, int rank, bool writes, int message)
{
    Bits before = view.strong;
    Bits after = 0;
    neighbours(place, rank, writes, before, after);
    before = withAllBefore(before);
    const Bits self = Bits(1) << m_consistents.size();
    for (std::size_t i = 0; i < m_consistents.size(); ++i) {
        if ((after >> i & 1) || (m_consistents[i].before & after))
            m_consistents[i].before |= before | self;
    }
    if (m_consistents.size() == 64)
        std::abort();
    m_consistents.push_back({place, message, writes, before});
    return self;
}

void Memory::join(View &view, const View &other) const
{
    for (std::size_t i = 0; i < m_places.size(); ++i) {
        if (other.oldest[i] != view.oldest[i] && m_places[i].rank(other.oldest[i]) > m_places[i].rank(view.oldest[i]))
            view.oldest[i] = other.oldest[i];
    }
    for (int i = 0; i < MaxThreads; ++i)
        view.clock[i] = std::max(view.clock[i], other.clock[i]);
    view.strong |= other.strong;
}

void Memory::addTo(Hash &hash) const
{
    for (const Place &place : m_places) { // which runs make in different orders
        Hash own;
        own.add(static_cast<std::uint64_t>(place.name));
        for (const int message : place.order)
            own.add(static_cast<std::uint64_t>(place.messages[message].writer));
        hash.a += own.a;
        hash.b += own.b;
    }
}

} // namespace model
