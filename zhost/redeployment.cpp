// SPDX-License-Identifier: Apache-2.0
#include "redeployment.h"

#include "notes.h"

#include "../zdeploy/pluginname.h"

#include <QDir>
#include <QTemporaryFile>

#include <zfilecopy.h>

#include <atomic>
#include <cerrno>
#include <cstdio>

#include <fcntl.h>

namespace {

// Hidden, and without the suffix: nothing that a loader would take.
const QString PartName = QStringLiteral(".zhost-XXXXXX.part");
const QString PartPattern = QStringLiteral(".zhost-*.part");

/// The names of plugins in the two folders, those in quarantine among them: such a one may still be in memory, where a
/// newcomer of its name would be taken for it.
QStringList takenNames(const QString &hotDeploy, const QString &deployed)
{
    const QStringList filter{QStringLiteral("lib*.so"), QStringLiteral("lib*.so") + Notes::Quarantined};
    const QDir::Filters all = QDir::AllEntries | QDir::System | QDir::Hidden;
    QStringList names = QDir(hotDeploy).entryList(filter, all); // first: what is moved meanwhile is not missed
    names += QDir(deployed).entryList(filter, all);
    for (QString &name : names) {
        if (name.endsWith(Notes::Quarantined))
            name.chop(Notes::Quarantined.size());
    }
    return names;
}

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
    return from.open() && part->open() && from.writeTo(*part, isStopped) == ZFileCopy::Complete;
}

/// False, and errno, where it fails; `to` is not replaced, where the file system has a way to do so.
bool renameTo(const QString &from, const QString &to)
{
    const QByteArray source = QFile::encodeName(from);
    const QByteArray target = QFile::encodeName(to);
    return renameat2(AT_FDCWD, source.constData(), AT_FDCWD, target.constData(), RENAME_NOREPLACE) == 0 ||
           ((errno == EINVAL || errno == ENOSYS) && std::rename(source.constData(), target.constData()) == 0);
}

} // namespace

Redeployment::Result Redeployment::run() const
{
    const QDir hot(hotDeploy);
    removeWhatKilledOnesLeft(hot);
    QTemporaryFile part(hot.filePath(PartName));
    if (!copy(QDir(deployed).filePath(file), &part))
        return {{}, qt_error_string(errno)};
    const QString name = PluginName::parse(file).next(takenNames(hotDeploy, deployed)).file();
    if (!renameTo(part.fileName(), hot.filePath(name)))
        return {{}, qt_error_string(errno)};
    part.setAutoRemove(false);
    return {name, {}};
}
