// SPDX-License-Identifier: Apache-2.0
#include "tidying.h"

#include "deployerlock.h"
#include "runninghost.h"
#include "versions.h"

#include <QDir>
#include <QFile>
#include <QMap>

namespace {

/// Those that have had their turn, the oldest first.
QStringList oldOnes(const QVector<Version> &versions, const QString &plugin, int keep)
{
    QMap<QString, int> count;
    QMap<QString, bool> hasGood;
    QStringList old;
    for (auto version = versions.rbegin(); version != versions.rend(); ++version) { // the newest first
        const QString name = version->name.plugin;
        const bool isGood = version->state == Version::Good;
        if ((!isGood && version->state != Version::Unproven) || (!plugin.isEmpty() && name != plugin))
            continue;
        const bool isNewestGood = isGood && !hasGood.value(name);
        hasGood[name] = hasGood.value(name) || isGood;
        if (++count[name] > keep && !isNewestGood)
            old.prepend(version->name.file());
    }
    return old;
}

} // namespace

Tidying::Result Tidying::run() const
{
    const DeployerLock folder(hotDeploy);
    if (!folder.error().isNull())
        return {{}, folder.error()};
    const RunningHost host = RunningHost::on(deployed);
    if (host.isThere() && !host.files)
        return {{}, QStringLiteral("cannot tell what %1 has loaded").arg(host.holder.name)};

    Result result;
    const QStringList old = oldOnes(versionsIn(hotDeploy, deployed), plugin, keep);
    for (const QString &name : old) {
        if (host.files && host.files->contains(name))
            continue;
        QFile file(QDir::cleanPath(QDir(deployed).filePath(name)));
        if (!file.remove())
            return {result.removed, QStringLiteral("cannot remove %1: %2").arg(file.fileName(), file.errorString())};
        result.removed.append(name);
    }
    return result;
}
