// SPDX-License-Identifier: Apache-2.0
#include "versions.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>

#include <notes.h>
#include <pluginfiles.h>

#include <algorithm>

namespace {

/// None, where no folder is named: that would be where the program was started.
QFileInfoList filesIn(const QString &folder, const QString &pattern)
{
    return folder.isEmpty() ? QFileInfoList()
                            : QDir(folder).entryInfoList({pattern}, QDir::AllEntries | QDir::System | QDir::Hidden);
}

bool isBefore(const Version &one, const Version &other)
{
    if (const int order = one.name.plugin.compare(other.name.plugin, Qt::CaseInsensitive))
        return order < 0;
    if (one.name.version.isEmpty() != other.name.version.isEmpty())
        return one.name.version.isEmpty();
    if (one.name.version != other.name.version)
        return one.name.file() < other.name.file();
    return one.state < other.state; // the one that counts comes first
}

QByteArray contentOf(const QString &path)
{
    QFile file(path);
    file.open(QIODevice::ReadOnly);
    return file.readAll();
}

} // namespace

QString Version::describe() const
{
    switch (state) {
    case Good:
        return QStringLiteral("%1: good since %2").arg(name.file(), remark);
    case Quarantined:
        return QStringLiteral("%1: quarantined%2%3")
            .arg(name.file(), place.isEmpty() ? place : QStringLiteral(", as ") + place,
                 remark.isEmpty() ? remark : QStringLiteral(": ") + remark);
    case Waiting:
        return QStringLiteral("%1: waits for a host").arg(name.file());
    default:
        return QStringLiteral("%1: not known to be good%2")
            .arg(name.file(), remark.isEmpty() ? remark : QStringLiteral(": could not be loaded: ") + remark);
    }
}

QVector<Version> versionsIn(const QString &hotDeploy, const QString &deployed)
{
    QVector<Version> versions;
    const auto add = [&](const QString &file, Version::State state, const QString &remark = {},
                         const QString &place = {}) {
        const PluginName name = PluginName::parse(file);
        if (!name.plugin.isNull())
            versions.append({name, state, remark, place});
    };
    const QFileInfoList waiting = filesIn(hotDeploy, PluginPattern);
    for (const QFileInfo &file : waiting)
        add(file.fileName(), Version::Waiting);
    const Notes notes(deployed);
    const QFileInfoList files = filesIn(deployed, PluginPattern);
    for (const QFileInfo &file : files) {
        if (notes.isGood(file.fileName()))
            add(file.fileName(), Version::Good, notes.goodSince(file.fileName()));
        else
            add(file.fileName(), Version::Unproven, notes.whyUnloaded(file.fileName()));
    }
    const QFileInfoList quarantined = filesIn(deployed, Notes::QuarantinePattern);
    for (const QFileInfo &file : quarantined) {
        const QString name = file.fileName();
        const bool isNumbered = !name.endsWith(QLatin1String(".quarantined"));
        add(Notes::nameBeforeQuarantine(name), Version::Quarantined, notes.whyQuarantined(name),
            isNumbered ? name : QString());
    }
    std::stable_sort(versions.begin(), versions.end(), isBefore);
    return versions;
}

PluginName lastWaiting(const QString &plugin, const QVector<Version> &versions)
{
    const auto isWaiting = [&](const Version &version) {
        return version.name.isSamePlugin({plugin, {}}) && version.state == Version::Waiting;
    };
    const auto last = std::find_if(versions.rbegin(), versions.rend(), isWaiting);
    return last == versions.rend() ? PluginName() : last->name;
}

PluginName goodBeforeNewest(const QString &plugin, const QVector<Version> &versions, const QString &deployed)
{
    QVector<Version> own;
    for (const Version &version : versions) {
        const bool isDeployed = version.state == Version::Good || version.state == Version::Unproven;
        if (isDeployed && version.name.isSamePlugin({plugin, {}}))
            own.append(version);
    }
    const auto content = [&](const Version &version) {
        return contentOf(deployed + QLatin1Char('/') + version.name.file());
    };
    const QByteArray newest = own.isEmpty() ? QByteArray() : content(own.last());
    auto version = std::find_if(own.begin(), own.end(), [&](const Version &other) { return content(other) == newest; });
    while (version != own.begin()) {
        --version;
        if (version->state == Version::Good)
            return version->name;
    }
    return {};
}
