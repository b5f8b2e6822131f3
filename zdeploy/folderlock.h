// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QString>

/// The folder, kept to one process that drops at a time. Waits a while for another to end; `error` says who it is.
class FolderLock
{
public:
    explicit FolderLock(const QString &path);
    ~FolderLock();

    void sync();

    QString error; ///< Empty while the folder is locked.

private:
    Q_DISABLE_COPY(FolderLock)
    const int m_descriptor;
};
