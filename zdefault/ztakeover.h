// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "zendpoints.h"

#include <QPointer>

/**
 * A plugin's endpoints take the places of those before them: all of them, or none.
 *
 * Ownership: holds all that take part, while it lives.
 * Thread:    the one that loads.
 * Failure:   where something is thrown, those before go on.
 */
class ZTakeover
{
public:
    explicit ZTakeover(const QVector<ZEndpoint *> &endpoints);
    ~ZTakeover();

    void run();

private:
    Q_DISABLE_COPY(ZTakeover)

    struct Place
    {
        ZEndpoints::Held next;
        QPointer<ZEndpoint> alive; // the plugin may delete a part of it as it begins
        ZEndpoints::Held before;
        QJsonObject state;
    };

    void retire();
    void handOver();
    bool begin();
    void bind();
    void leave();

    const ZGate::Awaited m_awaited; // who calls one of us waits for this thread
    QVector<Place> m_places;
    const ZObject *m_root = nullptr; // of all of them
    const ZDbus *m_dbus = nullptr;
    bool m_isDone = false;
};
