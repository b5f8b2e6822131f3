// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QByteArray>
#include <QString>

/// Replaces the content of a file in one step: if the process is killed, or the machine loses its power, the old file
/// or the new one is there. Like a rename, this needs only the right to change the folder, even if somebody else has
/// written the file. Returns why it fails; null if it does not. By one thread at a time.
QString replaceFile(const QString &path, const QByteArray &text);
