// SPDX-License-Identifier: Apache-2.0
#include "delegate.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <functional>
#include <new>

namespace {

/// What the threads of a scenario share. It is made anew for each run, and never destroyed: runs are abandoned.
struct World
{
    ZAllCallNotes allNotes;
    std::array<QObject, 4> components;
    Delegate delegate{allNotes, &components[0]};
    Delegate other{allNotes, &components[3]};
    std::array<ZCallNotes *, 3> notes{}; // of the threads with these numbers less one
};

alignas(World) char memory[sizeof(World)];
World *world = nullptr;

ZCallNotes *&ownNotes() { return world->notes[model::thisThread() - 1]; }

void begin() { world = new (memory) World; }

template <int Count>
void beginListed()
{
    begin();
    for (int i = 0; i < Count; ++i)
        world->notes[i] = world->allNotes.take();
}

/// Everything has been let go, once.
void end()
{
    for (const ZCallNotes *notes : world->notes) {
        if (notes && !std::all_of(notes->notes.begin(), notes->notes.end(), std::mem_fn(&ZCallNote::isFree)))
            model::fault("a note that stands for ever");
    }
    world->delegate.replace(nullptr);
    world->other.replace(nullptr);
    for (const QObject &component : world->components) {
        if (component.ends > 1)
            model::fault("a component that ends twice");
    }
}

/// Of components that have been in the delegate, for `end` does not know them.
template <int Count>
void endAfter()
{
    end();
    for (int i = 0; i < Count; ++i) {
        if (world->components[i].ends == 0)
            model::fault("a component that never ends");
    }
}

void work() { model::perform({model::Operation::Pause}); } // while which others run
void nothing() {}
void call() { world->delegate.call(ownNotes(), work); }
void callShortly() { world->delegate.call(ownNotes(), nothing); }
void callTwice()
{
    callShortly();
    callShortly();
}
void callWithinCall() { world->delegate.call(ownNotes(), call); }
void callWithinCalls() { world->delegate.call(ownNotes(), callWithinCall); }
void callBoth()
{
    world->other.call(ownNotes(), nothing);
    callShortly();
}
void callWithinOther() { world->other.call(ownNotes(), call); }
void callWithoutNotes() { world->delegate.call(nullptr, work); }
void replaceFirst() { world->delegate.replace(&world->components[1]); }
void replaceSecond() { world->delegate.replace(&world->components[2]); }
void replaceTwice()
{
    replaceFirst();
    replaceSecond();
}
void endDelegate() { world->delegate.replace(nullptr); }
void endOther() { world->other.replace(nullptr); }
void replaceInCall()
{
    world->delegate.call(ownNotes(), replaceFirst);
    call();
}
void takeNotes() { ownNotes() = world->allNotes.take(); }
void callAsNewcomer()
{
    takeNotes();
    callShortly();
}
void callAndEnd()
{
    callShortly();
    ownNotes()->block->giveBack(ownNotes());
}

const model::Scenario scenarios[] = {
    {"a call, an exchange", beginListed<1>, {call, replaceFirst}, endAfter<2>},
    {"two calls, an exchange", beginListed<1>, {callTwice, replaceFirst}, endAfter<2>},
    {"two calls, the delegate's end", beginListed<1>, {callTwice, endDelegate}, endAfter<1>},
    {"a call within a call, an exchange", beginListed<1>, {callWithinCall, replaceFirst}, endAfter<2>},
    {"calls nested deeper than notes, an exchange", beginListed<1>, {callWithinCalls, replaceFirst}, endAfter<2>},
    {"a call without notes, an exchange", beginListed<1>, {callWithoutNotes, replaceFirst}, endAfter<2>},
    {"a call that exchanges, an exchange", beginListed<1>, {replaceInCall, replaceSecond}, endAfter<3>},
    {"a newcomer's call, an exchange", begin, {callAsNewcomer, replaceFirst}, endAfter<2>},
    {"a call within another delegate's, an exchange", beginListed<1>, {callWithinOther, replaceFirst}, endAfter<2>},
    {"a newcomer's call beside another, an exchange", begin, {takeNotes, callAsNewcomer, replaceFirst}, endAfter<2>},
    {"a thread that ends, its successor, an exchange",
     beginListed<1>,
     {callAndEnd, callAsNewcomer, replaceFirst},
     endAfter<2>},
    {"two callers, an exchange", beginListed<2>, {call, call, replaceFirst}, endAfter<2>},
    {"two calls, two exchanges by one", beginListed<1>, {callTwice, replaceTwice}, endAfter<3>},
    {"calls of two delegates, two ends", beginListed<1>, {callBoth, endDelegate, endOther}, endAfter<1>},
};

const model::Scenario longScenarios[] = {
    {"two newcomers' calls, an exchange", begin, {callAsNewcomer, callAsNewcomer, replaceFirst}, endAfter<2>},
    {"two calls, two exchanges by two", beginListed<1>, {callTwice, replaceFirst, replaceSecond}, endAfter<3>},
};

/// Whether it is without fault; prints a row of a table.
bool passes(const model::Scenario &scenario)
{
    const auto start = std::chrono::steady_clock::now();
    const model::Result result = model::explore(scenario);
    const std::chrono::duration<double> time = std::chrono::steady_clock::now() - start;
    std::string faults;
    for (const std::string &fault : result.faults)
        faults += (faults.empty() ? "" : "; ") + fault;
    std::printf("| %s | %s | %ld | %ld | %.1f |\n", scenario.name, faults.empty() ? "ok" : faults.c_str(),
                result.states, result.runs, time.count());
    std::fflush(stdout);
    return faults.empty();
}

} // namespace

/// Explores all scenarios; with "--first" the short ones, until one shows a fault.
int main(int count, char **arguments)
{
    const bool first = count > 1 && std::strcmp(arguments[1], "--first") == 0;
    bool isFaulty = false;
    for (const model::Scenario &scenario : scenarios) {
        isFaulty = !passes(scenario) || isFaulty;
        if (isFaulty && first)
            return 1;
    }
    if (!first) {
        for (const model::Scenario &scenario : longScenarios)
            isFaulty = !passes(scenario) || isFaulty;
    }
    return isFaulty;
}
