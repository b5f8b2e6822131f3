// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QDateTime>
#include <QHash>
#include <QJsonObject>
#include <QString>
#include <QStringList>

/**
 * What a host writes down for its next start, beside the plugins.
 *
 * Each note is there as it was before or as it is now, whenever the process is killed or the machine loses its power.
 *
 * Failure: false, and one line on stderr for the first note that cannot be written.
 */
class Notes
{
public:
    explicit Notes(const QString &folder);

    /// Files that have run well: "good.json".
    bool noteGood(const QStringList &files);
    /// Whether `file` is one of them, and still what it was.
    bool isGood(const QString &file) const;
    /// Since when it is, as a text; empty if it is none.
    QString goodSince(const QString &file) const;
    /// When that was written last.
    QDateTime noted() const;

    /// Why files could not be loaded, or null where one has been: ".zhost-unloaded.json".
    bool noteLoads(const QHash<QString, QString> &failures);
    /// Why `file`, as it is now, could not be loaded; empty if that is not so.
    QString whyUnloaded(const QString &file) const;

    /// Of starts that did not come as far as running well.
    struct Start
    {
        int count = 0;      ///< in a row
        QStringList taking; ///< the files that the start takes back
        QString why;        ///< they are taken back
    };
    Start start() const;
    bool noteStart(const Start &start);
    bool forgetStart();

    /// What `noteEnd()` has noted.
    struct Crash
    {
        QString file;    ///< in which it came; empty if that is not one of the folder
        QString loading; ///< the file that was being loaded; empty if none was
        QString text;    ///< empty if there was no crash
    };
    QString crashPath() const;
    Crash crash() const;
    bool forgetCrash();

    /// What the process is loading: the note of `Loads`.
    QString loadingPath() const;

    /// Renames a plugin to "FILE.quarantined", so that it is not loaded again; where that name is taken, to
    /// "FILE.quarantined.1", and so on. Why, is in "quarantined.json" before that is done. Answers the new name; null,
    /// and errno, where that fails.
    QString quarantine(const QString &file, const QString &why);
    /// Why the plugin that has this name now was renamed; empty if that is not known.
    QString whyQuarantined(const QString &name) const;
    /// The name that a file in quarantine had; null if `name` is not that of one.
    static QString nameBeforeQuarantine(const QString &name);
    /// What such a name is like, for a folder's list.
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
