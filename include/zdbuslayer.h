// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "zreference.h"

#include <QMetaType>
#include <QObject>
#include <QSharedPointer>
#include <QString>

/**
 * A bus that lies over another one: it handles some calls itself, and passes the others on. It serves `ZDbus`, too, and
 * `ZDbusOutcome`: else calls by that one would go past it. For the outcome of what it passes on it asks the same
 * component below that it passes calls to.
 *
 * Several layers may lie over each other. The next version of a layer takes the place of the one before it, and does
 * not lie over it: else the one before would be used for ever, and its file could never leave memory.
 *
 * Ownership: shares the bus below with its callers.
 * Thread:    any.
 * Failure:   false.
 */
class ZDbusLayer
{
public:
    /// What this layer is called; all its versions have the same name.
    virtual QString layer0() = 0;
    /// Sets `next` to the bus below. It is not returned, since what a plugin's component returns as a shared pointer
    /// keeps that plugin in memory.
    virtual bool next0(QSharedPointer<ZReference> &next) = 0;
    /// Lies over `next` from now on.
    virtual bool setNext0(const QSharedPointer<ZReference> &next) = 0;
    // Plugins that are built elsewhere rely on the order of the operations: a new ability is a new interface.
    virtual ~ZDbusLayer() {}
};
Q_DECLARE_INTERFACE(ZDbusLayer, "zdefault::ZDbusLayer")
Q_DECLARE_METATYPE(ZDbusLayer *)
