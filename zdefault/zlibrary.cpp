// SPDX-License-Identifier: Apache-2.0
#include "zlibrary.h"

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
    : m_loader(std::move(loader)), m_unloader(set ? set->m_unloader : QSharedPointer<ZUnloader>::create(nullptr))
{
    qRegisterMetaType<QSharedPointer<QPluginLoader>>(); // others may queue a call of unloadSlot, in which it travels
}

ZLibrary::~ZLibrary()
{
    if (m_loader)
        m_unloader->queue(m_loader);
}

bool ZLibrary::load(QSharedPointer<ZLibrary> library, ZEmitter *emitter)
{
    if (!library || !library->m_loader)
        return false;
    registerInterfaceTypes();
    ZObject *root = ZPluginFile::load(*library->m_loader);
    if (!root)
        return false;
    root->setLibrary(library);
    if (emitter)
        emitter->inject0(root);
    return true;
}

ZLibrary::operator QSharedPointer<ZObject>()
{
    if (!m_loader)
        return {};
    QSharedPointer<ZObject> root = ZPluginFile::root(*m_loader);
    if (root && !root->m_isRoot.loadAcquire()) // made anew, since the one before it was deleted
        root->setLibrary(sharedFromThis());
    return root;
}
