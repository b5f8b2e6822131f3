// SPDX-License-Identifier: Apache-2.0
#include "secret.h"

#include <QFile>

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

constexpr int MaxSize = 64 * 1024;

QString errorText() { return QString::fromLocal8Bit(strerror(errno)); }

/// What keeps an open file from being a secret; empty if nothing does.
QString fault(int descriptor)
{
    struct stat status = {};
    if (fstat(descriptor, &status) != 0)
        return errorText();
    if (!S_ISREG(status.st_mode))
        return QStringLiteral("is no regular file");
    if (status.st_uid != geteuid() && status.st_uid != 0)
        return QStringLiteral("somebody else owns it");
    const mode_t mode = status.st_mode & 07777;
    if (mode != 0600 && mode != 0400)
        return QStringLiteral("must have the mode 0600 or 0400, not 0%1").arg(mode, 3, 8, QLatin1Char('0'));
    return status.st_size > MaxSize ? QStringLiteral("is larger than 64 KiB") : QString();
}

} // namespace

QByteArray readSecret(const QString &path, QString *problem)
{
    // A pipe that nobody writes to would be waited for.
    const int descriptor = ::open(QFile::encodeName(path).constData(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY);
    QFile file;
    if (descriptor < 0 || !file.open(descriptor, QIODevice::ReadOnly, QFileDevice::AutoCloseHandle)) {
        *problem = errorText();
        return {};
    }
    *problem = fault(descriptor);
    if (!problem->isEmpty())
        return {};
    QByteArray secret = file.read(MaxSize + 1); // it may have grown
    if (secret.endsWith('\n'))
        secret.chop(secret.endsWith("\r\n") ? 2 : 1);
    if (file.error() != QFile::NoError)
        *problem = file.errorString();
    else if (secret.isEmpty())
        *problem = QStringLiteral("is empty");
    else if (secret.size() > MaxSize)
        *problem = QStringLiteral("is larger than 64 KiB");
    return problem->isEmpty() ? secret : QByteArray();
}
