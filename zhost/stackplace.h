// SPDX-License-Identifier: Apache-2.0
// Finds out in which plugin a thread is. A signal handler may use all functions but those that take a `QString`.
#pragma once

#include <QString>

#include <cstdint>

#include <ucontext.h>

class FixedText;

/// Where a thread was, from the context that a signal handler gets.
struct Registers
{
    uintptr_t instruction = 0, stack = 0;

    Registers() = default;
    explicit Registers(const void *context)
    {
        const mcontext_t &machine = static_cast<const ucontext_t *>(context)->uc_mcontext;
#if defined(__x86_64__)
        instruction = static_cast<uintptr_t>(machine.gregs[REG_RIP]);
        stack = static_cast<uintptr_t>(machine.gregs[REG_RSP]);
#elif defined(__aarch64__)
        instruction = machine.pc;
        stack = machine.sp;
#else
        Q_UNUSED(machine) // then only the file that is being loaded is reported
#endif
    }
};

/// A part of the memory.
struct Range
{
    uintptr_t start = 0, end = 0;
    bool contains(uintptr_t address) const { return address >= start && address < end; }
};

/// Where the code of plugins lies.
struct CodeRanges
{
    static constexpr int Max = 256;
    Range ranges[Max];
    int count = 0;

    bool contain(uintptr_t address) const;
};

/// Sets the folder whose files are plugins, by its canonical path.
void lookForPluginsIn(const QString &folder);

/// A place in the code of a plugin: where the thread was, or else where a word on its stack points; 0 if there is none.
/// The stack must not have changed since. `room` is memory for the look-up.
uintptr_t placeInPlugins(const Registers &registers, CodeRanges *room);

/// If the address lies in the code of a file, adds " in FILE+0xOFFSET", and sets `file`.
void addPlace(FixedText *line, FixedText *file, uintptr_t address);
