// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <folderlock.h>

/// Locks a hot-deploy folder, and the folder to which plugins are moved from there, for one deployer. Waits for another
/// deployer, but not for ever: anybody who may read the folder may lock it.
class DeployerLock
{
public:
    explicit DeployerLock(const QString &hotDeploy);

    /// Why this deployer has not got the lock, such as which process has it; null if it has.
    QString error() const;
    /// Flushes the changes in the hot-deploy folder to the disk.
    void sync() { m_lock.sync(); }

private:
    const QString m_folder;
    FolderLock m_lock;
};
