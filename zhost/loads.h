// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QHash>
#include <QString>
#include <QStringList>

/**
 * What the process loads, and has loaded. While a file is being loaded a note has its name: who is killed meanwhile
 * leaves it behind.
 *
 * Thread:  any.
 * Failure: none is told; a note that cannot be written is not there.
 */
class Loads
{
public:
    /// To be called before the first load, with the folder of the plugins, and the path of the note, which is removed.
    static void listen(const QString &folder, const QString &note);
    /// There is no note any more.
    static void endNote();

    /// Whether `file` is the last of its plugin that has been loaded, has not failed since, and is still what it was
    /// then. It may have left memory.
    static bool contain(const QString &file);
    /// It has failed.
    static void forget(const QString &file);
    /// Whether anything is being loaded, be it further up on the stack of who asks.
    static bool areUnderWay();

    /// What has become of the files that were loaded since this was asked last: why each has failed; null where it has
    /// not.
    static QHash<QString, QString> takeResults();

    /// The files that a note has, the innermost first: one may be loaded within another.
    static QStringList notedIn(const QString &note);
};
