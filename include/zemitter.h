// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QGenericArgument>
#include <QMetaType>
#include <QObject>
#include <QSharedPointer>

class ZDelegate;
class ZReference;

/**
 * Connects components: knows one delegate for each interface, gives components the services that they declare as
 * properties, and creates components by the name of their type.
 *
 * Ownership: keeps the first delegate of each interface as long as it lives, and so the component behind that delegate.
 * Thread:    any; binding and injecting are done by one thread at a time. A property's writer runs within that: it must
 *            not wait for another thread that needs the same emitter.
 * Failure:   null, silently.
 */
class ZEmitter
{
public:
    /**
     * Makes `delegate` the provider of its interface.
     *
     * The first delegate of an interface is kept. A later one is not: its component is moved into the first one, and
     * so takes over for everyone who holds that.
     *
     * Returns the reference to the component that was exchanged. The component is destroyed with that reference,
     * unless somebody else holds it. If this is called within an injection or a load, the emitter holds it until
     * the end of that. Null when nothing was exchanged, or the delegate names no interface.
     */
    virtual QSharedPointer<ZReference> bind0(QSharedPointer<ZDelegate> delegate) = 0;
    /**
     * Creates a component from the registered name of its pointer type ("ZDefaultLogger*"), with the invokable
     * constructor that fits the arguments, and injects it.
     *
     * The new component has no parent, and no owner until it announces itself. If it never does, the caller has to
     * delete it. Null when the name is unknown, names no class derived from `QObject`, or no constructor fits.
     */
    virtual QObject *zemit0(const char *typeName, QGenericArgument a0 = QGenericArgument(),
                            QGenericArgument a1 = QGenericArgument(), QGenericArgument a2 = QGenericArgument(),
                            QGenericArgument a3 = QGenericArgument(), QGenericArgument a4 = QGenericArgument(),
                            QGenericArgument a5 = QGenericArgument(), QGenericArgument a6 = QGenericArgument(),
                            QGenericArgument a7 = QGenericArgument(), QGenericArgument a8 = QGenericArgument(),
                            QGenericArgument a9 = QGenericArgument()) = 0;
    /**
     * Writes the properties of `object` whose type is a pointer to an interface, in the order in which they are
     * declared. Each gets the delegate that is kept for its interface. Returns `object`; null if a write has destroyed
     * it.
     *
     * If nobody provides an interface yet, the property is left as it is. It is not written later by itself.
     */
    virtual QObject *inject0(QObject *object) = 0;
    // Plugins that are built elsewhere rely on the order of the operations: a new ability is a new interface.
    virtual ~ZEmitter() {}
};
Q_DECLARE_INTERFACE(ZEmitter, "zdefault::ZEmitter")
Q_DECLARE_METATYPE(ZEmitter *)
