// SPDX-License-Identifier: Apache-2.0
#pragma once

/// How the program ends; told in its help and its manual page.
enum ExitCode
{
    Done = 0,
    No = 1,      ///< the host says no, or has not done it
    Unusable = 2 ///< the command line cannot be used, or there is no host
};
