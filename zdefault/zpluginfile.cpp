// SPDX-License-Identifier: Apache-2.0
#include "zpluginfile.h"

#include "zelffile.h"
#include "zemitterlock.h"
#include "zeventloop.h"
#include "zobject.h"
#include "zpluginmetadata.h"
#include "zsingleshots.h"
#include "zstaying.h"
#include "zversions.h"

#include <QDeadlineTimer>
#include <QFile>
#include <QHash>
#include <QJsonObject>
#include <QMutex>
#include <QMutexLocker>
#include <QPointer>
#include <QSet>
#include <QThread>
#include <QVector>
#include <QWaitCondition>
#include <QWeakPointer>

#include <algorithm>
#include <list>
#include <memory>
#include <utility>

#include <sys/stat.h>

namespace {

constexpr int PatienceMs = 1000; // how long to wait for a root that is being destroyed, and within an injection

/// Qt's defaults would keep a file mapped for good, and yet say that it was unloaded. And with them, a function that is
/// defined nowhere would end the process when it is first called; now the file fails to load.
constexpr QLibrary::LoadHints Hints = QLibrary::ResolveAllSymbolsHint;

struct Waiting
{
    QSharedPointer<QPluginLoader> loader;
    QSharedPointer<ZVersions> versions;
};

/// The loaders that have a share in a file.
struct Users
{
    QSet<const QPluginLoader *> staying;
    QSet<const QPluginLoader *> leaving; // loaders whose libraries are gone, but that cannot unload yet

    int count() const { return staying.size() + leaving.size(); }
};

/// One file that is loaded, under any number of names. Two names of one file, such as a link and its target, are two
/// files to Qt; but they have one root.
struct File
{
    dev_t device;
    ino_t number;
    QHash<QString, Users> users; // by the name under which they have the file
    QPointer<QObject> root;
    QWeakPointer<ZObject> owner;
    bool isOwned = false;        // from when it gets an owner until the root's destructor has returned
    Qt::HANDLE worker = nullptr; // the thread that loads the file, destroys its root, or unloads it
    int starting = 0;            // how many loads have got the root, and are injecting it
    QHash<QThread *, bool>
        deletingOn;           // threads on which roots have posted deletions; true if one more root has done so since
    QVector<Waiting> waiting; // some of the leaving ones

    bool isNeededUnderAnotherName(const QString &name) const
    {
        for (auto other = users.begin(); other != users.end(); ++other) {
            if (other.key() != name && !other->staying.isEmpty())
                return true;
        }
        return false;
    }

    /// Whether Qt must not unload the file under `name` now, since it would delete the root as well.
    bool isInUse(const QString &name) const
    {
        return worker || isOwned || starting > 0 || !deletingOn.isEmpty() || isNeededUnderAnotherName(name);
    }

