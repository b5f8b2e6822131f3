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
 * Tells which files come into a folder, and which of them are complete.
 *
 * The folder may come later, be removed and made anew, or mounted over: it is looked for each second. Where the system
 * has no watch to spare, `unseen` is emitted as often.
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

    /// Looks for the folder, now and from now on.
    void start();

Q_SIGNALS:
    /// It is complete: closed after somebody wrote it, or moved in.
    void arrived(const QString &file);
    /// It is there, under a name that it did not have before. Somebody may be writing it.
    void created(const QString &file);
    /// What is in the folder has to be looked at: it has just come, or more has happened there than can be told.
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
    const int m_descriptor; // that, or the error, negative
    int m_watch = -1;
    Identity m_watched; // none while there is no watch
    bool m_hasFailed = false;
    QTimer m_timer;
    std::unique_ptr<QSocketNotifier> m_notifier;
};
