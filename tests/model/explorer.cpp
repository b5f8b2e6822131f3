// SPDX-License-Identifier: Apache-2.0
#include "memory.h"

#include <ucontext.h>

#include <unordered_set>

namespace model {
namespace {

constexpr int MaxOperations = 120; // of a thread: a call that takes longer never ends
constexpr std::size_t StackSize = 64 * 1024;

struct Shared // a lock, or a slot of memory
{
    bool isHeld = false;
    int last = 0;
    View released;
};

struct Step
{
    int thread;
    Choice choice;
    int delayed = -1; // the one of the delayed operations of the thread, or its pending one
};

/// An operation whose result nobody wants, and which may take place later than what follows it in its thread.
struct Delayed
{
    Operation operation;
    int number;
    View view;
};

struct HashOfHash
{
    std::size_t operator()(const Hash &hash) const { return hash.a; }
};

struct Thread
{
    void (*body)() = nullptr;
    ucontext_t context;
    std::vector<char> stack = std::vector<char>(StackSize);
    Operation pending;
    std::vector<Delayed> delayed;
    Outcome outcome;
    View view;
    Hash history; // what its operations have read, so where it is and what it will do
    int operations = 0;
    int begun = 0; // places
    bool isDone = true;
};

std::array<Thread, MaxThreads> threads;
ucontext_t scheduler;
int current = 0;
bool isInThread = false; // or in the scheduler, for `current`
Memory memory;
std::vector<Life> lives; // of the places
std::vector<Shared> shareds;
std::vector<int> freeSlots;
std::string found;

int nameOf(int thread, int number) { return thread * 256 + number; }

void addSteps(int index, std::vector<Step> &steps)
{
    const Thread &thread = threads[index];
    bool isFree = true; // of what is delayed at the same place
    for (std::size_t i = 0; i < thread.delayed.size(); ++i) {
        const Delayed &delayed = thread.delayed[i];
        for (const Choice &choice : memory.choices(delayed.operation, delayed.view, true))
            steps.push_back({index, choice, static_cast<int>(i)});
        isFree = isFree && delayed.operation.place != thread.pending.place;
    }
    if (thread.isDone || !isFree)
        return;
    const Operation &operation = thread.pending;
    const bool mayRelease = thread.delayed.empty();
    if (operation.kind == Operation::Lock || operation.kind == Operation::Pause) {
        if (operation.kind == Operation::Lock ? !shareds[operation.place].isHeld
                                              : mayRelease || operation.order == std::memory_order_relaxed)
            steps.push_back({index, {}});
        return;
    }
    for (const Choice &choice : memory.choices(operation, thread.view, mayRelease))
        steps.push_back({index, choice});
}

void take(Shared &shared)
{
    shared.isHeld = true;
    memory.join(threads[current].view, shared.released);
    threads[current].history.add(static_cast<std::uint64_t>(shared.last));
}

void give(Shared &shared)
{
    shared.isHeld = false;
    shared.last = nameOf(current, threads[current].operations);
    shared.released = threads[current].view;
}

void executeDelayed(Thread &thread, const Step &step)
{
    Delayed delayed = thread.delayed[step.delayed];
    thread.delayed.erase(thread.delayed.begin() + step.delayed);
    std::swap(thread.view, delayed.view);
    lives[delayed.operation.place].read();
    if (found.empty())
        memory.access(delayed.operation, thread.view, nameOf(step.thread, delayed.number), step.choice);
    memory.join(thread.view, delayed.view);
}

void executePending(Thread &thread, const Step &step)
{
    const Operation &operation = thread.pending;
    if (++thread.operations > MaxOperations)
        return fault("a call that never ends");
    if (operation.kind == Operation::Lock) {
        take(shareds[operation.place]);
    } else if (operation.kind == Operation::Pause) {
        thread.history.add(1);
    } else {
        lives[operation.place].read();
        const Message &message = memory.message(operation.place, step.choice.message);
        const int writer = operation.kind == Operation::Store ? 0 : message.writer;
        thread.history.add(static_cast<std::uint64_t>(writer) * 2 + step.choice.writes);
        thread.outcome = {message.value, step.choice.writes};
        memory.access(operation, thread.view, nameOf(step.thread, thread.operations), step.choice);
    }
    ++thread.view.clock[step.thread];
}

void execute(const Step &step)
{
    current = step.thread;
    if (step.delayed < 0)
        executePending(threads[current], step);
    else
        executeDelayed(threads[current], step);
}

void runThread()
{
    threads[current].body();
    threads[current].isDone = true;
    swapcontext(&threads[current].context, &scheduler);
}

void resume(int index)
{
    current = index;
    isInThread = true;
    swapcontext(&scheduler, &threads[index].context);
    isInThread = false;
    current = 0;
}

void start(int index, void (*body)())
{
    Thread &thread = threads[index];
    thread.body = body;
    thread.isDone = false;
    thread.view = threads[0].view;
    thread.view.clock[index] = 1;
    getcontext(&thread.context);
    thread.context.uc_stack = {thread.stack.data(), 0, thread.stack.size()};
    makecontext(&thread.context, runThread, 0);
    resume(index);
}

void reset()
{
    memory = {};
    shareds.clear();
    freeSlots.clear();
    lives.clear();
    forgetLives();
    for (Thread &thread : threads) {
        thread.view = {};
        thread.history = {};
        thread.delayed.clear();
        thread.operations = 0;
        thread.begun = 0;
        thread.isDone = true;
    }
    threads[0].isDone = false;
    threads[0].view.clock[0] = 1;
    current = 0;
    isInThread = false;
}

Hash state()
{
    Hash hash;
    for (const Thread &thread : threads) {
        hash.add(thread.history.a);
        hash.add(thread.history.b);
    }
    memory.addTo(hash);
    return hash;
}

struct Fork
{
    std::vector<Step> steps;
    std::size_t chosen = 0;
};

/// One run along `path`, and on from there with the first choice each time, until it ends or comes to a known state.
void run(const Scenario &scenario, std::vector<Fork> &path, std::unordered_set<Hash, HashOfHash> &known)
{
    reset();
    scenario.begin();
    for (std::size_t i = 0; i < scenario.threads.size(); ++i)
        start(static_cast<int>(i) + 1, scenario.threads[i]);
    const std::size_t repeated = path.size();
    for (std::size_t depth = 0; found.empty(); ++depth) {
        if (depth == path.size()) {
            std::vector<Step> steps;
            for (int i = 1; i < MaxThreads; ++i)
                addSteps(i, steps);
            if (steps.empty())
                break;
            path.push_back({std::move(steps), 0});
        }
        const Step step = path[depth].steps[path[depth].chosen];
        execute(step);
        if (!found.empty())
            return;
        if (step.delayed < 0)
            resume(step.thread);
        if (depth + 1 >= repeated && !known.insert(state()).second)
            return;
    }
    for (int i = 1; i < MaxThreads; ++i) {
        if (!threads[i].isDone && found.empty())
            fault("a thread that waits for ever");
        memory.join(threads[0].view, threads[i].view);
    }
    if (found.empty())
        scenario.end();
}

} // namespace

Result explore(const Scenario &scenario)
{
    std::vector<Fork> path;
    std::unordered_set<Hash, HashOfHash> known;
    Result result;
    do {
        found.clear();
        run(scenario, path, known);
        ++result.runs;
        if (!found.empty())
            result.faults.insert(found);
        while (!path.empty() && ++path.back().chosen == path.back().steps.size())
            path.pop_back();
    } while (!path.empty());
    result.states = static_cast<long>(known.size());
    return result;
}

void fault(const std::string &what)
{
    if (found.empty())
        found = what;
    if (isInThread)
        swapcontext(&threads[current].context, &scheduler);
}

int thisThread() { return current; }

const View &viewOfThisThread() { return threads[current].view; }

Outcome perform(const Operation &operation)
{
    Thread &thread = threads[current];
    if (current && operation.kind == Operation::Add && operation.order == std::memory_order_relaxed) {
        thread.delayed.push_back({operation, ++thread.operations, thread.view});
        ++thread.view.clock[current];
        return {};
    }
    thread.pending = operation;
    if (current) {
        swapcontext(&thread.context, &scheduler);
    } else {
        std::vector<Step> steps;
        addSteps(0, steps);
        execute(steps.back());
    }
    return thread.outcome;
}

int addAtomic(std::uint64_t value)
{
    lives.emplace_back("atomic");
    return memory.add(nameOf(current, ++threads[current].begun), value);
}

void endAtomic(int place) { lives[place].end(); }

int addLock()
{
    shareds.emplace_back();
    return static_cast<int>(shareds.size()) - 1;
}

void unlock(int lock)
{
    if (!threads[current].delayed.empty())
        perform({Operation::Pause, -1, std::memory_order_release});
    give(shareds[lock]);
}

int takeSlot()
{
    perform({Operation::Pause});
    if (freeSlots.empty())
        freeSlots.push_back(addLock());
    const int slot = freeSlots.back();
    freeSlots.pop_back();
    take(shareds[slot]);
    threads[current].history.add(static_cast<std::uint64_t>(slot));
    return slot;
}

void giveSlot(int slot)
{
    give(shareds[slot]);
    threads[current].history.add(freeSlots.empty() ? 0 : static_cast<std::uint64_t>(shareds[freeSlots.back()].last));
    freeSlots.push_back(slot);
}

} // namespace model
