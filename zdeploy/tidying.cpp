// SPDX-License-Identifier: Apache-2.0
#include "tidying.h"

#include "deployerlock.h"
#include "runninghost.h"
#include "versions.h"

#include <QDir>
#include <QFile>

#include <algorithm>

namespace {

/// Those that have had their turn, the oldest first.
QStringList oldOnes(const QVector<Version> &versions, const QString &plugin, int keep)
{
    QVector<Version> newer;
    QStringList old;
    for (auto version = versions.rbegin(); version != versions.rend(); ++version) { // the newest first
        const bool isGood = version->state == Version::Good;
        if (!isGood && version->state != Version::Unproven)
            continue;
        if (!plugin.isEmpty() && !version->name.isSamePlugin({plugin, {}}))
            continue;
        const auto isOfIt = [&](const Version &other) { return other.name.isSamePlugin(version->name); };
        const auto isGoodOfIt = [&](const Version &other) { return isOfIt(other) && other.state == Version::Good; };
        const bool isNewestGood = isGood && std::none_of(newer.begin(), newer.end(), isGoodOfIt);
        if (std::count_if(newer.begin(), newer.end(), isOfIt) >= keep && !isNewestGood)
            old.prepend(version->name.file());
        newer.append(*version);
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
