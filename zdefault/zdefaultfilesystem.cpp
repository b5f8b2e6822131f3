// SPDX-License-Identifier: Apache-2.0
#include "zdefaultfilesystem.h"

#include "ztypename.h"
#include "zwiring.h"

#include <QCoreApplication>
#include <QDir>
#include <QJsonObject>
#include <QTemporaryFile>

namespace {

QString existingFolder(const QString &folder)
{
    const QDir dir(folder);
    // If `folder` is relative, this makes that folder, and within it another one of the same path. Both have
    // always been made.
    return dir.exists() || dir.mkpath(folder) ? folder : QDir::tempPath();
}

void removeLeftovers(const QString &folder, const QString &stem)
{
    QDir dir(folder);
    const QStringList leftovers = dir.entryList({stem + QLatin1String(".*")});
    for (const QString &leftover : leftovers)
        dir.remove(leftover);
}

} // namespace

const char *zDefaultTempFileTypeName() { return zTypeName<ZDefaultTempFile>("ZDefaultTempFile*"); }

const char *const ZDefaultTempFile::TypeName = zDefaultTempFileTypeName();

ZDefaultTempFile::ZDefaultTempFile() = default;

QSharedPointer<QTemporaryFile> ZDefaultTempFile::newFile0()
{
    return m_template.isNull() ? QSharedPointer<QTemporaryFile>::create()
                               : QSharedPointer<QTemporaryFile>::create(m_template);
}

ZConfig *ZDefaultTempFile::getSetZConfig(ZConfig *config)
{
    if (!config)
        return nullptr;
    const QJsonObject section = config->toJson0().value(QStringLiteral("filesystem")).toObject();
    const QJsonValue folderValue = section.value(QStringLiteral("temporary-folder"));
    const QString folder = folderValue.isString() ? existingFolder(folderValue.toString()) : QDir::tempPath();
    const QString stem =
        section.value(QStringLiteral("temporary-fn-template")).toString(QCoreApplication::applicationName());
    removeLeftovers(folder, stem);
    m_template = QStringLiteral("%1/%2").arg(folder, stem);
    return config;
}

ZEmitter *ZDefaultTempFile::getSetZEmitter(ZEmitter *emitter) { return zAnnounce<ZTempFileDelegate>(this, emitter); }

ZTempFileDelegate::ZTempFileDelegate(QObject *object) : ZDelegate(refer(object)) { provide<ZTempFile>(this); }

ZTempFileDelegate::ZTempFileDelegate(QSharedPointer<QObject> object) : ZDelegate(refer(std::move(object)))
{
    provide<ZTempFile>(this);
}

QSharedPointer<QTemporaryFile> ZTempFileDelegate::newFile0() { return forward(&ZTempFile::newFile0, {}); }
