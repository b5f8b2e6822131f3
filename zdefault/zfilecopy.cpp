// SPDX-License-Identifier: Apache-2.0
#include "zfilecopy.h"

#include <QByteArray>
#include <QFileInfo>

#include <cerrno>
#include <csignal>

#include <fcntl.h>
#include <unistd.h>

namespace {

constexpr int BlockSize = 1 << 20;
constexpr int BlocksToSync = 64; // flushed at a time, so that a copy can be stopped without waiting for all of it

/// Repeats a call that a signal interrupts.
template <class Call>
ssize_t uninterrupted(Call call)
{
    ssize_t result = -1;
    do
        result = call();
    while (result < 0 && errno == EINTR);
    return result;
}

/// Does not use QFile, which does not tell why a disk took only a part.
bool writeAll(int descriptor, const char *data, ssize_t size)
{
    while (size > 0) {
        const ssize_t written = uninterrupted([&] { return write(descriptor, data, static_cast<size_t>(size)); });
        if (written < 0)
            return false;
        data += written;
        size -= written;
    }
    return true;
}

bool isSame(const struct stat &one, const struct stat &other)
{
    return one.st_dev == other.st_dev && one.st_ino == other.st_ino && one.st_size == other.st_size &&
           one.st_mtim.tv_sec == other.st_mtim.tv_sec && one.st_mtim.tv_nsec == other.st_mtim.tv_nsec;
}

/// Asks the system for a lease for reading, which it gives only if nobody writes. The lease is given back at once. If
/// somebody opens the file for writing just then, the system sends us a signal; its default would end the process.
bool isBeingWritten(int descriptor)
{
    fcntl(descriptor, F_SETSIG, SIGURG); // a signal that is ignored by default; giving the lease back resets this
    if (fcntl(descriptor, F_SETLEASE, F_RDLCK) != 0)
        return errno == EAGAIN;
    fcntl(descriptor, F_SETLEASE, F_UNLCK);
    return false;
}

} // namespace

bool ZFileCopy::open()
{
    // Only regular files: to open a pipe would wait for somebody to write to it.
    return QFileInfo(source()).isFile() && m_source.open(QIODevice::ReadOnly | QIODevice::Unbuffered) &&
           fstat(m_source.handle(), &m_before) == 0;
}

bool ZFileCopy::isSettled() const
{
    struct stat now = {};
    return stat(QFile::encodeName(source()).constData(), &now) == 0 && isSame(m_before, now) &&
           !isBeingWritten(m_source.handle());
}

ZFileCopy::Result ZFileCopy::writeTo(QFile &copy, const std::atomic_bool &isStopped)
{
    QByteArray block(BlockSize, Qt::Uninitialized);
    int blocks = 0;
    for (;;) {
        if (isStopped)
            return Stopped;
        const ssize_t size = uninterrupted([&] { return read(m_source.handle(), block.data(), BlockSize); });
        if (size < 0)
            return Unreadable;
        if (size == 0)
            break;
        if (!writeAll(copy.handle(), block.constData(), size) ||
            (++blocks % BlocksToSync == 0 && fsync(copy.handle()) != 0))
            return Unwritable;
    }
    const bool isWritten = fsync(copy.handle()) == 0 && fchmod(copy.handle(), m_before.st_mode & 0777) == 0;
    return isWritten ? Complete : Unwritable;
}
