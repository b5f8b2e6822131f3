// SPDX-License-Identifier: Apache-2.0
#include "foldermark.h"

#include <QFile>

#include <fcntl.h>
#include <unistd.h>

namespace {

int openFolder(const QString &folder)
{
    return open(QFile::encodeName(folder).constData(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
}

/// Whoever has one of another description; the byte that is locked is his number.
QString markedBy(int descriptor)
{
    struct flock lock = {};
    lock.l_type = F_WRLCK; // which all others are in the way of
    const bool isMarked = fcntl(descriptor, F_OFD_GETLK, &lock) == 0 && lock.l_type != F_UNLCK;
    return isMarked ? QString::number(lock.l_start) : QString();
}

} // namespace

FolderMark::FolderMark(const QString &folder) : m_descriptor(folder.isEmpty() ? -1 : openFolder(folder))
{
    struct flock lock = {};
    lock.l_type = F_RDLCK;
    lock.l_start = getpid();
    lock.l_len = 1;
    fcntl(m_descriptor, F_OFD_SETLK, &lock);
}

FolderMark::~FolderMark()
{
    if (m_descriptor >= 0)
        close(m_descriptor);
}

QString FolderMark::other() const { return markedBy(m_descriptor); }

QString FolderMark::on(const QString &folder)
{
    const int descriptor = openFolder(folder);
    QString process = markedBy(descriptor);
    close(descriptor);
    return process;
}
