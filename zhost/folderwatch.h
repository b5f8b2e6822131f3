// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QObject>
#include <QTimer>

#include <memory>
#include <optional>
#include <utility>

#include <sys/types.h>

class QSocketNotifier;

/**
 * Reports which files come into a folder, and which of them are complete.
 *
 * The folder may be made later, removed and made again, or mounted over: it is looked for each second. If the system
 * has no watch left, `unseen` is emitted each second.
 *
 * Thread:  its own, which needs an event loop.
 * Failure: `failed`, once; it goes on without a watch.
 */
class FolderWatch : public QObject
{
    Q_OBJECT

public:
    explicit FolderWatch(const QString &folder);
    ~FolderWatch() override;

    /// Begins to look for the folder.
    void start();

Q_SIGNALS:
    /// The file is complete: its writer has closed it, or it was moved in.
    void arrived(const QString &file);
    /// The file has appeared under this name. Somebody may still be writing it.
    void created(const QString &file);
    /// All files in the folder have to be looked at: the folder has just come, or events were lost.
    void unseen();
    void failed(const QString &reason);

private:
    using Identity = std::optional<std::pair<dev_t, ino_t>>;

    Identity identity() const;
    void look();
    int watch();
    void forget();
    void fail(int error);
    void readEvents();

    const QString m_folder;
    const int m_descriptor; // or the error, negative
    int m_watch = -1;
    Identity m_watched; // none while there is no watch
    bool m_hasFailed = false;
    QTimer m_timer;
    std::unique_ptr<QSocketNotifier> m_notifier;
};
