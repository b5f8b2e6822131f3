// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QString>
#include <QStringList>

/// The names that a newcomer must not have: those of plugins in the two folders, and those of what the `processes` have
/// in memory, for which it would be taken. Of a file in quarantine it is the name that it had.
QStringList takenNames(const QString &hotDeploy, const QString &deployed, const QStringList &processes);

/// The name under which a file was loaded that a process has in memory at `path`: it may have been renamed since, or
/// removed.
QString nameInMemory(const QString &path);
