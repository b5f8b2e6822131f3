// SPDX-License-Identifier: Apache-2.0
#include "pluginreport.h"

#include "known.h"
#include "loadbook.h"

#include "../configuration.h"
#include "../notes.h"
#include "../report.h"

#include "../../zdeploy/versions.h"

#include <QDir>
#include <QFileInfo>
#include <QJsonObject>

#include <algorithm>

namespace {

const QLatin1String Deleted(" (deleted)"); // as the kernel has it, after a name

/// A plugin's file, or what was one and is in memory.
struct Entry
{
    Version version;
    QString path; // under which it was loaded, or would be
    bool isThere;
};

/// What the kernel calls a file that is in memory, as it was called before it was taken back or removed.
QString nameBefore(QString path)
{
    if (path.endsWith(Deleted))
        path.chop(Deleted.size());
    const QFileInfo info(path);
    const QString before = Notes::nameBeforeQuarantine(info.fileName());
    return before.isNull() ? path : info.path() + QLatin1Char('/') + before;
}

/// `runs`: it is in memory, and no newer version of its plugin is.
QString stateOf(const Entry &entry, bool runs, bool isGuarded)
{
    if (!entry.isThere)
        return QStringLiteral("gone");
    switch (entry.version.state) {
    case Version::Good:
        return QStringLiteral("good");
    case Version::Quarantined:
        return QStringLiteral("quarantined");
    default:
        return !isGuarded ? QStringLiteral("unguarded")
               : runs     ? QStringLiteral("on probation")
                          : QStringLiteral("unproven");
    }
}

QJsonObject holder(const char *kind, const QString &name, const QString &text)
{
    return {
        {QStringLiteral("kind"), QLatin1String(kind)}, {QStringLiteral("name"), name}, {QStringLiteral("text"), text}};
}

/// What keeps a file in memory.
QJsonArray holdersOf(const QString &path, const QString &left, const Known &known)
{
    QJsonArray result;
    const auto add = [&](const char *kind, const QStringList &names, const QString &sentence) {
        for (const QString &name : names)
            result.append(holder(kind, name, sentence.arg(name)));
    };
    add("service", known.wiring.interfaces(path), QStringLiteral("serves %1"));
    add("former service", known.wiring.formerInterfaces(path),
        QStringLiteral("has served %1, and is held by a call or a share"));
    const QStringList current = known.endpoints.addresses(path);
    QStringList former = known.endpoints.allAddresses(path);
    for (const QString &address : current)
        former.removeAll(address);
    add("endpoint", current, QStringLiteral("an endpoint at %1"));
    add("endpoint", former, QStringLiteral("an endpoint, in whose place at %1 there is another by now"));
    add("activity", known.activities.names(path), QStringLiteral("an activity: %1"));
    if (!left.isEmpty())
        result.append(holder("for good", {}, left));
    if (result.isEmpty())
        result.append(holder("unknown", {}, QStringLiteral("something of it that is shared: what, is not known")));
    return result;
}

QJsonObject describe(const Entry &entry, bool isInMemory, bool runs, bool isGuarded, const Known &known)
{
    const QFileInfo info(entry.path);
    const LoadBook::Entry load = isInMemory ? LoadBook::get().entry(info.fileName()) : LoadBook::Entry();
    return {{QStringLiteral("file"), entry.version.place.isEmpty() ? entry.version.name.file() : entry.version.place},
            {QStringLiteral("plugin"), entry.version.name.plugin},
            {QStringLiteral("version"), entry.version.name.version},
            {QStringLiteral("size"), entry.isThere ? info.size() : 0},
            {QStringLiteral("inMemory"), isInMemory},
            {QStringLiteral("loadedSince"), load.since.isValid() ? load.since.toString(Qt::ISODateWithMs) : QString()},
            {QStringLiteral("left"), load.left},
            {QStringLiteral("state"), stateOf(entry, runs, isGuarded)},
            {QStringLiteral("reason"), entry.version.state == Version::Good ? QString() : entry.version.remark},
            {QStringLiteral("root"), known.wiring.rootClass(entry.path)},
            {QStringLiteral("components"), isInMemory ? known.wiring.components(entry.path) : QJsonArray()},
            {QStringLiteral("serves"), QJsonArray::fromStringList(known.wiring.interfaces(entry.path))},
            {QStringLiteral("endpoints"), QJsonArray::fromStringList(known.endpoints.addresses(entry.path))},
            {QStringLiteral("activities"), QJsonArray::fromStringList(known.activities.names(entry.path))},
            {QStringLiteral("heldBy"), isInMemory ? holdersOf(entry.path, load.left, known) : QJsonArray()}};
}

} // namespace

QStringList loadedFiles()
{
    QStringList files;
    const QStringList mapped = pluginsInMemory();
    for (const QString &path : mapped)
        files.append(nameBefore(path));
    return files;
}

QJsonArray pluginReport(const Known &known)
{
    const Configuration configuration{known.configuration(), {}, {}};
    const bool isGuarded = configuration.object.value(QStringLiteral("guard")) != false;
    const QString folder = QDir(configuration.folder(QStringLiteral("deployed"))).canonicalPath();
    QStringList inMemory = loadedFiles();
    const QVector<Version> versions = versionsIn({}, folder);
    const auto pathOf = [&](const Version &version) { return folder + QLatin1Char('/') + version.name.file(); };
    QVector<const Version *> running; // the newest of each plugin
    for (const Version &version : versions) {
        if (!inMemory.contains(pathOf(version)))
            continue;
        if (!running.isEmpty() && running.last()->name.isSamePlugin(version.name))
            running.removeLast();
        running.append(&version);
    }
    QJsonArray result;
    for (const Version &version : versions) {
        const QString path = pathOf(version);
        const bool isInMemory = inMemory.removeAll(path) > 0;
        result.append(describe({version, path, true}, isInMemory, running.contains(&version), isGuarded, known));
    }
    for (const QString &path : qAsConst(inMemory)) {
        const PluginName name = PluginName::parse(QFileInfo(path).fileName());
        if (!name.plugin.isNull())
            result.append(describe({{name, Version::Unproven, {}, {}}, path, false}, true, false, isGuarded, known));
    }
    return result;
}
