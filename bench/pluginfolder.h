// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QCoreApplication>
#include <QFile>
#include <QTemporaryDir>

/// A temporary folder with versions of a plugin, among the library paths if so wished.
class PluginFolder
{
public:
    explicit PluginFolder(bool isLibraryPath = true) : m_paths(QCoreApplication::libraryPaths())
    {
        if (isLibraryPath)
            QCoreApplication::setLibraryPaths({path()});
    }
    ~PluginFolder() { QCoreApplication::setLibraryPaths(m_paths); }

    QString path() const { return m_dir.path(); }
    QString filePath(const QString &name) const { return m_dir.filePath(name); }

    static QString nameOf(int version) { return QStringLiteral("libteller.%1").arg(version, 8, 10, QLatin1Char('0')); }
    /// Puts the version of this number here, and answers where it is. 0 is the plain file.
    QString add(int version) const
    {
        const QString base = version == 0 ? QStringLiteral("libteller") : nameOf(version);
        const QString file = filePath(base + QStringLiteral(".so"));
        if (!QFile::copy(QStringLiteral(TELLER), file))
            qFatal("cannot copy " TELLER);
        return file;
    }

private:
    Q_DISABLE_COPY(PluginFolder)

    const QStringList m_paths;
    QTemporaryDir m_dir;
};
