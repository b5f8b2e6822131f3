// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "folder.h"

#include <QDateTime>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QJsonDocument>
#include <QJsonObject>

/// The two folders of a loader, side by side.
class Place
{
public:
    Place()
    {
        QDir(m_folder.path()).mkdir(QStringLiteral("hot-deploy"));
        QDir(m_folder.path()).mkdir(QStringLiteral("deployed"));
    }

    QString path() const { return m_folder.path(); }
    QString hotDeploy() const { return m_folder.filePath(QStringLiteral("hot-deploy")); }
    QString deployed() const { return m_folder.filePath(QStringLiteral("deployed")); }
    QStringList dropped() const { return everythingIn(hotDeploy()); }

    /// A file outside both folders.
    QString write(const QString &name, const QByteArray &content) const
    {
        m_folder.write(name, content);
        return m_folder.filePath(name);
    }

    /// Writes files into the deployed folder, each of another content that begins with `content`, and the note of a
    /// host that those in `good` ran well.
    void deploy(const QStringList &files, const QStringList &good, const QByteArray &content = QByteArray()) const
    {
        QJsonObject notes;
        for (const QString &file : files) {
            const QFileInfo info(write(QStringLiteral("deployed/") + file, content + file.toUtf8()));
            if (good.contains(file))
                notes.insert(file, QJsonObject{{QStringLiteral("size"), info.size()},
                                               {QStringLiteral("mtime"), info.lastModified().toMSecsSinceEpoch()},
                                               {QStringLiteral("since"), QStringLiteral("2026-11-21T10:00:00")}});
        }
        write(QStringLiteral("deployed/good.json"), QJsonDocument(notes).toJson());
    }

    static QStringList everythingIn(const QString &folder)
    {
        return QDir(folder).entryList(QDir::AllEntries | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot);
    }

private:
    Folder m_folder;
};

/// Empty where it cannot be read.
inline QByteArray contentOf(const QString &path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}
