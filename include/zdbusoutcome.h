// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QJsonObject>
#include <QMetaType>
#include <QObject>
#include <QUrl>

/**
 * Calls the bus, and says why a call was not handled.
 *
 * Ownership: keeps nothing of the caller's.
 * Thread:    any; as `ZDbus::invoke0`.
 * Failure:   false, with the reason.
 */
class ZDbusOutcome
{
public:
    /**
     * Calls as `ZDbus::invoke0` does, and sets `outcome`, unless it is null:
     *
     * | key      | value                                                                                        |
     * |----------|----------------------------------------------------------------------------------------------|
     * | "code"   | 200 if the call was handled; 404 if an endpoint was called and refused; 503 if none was called, since nobody is bound, or who was is gone; a bus that reaches other processes has further ones |
     * | "reason" | the same in words; missing if the call was handled                                           |
     * | "called" | whether an endpoint was called; missing if nobody knows                                      |
     * | "host"   | the process that has answered; missing if it is this one                                     |
     *
     * Of a call to all endpoints that none handles, "called" is missing.
     */
    virtual bool call0(const QUrl &url, QJsonObject *in, QJsonObject *out, QJsonObject *outcome) = 0;
    // Plugins that are built elsewhere rely on the order of the operations: a new ability is a new interface.
    virtual ~ZDbusOutcome() {}
};
Q_DECLARE_INTERFACE(ZDbusOutcome, "zdefault::ZDbusOutcome")
Q_DECLARE_METATYPE(ZDbusOutcome *)
