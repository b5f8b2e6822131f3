// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QString>

/// Keeps a folder to one process, as long as it lives: two hosts would take each other's drops, and each would remove
/// the other's temporary files.
class FolderLock
{
public:
    /// Locks nothing if `folder` is empty. Says so where the folder cannot be locked at all, which is no refusal.
    explicit FolderLock(const QString &folder);
    ~FolderLock();
    FolderLock(const FolderLock &) = delete;
    FolderLock &operator=(const FolderLock &) = delete;

    /// Who has the folder; null if that is us.
    QString refusal() const { return m_refusal; }

private:
    int m_descriptor = -1;
    QString m_refusal;
};
