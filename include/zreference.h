// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "zglobal.h"

#include <QMetaType>
#include <QObject>
#include <QSharedPointer>

/**
 * A handle that owns a component. A delegate holds one, and returns it when the component is exchanged.
 *
 * Ownership: shares the component, which is destroyed with the last reference to it.
 * Thread:    any.
 * Failure:   none: a reference may be empty.
 */
class ZDEFAULT_EXPORT ZReference
{
public:
    explicit ZReference(QSharedPointer<QObject> object);
    virtual ~ZReference();

    /// True when this reference has no component.
    bool isNull() const;

private:
    Q_DISABLE_COPY(ZReference)
    friend class ZDefaultEmitter;
    friend class ZDelegate;

    const QSharedPointer<QObject> m_object;
};
Q_DECLARE_METATYPE(QSharedPointer<ZReference>)
