// SPDX-License-Identifier: Apache-2.0
#include "drop.h"

#include "deployerlock.h"
#include "inspection.h"
#include "pluginname.h"
#include "runninghost.h"
#include "tryout.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QTemporaryFile>

#include <foldermark.h>
#include <pluginfiles.h>
#include <renameto.h>
#include <takennames.h>
#include <zfilecopy.h>

#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdio>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

// Hidden, and without the suffix: nothing that a loader would take.
const QString PartName = QStringLiteral(".zdeploy-XXXXXX.part");
const QString PartPattern = QStringLiteral(".zdeploy-*.part");

QString systemError() { return qt_error_string(errno); }

Verdict unwritable(const QTemporaryFile &file)
{
    return Verdict::hindrance(QStringLiteral("cannot write %1: %2").arg(file.fileName(), systemError()));
}

/// Whoever is still writing the source would leave a part of it in the copy.
Verdict copy(ZFileCopy &from, QTemporaryFile &to)
{
    static const std::atomic_bool isStopped{false};
    if (!from.open())
        return {QStringLiteral("cannot read it: %1").arg(systemError())};
    if (!from.isSettled())
        return {QStringLiteral("it is still being written")};
    switch (from.writeTo(to, isStopped)) {
    case ZFileCopy::Unreadable:
        return {QStringLiteral("cannot read it: %1").arg(systemError())};
    case ZFileCopy::Unwritable:
        return unwritable(to);
    default:
        break;
    }
    if (!from.isSettled())
        return {QStringLiteral("it has changed while it was copied")};
    return fchmod(to.handle(), DroppedMode) == 0 ? Verdict() : unwritable(to);
}

const char *volatile partPath = nullptr; // all that a signal handler can reach, and may use

void removePart(int number)
{
    unlink(partPath);
    raise(number); // ends the process once this has returned
}

/// From here on, a signal that ends the process takes `file` along. To be called once.
void removeBySignals(const QString &file)
{
    partPath = qstrdup(QFile::encodeName(file).constData());
    struct sigaction action = {};
    action.sa_handler = removePart;
    action.sa_flags = static_cast<int>(SA_RESETHAND);
    for (const int number : {SIGHUP, SIGINT, SIGTERM}) {
        struct sigaction before = {};
        sigaction(number, nullptr, &before);
        if (before.sa_handler != SIG_IGN) // such as nohup has it
            sigaction(number, &action, nullptr);
    }
}

void removeWhatKilledOnesLeft(const QString &folder)
{
    QDir dir(folder);
    const QStringList parts = dir.entryList({PartPattern}, QDir::Files | QDir::Hidden);
    for (const QString &part : parts)
        dir.remove(part);
}

} // namespace

Drop::Result Drop::run() const
{
    const QString fileName = QFileInfo(source).fileName();
    PluginName name = PluginName::parse(fileName);
    if (name.plugin.isNull())
        return {{}, {QStringLiteral("a plugin's file is called lib<name>.so or lib<name>.<version>.so")}};
    if (name.version == QLatin1String("so") || name.version.endsWith(QLatin1String(".so"))) // and no version
        return {{}, {QStringLiteral("its name ends in \".so\" twice")}};
    Verdict verdict{inspect(source)};
    if (!verdict.isGood())
        return {{}, verdict};

    DeployerLock folder(hotDeploy);
    if (!folder.error().isNull())
        return {{}, Verdict::hindrance(folder.error())};
    removeWhatKilledOnesLeft(hotDeploy);

    // From here on it is the copy that counts: the source may change at any time.
    ZFileCopy from(source);
    QTemporaryFile part(QDir(hotDeploy).filePath(PartName));
    if (!part.open())
        return {{}, Verdict::hindrance(QStringLiteral("cannot write in %1: %2").arg(hotDeploy, part.errorString()))};
    removeBySignals(part.fileName());
    verdict = copy(from, part);
    part.close();
    if (verdict.isGood())
        verdict = {inspect(part.fileName())};
    if (verdict.isGood())
        verdict = tryOut(QFileInfo(part.fileName()).absoluteFilePath(), name.plugin, patience);
    if (!verdict.isGood())
        return {{}, verdict};

    // A host that runs on a deployed folder that was moved away is found by the other one.
    const QStringList hosts{RunningHost::on(deployed).holder.process, FolderMark::on(hotDeploy)};
    const QStringList names = takenNames(hotDeploy, deployed, hosts);
    if (version.isEmpty()) {
        name = name.next(names);
    } else {
        name.version = version;
        if (names.contains(name.file()))
            return {{}, {QStringLiteral("%1 is there already, or still in memory").arg(name.file())}};
        if (!name.isNewest(names))
            return {{},
                    {QStringLiteral("%1 would sort before a version that is there; %2 would be next")
                         .arg(name.file(), name.next(names).file())}};
    }
    const QString goal = QDir(hotDeploy).filePath(name.file());
    if (!renameTo(part.fileName(), goal))
        return {{}, Verdict::hindrance(QStringLiteral("cannot rename it to %1: %2").arg(goal, systemError()))};
    part.setAutoRemove(false);
    folder.sync();
    return {name.file(), {}};
}
