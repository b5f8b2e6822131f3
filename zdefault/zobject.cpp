// SPDX-License-Identifier: Apache-2.0
#include "zobject.h"

#include "zlibrary.h"
#include "zown.h"

#include <QMutex>
#include <QMutexLocker>

namespace {

/// The deleter of a pointer that keeps a root and its library. It deletes nothing itself: what counts is that its
/// members go in this order's reverse, the root before the library that holds its code.
struct KeepLibraryLonger
{
    QSharedPointer<ZLibrary> library;
    QSharedPointer<ZObject> root;
    ZOwnLine line;

    void operator()(QObject *) const {}
};

/// Guards every root's library: another set may load the same file while the plugin runs.
QBasicMutex libraryMutex;

} // namespace

ZObject::ZObject(QObject *parent) : QObject(parent) {}

ZObject::~ZObject() = default;

ZObject::operator QSharedPointer<ZLibrary>() const
{
    const QMutexLocker locker(&libraryMutex);
    return m_library.toStrongRef();
}

QSharedPointer<QObject> ZObject::shared()
{
    if (!m_isRoot.loadAcquire())
        return ZOwned::shared();
    const QSharedPointer<ZLibrary> library = *this;
    const QSharedPointer<ZObject> root = library ? QSharedPointer<ZObject>(*library) : QSharedPointer<ZObject>();
    return root ? QSharedPointer<QObject>(static_cast<QObject *>(root.data()), KeepLibraryLonger{library, root, {}})
                : QSharedPointer<QObject>();
}

void ZObject::setLibrary(const QWeakPointer<ZLibrary> &library)
{
    const QMutexLocker locker(&libraryMutex);
    m_library = library;
    m_isRoot.storeRelease(true);
}
