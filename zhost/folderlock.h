// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QString>

/// Which process has locked a folder, as another process sees it.
struct FolderHolder
{
    QString name;    ///< Such as "process 1234 (zhost)"; null if nobody has.
    QString process; ///< Its number; empty where that cannot be told, such as of another container.

    /// Looks at the folder; for that moment nobody else can lock it.
    static FolderHolder of(const QString &folder);
};

/// Locks a folder for this process, as long as the object lives.
class FolderLock
{
public:
    /// Waits so long for another process to release the lock. Locks nothing if `folder` is empty.
    explicit FolderLock(const QString &folder, int patienceMs = 0);
    ~FolderLock();

    /// The process that has the lock instead, such as "process 1234 (zhost)"; null if there is none.
    QString holder() const { return m_holder; }
    /// Why the folder cannot be locked at all; null if it can.
    QString error() const { return m_error; }

    /// Flushes the changes in the folder to the disk.
    void sync();

private:
    Q_DISABLE_COPY(FolderLock)
    const int m_descriptor;
    QString m_holder;
    QString m_error;
};
