// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "access.h"
#include "buscalls.h"
#include "doorsettings.h"
#include "doorsocket.h"
#include "httpserver.h"
#include "routes.h"

#include <QString>
#include <QStringList>

#include <atomic>
#include <optional>

class Host;
struct Known;

/**
 * The server by which a running host is asked and steered. It has threads of its own, so it answers while the event
 * loop hangs.
 *
 * Thread: the application's thread makes it, begins and ends it.
 */
class Door
{
public:
    /// Opens nothing yet; see `error`.
    Door(const DoorSettings &settings, const Known *known);

    /// Why it cannot be opened, in one line; null if it can.
    QString error() const { return m_error; }
    /// Whether that is because another host has it.
    bool isTaken() const { return m_socket && m_socket->isTaken(); }
    /// Its socket, and its address with the port by TCP.
    QStringList places() const { return m_places; }

    /// Call it before the plugins are loaded. False if there is no room for one more thread.
    bool open();
    /// Call it when they have been loaded: `host` can be steered from now on, until `leave`.
    void enter(Host *host) { m_routes.enter(host); }
    /// Ends the steering of the host. Returns the URLs of calls that have not ended: while one runs, the host must not
    /// be destroyed.
    QStringList leave();
    /// Closes the door. False if a request is still being answered: then this object must not be destroyed.
    bool close();

private:
    Q_DISABLE_COPY(Door)
    bool admit(const HttpServer::Request &request, HttpServer::Response &response) const;
    void answer(const HttpServer::Request &request, HttpServer::Response &response);
    void follow(int count, HttpServer::Response &response);
    void addTcp(const DoorSettings &settings);

    QString m_error;
    QStringList m_places;
    std::optional<DoorSocket> m_socket;
    std::optional<Access> m_access; // by TCP
    Routes m_routes;
    HttpServer m_server;
    std::atomic_int m_followers{0};
};
