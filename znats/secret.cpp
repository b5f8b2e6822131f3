// SPDX-License-Identifier: Apache-2.0
#include "secret.h"

#include "regularfile.h"

#include <sys/stat.h>
#include <unistd.h>

namespace {

constexpr int MostKiB = 64;

/// What keeps a file from being a secret; empty if nothing does.
QString fault(const struct stat &status)
{
    if (status.st_uid != geteuid() && status.st_uid != 0) // root reads all files anyway
        return QStringLiteral("somebody else owns it");
    const mode_t mode = status.st_mode & 07777;
    if (mode != 0600 && mode != 0400)
        return QStringLiteral("must have the mode 0600 or 0400, not 0%1").arg(mode, 3, 8, QLatin1Char('0'));
    return {};
}

} // namespace

QByteArray readSecret(const QString &path, QString *problem)
{
    QByteArray secret = readRegularFile(path, MostKiB, fault, problem);
    if (secret.endsWith('\n'))
        secret.chop(secret.endsWith("\r\n") ? 2 : 1);
    if (problem->isEmpty() && secret.isEmpty())
        *problem = QStringLiteral("is empty");
    return problem->isEmpty() ? secret : QByteArray();
}
