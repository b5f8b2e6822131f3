// SPDX-License-Identifier: Apache-2.0
#include "replacefile.h"

#include <QFileInfo>
#include <QSaveFile>

#include <cerrno>
#include <cstdio>

QString replaceFile(const QString &path, const QByteArray &text)
{
    const QString draft = QFileInfo(path).path() + QStringLiteral("/.zhost-draft");
    QFile::remove(draft); // what a process that was killed has left need not be ours to write
    QSaveFile file(draft);
    // flush: what fails in commit() itself for want of room is not found out
    if (!file.open(QIODevice::WriteOnly) || file.write(text) != text.size() || !file.flush() || !file.commit())
        return file.errorString();
    if (std::rename(QFile::encodeName(draft).constData(), QFile::encodeName(path).constData()) != 0)
        return qt_error_string(errno);
    return {};
}
