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
 * Ownership: whoever holds the pointer that the library hands out for it, or one from `shared()`.
 * Thread:    any for the library and `shared()`.
 * Failure:   null.
 */
class ZDEFAULT_EXPORT ZObject : public QObject, public ZOwned
{
    Q_OBJECT

public:
    explicit ZObject(QObject *parent = nullptr);
    ~ZObject() override;

    /// The library that this object was loaded from; null if it is gone, or there never was one. Whoever holds it
    /// keeps the object's code in memory.
    operator QSharedPointer<ZLibrary>() const;

    /**
     * This object, together with its library. When the last copy goes, the object is destroyed first and its library
     * let go afterwards, by code outside the plugin: on the thread in which the object lives, if that is another one
     * with an event loop, else where the last copy was. This is what a plugin announces itself with.
     *
     * All copies share one count, so a weak pointer from one of them lives as long as any other. Null when the library
     * is gone. An object that no library loaded is shared as any component.
     */
    QSharedPointer<QObject> shared() override;

private:
    friend class ZDelegate;
    friend class ZLibrary;

    void setLibrary(const QWeakPointer<ZLibrary> &library);

    QVector<QWeakPointer<ZLibrary>> m_libraries; // of this object, the newest last
    QWeakPointer<QObject> m_share;
    QAtomicInteger<bool> m_isRoot = false; // its code lies in a library, be that gone or not
};
