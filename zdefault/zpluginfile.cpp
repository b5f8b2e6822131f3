// SPDX-License-Identifier: Apache-2.0
#include "zpluginfile.h"

#include "zelffile.h"
#include "zlibraryset.h"
#include "zobject.h"
#include "zpluginmetadata.h"

#include <QCoreApplication>
#include <QFile>
#include <QHash>
#include <QJsonObject>
#include <QSet>
#include <QWeakPointer>

#include <algorithm>
#include <list>
#include <utility>

#include <sys/stat.h>

namespace {

struct Waiting
{
    QSharedPointer<QPluginLoader> loader;
    QSharedPointer<ZUnloader> unloader;
};

/// The loaders that have a share in a file.
struct Users
{
    QSet<const QPluginLoader *> staying;
    QSet<const QPluginLoader *> leaving; // their libraries are gone, but they cannot be unloaded yet
};

/// What is loaded once, under however many names. Two names of one file, such as a link and what it points to, are two
/// files to Qt; but they have one root.
struct File
{
    dev_t device;
    ino_t number;
    QHash<QString, Users> users; // by the name under which they have it
    QWeakPointer<ZObject> owner;
    bool isOwned = false;     // from the owner's coming until the root's destructor has returned
    QVector<Waiting> waiting; // some of those that are leaving

    bool isLosingRoot() const { return isOwned && owner.isNull(); }

    bool isNeededUnderAnotherName(const QString &name) const
    {
        for (auto other = users.begin(); other != users.end(); ++other) {
            if (other.key() != name && !other->staying.isEmpty())
                return true;
        }
        return false;
    }

    bool isUsedBy(const QPluginLoader &loader) const
    {
        const Users all = users.value(loader.fileName());
        return all.staying.contains(&loader) || all.leaving.contains(&loader);
    }

    void forget(const QPluginLoader &loader)
    {
        Users &all = users[loader.fileName()];
        all.leaving.remove(&loader);
        if (all.staying.isEmpty() && all.leaving.isEmpty())
            users.remove(loader.fileName());
    }

