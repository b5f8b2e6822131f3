// SPDX-License-Identifier: Apache-2.0
#include "zversions.h"

#include "zcaught.h"
#include "zeventloop.h"
#include "zlibraryset.h"
#include "zloading.h"
#include "zpluginfile.h"
#include "ztexts.h"

#include <QCoreApplication>
#include <QFile>
#include <QFileInfo>
#include <QMutexLocker>
#include <QThread>

namespace {

constexpr int LineKind = 1;

bool hasVersion(const QString &name) { return name.contains(QLatin1Char('.')); }

} // namespace

void ZVersions::add(const QString &name, const QSharedPointer<ZLibrary> &library)
{
    const QMutexLocker locker(&m_mutex);
    m_libraries.insert(zDeepCopy(name), library);
    if (hasVersion(name))
        m_libraries.insert(zBeforeDot(name), library);
}

void ZVersions::remove(const QString &name, const QSharedPointer<ZLibrary> &library)
{
    const QMutexLocker locker(&m_mutex);
    m_libraries.remove(name, library);
    m_libraries.remove(zBeforeDot(name), library);
}

QSharedPointer<ZLibrary> ZVersions::newest(const QString &name) const
{
    const QMutexLocker locker(&m_mutex);
    return m_libraries.value(name).toStrongRef();
}

bool ZVersions::contains(const QString &name) const
{
    const QMutexLocker locker(&m_mutex);
    return m_libraries.contains(name);
}

bool ZVersions::isEmpty() const
{
    const QMutexLocker locker(&m_mutex);
    return m_libraries.isEmpty();
}

QThread *ZVersions::thread() const
{
    const QMutexLocker locker(&m_mutex);
    QThread *own = m_set ? m_set->thread() : nullptr;
    if (own && !own->isFinished())
        return own;
    const QCoreApplication *application = QCoreApplication::instance();
    return application ? application->thread() : nullptr;
}

void ZVersions::queue(const QSharedPointer<QPluginLoader> &loader, bool isTwin)
{
    {
        const QMutexLocker locker(&m_mutex);
        m_queued.append(loader);
        if (isTwin)
            m_twins.append(loader.data());
    }
    if (QThread *unloading = thread())
        zPost(unloading, [self = sharedFromThis(), loader] {
            if (self->takeUp(loader)) {
                self->forgetDead(loader);
                self->finish(loader, true);
            }
        });
}

void ZVersions::unload(const QSharedPointer<QPluginLoader> &loader)
{
    takeUp(loader);
    forgetDead(loader);
    finish(loader, false);
}

void ZVersions::unloadQueued()
{
    for (;;) {
        QSharedPointer<QPluginLoader> loader;
        {
            const QMutexLocker locker(&m_mutex);
            if (m_queued.isEmpty())
                return;
            loader = m_queued.first();
        }
        unload(loader);
    }
}

void ZVersions::resume(const QSharedPointer<QPluginLoader> &loader)
{
    if (thread() == QThread::currentThread())
        finish(loader, true);
    else
        postResume(loader);
}

void ZVersions::postResume(const QSharedPointer<QPluginLoader> &loader)
{
    if (QThread *unloading = thread())
        zPost(unloading, [self = sharedFromThis(), loader] { self->finish(loader, true); });
}

void ZVersions::forgetSet()
{
    QVector<QSharedPointer<QPluginLoader>> queued;
    {
        const QMutexLocker locker(&m_mutex);
        m_set = nullptr;
        m_log = ZNamedLogger();
        queued.swap(m_queued); // the thread of the set may have no event loop any more
    }
    for (const QSharedPointer<QPluginLoader> &loader : queued)
        queue(loader);
}

void ZVersions::setLog(const ZNamedLogger &log)
{
    const QMutexLocker locker(&m_mutex);
    m_log = log;
}

ZNamedLogger ZVersions::log() const
{
    const QMutexLocker locker(&m_mutex);
    return m_log;
}

/// Takes `loader` out of the queue. False if it is not there, or another thread has taken it.
bool ZVersions::takeUp(const QSharedPointer<QPluginLoader> &loader)
{
    const QMutexLocker locker(&m_mutex);
    return m_queued.removeOne(loader);
}

void ZVersions::forgetDead(const QSharedPointer<QPluginLoader> &loader)
{
    const QString base = QFileInfo(loader->fileName()).completeBaseName();
    const QMutexLocker locker(&m_mutex);
    if (hasVersion(base))
        m_libraries.remove(base);
    const QString key = zBeforeDot(base);
    const QList<QWeakPointer<ZLibrary>> newestFirst = m_libraries.values(key);
    m_libraries.remove(key);
    for (auto library = newestFirst.crbegin(); library != newestFirst.crend(); ++library) {
        if (*library)
            m_libraries.insert(key, *library);
    }
}

void ZVersions::finish(const QSharedPointer<QPluginLoader> &loader, bool isEvent)
{
    const QString base = QFileInfo(loader->fileName()).completeBaseName();
    const ZPluginFile::Unloading unloading = ZPluginFile::unload(loader, sharedFromThis(), isEvent);
    if (unloading.result == ZPluginFile::Unloading::Later)
        return;
    bool isTwin = false;
    {
        const QMutexLocker locker(&m_mutex);
        isTwin = m_twins.removeOne(loader.data());
    }
    if (unloading.result != ZPluginFile::Unloading::Failed)
        ZLoading::tell(QFile::encodeName(base),
                       unloading.result == ZPluginFile::Unloading::Done ? ZLoading::Unloaded : ZLoading::Stays,
                       unloading.reason);
    const ZNamedLogger log = this->log();
    zCaught([&] {
        if (unloading.result == ZPluginFile::Unloading::Done)
            log.log(LineKind, [&] { return QStringLiteral("unloaded: %1").arg(base); });
        else if (unloading.result == ZPluginFile::Unloading::Stays)
            log.warn(LineKind, QStringLiteral("stays in memory: %1: %2").arg(base, unloading.reason));
        else if (!isTwin)
            log.warn(LineKind, QStringLiteral("failed to unload: %1").arg(base));
    });
}
