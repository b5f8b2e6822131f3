// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <optional>

struct CommandLine;

/// Makes the call of `--call` on the bus of a host that runs by the same configuration, and prints the answer. Returns
/// the exit status of the program; nothing if there is no such host.
std::optional<int> callRunningHost(const CommandLine &commandLine);
