// SPDX-License-Identifier: Apache-2.0
// Files that must stay in memory, although this plugin may leave it.
#pragma once

/// The client library: its threads outlive its last connection, and would run in code that is not there any more.
void pinClientLibrary();
/// This plugin: something of it still runs, and cannot be stopped.
void pinThisPlugin();
