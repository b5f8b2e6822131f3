// SPDX-License-Identifier: Apache-2.0
#include "schemafile.h"

#include <QDir>
#include <QFileInfo>
#include <QSaveFile>

#include <settingsschema.h>

SchemaFile::SchemaFile(const QString &plugin, const QString &source, const QString &deployed)
    : m_source(QFileInfo(source).dir().filePath(SettingsSchema::fileOf(plugin))),
      m_target(QDir(deployed).filePath(SettingsSchema::fileOf(plugin)))
{
    m_isThere = QFileInfo(m_source).isFile();
    m_text = SettingsSchema::textOf(m_source);
}

QString SchemaFile::fault() const
{
    if (!m_isThere)
        return {};
    const std::optional<SettingsSchema> schema = SettingsSchema::read(m_text);
    if (!schema)
        return SettingsSchema::unreadable(m_source);
    const QVector<Finding> faults = schema->faults(QStringLiteral("settings"));
    return faults.isEmpty()
               ? QString()
               : QStringLiteral("%1: %2: %3").arg(m_source, faults.constFirst().path, faults.constFirst().text);
}

QString SchemaFile::drop() const
{
    if (!m_isThere || QFileInfo(m_source) == QFileInfo(m_target)) // which it is for one that is gone back to
        return {};
    QSaveFile file(m_target);
    const bool isWritten = file.open(QIODevice::WriteOnly) &&
                           file.setPermissions(QFile::ReadOwner | QFile::ReadGroup | QFile::ReadOther) &&
                           file.write(m_text) == m_text.size() && file.flush() && file.commit();
    return isWritten ? QString()
                     : QStringLiteral("its schema cannot be put to %1: %2").arg(m_target, file.errorString());
}
