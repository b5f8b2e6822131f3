// SPDX-License-Identifier: Apache-2.0
#pragma once

/// What a host lets anybody ask for, and what who asks takes for granted.
namespace Limits {

constexpr int DefaultDeadlineMs = 10000; // of a call
constexpr int MaxDeadlineMs = 60000;
constexpr int DefaultLines = 100; // of the log
constexpr int MaxLines = 1000;

} // namespace Limits
