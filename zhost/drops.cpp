// SPDX-License-Identifier: Apache-2.0
#include "drops.h"

#include "configuration.h"
#include "pluginfiles.h"
#include "warn.h"

#include "../zdeploy/pluginname.h"

#include <QDir>
#include <QJsonArray>
#include <QJsonDocument>
#include <QSaveFile>

#include <zdefaultloader.h>

#include <algorithm>

namespace {

const QString Section = QStringLiteral("loader");
const QString LoadList = QStringLiteral("load-list");

QStringList texts(const QJsonArray &array)
{
    QStringList result;
    for (const auto &element : array)
        result.append(element.toString());
    return result;
}

QJsonObject sectionOf(const QJsonObject &configuration) { return configuration.value(Section).toObject(); }

QStringList readNote(const QString &path)
{
    QFile note(path);
    note.open(QIODevice::ReadOnly);
    return texts(QJsonDocument::fromJson(note.readAll()).array());
}

bool isPluginOf(const QString &file, const QString &name)
{
    const QString version = ZDefaultLoader::undecorate(file).section(QLatin1Char('.'), 1);
    return PluginName{ZDefaultLoader::basen(file), version}.isSamePlugin({ZDefaultLoader::basen(name), {}});
}

} // namespace

Drops::Drops(const Configuration &configuration)
    : m_folder(configuration.folder(QStringLiteral("deployed"))),
      m_remembers(sectionOf(configuration.object).value(QStringLiteral("remember")).toBool()),
      m_note(QDir(m_folder).filePath(QStringLiteral(".zhost-remembered.json"))),
      m_names(Configuration::loadListOf(configuration.object)), m_seen(pluginFilesIn(m_folder))
{
    if (!m_remembers || m_folder.isEmpty())
        return;
    const QStringList noted = readNote(m_note);
    for (const QString &name : noted) { // its files may have been removed since
        const auto isOf = [&](const QString &file) { return isPluginOf(file, name); };
        if (std::any_of(m_seen.begin(), m_seen.end(), isOf))
            m_remembered.append(name);
    }
    m_names += m_remembered;
}

QJsonObject Drops::withRemembered(QJsonObject configuration) const
{
    if (!m_remembered.isEmpty()) {
        QJsonObject section = sectionOf(configuration);
        section.insert(LoadList, QJsonArray::fromStringList(Configuration::loadListOf(configuration) + m_remembered));
        configuration.insert(Section, section);
    }
    return configuration;
}

QStringList Drops::follow(const QJsonObject &configuration)
{
    const QStringList before = m_names;
    m_names = Configuration::loadListOf(configuration);
    QStringList added = m_names;
    for (const QString &name : before)
        added.removeAll(name);
    m_names += m_remembered;
    return added;
}

void Drops::watch(ZLogger *logger)
{
    if (m_folder.isEmpty())
        return;
    m_logger = logger;
    QObject::connect(&m_watcher, &QFileSystemWatcher::directoryChanged, &m_watcher, [this] { look(); });
    m_watcher.addPath(m_folder);
    look();
}

void Drops::look()
{
    const QStringList before = m_seen;
    m_seen = pluginFilesIn(m_folder);
    for (const QString &file : qAsConst(m_seen)) {
        if (before.contains(file) || isListed(file))
            continue;
        const QString name = ZDefaultLoader::basen(file);
        if (m_remembers)
            remember(name);
        else
            m_logger->warning0(
                QStringLiteral("zhost: %1 is new, but \"load-list\" has no \"%2\": the next start does not "
                               "load it")
                    .arg(file, name));
    }
}

bool Drops::isListed(const QString &file) const
{
    return std::any_of(m_names.begin(), m_names.end(), [&](const QString &name) { return isPluginOf(file, name); });
}

void Drops::remember(const QString &name)
{
    m_names.append(name);
    m_remembered.append(name);
    QSaveFile note(m_note);
    note.open(QIODevice::WriteOnly);
    note.write(QJsonDocument(QJsonArray::fromStringList(m_remembered)).toJson());
    if (!note.commit())
        warn(*m_logger, QStringLiteral("cannot remember %1: %2").arg(name, note.errorString()));
}
