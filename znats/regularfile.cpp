// SPDX-License-Identifier: Apache-2.0
#include "regularfile.h"

#include <QFile>

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

QString errorText() { return QString::fromLocal8Bit(strerror(errno)); }

QString tooLarge(int mostKiB) { return QStringLiteral("is larger than %1 KiB").arg(mostKiB); }

QString fault(int descriptor, int mostKiB, FileRule rule)
{
    struct stat status = {};
    if (fstat(descriptor, &status) != 0)
        return errorText();
    if (!S_ISREG(status.st_mode))
        return QStringLiteral("is no regular file");
    QString broken = rule(status);
    if (!broken.isEmpty())
        return broken;
    return status.st_size > qint64(mostKiB) * 1024 ? tooLarge(mostKiB) : QString();
}

} // namespace

QByteArray readRegularFile(const QString &path, int mostKiB, FileRule rule, QString *problem)
{
    // A pipe that nobody writes to would be waited for.
    const int descriptor = ::open(QFile::encodeName(path).constData(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY);
    QFile file;
    if (descriptor < 0 || !file.open(descriptor, QIODevice::ReadOnly, QFileDevice::AutoCloseHandle)) {
        *problem = errorText();
        return {};
    }
    *problem = fault(descriptor, mostKiB, rule);
    if (!problem->isEmpty())
        return {};
    const QByteArray content = file.read(qint64(mostKiB) * 1024 + 1); // it may have grown
    if (file.error() != QFile::NoError)
        *problem = file.errorString();
    else if (content.isEmpty())
        *problem = QStringLiteral("is empty");
    else if (content.size() > mostKiB * 1024)
        *problem = tooLarge(mostKiB);
    return problem->isEmpty() ? content : QByteArray();
}
