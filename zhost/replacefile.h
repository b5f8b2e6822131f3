// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QByteArray>
#include <QString>

/// Writes a file anew, be it one that somebody else has written: as for a rename, it takes no more than the right to
/// change the folder. Whenever the process is killed or the machine loses its power, the file is there as it was before
/// or as it is now. Answers why that fails; null if it does not. Of one thread at a time.
QString replaceFile(const QString &path, const QByteArray &text);
