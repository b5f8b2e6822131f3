// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QString>

/// Deletes what `QTimer::singleShot()` has made on this thread for code in the file at `path`, which is about to go: Qt
/// keeps the function that was to be called until its time has come, though the receiver has gone, and destroys it
/// then.
void zForgetTimers(const QString &path);
