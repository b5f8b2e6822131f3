// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QFile>

#include <atomic>

#include <sys/stat.h>

/**
 * Copies a file that somebody may still be writing.
 *
 * The copy is made block by block, so the size does not matter. It is good only if the file has not changed meanwhile.
 *
 * Ownership: owns its descriptor of the file.
 * Thread:    one at a time.
 * Failure:   false, or a result that is not `Complete`, and errno.
 */
class ZFileCopy
{
public:
    enum Result
    {
        Complete,
        Unreadable,
        Unwritable,
        Stopped
    };

    explicit ZFileCopy(const QString &source) : m_source(source) {}

    /// Opens the file, which must be a regular one.
    bool open();
    QString source() const { return m_source.fileName(); }
    qint64 size() const { return m_before.st_size; }
    /// Whether the file has not changed since it was opened, still has its name, and nobody has it open for writing.
    /// For a file of another user, and on a file system that cannot tell who writes, it is assumed that nobody does.
    bool isSettled() const;
    /// Writes content and permissions to `copy`, which is open, and flushes them to the disk. Gives up soon when
    /// `isStopped` is set.
    Result writeTo(QFile &copy, const std::atomic_bool &isStopped);

private:
    Q_DISABLE_COPY(ZFileCopy)

    QFile m_source;
    struct stat m_before = {};
};
