// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "zglobal.h"
#include "zowned.h"

#include <QAtomicInteger>
#include <QObject>
#include <QSharedPointer>
#include <QVector>
#include <QWeakPointer>
#include <QtPlugin>

class ZLibrary;

/// The identifier for `Q_PLUGIN_METADATA` of a plugin whose root is a `ZObject`.
#define ZObject_iid "zdefault::ZObject"

/**
 * The base of a plugin's root object: finds the library in which its code lies.
 *
 * Ownership: owned by all who hold the pointer that the library hands out for it, or one from `shared()`.
 * Thread:    any for the library and `shared()`.
 * Failure:   null.
 */
class ZDEFAULT_EXPORT ZObject : public QObject, public ZOwned
{
    Q_OBJECT

public:
    explicit ZObject(QObject *parent = nullptr);
    ~ZObject() override;

    /// The library from which this object was loaded; null if it is gone, or there never was one. As long as anybody
    /// holds it, the object's code stays in memory.
    operator QSharedPointer<ZLibrary>() const;

    /**
     * This object, together with its library. A plugin announces itself with this pointer.
     *
     * When the last copy is dropped, code outside the plugin first destroys the object, and then lets the library go.
     * If the object lives on another thread, and that has an event loop, this happens there; else it happens at once,
     * on the thread that drops the last copy.
     *
     * All copies share one count, so a weak pointer that is made from one of them is valid as long as there is any
     * copy. Null when the library is gone. If no library has loaded the object, `shared()` does what `ZOwned` says.
     */
    QSharedPointer<QObject> shared() override;

private:
    friend class ZDelegate;
    friend class ZLibrary;

    void setLibrary(const QWeakPointer<ZLibrary> &library);

    QVector<QWeakPointer<ZLibrary>> m_libraries; // that have this object as their root, the newest last
    QWeakPointer<QObject> m_share;
    QAtomicInteger<bool> m_isRoot = false; // its code lies in a library, which may be gone
};
