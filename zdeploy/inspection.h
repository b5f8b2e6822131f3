// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QString>

/// What is wrong with the plugin `file` by what it says of itself; none of its code runs. Empty if nothing is.
QString inspect(const QString &file);

/// Loads `file` in a process of its own, makes its root object and unloads it. What is wrong with it; empty if nothing
/// is.
QString tryOut(const QString &file);

/// What `tryOut` has the other process do. Answers its exit status; writes what is wrong to stdout.
int tryOutHere(const QString &file);
