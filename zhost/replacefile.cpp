// SPDX-License-Identifier: Apache-2.0
#include "replacefile.h"

#include <QFileInfo>
#include <QSaveFile>

#include <cerrno>
#include <cstdio>

QString replaceFile(const QString &path, const QByteArray &text)
{
    const QString draft = QFileInfo(path).path() + QStringLiteral("/.zhost-draft");
    QFile::remove(draft); // one that a killed process has left may belong to another user
    QSaveFile file(draft);
    // flush(), since commit() does not report that there is no room on the disk
    if (!file.open(QIODevice::WriteOnly) || file.write(text) != text.size() || !file.flush() || !file.commit())
        return file.errorString();
    if (std::rename(QFile::encodeName(draft).constData(), QFile::encodeName(path).constData()) != 0)
        return qt_error_string(errno);
    return {};
}
