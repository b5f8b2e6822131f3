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

/// The number of a process that has a mark by another file description. It is the place of the byte that is locked.
QString markedBy(int descriptor)
{
    struct flock lock = {};
    lock.l_type = F_WRLCK; // any lock of another is in its way
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
