// SPDX-License-Identifier: Apache-2.0
#include "zlibraryset.h"

#include "zcaught.h"
#include "zemitter.h"
#include "zemitterlock.h"
#include "zloading.h"
#include "zobject.h"
#include "zparking.h"
#include "zpluginfile.h"
#include "zreconfiguration.h"
#include "ztexts.h"
#include "zversions.h"
#include "zwiring.h"

#include <QDir>
#include <QFileInfo>
#include <QMutexLocker>
#include <QPointer>
#include <QRegularExpression>
#include <QThread>

#include <utility>

namespace {
constexpr int LineKind = 1;
const QChar Dot = QLatin1Char('.');

/// Whether `text` is a valid wildcard pattern. A name with an open "[" is none: Qt would find nothing by it, but warn
/// at each file.
bool isPattern(const QString &text)
{
    return QRegularExpression(QRegularExpression::wildcardToRegularExpression(text)).isValid();
}

} // namespace

/// As long as it lives, no other thread loads; except a thread that is within an injection, since every load needs to
/// inject in the end.
class ZLibrarySet::Turn
{
public:
    explicit Turn(QRecursiveMutex &mutex) : m_mutex(ZEmitterLock::isHeldHere() ? nullptr : &mutex)
    {
        if (m_mutex)
            m_mutex->lock();
    }
    ~Turn()
    {
        if (m_mutex)
            m_mutex->unlock();
    }

private:
    Q_DISABLE_COPY(Turn)
    const ZParking m_parking;
    QRecursiveMutex *const m_mutex;
};

/// Notes that this thread loads `name`. False if it does already: then a plugin asks for itself while it is injected.
class ZLibrarySet::BeingLoaded
{
public:
    BeingLoaded(ZLibrarySet *set, const QString &name) : m_set(set), m_entry(QThread::currentThreadId(), name)
    {
        const QMutexLocker locker(&m_set->m_mutex);
        m_isFirst = !m_set->m_beingLoaded.contains(m_entry);
        m_set->m_beingLoaded.insert(m_entry);
    }
    ~BeingLoaded()
    {
        const QMutexLocker locker(&m_set->m_mutex);
        if (m_isFirst)
            m_set->m_beingLoaded.remove(m_entry);
    }

    explicit operator bool() const { return m_isFirst; }

private:
    Q_DISABLE_COPY(BeingLoaded)
    ZLibrarySet *const m_set;
    const QPair<Qt::HANDLE, QString> m_entry;
    bool m_isFirst;
};

ZLibrarySet::ZLibrarySet(const QString &name, const QString &folder, ZEmitter *emitter)
    : ZLibrarySet(name, emitter, QThread::currentThread())
{
    loadFirst(folder, emitter);
}

ZLibrarySet::ZLibrarySet(const QString &name, ZEmitter *emitter, QThread *thread)
    : m_versions(QSharedPointer<ZVersions>::create(this)),
      m_first(zDeepCopy(name.indexOf(Dot) > 0 ? zBeforeDot(name) : name))
{
    moveToThread(thread);
    if (emitter)
        zCaught([&] { emitter->inject0(this); }); // the logger may throw, here and wherever a line is logged
}

ZLibrarySet::~ZLibrarySet()
{
    if (QThread::currentThread() == thread()) // else the event loop does it
        m_versions->unloadQueued();           // not by posted events: the application object may be gone
    m_versions->forgetSet();
}

QSharedPointer<ZLibrary> ZLibrarySet::load(const QString &name, const QString &folder, ZEmitter *emitter)
{
    const Turn turn(m_turn);
    if (isLoadingFirst()) // a plugin asks for one of its versions while the set loads for the first time
        return {};
    loadFirst(folder, emitter);
    const bool plain = !name.contains(Dot);
    if (plain ? !m_versions->isEmpty() : m_versions->contains(name))
        return loaded(zBeforeDot(name));
    const BeingLoaded mark(this, name);
    if (!mark)
        return {};
    return plain ? loadAll(name, folder, emitter) : loadFile(name, emitter, false);
}

