// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "folder.h"

#include <QDir>
#include <QFile>

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
