// SPDX-License-Identifier: Apache-2.0
#include "settingscheck.h"

#include "configuration.h"
#include "settingsschema.h"

#include <QDir>

#include <zdefaultloader.h>

namespace {

QVector<Finding> checkBy(const QString &file, const QJsonObject &settings, const QString &path)
{
    const std::optional<SettingsSchema> schema = SettingsSchema::read(SettingsSchema::textOf(file));
    if (!schema)
        return {{path, SettingsSchema::unreadable(file), Finding::Wrong}};
    const QVector<Finding> faults = schema->faults(path);
    return faults.isEmpty() ? schema->check(settings, path) : faults;
}

} // namespace

QVector<Finding> checkSettings(const Configuration &configuration)
{
    const QString folder = configuration.folder(QStringLiteral("deployed"));
    if (folder.isEmpty()) // nothing is loaded
        return {};
    const QDir deployed(folder);
    const QJsonObject section = configuration.object.value(QStringLiteral("plugins")).toObject();
    QStringList listed;
    const QStringList names = Configuration::loadListOf(configuration.object);
    for (const QString &name : names)
        listed.append(ZDefaultLoader::basen(name));
    QVector<Finding> findings;
    const QStringList files =
        deployed.entryList({SettingsSchema::fileOf(QStringLiteral("*"))}, QDir::Files, QDir::Name);
    for (const QString &file : files) {
        const QString name = ZDefaultLoader::basen(file);
        if (section.contains(name) || listed.contains(name)) // else nobody may want it
            findings += checkBy(deployed.filePath(file), section.value(name).toObject(),
                                QStringLiteral("plugins.%1").arg(name));
    }
    return findings;
}
