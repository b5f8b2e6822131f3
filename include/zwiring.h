// SPDX-License-Identifier: Apache-2.0
// Helpers for the property writers of components.
#pragma once

#include "zemitter.h"

#include <QObject>
#include <QSharedPointer>

/// Announces `component` as a service: binds a new `Delegate` over it, unless `emitter` is null. Returns `emitter`.
/// The component before it, if any, is destroyed here unless somebody else holds it.
template <class Delegate>
ZEmitter *zAnnounce(QObject *component, ZEmitter *emitter)
{
    if (emitter)
        emitter->bind0(QSharedPointer<Delegate>::create(component));
    return emitter;
}

/// Keeps the first service that comes. True when `service` is that one: then react to it.
template <class Service>
bool zKeepFirst(Service *&kept, Service *service)
{
    if (kept || !service)
        return false;
    kept = service;
    return true;
}
