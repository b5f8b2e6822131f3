// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "say.h"

/// While it lives nobody but a plugin has a reason to call `exit()`: this is said, with the plugin's file where the
/// stack tells, and noted as a crash is; the exit status is `EndedByPlugin`, whatever the plugin had in mind. One
/// object in a process.
class ExitGuard
{
public:
    /// `tell` is given the line.
    explicit ExitGuard(void (*tell)(const QString &line) = complain);
    ~ExitGuard();
    ExitGuard(const ExitGuard &) = delete;
    ExitGuard &operator=(const ExitGuard &) = delete;
};
