// SPDX-License-Identifier: Apache-2.0
#include "drop.h"

#include "deployerlock.h"
#include "inspection.h"
#include "pluginname.h"
#include "runninghost.h"
#include "schemafile.h"
#include "tryout.h"
#include "warnings.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QScopeGuard>
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

// Hidden, and without the suffix of a library, so that no loader takes it.
const QString PartName = QStringLiteral(".zdeploy-XXXXXX.part");
const QString PartPattern = QStringLiteral(".zdeploy-*.part");

QString systemError() { return qt_error_string(errno); }

Verdict unwritable(const QTemporaryFile &file)
{
    return Verdict::hindrance(QStringLiteral("cannot write %1: %2").arg(file.fileName(), systemError()));
}

/// Copies the file. It fails if somebody is still writing the source: the copy could be incomplete.
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

const char *volatile partPath = nullptr; // global, since a signal handler has no other way to reach it

void removePart(int number)
{
    unlink(partPath);
    raise(number); // ends the process once this has returned
}

/// After this call, a signal that ends the process also removes `file`. Call it once.
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

/// Copies `from` into `folder`, and sets `path` to the copy. The caller removes that unless it is renamed.
Verdict copyInto(const QString &folder, ZFileCopy &from, QString *path)
{
    // A QTemporaryFile keeps its file open even after close(): a host would say that it is still being written.
    QTemporaryFile part(QDir(folder).filePath(PartName));
    if (!part.open())
        return Verdict::hindrance(QStringLiteral("cannot write in %1: %2").arg(folder, part.errorString()));
    part.setAutoRemove(false);
    *path = QFileInfo(part.fileName()).absoluteFilePath();
    removeBySignals(*path);
    return copy(from, part);
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
    PluginName name = PluginName::parse(QFileInfo(source).fileName());
    Verdict verdict{inspectNamed(source)};
    const SchemaFile schema(name.plugin, source, deployed);
    if (verdict.isGood())
        verdict.text = schema.fault();
    if (!verdict.isGood())
        return {{}, verdict};

    DeployerLock folder(hotDeploy);
    if (!folder.error().isNull())
        return {{}, Verdict::hindrance(folder.error())};
    removeWhatKilledOnesLeft(hotDeploy);

    // From here on only the copy counts, since the source may change at any time.
    ZFileCopy from(source);
    QString part;
    const auto tidyUp = qScopeGuard([&part] { unlink(QFile::encodeName(part).constData()); }); // unless it is renamed
    verdict = copyInto(hotDeploy, from, &part);
    if (verdict.isGood())
        verdict = {inspect(part)};
    QStringList warnings;
    if (verdict.isGood()) {
        const TryOut trial = tryOut(part, name.plugin, patience);
        verdict = trial.verdict;
        warnings = warningsOf(trial.description);
    }
    if (!verdict.isGood())
        return {{}, verdict, warnings};

    // If the deployed folder of a host was moved away, the host is found by the hot-deploy folder.
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
    if (!renameTo(part, goal))
        return {{}, Verdict::hindrance(QStringLiteral("cannot rename it to %1: %2").arg(goal, systemError()))};
    folder.sync();
    // After the plugin: a schema that comes without its plugin would be applied to the version that runs. No plugin
    // needs the schema to run.
    const QString failure = schema.drop();
    if (!failure.isEmpty())
        warnings.append(failure);
    return {name.file(), {}, warnings};
}
