// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QDateTime>
#include <QHash>
#include <QMutex>
#include <QString>
#include <QStringList>

class History;

/**
 * Records since when each plugin's file is loaded, and which files have stayed in memory when they were unloaded.
 *
 * Thread: any, also as the process ends: the one object is never destroyed.
 */
class LoadBook
{
public:
    static LoadBook &get();

    /// Call it before the first load. Events are entered in `history` as well, until `forgetHistory`.
    void listen(History *history);
    void forgetHistory();

    struct Entry
    {
        QDateTime since; ///< not valid if it is not loaded
        QString left;    ///< why it stays in memory; null if nothing is known of that
    };
    /// What a thread is loading; null if nothing. `thread` is the kernel's number of it.
    QString loadingBy(int thread) const;
    /// The entry of the file of this name, such as "libsvc.2.so".
    Entry entry(const QString &file) const;

private:
    LoadBook() = default;
    void enter(const QString &file, int state, const QString &reason);
    void follow(const QString &name, int state);

    mutable QMutex m_mutex; // guards all that follow
    History *m_history = nullptr;
    QHash<QString, Entry> m_entries;   // of the files in memory
    QHash<int, QStringList> m_loading; // by thread, the last that was begun at the end
};
