// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QString>

/// Marks a folder, so that other processes can see that this one takes the files that are put there. It is not a lock:
/// any number of processes may mark a folder, even if it is locked. Does nothing if the file system has no locks for
/// folders.
class FolderMark
{
public:
    /// Marks nothing if `folder` is empty, or does not exist.
    explicit FolderMark(const QString &folder);
    ~FolderMark();

    /// The number of another process that has marked the folder; empty if there is none.
    QString other() const;
    /// The number of a process that has marked `folder`; empty if there is none.
    static QString on(const QString &folder);

private:
    Q_DISABLE_COPY(FolderMark)
    const int m_descriptor;
};
