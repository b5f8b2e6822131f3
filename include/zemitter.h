// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QGenericArgument>
#include <QMetaType>
#include <QObject>
#include <QSharedPointer>

class ZDelegate;
class ZReference;

/**
 * The wiring centre: knows one delegate per interface, gives components the services that they declare as
 * properties, and creates components by the name of their type.
 *
 * Ownership: keeps the first delegate of each interface for its own life, and through it the component behind it.
 * Thread:    any; wiring is one thread at a time, and a property's writer runs inside it: it must not wait for
 *            another thread that needs the same emitter.
 * Failure:   null, silently.
 */
class ZEmitter
{
public:
    /**
     * Makes `delegate` the provider of its interface.
     *
     * The first delegate of an interface is filed; a later one is not, but the component behind it takes over
     * under everyone who holds the filed one.
     *
     * Returns the reference to the component that was exchanged, which dies with it unless somebody else holds
     * that component: the emitter does so to the end of the injection, or the load, within which this is called.
     * Null when nothing was exchanged or the delegate carries no interface.
     */
    virtual QSharedPointer<ZReference> bind0(QSharedPointer<ZDelegate> delegate) = 0;
    /**
     * Creates a component from the registered name of its pointer type ("ZDefaultLogger*"), with the invokable
     * constructor that fits the arguments, and injects it.
     *
     * The new component has no parent, and no owner until it announces itself: one that never does is the
     * caller's to delete. Null when the name is unknown, names no class of `QObject`'s, or no constructor fits.
     */
    virtual QObject *zemit0(const char *typeName, QGenericArgument a0 = QGenericArgument(),
                            QGenericArgument a1 = QGenericArgument(), QGenericArgument a2 = QGenericArgument(),
                            QGenericArgument a3 = QGenericArgument(), QGenericArgument a4 = QGenericArgument(),
                            QGenericArgument a5 = QGenericArgument(), QGenericArgument a6 = QGenericArgument(),
                            QGenericArgument a7 = QGenericArgument(), QGenericArgument a8 = QGenericArgument(),
                            QGenericArgument a9 = QGenericArgument()) = 0;
    /**
     * Writes into each property of `object` that is typed as an interface pointer the delegate filed for that
     * interface, in the order in which the properties are declared. Returns `object`; null if it died of a write.
     *
     * A property whose interface nobody provides yet is left as it is, and is not written later by itself.
     */
    virtual QObject *inject0(QObject *object) = 0;
    // Slot order is our promise to plugins built elsewhere: a new ability is a new interface.
    virtual ~ZEmitter() {}
};
Q_DECLARE_INTERFACE(ZEmitter, "zdefault::ZEmitter")
Q_DECLARE_METATYPE(ZEmitter *)