    bool isUsedBy(const QPluginLoader &loader) const
    {
        const Users all = users.value(loader.fileName());
        return all.staying.contains(&loader) || all.leaving.contains(&loader);
    }
};

// None of these is ever destroyed: objects that live to the end of the process may still use them.

QMutex &mutex()
{
    static auto &instance = *new QMutex;
    return instance;
}

std::list<File> &files() // guarded by mutex()
{
    static auto &instance = *new std::list<File>;
    return instance;
}

QWaitCondition &changed() // a file has lost its worker, or a root has been destroyed
{
    static auto &instance = *new QWaitCondition;
    return instance;
}

/// The record of the file that `loader` has, or would have; null if nobody has the file or works on it.
File *fileOf(const QPluginLoader &loader)
{
    const QString name = loader.fileName();
    for (File &file : files()) { // by name first: the file on disk may be another one by now
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

File *fileOrNew(const QPluginLoader &loader)
{
    if (File *file = fileOf(loader))
        return file;
    struct stat status = {};
    stat(QFile::encodeName(loader.fileName()).constData(), &status);
    files().push_back({});
    files().back().device = status.st_dev;
    files().back().number = status.st_ino;
    return &files().back();
}

void forgetUnused(File *file)
{
    for (auto name = file->users.begin(); name != file->users.end();)
        name = name->count() == 0 ? file->users.erase(name) : std::next(name);
    if (file->users.isEmpty() && !file->worker && file->starting == 0)
        files().remove_if([&](const File &each) { return &each == file; });
}

/// Ends a change to `file`, which may be gone afterwards. Returns those that were waiting for a change.
QVector<Waiting> endChange(File *file)
{
    QVector<Waiting> waiting = std::exchange(file->waiting, {});
    forgetUnused(file);
    changed().wakeAll();
    return waiting;
}

void postResume(const QVector<Waiting> &waiting)
{
    for (const Waiting &each : waiting)
        each.versions->postResume(each.loader);
}

/// Makes the calling thread the one that works on the file of a loader, as long as this object lives.
class Work
{
public:
    explicit Work(const QPluginLoader &loader)
    {
        QVector<QSharedPointer<ZObject>> owners; // released without the lock, since each may be the last
        const QMutexLocker locker(&mutex());
        const QDeadlineTimer patience(PatienceMs);
        while (!m_file) {
            File *file = fileOrNew(loader);
            owners.append(file->owner);
            const bool isLosingRoot = file->isOwned && !owners.last();
            // Another plugin's constructor may wait for an emitter that we have locked.
            const bool isImpatient = isLosingRoot || ZEmitterLock::isHeldHere();
            if (!file->worker && !isLosingRoot) {
                file->worker = QThread::currentThreadId();
                file->users[loader.fileName()]; // found by its name from now on, even if the file on disk is gone
                m_owner = owners.last();
                m_file = file;
            } else if (file->worker == QThread::currentThreadId() || (isImpatient && patience.hasExpired())) {
                m_obstacle = isLosingRoot ? QStringLiteral("its root object is being destroyed")
                                          : QStringLiteral("it is being loaded or unloaded");
                return;
            } else {
                changed().wait(&mutex(), isImpatient ? patience : QDeadlineTimer(QDeadlineTimer::Forever));
            }
        }
    }
    ~Work()
    {
        if (!m_file)
            return;
        QMutexLocker locker(&mutex());
        m_file->worker = nullptr;
        const QVector<Waiting> waiting = endChange(m_file);
        locker.unlock();
        postResume(waiting);
    }

    /// Why the file cannot be worked on; null if it can.
    QString obstacle() const { return m_obstacle; }
    /// The owner of the root, which is held as long as this object lives; null if the root has none.
    QSharedPointer<ZObject> owner() const { return m_owner; }

    /// Notes that `loader` has loaded the file.
    void share(const QPluginLoader &loader) const
    {
        const QMutexLocker locker(&mutex());
        if (!m_file->isUsedBy(loader))
            m_file->users[loader.fileName()].staying.insert(&loader);
    }

    void setRoot(QObject *root) const
    {
        const QMutexLocker locker(&mutex());
        m_file->root = root;
    }

    /// Gives the root an owner, if it has none.
    void own(ZObject *root);
    /// Keeps the root from being destroyed until the returned pointer is dropped.
    std::shared_ptr<void> start() const;

private:
    Q_DISABLE_COPY(Work)

    QString m_obstacle;
    QSharedPointer<ZObject> m_owner;
    File *m_file = nullptr;
};

/// Why a file must not be loaded, though Qt would load it; empty if there is no reason.
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

/// Keeps the file until the objects that a root has posted for deletion on `thread` have been deleted.
void awaitDeletions(File *file, QThread *thread)
{
    zAfterDeletions(thread, [file, thread] {
        QMutexLocker locker(&mutex());
        if (std::exchange(file->deletingOn[thread], false)) {
            awaitDeletions(file, thread);
            return;
        }
        file->deletingOn.remove(thread);
        const QVector<Waiting> waiting = endChange(file);
        locker.unlock();
        for (const Waiting &each : waiting)
            each.versions->resume(each.loader);
    });
}

/// The threads on which a root may have posted objects for deletion: it ends on this one, and has lived on `home`.
QSet<QThread *> whereItPosts(QThread *home)
{
    QSet<QThread *> threads;
    QThread *here = QThread::currentThread();
    if (here->loopLevel() > 0 || zIsMain(here))
        threads.insert(here);
    if (home != here && zHasEventLoop(home))
        threads.insert(home);
    return threads;
}

/// Destroys the root of `file`, which is marked as losing it.
void destroy(QObject *root, File *file)
{
    QMutexLocker locker(&mutex());
    if (file->starting > 0) { // another thread is injecting it: it is nobody's again
        file->isOwned = false;
        const QVector<Waiting> waiting = endChange(file);
        locker.unlock();
        postResume(waiting);
        return;
    }
    file->worker = QThread::currentThreadId();
    locker.unlock();
    QThread *home = root->thread();
    delete root; // without a lock: this is the plugin's code
    locker.relock();
    const QSet<QThread *> threads = whereItPosts(home);
    for (QThread *thread : threads) {
        if (file->deletingOn.contains(thread)) {
            file->deletingOn[thread] = true;
        } else {
            file->deletingOn.insert(thread, false);
            awaitDeletions(file, thread);
        }
    }
    file->worker = nullptr;
    file->isOwned = false;
    const QVector<Waiting> waiting = endChange(file);
    locker.unlock();
    postResume(waiting);
}

/// Keeps the root of `file` from being destroyed until the returned pointer is dropped.
std::shared_ptr<void> keepRoot(File *file)
{
    ++file->starting;
    return {nullptr, [file](void *) {
                QMutexLocker locker(&mutex());
                --file->starting;
                const QVector<Waiting> waiting = endChange(file);
                locker.unlock();
                postResume(waiting);
            }};
}

void Work::own(ZObject *root)
{
    const QMutexLocker locker(&mutex());
    if (m_owner)
        return;
    m_owner = QSharedPointer<ZObject>(root, [file = m_file](ZObject *object) { destroy(object, file); });
    m_file->owner = m_owner;
    m_file->isOwned = true;
}

std::shared_ptr<void> Work::start() const
{
    const QMutexLocker locker(&mutex());
    return keepRoot(m_file);
}

ZPluginFile::Root loadRoot(QPluginLoader &loader, QThread *home, bool own)
{
    if (loader.fileName().isEmpty())
        return {{}, {}, {}, loader.errorString()};
    Work work(loader);
    if (!work.obstacle().isNull())
        return {{}, {}, {}, work.obstacle()};
    loader.setLoadHints(Hints);
    const QString reason = refusal(loader);
    if (!reason.isEmpty())
        return {{}, {}, {}, reason};
    if (!loader.load()) // instance() alone would not count as a user of the file
        return {{}, {}, {}, loader.errorString()};
    work.share(loader);
    QObject *root = loader.instance();
    work.setRoot(root);
    auto *object = qobject_cast<ZObject *>(root);
    if (!object)
        return {{}, {}, {}, loader.errorString()};
    if (home && root->thread() == QThread::currentThread())
        root->moveToThread(home);
    if (own)
        work.own(object);
    return {object, work.owner(), own ? std::shared_ptr<void>() : work.start(), {}};
}

/// The deleter of a loader. It does not delete the loader of a file that was not unloaded: Qt would destroy the root of
/// such a file as the process ends, when the plugin's static objects, and the services that it uses, are gone.
void release(QPluginLoader *loader)
{
    const QMutexLocker locker(&mutex());
    const File *file = fileOf(*loader);
    if (!file || !file->isUsedBy(*loader))
        delete loader;
}

} // namespace

QSharedPointer<QPluginLoader> ZPluginFile::find(const QString &name)
{
    const QSharedPointer<QPluginLoader> loader(new QPluginLoader, release);
    loader->setLoadHints(Hints); // before the name: later they would change the file, which another thread may load
    loader->setFileName(name);
    return loader;
}

ZPluginFile::Root ZPluginFile::load(QPluginLoader &loader, QThread *home) { return loadRoot(loader, home, false); }

QSharedPointer<ZObject> ZPluginFile::root(QPluginLoader &loader, QThread *home)
{
    {
        const QMutexLocker locker(&mutex());
        const File *file = fileOf(loader);
        if (file && file->isOwned)
            return file->owner.toStrongRef();
    }
    return loadRoot(loader, home, true).owner;
}

ZPluginFile::Root ZPluginFile::hold(const QPluginLoader &loader)
{
    const QMutexLocker locker(&mutex());
    File *const file = fileOf(loader);
    auto *const root = file ? qobject_cast<ZObject *>(file->root) : nullptr;
    const QSharedPointer<ZObject> owner = root ? file->owner.toStrongRef() : QSharedPointer<ZObject>();
    if (!root || (file->isOwned && !owner))
        return {};
    return {root, owner, keepRoot(file), {}};
}

ZPluginFile::Unloading ZPluginFile::unload(const QSharedPointer<QPluginLoader> &loader,
                                           const QSharedPointer<ZVersions> &versions, bool isEvent)
{
    const QString name = loader->fileName();
    QMutexLocker locker(&mutex());
    File *file = fileOf(*loader);
    if (!file || !file->isUsedBy(*loader)) { // the file was not loaded
        locker.unlock();
        return {loader->unload() ? Unloading::Done : Unloading::Failed, {}};
    }
    file->users[name].staying.remove(loader.data());
    file->users[name].leaving.insert(loader.data());
    while (!file->isInUse(name) && file->users[name].count() == 1 && file->root) {
        file->isOwned = true; // by us, who destroy it
        QObject *root = file->root;
        locker.unlock();
        destroy(root, file);
        if (isEvent)
            zDeletePosted();
        locker.relock();
    }
    if (file->isInUse(name)) { // Qt would delete the root while it is used
        file->waiting.append({loader, versions});
        return {Unloading::Later, {}};
    }
    file->worker = QThread::currentThreadId();
    locker.unlock();
    zKeepQtInMemory();
    zKeepForDebugging(name);
    zForgetTimers(name);
    const bool isUnloaded = loader->unload(); // without a lock, since this may run the plugin's code
    const QString reason = isUnloaded ? zReasonToStay(name) : QString();
    locker.relock();
    file->worker = nullptr;
    file->users[name].leaving.remove(loader.data());
    const QVector<Waiting> waiting = endChange(file);
    locker.unlock();
    postResume(waiting);
    if (!isUnloaded)
        return {Unloading::Failed, {}};
    return {reason.isNull() ? Unloading::Done : Unloading::Stays, reason};
}
