// SPDX-License-Identifier: Apache-2.0
#pragma once

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
    /// To be called before the first load, with the path of the note, which is removed.
    static void listen(const QString &note);
    /// There is no note any more.
    static void endNote();

    /// Whether the file of this name has been loaded, and has not failed since. It may have left memory.
    static bool contain(const QString &file);
    /// It has failed.
    static void forget(const QString &file);
    /// All but those of `files`.
    static void forgetBut(const QStringList &files);

    /// The files that a note has, the innermost first: one may be loaded within another.
    static QStringList notedIn(const QString &note);
};
