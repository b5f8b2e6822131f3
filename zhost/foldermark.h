// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QString>

/// Tells who looks that this process takes what is put into a folder. It is no lock: any number of processes may have a
/// mark on a folder, whoever has locked it. Nothing is told where the file system has no locks for folders.
class FolderMark
{
public:
    /// Marks nothing if `folder` is empty, or is not there.
    explicit FolderMark(const QString &folder);
    ~FolderMark();

    /// The number of another process that has marked the folder; empty if there is none.
    QString other() const;
    /// The number of a process that has.
    static QString on(const QString &folder);

private:
    Q_DISABLE_COPY(FolderMark)
    const int m_descriptor;
};
