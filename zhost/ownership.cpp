// SPDX-License-Identifier: Apache-2.0
#include "ownership.h"

#include <QFile>
#include <QFileInfo>

#include <sys/stat.h>
#include <unistd.h>

namespace {

QString nameOr(const QString &name, uint id) { return name.isEmpty() ? QString::number(id) : name; }

/// Who else may write to `path`; null if there is nobody.
QString otherWriter(const QString &path, const struct stat &status)
{
    const QFileInfo info(path);
    if (status.st_uid != 0 && status.st_uid != geteuid())
        return QStringLiteral("user %1").arg(nameOr(info.owner(), status.st_uid));
    if (status.st_mode & S_IWOTH)
        return QStringLiteral("everybody");
    if ((status.st_mode & S_IWGRP) && status.st_gid != 0 && status.st_gid != getegid())
        return QStringLiteral("group %1").arg(nameOr(info.group(), status.st_gid));
    return {};
}

} // namespace

QString distrust(const QString &path, Use use)
{
    QString at = QFileInfo(path).canonicalFilePath();
    // In the folders above, a sticky bit such as that of /tmp is enough: then nobody can replace the next folder.
    for (bool isShared = use == Use::Shared; !at.isEmpty(); isShared = true) {
        struct stat status;
        if (lstat(QFile::encodeName(at).constData(), &status) != 0)
            return {};
        if (isShared && (status.st_mode & S_ISVTX))
            status.st_mode &= ~static_cast<mode_t>(S_IWGRP | S_IWOTH);
        if (const QString who = otherWriter(at, status); !who.isNull())
            return QStringLiteral("%1 may write to %2").arg(who, at);
        at = at == QLatin1String("/") ? QString() : QFileInfo(at).path();
    }
    return {};
}
