// SPDX-License-Identifier: Apache-2.0
#include "zobject.h"

#include "zeventloop.h"
#include "zlibrary.h"

#include <QMutex>
#include <QMutexLocker>

#include <algorithm>

namespace {

/// A root and its library. Members are destroyed in reverse order: first the root, then the library that has its code.
struct Holding
{
    QSharedPointer<ZLibrary> library;
    QSharedPointer<ZObject> root;
};

/// The deleter of the pointers that `shared()` returns. It has a plain pointer: Qt calls a copy of the deleter, and
/// destroys the deleter itself only afterwards.
struct LetGoAtHome
{
    Holding *holding;

    void operator()(QObject *root) const { zLetGoAtHome(root, std::shared_ptr<Holding>(holding)); }
};

/// Guards the library and the share of every root: another set may load the same file while the plugin runs.
QBasicMutex libraryMutex;

} // namespace

ZObject::ZObject(QObject *parent) : QObject(parent) {}

ZObject::~ZObject() = default;

ZObject::operator QSharedPointer<ZLibrary>() const
{
    const QMutexLocker locker(&libraryMutex);
    for (auto library = m_libraries.crbegin(); library != m_libraries.crend(); ++library) {
        if (QSharedPointer<ZLibrary> alive = library->toStrongRef())
            return alive;
    }
    return {};
}

QSharedPointer<QObject> ZObject::shared()
{
    if (!m_isRoot.loadAcquire())
        return ZOwned::shared();
    const QSharedPointer<ZLibrary> library = *this;
    const QSharedPointer<ZObject> root = library ? QSharedPointer<ZObject>(*library) : QSharedPointer<ZObject>();
    if (!root)
        return {};
    const QMutexLocker locker(&libraryMutex);
    QSharedPointer<QObject> share = m_share.toStrongRef();
    if (!share) {
        share = {static_cast<QObject *>(root.data()), LetGoAtHome{new Holding{library, root}}};
        m_share = share;
    }
    return share;
}

void ZObject::setLibrary(const QWeakPointer<ZLibrary> &library)
{
    const QMutexLocker locker(&libraryMutex);
    const auto isGone = [](const QWeakPointer<ZLibrary> &each) { return each.isNull(); };
    m_libraries.erase(std::remove_if(m_libraries.begin(), m_libraries.end(), isGone), m_libraries.end());
    m_libraries.append(library);
    m_isRoot.storeRelease(true);
}
