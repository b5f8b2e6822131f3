// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QDateTime>
#include <QHash>
#include <QMutex>
#include <QString>
#include <QStringList>

class History;

/**
 * Since when each plugin's file is loaded, and what has not left memory when it was unloaded.
 *
 * Thread: any, also as the process ends: the one object is never destroyed.
 */
class LoadBook
{
public:
    static LoadBook &get();

    /// To be called before the first load. What happens is entered in `history` as well, until `forgetHistory`.
    void listen(History *history);
    void forgetHistory();

    struct Entry
    {
        QDateTime since; ///< not valid if it is not loaded
        QString left;    ///< why it stays in memory; null if nothing is known of that
    };
    /// What a thread is loading, by the kernel's number of it; null if nothing.
    QString loadingBy(int thread) const;
    /// Of the file that is called so, such as "libsvc.2.so".
    Entry entry(const QString &file) const;

private:
    LoadBook() = default;
    void enter(const QString &file, int state, const QString &reason);
    void follow(const QString &name, int state);

    mutable QMutex m_mutex; // guards all that follow
    History *m_history = nullptr;
    QHash<QString, Entry> m_entries;   // of what is in memory
    QHash<int, QStringList> m_loading; // by thread, the last that was begun at the end
};
