// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QHash>
#include <QString>
#include <QStringList>

/**
 * What the process loads, and has loaded. While a file is being loaded, its name is in a note: a process that is killed
 * meanwhile leaves the note behind.
 *
 * Thread:  any.
 * Failure: not reported; if a note cannot be written, there is none.
 */
class Loads
{
public:
    /// Call it before the first load, with the folder of the plugins, and the path of the note. An old note is removed.
    static void listen(const QString &folder, const QString &note);
    /// Ends the note: none is written any more.
    static void endNote();

    /// Whether `file` is the version of its plugin that was loaded last, and has not failed or changed since. It may
    /// have been unloaded.
    static bool contain(const QString &file);
    /// Notes that `file` has failed.
    static void forget(const QString &file);
    /// Whether anything is being loaded, even further up on the caller's own stack.
    static bool areUnderWay();

    /// The results of all loads since the last call: for each file why it has failed; null if it has not.
    static QHash<QString, QString> takeResults();

    /// The files in a note, the innermost first, since one may be loaded within another.
    static QStringList notedIn(const QString &note);
};
