// SPDX-License-Identifier: Apache-2.0
#include "renameto.h"

#include <QFile>

#include <cerrno>
#include <cstdio>

#include <fcntl.h>
#include <unistd.h>

bool renameTo(const QString &from, const QString &to)
{
    const QByteArray source = QFile::encodeName(from);
    const QByteArray target = QFile::encodeName(to);
    if (renameat2(AT_FDCWD, source.constData(), AT_FDCWD, target.constData(), RENAME_NOREPLACE) == 0)
        return true;
    if (errno != EINVAL && errno != ENOSYS) // some file systems, such as network ones, cannot do it
        return false;
    return link(source.constData(), target.constData()) == 0 && unlink(source.constData()) == 0;
}
