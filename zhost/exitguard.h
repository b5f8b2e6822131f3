// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "say.h"

/// Reports a call of `exit()`: as long as this object lives, only a plugin can have made it. The line names the
/// plugin's file if the stack shows it, and the end is noted as a crash is. The exit status is `EndedByPlugin`,
/// whatever the plugin has passed. One object in a process.
class ExitGuard
{
public:
    /// `tell` is given the line.
    explicit ExitGuard(void (*tell)(const QString &line) = complain);
    ~ExitGuard();
    ExitGuard(const ExitGuard &) = delete;
    ExitGuard &operator=(const ExitGuard &) = delete;
};
