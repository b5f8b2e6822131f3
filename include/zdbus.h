// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QJsonObject>
#include <QList>
#include <QMetaType>
#include <QObject>
#include <QRegularExpression>
#include <QUrl>
#include <QWeakPointer>

class ZDbusSubscriber;

/**
 * An in-process bus: endpoints addressed by the host and path of a URL.
 *
 * Ownership: holds subscribers weakly; a subscriber that is destroyed is unbound by that.
 * Thread:    any; a subscriber is called on the caller's thread. A logger must not use the bus, which may write lines
 *            while it is locked.
 * Failure:   false, or an empty list, silently.
 */
class ZDbus
{
public:
    /// Binds `subscriber` to the host and path of `url`; the last binding wins. False when the URL has no host.
    virtual bool bind0(const QUrl &url, QWeakPointer<ZDbusSubscriber> subscriber) = 0;
    /// Whether exactly this host and path is bound, even if its subscriber has been destroyed.
    virtual bool find0(const QUrl &url) = 0;
    /// The endpoints whose subscriber is alive and whose address, "//host/path", `re` matches.
    virtual QList<QUrl> findAll0(const QRegularExpression &re) = 0;
    /**
     * Calls the endpoint bound to the host and path of `url`, else the one bound to the bare host; a URL without a
     * host calls every endpoint. `in` and `out` are passed on, and may be null. True when the call was handled.
     */
    virtual bool invoke0(const QUrl &url, QJsonObject *in, QJsonObject *out) = 0;
    // Plugins that are built elsewhere rely on the order of the operations: a new ability is a new interface.
    virtual ~ZDbus() {}
};
Q_DECLARE_INTERFACE(ZDbus, "zdefault::ZDbus")
Q_DECLARE_METATYPE(ZDbus *)
