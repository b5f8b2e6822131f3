// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "exitcode.h"

struct Request;

/// Tells all that is known of the plugin that the command line names, version by version.
ExitCode showPlugin(const Request &request);
