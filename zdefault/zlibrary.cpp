// SPDX-License-Identifier: Apache-2.0
#include "zlibrary.h"

#include "zcaught.h"
#include "zconfig.h"
#include "zconfigured.h"
#include "zcontext.h"
#include "zdbus.h"
#include "zdbusasync.h"
#include "zdbuslayer.h"
#include "zdbusreach.h"
#include "zdbusoutcome.h"
#include "zdefaultloader.h"
#include "zemitter.h"
#include "zendpoint.h"
#include "zeventloop.h"
#include "zjobpoolset.h"
#include "zlease.h"
#include "zlibraryset.h"
#include "zloader.h"
#include "zlogger.h"
#include "zobject.h"
#include "zpluginfile.h"
#include "zreconfiguration.h"
#include "zscheduler.h"
#include "ztakeover.h"
#include "ztempfile.h"
#include "zthreadpoolset.h"
#include "zversions.h"

#include <QFileInfo>
#include <QThread>

namespace {

constexpr int LineKind = 1;

/// Registers the interfaces' types from here: a type that a plugin's code is the first to register points into that
/// plugin for ever, even when the plugin was unloaded.
void registerInterfaceTypes()
{
    qRegisterMetaType<ZConfig *>();
    qRegisterMetaType<ZEmitter *>();
    qRegisterMetaType<ZLogger *>();
    qRegisterMetaType<ZLoader *>();
    qRegisterMetaType<ZTempFile *>();
    qRegisterMetaType<ZJobPoolSet *>();
    qRegisterMetaType<ZThreadPoolSet *>();
    qRegisterMetaType<ZDbus *>();
    qRegisterMetaType<ZDbusLayer *>();
    qRegisterMetaType<ZDbusReach *>();
    qRegisterMetaType<ZDbusOutcome *>();
    qRegisterMetaType<ZDbusAsync *>();
    qRegisterMetaType<ZLease *>();
    qRegisterMetaType<ZContext *>();
    qRegisterMetaType<ZScheduler *>();
}

QList<ZEndpoint *> partsOf(const QObject *root)
{
    return root->findChildren<ZEndpoint *>(QString(), Qt::FindDirectChildrenOnly);
}

} // namespace

ZLibrary::ZLibrary(QSharedPointer<QPluginLoader> loader, ZLibrarySet *set)
    : m_loader(std::move(loader)), m_versions(set ? set->m_versions : QSharedPointer<ZVersions>::create(nullptr))
{
    qRegisterMetaType<QSharedPointer<QPluginLoader>>(); // an argument of unloadSlot, whose call others may queue
}

ZLibrary::~ZLibrary()
{
    if (m_loader)
        m_versions->queue(m_loader, m_isTwin);
}

bool ZLibrary::load(QSharedPointer<ZLibrary> library, ZEmitter *emitter)
{
    if (!library || !library->m_loader)
        return false;
    const ZReconfiguration reconfiguration;
    const ZPluginFile::Root root = library->makeRoot();
    if (!root.object || !library->start(root.object, emitter).isNull() || !library->begin(root.object).isNull())
        return false;
    reconfiguration.end(library, emitter);
    return true;
}

ZLibrary::operator QSharedPointer<ZObject>()
{
    if (!m_loader)
        return {};
    QSharedPointer<ZObject> root;
    zCaught([&] { root = ZPluginFile::root(*m_loader, m_versions->thread()); });
    if (root && !root->m_isRoot.loadAcquire()) // a new root: the one before it was deleted
        root->setLibrary(sharedFromThis());
    return root;
}

QString ZLibrary::name() const
{
    return m_loader ? ZDefaultLoader::basen(QFileInfo(m_loader->fileName()).fileName()) : QString();
}

/// Loads the file. The code of the plugin that runs meanwhile runs without a lock.
ZPluginFile::Root ZLibrary::makeRoot()
{
    registerInterfaceTypes();
    ZPluginFile::Root root;
    const QString thrown = zCaught([&] { root = ZPluginFile::load(*m_loader, m_versions->thread()); });
    if (!thrown.isNull())
        root.reason = thrown;
    return root;
}

/// Gives `root` this library, and injects it. Returns what it has thrown; null if nothing.
QString ZLibrary::start(ZObject *root, ZEmitter *emitter)
{
    root->setLibrary(sharedFromThis());
    if (!emitter)
        return {};
    return zCaught([&] {
        emitter->inject0(root);
        const QList<ZEndpoint *> parts = partsOf(root);
        for (ZEndpoint *part : parts)
            emitter->inject0(part);
    });
}

/// Lets all endpoints among `root` and its parts begin. This is done under no lock, since the endpoints before them end
/// their work meanwhile. Returns what was thrown; null if nothing.
QString ZLibrary::begin(ZObject *root)
{
    return zCaught([&] {
        QVector<ZEndpoint *> endpoints;
        if (auto *const endpoint = qobject_cast<ZEndpoint *>(root))
            endpoints.append(endpoint);
        const QList<ZEndpoint *> parts = partsOf(root);
        for (ZEndpoint *part : parts)
            endpoints.append(part);
        ZTakeover(endpoints).run();
    });
}

/// Tells the root its settings, on its own thread, unless it is among those that were `told`. Returns the root; null if
/// it was told before, or is not a `ZConfigured`.
const QObject *ZLibrary::configure(const QJsonObject &settings, const QSet<const QObject *> &told)
{
    const ZPluginFile::Root root = ZPluginFile::hold(*m_loader);
    if (!qobject_cast<ZConfigured *>(root.object) || told.contains(root.object))
        return nullptr;
    QThread *const home = root.object->thread();
    if (home == QThread::currentThread()) {
        configureHere(settings);
    } else {
        zPost(home, [weak = QWeakPointer<ZLibrary>(sharedFromThis()), settings] {
            if (const QSharedPointer<ZLibrary> library = weak.toStrongRef())
                library->configureHere(settings);
        });
    }
    return root.object;
}

/// Calls the root; nobody destroys it, or unloads its file, meanwhile.
void ZLibrary::configureHere(const QJsonObject &settings)
{
    const ZPluginFile::Root root = ZPluginFile::hold(*m_loader);
    auto *const configured = qobject_cast<ZConfigured *>(root.object);
    if (!configured)
        return;
    const QString thrown = zCaught([&] { configured->configured(settings); });
    if (!thrown.isNull())
        zCaught([&] {
            m_versions->log().warn(LineKind, QStringLiteral("failed to configure %1: %2")
                                                 .arg(QFileInfo(m_loader->fileName()).completeBaseName(), thrown));
        });
}
