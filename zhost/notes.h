// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QDateTime>
#include <QHash>
#include <QJsonObject>
#include <QString>
#include <QStringList>

/**
 * The notes that a host writes for its next start, beside the plugins.
 *
 * Each note changes in one step: if the process is killed, or the machine loses its power, either the old note or the
 * new one is there.
 *
 * Failure: false, and one line on stderr for the first note that cannot be written.
 */
class Notes
{
public:
    explicit Notes(const QString &folder);

    /// Notes files that have run well, in "good.json".
    bool noteGood(const QStringList &files);
    /// Whether `file` is one of them, and has not changed since.
    bool isGood(const QString &file) const;
    /// Since when `file` is good, as a text; empty if it is not.
    QString goodSince(const QString &file) const;
    /// When "good.json" was written last.
    QDateTime noted() const;

    /// Notes for each file why it could not be loaded, or null if it was, in ".zhost-unloaded.json".
    bool noteLoads(const QHash<QString, QString> &failures);
    /// Why `file`, as it is now, could not be loaded; empty if there is no such note.
    QString whyUnloaded(const QString &file) const;

    /// The note of starts that did not come as far as running well.
    struct Start
    {
        int count = 0;      ///< in a row
        QStringList taking; ///< the files that the start takes back
        QString why;        ///< they are taken back
    };
    Start start() const;
    bool noteStart(const Start &start);
    bool forgetStart();

    /// The note of `noteEnd()`.
    struct Crash
    {
        QString file;    ///< in which it came; empty if that is not one of the folder
        QString loading; ///< the file that was being loaded; empty if none was
        QString text;    ///< empty if there was no crash
    };
    QString crashPath() const;
    Crash crash() const;
    bool forgetCrash();

    /// The path of the note of `Loads`: what the process is loading.
    QString loadingPath() const;

    /// Renames a plugin to "FILE.quarantined", so that it is not loaded again; if that name is taken, to
    /// "FILE.quarantined.1", and so on. Before that, the reason is written into "quarantined.json". Returns the new
    /// name; null, with errno, if it fails.
    QString quarantine(const QString &file, const QString &why);
    /// Why the plugin that now has this name was renamed; empty if that is not known.
    QString whyQuarantined(const QString &name) const;
    /// The former name of a file in quarantine; null if `name` is not the name of such a file.
    static QString nameBeforeQuarantine(const QString &name);
    /// The wildcard pattern of such names.
    static const QString QuarantinePattern;

private:
    QString path(const QString &name) const { return m_folder + QLatin1Char('/') + name; }
    void noteQuarantine(const QString &name, const QString &why);
    bool write(const QString &name, const QJsonObject &object);
    bool forget(const QString &path);
    bool failed(const QString &path, const QString &reason);

    const QString m_folder;
    QJsonObject m_good;
    bool m_hasFailed = false;
};
