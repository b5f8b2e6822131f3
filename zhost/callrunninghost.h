// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <optional>

struct CommandLine;

/// Makes the call of `--call` on the bus of a host that runs by the same configuration, and prints what it answers.
/// Answers how the program ends; nothing if no such host can be asked.
std::optional<int> callRunningHost(const CommandLine &commandLine);
