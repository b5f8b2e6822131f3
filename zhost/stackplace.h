// SPDX-License-Identifier: Apache-2.0
// In which plugin a thread is. A signal's handler may use all but what takes a `QString`.
#pragma once

#include <QString>

#include <cstdint>

#include <ucontext.h>

class FixedText;

/// Where a thread was, by the context that a signal's handler is given.
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
        Q_UNUSED(machine) // then only what is being loaded is told
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

/// Files in `folder`, by its canonical path, are plugins.
void lookForPluginsIn(const QString &folder);

/// A place in the code of a plugin: where the thread was, or else where something on its stack points, which must be as
/// it was then; 0 if nowhere. `room` is for what it looks up.
uintptr_t placeInPlugins(const Registers &registers, CodeRanges *room);

/// Adds " in FILE+0xOFFSET", and sets `file`, where the address lies in a file's code.
void addPlace(FixedText *line, FixedText *file, uintptr_t address);
