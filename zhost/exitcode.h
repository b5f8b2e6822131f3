// SPDX-License-Identifier: Apache-2.0
#pragma once

/// How the program ends; told in its help and in the operator's guide.
enum ExitCode
{
    Success = 0,
    Wrong = 1,
    Unusable = 2,
    EndedByPlugin = 3,
    Hopeless = 78 // EX_CONFIG: for a service manager that is told not to restart on it
};
