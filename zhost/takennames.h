// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QString>
#include <QStringList>

/// The names that a new file must not have: those of plugins in the two folders, and those of files that the
/// `processes` have in memory, since the new file would be taken for them. A file in quarantine counts by its former
/// name.
QStringList takenNames(const QString &hotDeploy, const QString &deployed, const QStringList &processes);

/// The name under which a file was loaded that a process has in memory at `path`. The file may have been renamed or
/// removed since.
QString nameInMemory(const QString &path);
