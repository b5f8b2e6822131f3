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
constexpr int BlocksToSync = 64; // who stops a copy waits for the disk to have so much, not for all of it

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

/// Not by QFile, which would not tell why a disk took only a part.
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

/// The system gives a lease for reading only where nobody writes. It is given back at once; but whoever comes to write
/// just then has a signal sent to us, which would be one that ends the process.
bool isBeingWritten(int descriptor)
{
    fcntl(descriptor, F_SETSIG, SIGURG); // which is ignored, unless somebody wants it; giving back forgets it again
    if (fcntl(descriptor, F_SETLEASE, F_RDLCK) != 0)
        return errno == EAGAIN;
    fcntl(descriptor, F_SETLEASE, F_UNLCK);
    return false;
}

} // namespace

bool ZFileCopy::open()
{
    // Opening a pipe would wait for somebody to write to it.
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
