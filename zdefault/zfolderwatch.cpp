// SPDX-License-Identifier: Apache-2.0
#include "zfolderwatch.h"

#include <QFile>

#include <utility>

#include <sys/stat.h>

namespace {

constexpr int LookMs = 2000;

} // namespace

ZFolderWatch::ZFolderWatch()
{
    connect(&m_watcher, &QFileSystemWatcher::directoryChanged, this, &ZFolderWatch::directoryChanged);
    connect(&m_timer, &QTimer::timeout, this, &ZFolderWatch::look);
}

void ZFolderWatch::watch(const QString &folder)
{
    m_folder = folder;
    m_seen = see();
    takeWatch();
    m_timer.start(LookMs);
}

std::optional<ZFolderWatch::Seen> ZFolderWatch::see() const
{
    struct stat status;
    if (stat(QFile::encodeName(m_folder).constData(), &status) != 0 || !S_ISDIR(status.st_mode))
        return {};
    return Seen{status.st_dev, status.st_ino, status.st_mtim.tv_sec * 1'000'000'000 + status.st_mtim.tv_nsec};
}

void ZFolderWatch::look()
{
    const std::optional<Seen> before = std::exchange(m_seen, see());
    if (!m_seen)
        return;
    const bool isSame = before && before->device == m_seen->device && before->inode == m_seen->inode;
    // When a folder is removed, its watch is gone, too, even if the next folder has got the same inode.
    const bool isLost = m_isWatched && !m_watcher.directories().contains(m_folder);
    if (!isSame || isLost)
        takeWatch();
    else if (m_isWatched || before->modified == m_seen->modified)
        return;
    Q_EMIT directoryChanged(m_folder);
}

void ZFolderWatch::takeWatch()
{
    m_watcher.removePath(m_folder);
    m_isWatched = m_watcher.addPath(m_folder);
    if (!m_isWatched)
        Q_EMIT unwatched(m_folder);
}
