// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "folderwatch.h"

#include <QObject>
#include <QProcess>
#include <QSet>
#include <QStringList>
#include <QTimer>

#include <memory>

class QFileInfo;
class ZFileCopy;
class History;
class ZLogger;

/// The folders that an inbox needs.
struct InboxFolders
{
    QString inbox; ///< Into which anybody may copy. Empty: there is none.
    QString hotDeploy;
    QString deployed;
};

/**
 * Drops the plugins that are put into a folder. It runs the program zdeploy beside this one, for one plugin at a time,
 * in the order in which they come; a file that somebody is still writing waits.
 *
 * A plugin that was dropped is removed from the folder. One that is refused is moved to its folder "refused", beside a
 * text with the reason; both replace those of an earlier one of that name.
 *
 * Ownership: owns the process that drops; it is ended, and waited for, when this is destroyed.
 * Thread:    its own, which needs an event loop and never waits.
 * Failure:   a warning. If the reason is not the plugin's own, the plugin stays, and is tried again.
 */
class Inbox : public QObject
{
    Q_OBJECT

public:
    /// The result for each file is entered in `history`. Neither is owned.
    Inbox(const InboxFolders &folders, ZLogger *logger, History *history);
    ~Inbox() override;

private:
    void add(const QString &file);
    void addAll();
    void addIfQuiet(const QFileInfo &file);
    void lookAgain();
    void next();
    void begin(const QString &file);
    void leaveUnreadable(const QString &file, const QString &reason);
    void finish();
    void remove(const QString &file);
    void refuse(const QString &file, const QString &reason);
    void refuse(const QByteArray &file, const QString &name, const QString &reason);
    void refuseUnspeakable();
    void tryLater(const QString &reason);
    void passOver(const QString &file, const QString &reason);
    void inform(const QString &text);
    void warn(const QString &text);
    QString pathOf(const QString &file) const;

    const InboxFolders m_folders;
    ZLogger *const m_logger;
    History *const m_history;
    QStringList m_queue;
    QSet<QString> m_closed;            // complete, but not readable yet
    QSet<QString> m_passedOver;        // cannot be taken out, and so would be dropped again and again
    std::unique_ptr<ZFileCopy> m_file; // the one that is being dropped, as it was at the beginning
    QString m_failure;                 // why the last one was tried again
    QTimer m_pause;                    // runs until something is tried again
    QTimer m_again;                    // runs until all files are looked at again
    QProcess m_process;
    FolderWatch m_watch;
};
