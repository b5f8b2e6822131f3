// SPDX-License-Identifier: Apache-2.0
#include "folderlock.h"

#include <QDeadlineTimer>
#include <QFile>
#include <QRegularExpression>
#include <QThread>

#include <cerrno>

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <unistd.h>

namespace {

constexpr int PauseMs = 20;

/// Locks the file of `descriptor`. False, with errno, if that fails, or another process has the lock all the time.
bool lock(int descriptor, int patienceMs)
{
    const QDeadlineTimer deadline(patienceMs);
    while (flock(descriptor, LOCK_EX | LOCK_NB) != 0) {
        if ((errno != EWOULDBLOCK && errno != EINTR) || deadline.hasExpired())
            return false;
        QThread::msleep(PauseMs);
    }
    return true;
}

QString contentOf(const QString &path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? QString::fromLocal8Bit(file.readAll()).trimmed() : QString();
}

/// The process that has locked the file, as the kernel lists it: "1: FLOCK  ADVISORY  WRITE 1234 08:01:5678 0 EOF".
/// Empty if it is in another container, or the file system counts its files otherwise in that list.
QString lockerOf(int descriptor)
{
    struct stat file;
    if (fstat(descriptor, &file) != 0)
        return {};
    const QString place = QStringLiteral("%1:%2:%3")
                              .arg(major(file.st_dev), 2, 16, QLatin1Char('0'))
                              .arg(minor(file.st_dev), 2, 16, QLatin1Char('0'))
                              .arg(file.st_ino);
    const QRegularExpression line(QStringLiteral(": FLOCK +\\w+ +\\w+ ([1-9]\\d*) %1 ").arg(place));
    return line.match(contentOf(QStringLiteral("/proc/locks"))).captured(1);
}

QString describe(const QString &process)
{
    const QString program = contentOf(QStringLiteral("/proc/%1/comm").arg(process));
    if (program.isEmpty()) // it has passed the lock on, and ended
        return QStringLiteral("another process");
    return QStringLiteral("process %1 (%2)").arg(process, program);
}

int openFolder(const QString &folder)
{
    return open(QFile::encodeName(folder).constData(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
}

} // namespace

FolderHolder FolderHolder::of(const QString &folder)
{
    const int descriptor = openFolder(folder);
    FolderHolder holder;
    if (descriptor >= 0 && flock(descriptor, LOCK_SH | LOCK_NB) != 0 && errno == EWOULDBLOCK) {
        holder.process = lockerOf(descriptor);
        holder.name = describe(holder.process);
    }
    close(descriptor);
    return holder;
}

FolderLock::FolderLock(const QString &folder, int patienceMs) : m_descriptor(folder.isEmpty() ? -1 : openFolder(folder))
{
    if (folder.isEmpty() || (m_descriptor >= 0 && lock(m_descriptor, patienceMs)))
        return;
    if (m_descriptor >= 0 && errno == EWOULDBLOCK)
        m_holder = describe(lockerOf(m_descriptor));
    else
        m_error = QStringLiteral("cannot lock %1: %2").arg(folder, qt_error_string(errno));
}

FolderLock::~FolderLock()
{
    if (m_descriptor >= 0)
        close(m_descriptor);
}

void FolderLock::sync() { fsync(m_descriptor); }
