// SPDX-License-Identifier: Apache-2.0
#include "folderlock.h"

#include <QDeadlineTimer>
#include <QFile>
#include <QThread>

#include <cerrno>

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <unistd.h>

namespace {

constexpr int PatienceMs = 10000; // anybody who may read the folder may lock it, and keep it for ever
constexpr int PauseMs = 20;

/// Locks what `descriptor` has open; false, and errno, where that fails or somebody else has it all the time.
bool lock(int descriptor)
{
    const QDeadlineTimer deadline(PatienceMs);
    while (flock(descriptor, LOCK_EX | LOCK_NB) != 0) {
        if ((errno != EWOULDBLOCK && errno != EINTR) || deadline.hasExpired())
            return false;
        QThread::msleep(PauseMs);
    }
    return true;
}

QByteArray contentOf(const QString &path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

/// The process that has locked what `descriptor` has open, in words. The system does not always tell: it may be a
/// process that is not seen from here.
QString holder(int descriptor)
{
    struct stat status = {};
    fstat(descriptor, &status);
    const QByteArray file = QStringLiteral("%1:%2:%3")
                                .arg(major(status.st_dev), 2, 16, QLatin1Char('0'))
                                .arg(minor(status.st_dev), 2, 16, QLatin1Char('0'))
                                .arg(status.st_ino)
                                .toLatin1();
    const QList<QByteArray> lines = contentOf(QStringLiteral("/proc/locks")).split('\n');
    for (const QByteArray &line : lines) { // "1: FLOCK  ADVISORY  WRITE 4711 fe:00:12345 0 EOF"
        const QList<QByteArray> words = line.simplified().split(' ');
        const int process = words.value(4).toInt();
        if (words.value(1) != "FLOCK" || words.value(5) != file || process <= 0)
            continue;
        const QByteArray name = contentOf(QStringLiteral("/proc/%1/comm").arg(process)).trimmed();
        return QStringLiteral("process %1 (%2)").arg(QString::number(process), QString::fromLocal8Bit(name));
    }
    return QStringLiteral("another process");
}

} // namespace

FolderLock::FolderLock(const QString &path)
    : m_descriptor(open(QFile::encodeName(path).constData(), O_RDONLY | O_DIRECTORY | O_CLOEXEC))
{
    if (m_descriptor >= 0 && lock(m_descriptor))
        return;
    error = m_descriptor >= 0 && errno == EWOULDBLOCK
                ? QStringLiteral("%1 is being deployed to by %2").arg(path, holder(m_descriptor))
                : QStringLiteral("cannot lock %1: %2").arg(path, qt_error_string(errno));
}

FolderLock::~FolderLock()
{
    if (m_descriptor >= 0)
        close(m_descriptor);
}

void FolderLock::sync() { fsync(m_descriptor); }
