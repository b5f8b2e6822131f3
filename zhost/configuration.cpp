// SPDX-License-Identifier: Apache-2.0
#include "configuration.h"

#include "door/doorsettings.h"
#include "doubledkeys.h"
#include "foldercheck.h"
#include "keycheck.h"
#include "natscheck.h"
#include "settingscheck.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>

#include <zdefaultloader.h>

namespace {

/// The place of the byte `offset` in `text`, by line and column.
QString place(const QByteArray &text, int offset)
{
    const QByteArray before = text.left(offset);
    const QByteArray line = before.mid(before.lastIndexOf('\n') + 1);
    return QStringLiteral("line %1, column %2").arg(before.count('\n') + 1).arg(QString::fromUtf8(line).size() + 1);
}

} // namespace

Configuration Configuration::read(const QString &file)
{
    QFile in(file);
    // A folder can be opened, but not read.
    if (!in.open(QIODevice::ReadOnly))
        return {{}, QStringLiteral("cannot read %1: %2").arg(file, in.errorString()), {}};
    const QByteArray text = in.readAll();
    if (in.error() != QFile::NoError)
        return {{}, QStringLiteral("cannot read %1: %2").arg(file, in.errorString()), {}};
    QJsonParseError error;
    const QJsonDocument document = QJsonDocument::fromJson(text, &error);
    if (error.error != QJsonParseError::NoError)
        return {{}, QStringLiteral("%1: %2: %3").arg(file, place(text, error.offset), error.errorString()), {}};
    if (!document.isObject())
        return {{}, QStringLiteral("%1: the top level must be a JSON object").arg(file), {}};
    return {document.object(), {}, doubledKeys(text)};
}

QString Configuration::folder(const QString &key) const
{
    const QJsonValue section = object.value(QStringLiteral("loader"));
    const QString path = section.toObject().value(key).toString();
    QDir dir;
    const bool isFound = section.isObject() && ZDefaultLoader::resolve(path.isEmpty() ? key : path, dir);
    return isFound ? dir.absolutePath() : QString();
}

QString Configuration::inbox() const
{
    const QString path = object.value(QStringLiteral("loader")).toObject().value(QStringLiteral("inbox")).toString();
    const QDir program(QCoreApplication::applicationDirPath());
    return path.isEmpty() ? QString() : QDir::cleanPath(program.absoluteFilePath(path));
}

QStringList Configuration::loadListOf(const QJsonObject &configuration)
{
    QStringList names;
    const QJsonObject section = configuration.value(QStringLiteral("loader")).toObject();
    const QJsonArray list = section.value(QStringLiteral("load-list")).toArray();
    for (const auto &name : list)
        names.append(name.toString());
    return names;
}

QVector<Finding> Configuration::findings() const
{
    QVector<Finding> result;
    for (const QString &path : doubled)
        result.append({path, QStringLiteral("is given twice; only the last counts"), Finding::Wrong});
    DoorSettings::read(object, &result);
    return result + checkKeys(object) + checkNats(object) + checkFolders(*this) + checkSettings(*this);
}
