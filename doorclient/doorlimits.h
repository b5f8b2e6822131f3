// SPDX-License-Identifier: Apache-2.0
#pragma once

/// The limits and defaults of requests, for the host and for its clients.
namespace Limits {

constexpr int DefaultDeadlineMs = 10000; // of a call
constexpr int MaxDeadlineMs = 60000;
constexpr int DefaultLines = 100; // of the log
constexpr int MaxLines = 1000;

} // namespace Limits
