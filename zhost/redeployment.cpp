// SPDX-License-Identifier: Apache-2.0
#include "redeployment.h"

#include "folderlock.h"
#include "pluginfiles.h"
#include "renameto.h"
#include "takennames.h"

#include "../zdeploy/pluginname.h"

#include <QDir>
#include <QTemporaryFile>

#include <zfilecopy.h>

#include <atomic>
#include <cerrno>

#include <sys/stat.h>

namespace {

// Hidden, and without the suffix of a library, so that no loader takes it.
const QString PartName = QStringLiteral(".zhost-XXXXXX.part");
const QString PartPattern = QStringLiteral(".zhost-*.part");

// zdeploy keeps the lock for the whole try-out, which may take long. It picks a name only at the end, within a moment.
constexpr int LockPatienceMs = 500;

void removeWhatKilledOnesLeft(QDir folder)
{
    const QStringList parts = folder.entryList({PartPattern}, QDir::Files | QDir::Hidden);
    for (const QString &part : parts)
        folder.remove(part);
}

bool copy(const QString &source, QTemporaryFile *part)
{
    static const std::atomic_bool isStopped{false};
    ZFileCopy from(source);
    return from.open() && part->open() && from.writeTo(*part, isStopped) == ZFileCopy::Complete &&
           fchmod(part->handle(), DroppedMode) == 0;
}

} // namespace

Redeployment::Result Redeployment::run() const
{
    const QDir hot(hotDeploy);
    const FolderLock lock(hotDeploy, LockPatienceMs); // goes on without the lock, too, since a bad version serves
    removeWhatKilledOnesLeft(hot);
    QTemporaryFile part(hot.filePath(PartName));
    if (!copy(QDir(deployed).filePath(file), &part))
        return {{}, qt_error_string(errno)};
    const QStringList names = takenNames(hotDeploy, deployed, {QStringLiteral("self")});
    const QString name = PluginName::parse(file).next(names).file();
    if (!renameTo(part.fileName(), hot.filePath(name)))
        return {{}, qt_error_string(errno)};
    part.setAutoRemove(false);
    return {name, {}};
}
