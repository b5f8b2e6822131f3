// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QString>

/// Deletes the timers that `QTimer::singleShot()` has made on this thread for code in the file at `path`, which is
/// about to be unloaded. Qt would keep the function until its time has come, even if the receiver is gone, and destroy
/// it then.
void zForgetTimers(const QString &path);
