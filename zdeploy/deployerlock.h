// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <folderlock.h>

/// Keeps a hot-deploy folder, and the one to which plugins are moved from there, to one deployer. Waits for another
/// one, but not for ever: anybody who may read the folder may lock it.
class DeployerLock
{
public:
    explicit DeployerLock(const QString &hotDeploy);

    /// Why this deployer has not got it, such as who has; null if it has.
    QString error() const;
    /// Writes what has changed in the hot-deploy folder to the disk.
    void sync() { m_lock.sync(); }

private:
    const QString m_folder;
    FolderLock m_lock;
};
