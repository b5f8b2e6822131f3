// SPDX-License-Identifier: Apache-2.0
#include "zpluginfile.h"

#include "zlibraryset.h"
#include "zobject.h"

#include <QCoreApplication>
#include <QHash>
#include <QWeakPointer>

#include <utility>

namespace {

struct Waiting
{
    QSharedPointer<QPluginLoader> loader;
    QSharedPointer<ZUnloader> unloader;
};

/// A root that has an owner, until its destructor has returned.
struct OwnedRoot
{
    QWeakPointer<ZObject> owner;
    QVector<Waiting> waiting; // to be unloaded after it
};

QRecursiveMutex &mutex()
{
    static QRecursiveMutex instance; // what a plugin runs when it is loaded or unloaded may load another
    return instance;
}

QHash<QString, OwnedRoot> &ownedRoots() // by file; guarded by mutex()
{
    static QHash<QString, OwnedRoot> instance;
    return instance;
}

void destroy(ZObject *root, const QString &file)
{
    delete root; // without the lock: this is the plugin's code
    const QMutexLocker locker(&mutex());
    const OwnedRoot gone = ownedRoots().take(file);
    for (const Waiting &waiting : gone.waiting)
        waiting.unloader->queue(waiting.loader);
}

void unloadByApplication(const QSharedPointer<QPluginLoader> &loader)
{
    QCoreApplication *application = QCoreApplication::instance();
    if (!application)
        return;
    const auto unloader = QSharedPointer<ZUnloader>::create(nullptr);
    QMetaObject::invokeMethod(
        application, [loader, unloader] { ZPluginFile::unload(loader, unloader); }, Qt::QueuedConnection);
}

} // namespace

void ZUnloader::queue(const QSharedPointer<QPluginLoader> &loader)
{
    const QMutexLocker locker(&m_mutex);
    if (!m_set) {
        unloadByApplication(loader);
        return;
    }
    m_queued.append(loader);
    QMetaObject::invokeMethod(m_set, "unloadSlot", Qt::QueuedConnection, Q_ARG(QSharedPointer<QPluginLoader>, loader));
}

void ZUnloader::takeUp(const QSharedPointer<QPluginLoader> &loader)
{
    const QMutexLocker locker(&m_mutex);
    m_queued.removeOne(loader);
}

void ZUnloader::forgetSet()
{
    const QMutexLocker locker(&m_mutex);
    m_set = nullptr;
    for (const QSharedPointer<QPluginLoader> &loader : std::exchange(m_queued, {}))
        unloadByApplication(loader);
}

QSharedPointer<QPluginLoader> ZPluginFile::find(const QString &name)
{
    const QMutexLocker locker(&mutex());
    return QSharedPointer<QPluginLoader>::create(name);
}

ZObject *ZPluginFile::load(QPluginLoader &loader)
{
    const QMutexLocker locker(&mutex());
    loader.setLoadHints({}); // by default Qt would answer that it has unloaded the file, and keep it mapped for good
    if (!loader.load())      // takes this loader's share in the file, which instance() does not
        return nullptr;
    return qobject_cast<ZObject *>(loader.instance());
}

QSharedPointer<ZObject> ZPluginFile::root(QPluginLoader &loader)
{
    const QMutexLocker locker(&mutex());
    const QString file = loader.fileName();
    const auto owned = ownedRoots().constFind(file);
    if (owned != ownedRoots().constEnd())
        return owned->owner.toStrongRef();
    ZObject *object = load(loader);
    if (!object)
        return {};
    QSharedPointer<ZObject> owner(object, [file](ZObject *root) { destroy(root, file); });
    ownedRoots().insert(file, {owner, {}});
    return owner;
}

bool ZPluginFile::unload(const QSharedPointer<QPluginLoader> &loader, const QSharedPointer<ZUnloader> &unloader)
{
    const QMutexLocker locker(&mutex());
    const auto owned = ownedRoots().find(loader->fileName());
    if (owned != ownedRoots().end()) { // Qt would delete the root under those who hold it
        owned->waiting.append({loader, unloader});
        return false;
    }
    return loader->unload();
}
