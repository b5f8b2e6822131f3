// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QString>

/// Who has locked a folder, as another process sees it.
struct FolderHolder
{
    QString name;    ///< Such as "process 1234 (zhost)"; null if nobody has.
    QString process; ///< Its number; empty where that cannot be told, such as of another container.

    /// Keeps nobody from locking the folder, but for a moment.
    static FolderHolder of(const QString &folder);
};

/// Keeps a folder to one process, as long as it lives.
class FolderLock
{
public:
    /// Waits a while for another process to end. Locks nothing if `folder` is empty.
    explicit FolderLock(const QString &folder, int patienceMs = 0);
    ~FolderLock();

    /// Who has it instead, such as "process 1234 (zhost)"; null if nobody.
    QString holder() const { return m_holder; }
    /// Why it cannot be locked at all; null if it can.
    QString error() const { return m_error; }

    /// Writes what has changed in the folder to the disk.
    void sync();

private:
    Q_DISABLE_COPY(FolderLock)
    const int m_descriptor;
    QString m_holder;
    QString m_error;
};
