// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <atomic>
#include <cstdint>
#include <set>
#include <string>
#include <type_traits>
#include <vector>

/**
 * Runs threads in every way that the C++ memory model allows.
 *
 * A run executes one operation at a time. Each one may have several outcomes: a load may read any message that its
 * thread cannot know to be outdated, a store may come anywhere behind such a message in its location's order of
 * modification. All of them are tried, by running from the beginning again. What two runs have in common is explored
 * once: the state is who has read from which operation, and the orders of modification.
 *
 * The model is that of C++20 without consume and without fences. The sequentially consistent operations need an order S
 * that fits what is sequenced, strongly happens before and is coherence-ordered before. Left out is most of "load
 * buffering": nothing reads from what is yet to be run. But an addition whose result nobody wants may take place later
 * than what follows it, up to the thread's next release or its next operation on the same place.
 */
namespace model {

/// A way to run threads, and what must hold at its end. Each part is run anew each time, and leaves no resources behind
/// when it is abandoned in the middle.
struct Scenario
{
    const char *name;
    void (*begin)();
    std::vector<void (*)()> threads; // at most four
    void (*end)();                   // after all threads
};

struct Result
{
    std::set<std::string> faults;
    long states = 0;
    long runs = 0;
};

Result explore(const Scenario &scenario);

/// The run has shown a fault. Does not return to a thread.
void fault(const std::string &what);

/// A number from 1 for each thread of the scenario; 0 at its begin and end.
int thisThread();

/// Memory: two accesses of which one writes must be ordered, and none may follow the end.
class Life
{
public:
    explicit Life(const char *what);
    void read() const;
    void write();
    void end();

private:
    void change(const std::string &how);

    int m_index;
};

/// A plain variable, its accesses checked.
template <class T>
class Plain
{
public:
    Plain(T value) : m_value(value) {}
    operator T() const { return (m_life.read(), m_value); }
    Plain &operator=(T value)
    {
        m_life.write();
        m_value = value;
        return *this;
    }

private:
    T m_value;
    Life m_life{"link"};
};

struct Operation
{
    enum Kind
    {
        Load,
        Store,
        Exchange,
        Add,
        Subtract,
        CompareStrong,
        CompareWeak,
        Lock,
        Pause
    };

    Kind kind;
    int place = -1; // of an atomic, or a lock
    std::memory_order order = std::memory_order_relaxed;
    std::uint64_t value = 0; // to be written, or to be added
    std::uint64_t expected = 0;
    std::memory_order failureOrder = std::memory_order_relaxed;
};

struct Outcome
{
    std::uint64_t value = 0; // that was read
    bool hasWritten = false;
};

/// Other threads may run before it.
Outcome perform(const Operation &operation);

int addAtomic(std::uint64_t value);
void endAtomic(int place);
int addLock();
void unlock(int lock);

/// Memory that is handed out again at once; what its last user did happens before the next one's begin.
int takeSlot();
void giveSlot(int slot);

/// The part of `std::atomic` that is in use.
template <class T>
class Atomic
{
public:
    Atomic(T value = {}) : m_place(addAtomic(encode(value))) {}
    ~Atomic() { endAtomic(m_place); }

    T load(std::memory_order order) const { return decode(perform({Operation::Load, m_place, order}).value); }
    void store(T value, std::memory_order order) { perform({Operation::Store, m_place, order, encode(value)}); }
    T exchange(T value, std::memory_order order)
    {
        return decode(perform({Operation::Exchange, m_place, order, encode(value)}).value);
    }
    /// Without a result, so that a relaxed one can be delayed.
    void fetch_add(T value, std::memory_order order) { perform({Operation::Add, m_place, order, encode(value)}); }
    T fetch_sub(T value, std::memory_order order)
    {
        return decode(perform({Operation::Subtract, m_place, order, encode(value)}).value);
    }
    template <class Expected>
    bool compare_exchange_strong(Expected &expected, T value, std::memory_order order, std::memory_order failureOrder)
    {
        return compare(Operation::CompareStrong, expected, value, order, failureOrder);
    }
    template <class Expected>
    bool compare_exchange_weak(Expected &expected, T value, std::memory_order order, std::memory_order failureOrder)
    {
        return compare(Operation::CompareWeak, expected, value, order, failureOrder);
    }

private:
    static std::uint64_t encode(T value)
    {
        if constexpr (std::is_pointer_v<T>)
            return reinterpret_cast<std::uint64_t>(value);
        else
            return static_cast<std::uint64_t>(value);
    }
    static T decode(std::uint64_t value)
    {
        if constexpr (std::is_pointer_v<T>)
            return reinterpret_cast<T>(value);
        else
            return static_cast<T>(value);
    }
    template <class Expected>
    bool compare(Operation::Kind kind, Expected &expected, T value, std::memory_order order,
                 std::memory_order failureOrder)
    {
        const T before = expected;
        const Outcome outcome = perform({kind, m_place, order, encode(value), encode(before), failureOrder});
        if (!outcome.hasWritten)
            expected = decode(outcome.value);
        return outcome.hasWritten;
    }

    int m_place;
};

} // namespace model
