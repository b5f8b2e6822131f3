// SPDX-License-Identifier: Apache-2.0
// What must stay in memory, although this plugin may leave it.
#pragma once

#include <memory>

/// The client library: its threads outlive its last connection, and would run in code that is not there any more.
void pinClientLibrary();
/// This plugin: something of it still runs, and cannot be stopped.
void pinThisPlugin();
/// What runs on uses it: it is never destroyed, and this plugin stays. Any thread.
void keepForGood(const std::shared_ptr<void> &used);
