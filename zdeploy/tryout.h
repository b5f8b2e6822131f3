// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "description.h"
#include "verdict.h"

#include <QString>

struct TryOut
{
    Verdict verdict;
    Description description; ///< As far as the try-out has come.
};

/// Tries the file out as `plugin`: loads it, gives it all services of a host, and takes everything down again. A
/// process of its own does that, with limits, within `seconds`; if this process is root's, it has the rights of the
/// owner of the file's folder. Another process watches over it, and leaves nothing behind.
TryOut tryOut(const QString &file, const QString &plugin, int seconds);

/// Whether the command line is one with which `tryOut` starts this program once more.
bool isTryOut(int argc, char *argv[]);
/// The program for such a command line. Call it before the application object is made.
int watchTryOut(char *argv[]);
