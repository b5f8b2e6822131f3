// SPDX-License-Identifier: Apache-2.0
#include "zdeployment.h"

#include "zfilecopy.h"

#include <QDir>
#include <QFileInfo>
#include <QMutexLocker>
#include <QTemporaryFile>
#include <QTimer>

#include <cerrno>
#include <cstdio>
#include <system_error>
#include <utility>

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

namespace {

constexpr qint64 LargeSize = 16 << 20;
constexpr int LookAgainMs = 500;

// Hidden, and without the suffix of a library, so that nobody loads it.
const QLatin1String PartName("/.zdefault-XXXXXX.part");
const QLatin1String PartPattern(".zdefault-*.part");

/// Never replaces a file that is there. False, with errno, if it fails.
bool renameTo(const QString &source, const QString &target)
{
    const QByteArray from = QFile::encodeName(source);
    const QByteArray to = QFile::encodeName(target);
    if (renameat2(AT_FDCWD, from.constData(), AT_FDCWD, to.constData(), RENAME_NOREPLACE) == 0)
        return true;
    // Some file systems, such as network ones, cannot rename without replacing.
    return (errno == EINVAL || errno == ENOSYS) && std::rename(from.constData(), to.constData()) == 0;
}

/// Flushes the names in `folder` to the disk, if the file system can do so.
bool syncFolder(const QString &folder)
{
    const int descriptor = open(QFile::encodeName(folder).constData(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    const bool isSynced = descriptor >= 0 && (fsync(descriptor) == 0 || errno == EINVAL);
    if (descriptor >= 0)
        close(descriptor);
    return isSynced;
}

bool lock(const QFile &file) { return flock(file.handle(), LOCK_EX | LOCK_NB) == 0; }

/// Removes the unfinished copies of processes that were killed: nobody has those locked.
void removeLeftovers(const QDir &folder)
{
    const QStringList parts = folder.entryList({PartPattern}, QDir::Files | QDir::Hidden);
    for (const QString &part : parts) {
        QFile file(folder.filePath(part));
        if (file.open(QIODevice::ReadWrite) && lock(file))
            file.remove();
    }
}

} // namespace

/// The copy of a file, under a hidden name in the target folder.
class ZDeployment::Copy
{
public:
    Copy(const QString &source, const QString &folder) : m_from(source), m_folder(folder), m_part(folder + PartName) {}

    QString source() const { return m_from.source(); }
    bool isLarge() const { return m_from.size() > LargeSize; }
    bool isSettled() const { return m_from.isSettled(); }
    bool begin() { return m_from.open(); }
    void make(const std::atomic_bool &isStopped)
    {
        removeLeftovers(m_folder);
        if (!m_part.open())
            return;
        lock(m_part);
        m_isComplete = m_from.writeTo(m_part, isStopped) == ZFileCopy::Complete;
    }
    bool isComplete() const { return m_isComplete; }
    /// Gives the copy its name, and removes the source.
    bool publish(const QString &target)
    {
        if (!renameTo(m_part.fileName(), target))
            return false;
        if (syncFolder(m_folder) && (QFile::remove(source()) || !QFileInfo::exists(source())))
            return true;
        QFile::remove(target);
        return false;
    }

private:
    ZFileCopy m_from;
    const QString m_folder;
    QTemporaryFile m_part;
    bool m_isComplete = false;
};

ZDeployment::ZDeployment() = default;

ZDeployment::~ZDeployment()
{
    m_isStopped = true;
    if (m_thread.joinable())
        m_thread.join();
}

/// Does not use `QFile::rename()`. If the system does not rename, that function copies: it shows half a file under the
/// name, and removes the source before the last of it is written.
ZDeployment::Result ZDeployment::move(const QString &source, const QString &target)
{
    if (renameTo(source, target))
        return Moved;
    if (errno != EXDEV)
        return Failed;
    const QMutexLocker locker(&m_mutex);
    return copy(source, target);
}

ZDeployment::Result ZDeployment::copy(const QString &source, const QString &target)
{
    const bool isAside = m_aside && m_aside->source() == source;
    if (isAside && m_thread.joinable())
        return Later;
    auto copy = isAside ? std::move(m_aside) : std::make_unique<Copy>(source, QFileInfo(target).path());
    if (!isAside) {
        if (!copy->begin())
            return Failed;
        if (!copy->isSettled())
            return lookAgain(source);
        if (copy->isLarge())
            return copyAside(std::move(copy));
        copy->make(m_isStopped);
    }
    if (!copy->isComplete() || !QFileInfo::exists(source))
        return Failed;
    if (!copy->isSettled())
        return lookAgain(source);
    return copy->publish(target) ? Moved : Failed;
}

ZDeployment::Result ZDeployment::copyAside(std::unique_ptr<Copy> copy)
{
    if (m_aside)
        return lookAgain(copy->source());
    m_aside = std::move(copy);
    try {
        m_thread = std::thread([this, making = m_aside.get()] {
            making->make(m_isStopped);
            QMetaObject::invokeMethod(
                this, [this] { announceCopied(); }, Qt::QueuedConnection);
        });
    } catch (const std::system_error &) { // there is no room for one more
        m_aside.reset();
        return Failed;
    }
    return Later;
}

ZDeployment::Result ZDeployment::lookAgain(const QString &source)
{
    if (m_waiting.isEmpty())
        QTimer::singleShot(LookAgainMs, this, [this] { announceWaiting(); });
    if (!m_waiting.contains(source))
        m_waiting.append(source);
    return Later;
}

void ZDeployment::announceWaiting()
{
    QStringList waiting;
    {
        const QMutexLocker locker(&m_mutex);
        waiting.swap(m_waiting);
    }
    for (const QString &source : qAsConst(waiting)) // in an event for each: a receiver may let go of us
        QMetaObject::invokeMethod(
            this, [this, source] { Q_EMIT due(source); }, Qt::QueuedConnection);
}

void ZDeployment::announceCopied()
{
    QString source;
    {
        const QMutexLocker locker(&m_mutex);
        m_thread.join();
        source = m_aside->source();
    }
    QMetaObject::invokeMethod(
        this, [this] { forgetCopied(); }, Qt::QueuedConnection);
    Q_EMIT due(source);
}

/// Forgets a copy that nobody has taken when it was due.
void ZDeployment::forgetCopied()
{
    const QMutexLocker locker(&m_mutex);
    if (!m_thread.joinable())
        m_aside.reset();
}
