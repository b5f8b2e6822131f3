// SPDX-License-Identifier: Apache-2.0
#include "strictloader.h"

#include "ownership.h"
#include "printable.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QFileInfo>

#include <zcaught.h>

#include <cerrno>
#include <cstdio>

namespace {

/// The files that a search for the plugin `name` may find.
QFileInfoList candidates(const QString &name)
{
    QStringList folders = QCoreApplication::libraryPaths();
    if (name.contains(QLatin1Char('/')))
        folders.prepend(QFileInfo(name).path());
    const QString plugin = ZDefaultLoader::basen(QFileInfo(name).fileName());
    QFileInfoList result;
    for (const QString &folder : qAsConst(folders)) {
        const QFileInfoList files = QDir(folder).entryInfoList({QStringLiteral("*.so")}, QDir::Files);
        for (const QFileInfo &file : files) {
            if (ZDefaultLoader::basen(file.fileName()).compare(plugin, Qt::CaseInsensitive) == 0)
                result.append(file);
        }
    }
    return result;
}

} // namespace

QSharedPointer<ZLibrary> StrictLoader::load0(QString name)
{
    const bool isVersion = name.contains(QLatin1Char('.'));
    if (!isVersion && ZDefaultLoader::loaded0(name)) // then nothing is looked for
        return ZDefaultLoader::load0(name);
    bool isClear = true;
    const QFileInfoList files = candidates(name);
    for (const QFileInfo &file : files) {
        const QString reason = distrust(file.filePath());
        isClear &= reason.isNull() || putAside(file.filePath(), reason);
    }
    return isClear ? ZDefaultLoader::load0(name) : QSharedPointer<ZLibrary>();
}

/// Renames the file at `path`; replaces one that was put aside before.
bool StrictLoader::putAside(const QString &path, const QString &reason)
{
    const QString target = path + QStringLiteral(".distrusted");
    const bool isAside = std::rename(QFile::encodeName(path).constData(), QFile::encodeName(target).constData()) == 0;
    const QString rest = isAside ? QStringLiteral("it is %1 now").arg(target)
                                 : QStringLiteral("and it cannot be renamed: %1").arg(qt_error_string(errno));
    const QString line = QStringLiteral("zhost: %1 is not loaded: %2; %3").arg(path, reason, rest);
    zCaught([&] {
        if (ZLogger *logger = getSetZLogger())
            logger->warning0(printable(line));
    });
    return isAside;
}
