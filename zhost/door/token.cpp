// SPDX-License-Identifier: Apache-2.0
#include "token.h"

#include <QFile>

#include <sys/stat.h>
#include <unistd.h>

namespace {

constexpr int MinLength = 16;
constexpr int MaxLength = 4096;

} // namespace

QByteArray readToken(const QString &name, QString *error)
{
    QFile file(name);
    struct stat status = {};
    if (!file.open(QIODevice::ReadOnly) || fstat(file.handle(), &status) != 0) {
        *error = file.errorString();
        return {};
    }
    const QByteArray token = file.readLine(MaxLength).trimmed();
    if ((status.st_mode & 077) != 0 || (status.st_uid != geteuid() && status.st_uid != 0))
        *error = QStringLiteral("somebody else may read it, or owns it: it must have the mode 0600");
    else if (token.size() < MinLength)
        *error = QStringLiteral("its first line is shorter than %1 characters").arg(MinLength);
    return error->isNull() ? token : QByteArray();
}
