// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QFileSystemWatcher>
#include <QObject>
#include <QString>
#include <QTimer>

#include <optional>

/**
 * Tells of changes in a folder, which may be removed and made anew, moved away and back, or mounted over: whatever has
 * its name is watched. Where the system has no watch to spare, the folder is looked at every two seconds.
 *
 * Ownership: its watch and its timer.
 * Thread:    its own, which needs an event loop.
 * Failure:   `unwatched`, once for each folder that has had the name.
 */
class ZFolderWatch : public QObject
{
    Q_OBJECT

public:
    ZFolderWatch();

    /// To be called once. The path is absolute.
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
