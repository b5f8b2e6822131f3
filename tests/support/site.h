// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "host.h"
#include "journal.h"

#include <QDir>
#include <QFile>
#include <QTemporaryDir>

#include <memory>

#include <sys/stat.h>

inline const QString Foo = QStringLiteral("libfoo.so");

/// A loader with a journal and its two folders, which may lie apart.
class Site
{
public:
    explicit Site(const QString &elsewhere = QString())
        : deployedPath(elsewhere.isEmpty() ? deployed.path() : elsewhere), journal(Journal::bind(host.emitter()))
    {}

    void start()
    {
        loader = host.wire<Spy>(
            QJsonObject{{QStringLiteral("hot-deploy"), hot.path()}, {QStringLiteral("deployed"), deployedPath}});
        journal->take();
    }
    QString hotFile(const QString &name = Foo) const { return hot.filePath(name); }
    QString deployedFile(const QString &name = Foo) const { return deployedPath + QLatin1Char('/') + name; }
    QString changed() const { return QStringLiteral("zdefault 2: hot-deploy folder changed: %1").arg(hot.path()); }
    QString failed(const QString &name = Foo) const
    {
        return QStringLiteral("warning: failed to rename %1 to %2").arg(hotFile(name), deployedFile(name));
    }
    /// The messages of one call of the slot, after the first.
    QStringList change()
    {
        journal->take();
        loader->directoryChangedSlot(hot.path());
        QStringList entries = journal->take();
        return entries.value(0) == changed() ? entries.mid(1) : entries;
    }
    QStringList deployedFiles() const
    {
        return QDir(deployedPath).entryList(QDir::Files | QDir::System | QDir::Hidden, QDir::Name);
    }

    const Folder hot, deployed;
    const QString deployedPath;
    const Host host;
    const QSharedPointer<Journal> journal;
    Spy *loader = nullptr;
};

/// A folder on another file system than the temporary folders; null where the machine has none.
inline std::unique_ptr<QTemporaryDir> folderElsewhere()
{
    struct stat here, there;
    if (stat(QFile::encodeName(QDir::tempPath()).constData(), &here) != 0 || stat("/dev/shm", &there) != 0 ||
        here.st_dev == there.st_dev)
        return {};
    return std::make_unique<QTemporaryDir>(QStringLiteral("/dev/shm/zdefault-test-XXXXXX"));
}
