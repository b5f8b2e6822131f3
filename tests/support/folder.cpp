// SPDX-License-Identifier: Apache-2.0
#include "folder.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QRegularExpression>

namespace {

/// The files mapped into this process. A file that was deleted since counts too.
QStringList mappedFiles()
{
    QFile maps(QStringLiteral("/proc/self/maps"));
    if (!maps.open(QIODevice::ReadOnly))
        qFatal("cannot read /proc/self/maps");
    QStringList files;
    const QList<QByteArray> lines = maps.readAll().split('\n');
    for (const QByteArray &line : lines) {
        const int start = line.indexOf('/');
        if (start < 0)
            continue;
        QString file = QFile::decodeName(line.mid(start));
        file.remove(QRegularExpression(QStringLiteral(" \\(deleted\\)$")));
        if (!files.contains(file))
            files.append(file);
    }
    return files;
}

QString folderTemplate() { return QDir::tempPath() + QStringLiteral("/zdefault-test-XXXXXX"); }

} // namespace

Folder::Folder() : m_dir(folderTemplate())
{
    if (!m_dir.isValid())
        qFatal("cannot make a temporary folder");
}

QStringList Folder::files() const { return QDir(m_dir.path()).entryList(QDir::Files | QDir::System, QDir::Name); }

bool Folder::drop(const QString &plugin, const QString &file) const
{
    const QString goal = filePath(file.isEmpty() ? QStringLiteral("lib%1.so").arg(plugin) : file);
    const QString beside = goal + QStringLiteral(".part");
    return QFile::copy(pluginFile(plugin), beside) && QFile::rename(beside, goal);
}

bool Folder::write(const QString &file, const QByteArray &content) const
{
    QFile out(filePath(file));
    return out.open(QIODevice::WriteOnly) && out.write(content) == content.size();
}

QString pluginFile(const QString &plugin) { return QStringLiteral(PLUGINS "/lib%1.so").arg(plugin); }

bool isMapped(const QString &path) { return mappedFiles().contains(QFileInfo(path).canonicalFilePath()); }

QStringList mappedPlugins()
{
    const QString build = QFileInfo(QStringLiteral(PLUGINS)).canonicalFilePath();
    const QString folders = folderTemplate().remove(QStringLiteral("XXXXXX"));
    QStringList plugins;
    const QStringList files = mappedFiles();
    for (const QString &file : files) {
        if ((!build.isEmpty() && file.startsWith(build)) || file.startsWith(folders))
            plugins.append(file);
    }
    return plugins;
}
