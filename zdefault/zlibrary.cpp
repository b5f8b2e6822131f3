// SPDX-License-Identifier: Apache-2.0
#include "zlibrary.h"

#include "zcaught.h"
#include "zconfig.h"
#include "zcontext.h"
#include "zdbus.h"
#include "zemitter.h"
#include "zjobpoolset.h"
#include "zlibraryset.h"
#include "zloader.h"
#include "zlogger.h"
#include "zobject.h"
#include "zpluginfile.h"
#include "zscheduler.h"
#include "ztempfile.h"
#include "zthreadpoolset.h"
#include "zversions.h"

namespace {

/// A type that code of a plugin's registers first points into that plugin for ever, loaded or not.
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
    qRegisterMetaType<ZContext *>();
    qRegisterMetaType<ZScheduler *>();
}

} // namespace

ZLibrary::ZLibrary(QSharedPointer<QPluginLoader> loader, ZLibrarySet *set)
    : m_loader(std::move(loader)), m_versions(set ? set->m_versions : QSharedPointer<ZVersions>::create(nullptr))
{
    qRegisterMetaType<QSharedPointer<QPluginLoader>>(); // others may queue a call of unloadSlot, in which it travels
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
    const ZPluginFile::Root root = library->makeRoot();
    return root.object && library->start(root.object, emitter).isNull();
}

ZLibrary::operator QSharedPointer<ZObject>()
{
    if (!m_loader)
        return {};
    QSharedPointer<ZObject> root;
    zCaught([&] { root = ZPluginFile::root(*m_loader, m_versions->thread()); });
    if (root && !root->m_isRoot.loadAcquire()) // made anew, since the one before it was deleted
        root->setLibrary(sharedFromThis());
    return root;
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

/// Makes `root` this library's, and injects it. Answers what it has thrown; null if nothing.
QString ZLibrary::start(ZObject *root, ZEmitter *emitter)
{
    root->setLibrary(sharedFromThis());
    return emitter ? zCaught([&] { emitter->inject0(root); }) : QString();
}
