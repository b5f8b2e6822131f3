// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QString>

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