    /// Has those who wait try again.
    void wake()
    {
        const QVector<Waiting> all = std::exchange(waiting, {});
        for (const Waiting &each : all)
            each.unloader->queue(each.loader);
    }
};

// Neither is ever destroyed: what lives to the end of the process may still come here.

QRecursiveMutex &mutex()
{
    static auto &instance = *new QRecursiveMutex; // what a plugin runs when it is loaded or unloaded may load another
    return instance;
}

std::list<File> &files() // guarded by mutex()
{
    static auto &instance = *new std::list<File>;
    return instance;
}

/// The record of the file that `loader` has, or would have; null if it is not loaded.
File *fileOf(const QPluginLoader &loader)
{
    const QString name = loader.fileName();
    for (File &file : files()) { // the one on disk may be another by now
        if (file.users.contains(name))
            return &file;
    }
    struct stat status;
    if (name.isEmpty() || stat(QFile::encodeName(name).constData(), &status) != 0)
        return nullptr;
    for (File &file : files()) {
        if (file.device == status.st_dev && file.number == status.st_ino)
            return &file;
    }
    return nullptr;
}

/// Notes that `loader` has a share in its file.
void note(const QPluginLoader &loader)
{
    File *file = fileOf(loader);
    if (!file) {
        struct stat status = {};
        stat(QFile::encodeName(loader.fileName()).constData(), &status);
        files().push_back({status.st_dev, status.st_ino, {}, {}, false, {}});
        file = &files().back();
    }
    if (!file->isUsedBy(loader))
        file->users[loader.fileName()].staying.insert(&loader);
}

/// What keeps a file that Qt would go on to load from being loaded; empty if nothing does.
QString refusal(const QPluginLoader &loader)
{
    if (loader.isLoaded())
        return {};
    const QJsonObject metaData = loader.metaData();
    if (metaData.isEmpty())
        return {};
    QString mismatch = zInterfaceMismatch(metaData);
    if (!mismatch.isEmpty())
        return mismatch;
    const QString part = zElfDamage(loader.fileName());
    return part.isEmpty() ? QString() : QStringLiteral("the file is damaged: %1").arg(part);
}

void destroy(ZObject *root, File *file)
{
    delete root; // without the lock: this is the plugin's code
    const QMutexLocker locker(&mutex());
    file->isOwned = false;
    file->wake();
}

/// The deleter of a loader. Of a file that nobody has unloaded, and whose loader is gone, Qt destroys the root as the
/// process ends: when the plugin's static objects, and the services that it uses, are gone.
void release(QPluginLoader *loader)
{
    const QMutexLocker locker(&mutex());
    const File *file = fileOf(*loader);
    if (!file || !file->isUsedBy(*loader))
        delete loader;
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
    // Not by the slot's name, which Qt would ask the set for: it may be in its destructor, waiting for our lock.
    QMetaObject::invokeMethod(
        m_set, [set = m_set, loader] { set->unloadSlot(loader); }, Qt::QueuedConnection);
}

QSharedPointer<QPluginLoader> ZUnloader::next()
{
    const QMutexLocker locker(&m_mutex);
    return m_queued.value(0);
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
    const QVector<QSharedPointer<QPluginLoader>> queued = std::exchange(m_queued, {});
    for (const QSharedPointer<QPluginLoader> &loader : queued)
        unloadByApplication(loader);
}

QSharedPointer<QPluginLoader> ZPluginFile::find(const QString &name)
{
    const QMutexLocker locker(&mutex());
    return QSharedPointer<QPluginLoader>(new QPluginLoader(name), release);
}

ZObject *ZPluginFile::load(QPluginLoader &loader)
{
    const QMutexLocker locker(&mutex());
    const File *file = fileOf(loader);
    if (file && file->isLosingRoot()) // which Qt would hand out
        return nullptr;
    // By default Qt would answer that it has unloaded the file, and keep it mapped for good; and a function that is
    // nowhere to be found would end the process when it is first called.
    loader.setLoadHints(QLibrary::ResolveAllSymbolsHint);
    if (!refusal(loader).isEmpty() || !loader.load()) // load() takes a share in the file, which instance() does not
        return nullptr;
    note(loader);
    return qobject_cast<ZObject *>(loader.instance());
}

QString ZPluginFile::error(const QPluginLoader &loader)
{
    const QMutexLocker locker(&mutex());
    const QString reason = refusal(loader);
    return reason.isEmpty() ? loader.errorString() : reason;
}

QSharedPointer<ZObject> ZPluginFile::root(QPluginLoader &loader)
{
    const QMutexLocker locker(&mutex());
    const File *before = fileOf(loader);
    if (before && before->isOwned)
        return before->owner.toStrongRef();
    ZObject *object = load(loader);
    if (!object)
        return {};
    File *file = fileOf(loader);
    QSharedPointer<ZObject> owner(object, [file](ZObject *root) { destroy(root, file); });
    file->owner = owner;
    file->isOwned = true;
    return owner;
}

bool ZPluginFile::unload(const QSharedPointer<QPluginLoader> &loader, const QSharedPointer<ZUnloader> &unloader)
{
    const QMutexLocker locker(&mutex());
    const QString name = loader->fileName();
    File *file = fileOf(*loader);
    if (!file || !file->isUsedBy(*loader)) // it did not load
        return loader->unload();
    file->users[name].staying.remove(loader.data());
    file->users[name].leaving.insert(loader.data());
    if (file->isOwned || file->isNeededUnderAnotherName(name)) { // Qt would delete the root under those who use it
        file->waiting.append({loader, unloader});
        return false;
    }
    const bool unloaded = loader->unload();
    file->forget(*loader);
    file->wake();
    if (file->users.isEmpty())
        files().remove_if([&](const File &each) { return &each == file; });
    return unloaded;
}
