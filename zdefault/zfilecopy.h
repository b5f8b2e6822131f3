// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QFile>

#include <atomic>

#include <sys/stat.h>

/**
 * The copy of a file that somebody may still be writing.
 *
 * It is made block by block, so the size does not matter, and is good only if the file is afterwards what it was
 * before.
 *
 * Ownership: its own descriptor of the file.
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
    /// Whether the file is what it was when it was opened, under the name that it had, and nobody has it open for
    /// writing. A file system that cannot tell who writes, and a file of another user, count as if nobody did.
    bool isSettled() const;
    /// Writes content and permissions to `copy`, which is open, and to its disk. Gives up soon when `isStopped` is set.
    Result writeTo(QFile &copy, const std::atomic_bool &isStopped);

private:
    Q_DISABLE_COPY(ZFileCopy)

    QFile m_source;
    struct stat m_before = {};
};
