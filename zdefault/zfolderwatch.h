// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QFileSystemWatcher>
#include <QObject>
#include <QString>
#include <QTimer>

#include <optional>

/**
 * Reports changes in a folder. The folder may be removed and made again, moved away and back, or mounted over: the
 * folder that has the name at the moment is watched. If the system has no watch left, the folder is looked at every two
 * seconds.
 *
 * Ownership: owns its watch and its timer.
 * Thread:    its own, which needs an event loop.
 * Failure:   `unwatched`, once for each folder that has had the name.
 */
class ZFolderWatch : public QObject
{
    Q_OBJECT

public:
    ZFolderWatch();

    /// Call it once. The path is absolute.
    void watch(const QString &folder);

Q_SIGNALS:
    void directoryChanged(const QString &folder);
    void unwatched(const QString &folder);

private:
    /// The folder that has the name at the moment.
    struct Seen
    {
        quint64 device, inode;
        qint64 modified; // nanoseconds
    };
    std::optional<Seen> see() const;
    void look();
    void takeWatch();

    QString m_folder;
    QFileSystemWatcher m_watcher;
    QTimer m_timer;
    std::optional<Seen> m_seen;
    bool m_isWatched = false;
};
