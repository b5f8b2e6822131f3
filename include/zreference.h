// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "zglobal.h"

#include <QMetaType>
#include <QObject>
#include <QSharedPointer>

/**
 * An owning handle on a component: what a delegate points at, and what comes back when a component is exchanged.
 *
 * Ownership: shares the component; it dies with the last reference to it.
 * Thread:    any.
 * Failure:   a reference to nothing is valid and null.
 */
class ZDEFAULT_EXPORT ZReference
{
public:
    explicit ZReference(QSharedPointer<QObject> object);
    virtual ~ZReference();

    /// True when there is no component behind this reference.
    bool isNull() const;

private:
    Q_DISABLE_COPY(ZReference)
    friend class ZDefaultEmitter;
    friend class ZDelegate;

    const QSharedPointer<QObject> m_object;
};
Q_DECLARE_METATYPE(QSharedPointer<ZReference>)
