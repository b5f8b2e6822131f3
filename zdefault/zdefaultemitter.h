// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "zdelegate.h"
#include "zemitter.h"

#include <QHash>
#include <QMutex>
#include <QVector>

QT_BEGIN_NAMESPACE
class QMetaProperty;
QT_END_NAMESPACE

/// Returns "ZDefaultEmitter*", and registers that type as a metatype.
ZDEFAULT_EXPORT const char *zDefaultEmitterTypeName();

/**
 * The default emitter: connects components.
 *
 * Ownership: owns the delegates that it keeps, and so their components. An emitter that is installed on itself holds
 *            itself: it lives, with all of them, to the end of the process, unless something else is installed in its
 *            place. When it is destroyed, it lets the components go, the one that was kept last first.
 * Thread:    any. Injection holds the emitter's lock while the writers of properties run: a writer must not wait for
 *            another thread that needs this emitter.
 * Failure:   null, silently; but if something is bound wrongly, a warning goes to the `ZLogger` that it has.
 */
class ZDEFAULT_EXPORT ZDefaultEmitter : public QObject, public ZEmitter
{
    Q_OBJECT
    Q_INTERFACES(ZEmitter)

public:
    static const char *const TypeName;

    Q_INVOKABLE ZDefaultEmitter();
    ~ZDefaultEmitter() override;

    /// Makes `object`, usually this emitter itself, the `ZEmitter` that components are given.
    void install(QSharedPointer<QObject> object);

    QSharedPointer<ZReference> bind0(QSharedPointer<ZDelegate> delegate) override;
    QObject *zemit0(const char *typeName, QGenericArgument a0 = QGenericArgument(),
                    QGenericArgument a1 = QGenericArgument(), QGenericArgument a2 = QGenericArgument(),
                    QGenericArgument a3 = QGenericArgument(), QGenericArgument a4 = QGenericArgument(),
                    QGenericArgument a5 = QGenericArgument(), QGenericArgument a6 = QGenericArgument(),
                    QGenericArgument a7 = QGenericArgument(), QGenericArgument a8 = QGenericArgument(),
                    QGenericArgument a9 = QGenericArgument()) override;
    QObject *inject0(QObject *object) override;

protected:
    // For a host that reports what is connected. Both are called under the emitter's lock, and do nothing here.

    /// `component` serves an interface from now on; null if nobody does.
    virtual void bound(int interfaceType, const QSharedPointer<QObject> &component);
    /// A property whose type is an interface was written; or, if not `isGiven`, was left as it is, since there is no
    /// delegate for that interface.
    virtual void injected(QObject *object, const QMetaProperty &property, bool isGiven);

private:
    friend class ZEmitterLock;

    QRecursiveMutex m_mutex;                           // writers of properties call back into bind0
    QHash<int, QSharedPointer<ZDelegate>> m_delegates; // by the metatype id of the interface's pointer
    QVector<int> m_order;                              // the order in which they came
};

/// The delegate of a `ZEmitter`. Otherwise as `ZDelegate`.
class ZDEFAULT_EXPORT ZEmitterDelegate : public ZDelegate, public ZEmitter
{
public:
    explicit ZEmitterDelegate(QObject *object);
    explicit ZEmitterDelegate(QSharedPointer<QObject> object);

    QSharedPointer<ZReference> bind0(QSharedPointer<ZDelegate> delegate) override;
    QObject *zemit0(const char *typeName, QGenericArgument a0 = QGenericArgument(),
                    QGenericArgument a1 = QGenericArgument(), QGenericArgument a2 = QGenericArgument(),
                    QGenericArgument a3 = QGenericArgument(), QGenericArgument a4 = QGenericArgument(),
                    QGenericArgument a5 = QGenericArgument(), QGenericArgument a6 = QGenericArgument(),
                    QGenericArgument a7 = QGenericArgument(), QGenericArgument a8 = QGenericArgument(),
                    QGenericArgument a9 = QGenericArgument()) override;
    QObject *inject0(QObject *object) override;
};
