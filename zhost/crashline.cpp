// SPDX-License-Identifier: Apache-2.0
// The code that a signal handler runs calls nothing that allocates or locks: a crash may come anywhere.
#include "crashline.h"

#include "lastwords.h"
#include "stackplace.h"

#include <atomic>
#include <csignal>
#include <cstring>

#include <unistd.h>

namespace {

struct Crash
{
    int number;
    const char *text;
};
constexpr Crash crashes[] = {{SIGSEGV, "Segmentation fault"}, {SIGABRT, "Aborted"},
                             {SIGBUS, "Bus error"},           {SIGFPE, "Floating point exception"},
                             {SIGILL, "Illegal instruction"}, {SIGTRAP, "Trace/breakpoint trap"}};

alignas(16) char handlerStack[64 << 10];
std::atomic_flag isTelling = ATOMIC_FLAG_INIT;

const char *textOf(int number)
{
    for (const Crash &crash : crashes) {
        if (crash.number == number)
            return crash.text;
    }
    return "a signal";
}

void tell(int number, const Registers &registers)
{
    static FixedText line, file; // too large for the stack that is left
    freeDescriptor();
    line.add("zhost: ended by ");
    line.add(textOf(number));
    static CodeRanges plugins; // too large for the stack that is left
    const uintptr_t place = placeInPlugins(registers, &plugins);
    addPlace(&line, &file, place ? place : registers.instruction);
    addLoading(&line);
    line.add("\n");
    line.writeTo(STDERR_FILENO);
    noteEnd(file.data(), line.data() + std::strlen("zhost: "));
}

void handle(int number, siginfo_t *info, void *context)
{
    if (isTelling.test_and_set()) { // another thread was first, and ends the process
        for (;;)
            pause();
    }
    tell(number, Registers(context));
    std::signal(number, SIG_DFL);
    // A fault happens again when the handler returns, and then leaves the better core. A signal that was sent does not
    // come again; nor does a trap, after which the program would go on.
    if (info->si_code <= 0 || number == SIGTRAP)
        raise(number);
}

} // namespace

void sayWhatCrashes()
{
    keepDescriptors();
    stack_t stack = {};
    stack.ss_sp = handlerStack;
    stack.ss_size = sizeof handlerStack;
    sigaltstack(&stack, nullptr);
    struct sigaction action = {};
    action.sa_sigaction = handle;
    action.sa_flags = SA_SIGINFO | SA_ONSTACK;
    for (const Crash &crash : crashes)
        sigaddset(&action.sa_mask, crash.number);
    for (const Crash &crash : crashes) {
        struct sigaction before = {};
        sigaction(crash.number, nullptr, &before);
        if (before.sa_handler == SIG_DFL)
            sigaction(crash.number, &action, nullptr);
    }
}