QSharedPointer<ZLibrary> ZLibrarySet::loadAll(const QString &name, const QString &folder, ZEmitter *emitter)
{
    const Turn turn(m_turn);
    const auto loadIfNeeded = [&](const QString &base) {
        const QSharedPointer<ZLibrary> library = loaded(base);
        return library ? library : loadFile(base, emitter, false);
    };
    QSharedPointer<ZLibrary> result = loadIfNeeded(name);
    const QString pattern = QStringLiteral("lib%1.*.so").arg(name);
    if (!isPattern(pattern))
        return result;
    const QStringList versions = QDir(folder).entryList({pattern}, QDir::Files, QDir::Name);
    for (const QString &file : versions)
        result = loadIfNeeded(QFileInfo(file).completeBaseName());
    return result;
}

QSharedPointer<ZLibrary> ZLibrarySet::loadOne(const QString &name, const QString &folder, ZEmitter *emitter)
{
    Q_UNUSED(folder) // the file is looked for in the library paths
    return loadFile(name, emitter, true);
}

QSharedPointer<ZLibrary> ZLibrarySet::loaded(const QString &name) { return m_versions->newest(name); }

ZLogger *ZLibrarySet::getSetZLogger(ZLogger *logger)
{
    if (zKeepFirst(m_logger, logger)) {
        m_log = ZNamedLogger(logger, QStringLiteral("zdefault"));
        m_versions->setLog(m_log);
    }
    return m_logger;
}

void ZLibrarySet::unloadSlot(QSharedPointer<QPluginLoader> loader)
{
    if (loader)
        m_versions->unload(loader);
}

/// Loads all versions, unless that has been done before. Those that nobody holds afterwards are unloaded again.
void ZLibrarySet::loadFirst(const QString &folder, ZEmitter *emitter)
{
    QString first;
    {
        const QMutexLocker locker(&m_mutex);
        first = std::exchange(m_first, QString());
    }
    if (first.isNull())
        return;
    const BeingLoaded mark(this, QString());
    loadAll(first, folder, emitter);
}

bool ZLibrarySet::isLoadingFirst()
{
    const QMutexLocker locker(&m_mutex);
    return m_beingLoaded.contains({QThread::currentThreadId(), QString()});
}

/// Loads one file. If another thread has loaded it meanwhile, returns that library, unless `onceMore`.
QSharedPointer<ZLibrary> ZLibrarySet::loadFile(const QString &name, ZEmitter *emitter, bool onceMore)
{
    const ZLoading loading(name);
    const ZReconfiguration reconfiguration;
    const auto library = QSharedPointer<ZLibrary>::create(ZPluginFile::find(name), this);
    const ZPluginFile::Root root = library->makeRoot();
    QString failure = root.reason;
    const QPointer<ZObject> alive(root.object);
    if (root.object) {
        const ZEmitterLock emitterLock(emitter);
        const QSharedPointer<ZLibrary> other = onceMore ? QSharedPointer<ZLibrary>() : loaded(name);
        library->m_isTwin = !other.isNull();
        if (other)
            return other;
        failure = library->start(root.object, emitter);
        if (failure.isNull())
            m_versions->add(name, library);
    }
    if (failure.isNull() && alive) {
        failure = ZLibrary::begin(alive);
        if (!failure.isNull())
            m_versions->remove(name, library);
    }
    loading.end(failure);
    if (failure.isNull())
        reconfiguration.end(library, emitter);
    zCaught([&] {
        if (failure.isNull())
            m_log.log(LineKind, [&] { return QStringLiteral("loaded: %1").arg(name); });
        else
            m_log.warn(LineKind, QStringLiteral("failed to load %1: %2").arg(name, failure));
    });
    return failure.isNull() ? library : QSharedPointer<ZLibrary>();
}
