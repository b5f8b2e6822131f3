// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "verdict.h"

#include <QString>

/// Tries the file out as `plugin`: loads it, gives it all services of a host and takes everything down again. That is
/// done by a process of its own, which has the rights of the owner of the file's folder if this one is root's, limits
/// to what it may use, and `seconds`; another one watches over it, and leaves nothing behind.
Verdict tryOut(const QString &file, const QString &plugin, int seconds);

/// Whether the command line is one with which `tryOut` starts this program once more.
bool isTryOut(int argc, char *argv[]);
/// Does then what has to be done; before the application object is made.
int watchTryOut(char *argv[]);
