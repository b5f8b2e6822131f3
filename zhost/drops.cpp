// SPDX-License-Identifier: Apache-2.0
#include "drops.h"

#include "configuration.h"
#include "mappedfiles.h"
#include "pluginfiles.h"
#include "replacefile.h"
#include "takennames.h"
#include "warn.h"

#include "../zdeploy/pluginname.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>

#include <zdefaultloader.h>
#include <zfilecopy.h>

#include <algorithm>
#include <utility>

#include <sys/stat.h>

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
    return note.open(QIODevice::ReadOnly) ? texts(QJsonDocument::fromJson(note.readAll()).array()) : QStringList();
}

bool isPluginOf(const QString &file, const QString &name)
{
    const QString version = ZDefaultLoader::undecorate(file).section(QLatin1Char('.'), 1);
    return PluginName{ZDefaultLoader::basen(file), version}.isSamePlugin({ZDefaultLoader::basen(name), {}});
}

bool isBeingWritten(const QString &path)
{
    ZFileCopy file(path);
    return file.open() && !file.isSettled();
}

} // namespace

Drops::Drops(const Configuration &configuration)
    : m_folder(configuration.folder(QStringLiteral("deployed"))),
      m_remembers(sectionOf(configuration.object).value(QStringLiteral("remember")).toBool()),
      m_note(QDir(m_folder).filePath(QStringLiteral(".zhost-remembered.json"))),
      m_names(Configuration::loadListOf(configuration.object)), m_seen(files()), m_watch(m_folder)
{
    if (!m_remembers || m_folder.isEmpty())
        return;
    const QStringList noted = readNote(m_note);
    const QStringList seen = m_seen.keys();
    for (const QString &name : noted) { // its files may have been removed since
        const auto isOf = [&](const QString &file) { return isPluginOf(file, name); };
        if (std::any_of(seen.begin(), seen.end(), isOf))
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
    for (auto comes : {&FolderWatch::created, &FolderWatch::arrived})
        QObject::connect(&m_watch, comes, &m_watch, [this] { look(); });
    QObject::connect(&m_watch, &FolderWatch::unseen, &m_watch, [this] { look(); });
    m_watch.start();
}

void Drops::look()
{
    const Files before = std::exchange(m_seen, files());
    QStringList newcomers;
    for (auto file = m_seen.cbegin(); file != m_seen.cend(); ++file) {
        if (before.value(file.key()) != file.value())
            newcomers.append(file.key());
    }
    newcomers.sort();
    for (const QString &file : qAsConst(newcomers))
        tell(file);
}

void Drops::tell(const QString &file)
{
    if (isTakenForAnother(file))
        warn(*m_logger, QStringLiteral("%1 is not loaded: a file that had its name before is still in memory; drop it "
                                       "with zdeploy, which finds another name")
                            .arg(file));
    if (isBeingWritten(QDir(m_folder).filePath(file)))
        warn(*m_logger, QStringLiteral("%1 is still being written, and was taken as it is: remove it, and drop it with "
                                       "zdeploy")
                            .arg(file));
    if (isListed(file))
        return;
    const QString name = ZDefaultLoader::basen(file);
    if (m_remembers)
        remember(name);
    else
        warn(*m_logger, QStringLiteral("%1 is new, but \"load-list\" has no \"%2\": the next start does not load it")
                            .arg(file, name));
}

/// Whether the loader takes `file` for another one. It compares names: if a file of this name is in memory, it takes
/// the new file for that, even if the old one has been renamed or removed.
bool Drops::isTakenForAnother(const QString &file) const
{
    const QStringList inMemory = mappedFiles();
    const auto hasItsName = [&](const QString &path) { return nameInMemory(path) == file; };
    return std::any_of(inMemory.begin(), inMemory.end(), hasItsName) &&
           !inMemory.contains(QFileInfo(QDir(m_folder), file).canonicalFilePath());
}

Drops::Files Drops::files() const
{
    Files files;
    const QStringList names = pluginFilesIn(m_folder);
    for (const QString &name : names) {
        struct stat status = {};
        stat(QFile::encodeName(QDir(m_folder).filePath(name)).constData(), &status);
        files.insert(name, status.st_ino);
    }
    return files;
}

bool Drops::isListed(const QString &file) const
{
    return std::any_of(m_names.begin(), m_names.end(), [&](const QString &name) { return isPluginOf(file, name); });
}

void Drops::remember(const QString &name)
{
    m_names.append(name);
    m_remembered.append(name);
    const QString error = replaceFile(m_note, QJsonDocument(QJsonArray::fromStringList(m_remembered)).toJson());
    if (!error.isNull())
        warn(*m_logger, QStringLiteral("cannot remember %1: %2").arg(name, error));
}
