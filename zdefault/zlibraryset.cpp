// SPDX-License-Identifier: Apache-2.0
#include "zlibraryset.h"

#include "zemitter.h"
#include "zemitterlock.h"
#include "zpluginfile.h"
#include "ztexts.h"
#include "zwiring.h"

#include <QDir>
#include <QFileInfo>
#include <QMutexLocker>
#include <QThread>

namespace {
constexpr int LineKind = 1;
const QChar Dot = QLatin1Char('.');
} // namespace

ZLibrarySet::ZLibrarySet(const QString &name, const QString &folder, ZEmitter *emitter)
    : m_unloader(QSharedPointer<ZUnloader>::create(this))
{
    if (emitter)
        emitter->inject0(this);
    loadAll(name.indexOf(Dot) > 0 ? zBeforeDot(name) : name, folder, emitter);
}

ZLibrarySet::~ZLibrarySet()
{
    if (QThread::currentThread() == thread()) { // else the application's event loop does it
        // Not by posted events: the application object may be gone, and nothing is delivered then.
        while (const QSharedPointer<QPluginLoader> loader = m_unloader->next())
            unloadSlot(loader);
    }
    m_unloader->forgetSet();
}

QSharedPointer<ZLibrary> ZLibrarySet::load(const QString &name, const QString &folder, ZEmitter *emitter)
{
    const ZEmitterLock emitterFirst(emitter);
    const QMutexLocker locker(&m_mutex);
    const bool plain = !name.contains(Dot);
    if (plain ? !m_libraries.isEmpty() : m_libraries.contains(name))
        return loaded(zBeforeDot(name));
    if (m_beingLoaded.contains(name)) // a plugin asks for itself while it is injected
        return {};
    m_beingLoaded.insert(name);
    QSharedPointer<ZLibrary> library = plain ? loadAll(name, folder, emitter) : loadOne(name, folder, emitter);
    m_beingLoaded.remove(name);
    return library;
}

QSharedPointer<ZLibrary> ZLibrarySet::loadAll(const QString &name, const QString &folder, ZEmitter *emitter)
{
    const ZEmitterLock emitterFirst(emitter);
    const QMutexLocker locker(&m_mutex);
    const auto loadIfNeeded = [&](const QString &base) {
        const QSharedPointer<ZLibrary> library = loaded(base);
        return library ? library : loadOne(base, folder, emitter);
    };
    QSharedPointer<ZLibrary> result = loadIfNeeded(name);
    const QStringList versions =
        QDir(folder).entryList({QStringLiteral("lib%1.*.so").arg(name)}, QDir::Files, QDir::Name);
    for (const QString &file : versions)
        result = loadIfNeeded(QFileInfo(file).completeBaseName());
    return result;
}

QSharedPointer<ZLibrary> ZLibrarySet::loadOne(const QString &name, const QString &folder, ZEmitter *emitter)
{
    Q_UNUSED(folder) // the library paths tell where to look
    const QSharedPointer<QPluginLoader> loader = ZPluginFile::find(name);
    auto library = QSharedPointer<ZLibrary>::create(loader, this);
    if (!ZLibrary::load(library, emitter)) {
        m_log.warn(LineKind, QStringLiteral("failed to load %1: %2").arg(name, ZPluginFile::error(*loader)));
        return {};
    }
    {
        const QMutexLocker locker(&m_mutex);
        m_libraries.insert(zDeepCopy(name), library);
        if (name.contains(Dot))
            m_libraries.insert(zBeforeDot(name), library);
    }
    m_log.log(LineKind, [&] { return QStringLiteral("loaded: %1").arg(name); });
    return library;
}

QSharedPointer<ZLibrary> ZLibrarySet::loaded(const QString &name)
{
    const QMutexLocker locker(&m_mutex);
    return m_libraries.value(name).toStrongRef();
}

ZLogger *ZLibrarySet::getSetZLogger(ZLogger *logger)
{
    if (zKeepFirst(m_logger, logger))
        m_log = ZNamedLogger(logger, QStringLiteral("zdefault"));
    return m_logger;
}

void ZLibrarySet::unloadSlot(QSharedPointer<QPluginLoader> loader)
{
    if (!loader)
        return;
    m_unloader->takeUp(loader);
    const QString base = QFileInfo(loader->fileName()).completeBaseName();
    bool unloaded = false;
    {
        const QMutexLocker locker(&m_mutex); // also through the unload: nobody may load the same file meanwhile
        forgetDead(base);
        unloaded = ZPluginFile::unload(loader, m_unloader);
    }
    if (unloaded)
        m_log.log(LineKind, [&] { return QStringLiteral("unloaded: %1").arg(base); });
    else
        m_log.warn(LineKind, QStringLiteral("failed to unload: %1").arg(base));
}

void ZLibrarySet::forgetDead(const QString &base)
{
    if (base.contains(Dot))
        m_libraries.remove(base);
    const QString key = zBeforeDot(base);
    const QList<QWeakPointer<ZLibrary>> newestFirst = m_libraries.values(key);
    m_libraries.remove(key);
    for (auto library = newestFirst.crbegin(); library != newestFirst.crend(); ++library) {
        if (*library)
            m_libraries.insert(key, *library);
    }
}
