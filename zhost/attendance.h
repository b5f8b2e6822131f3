// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "door/door.h"
#include "inbox.h"
#include "probation.h"
#include "reload.h"
#include "servicemanager.h"

#include <optional>

struct CommandLine;
struct Configuration;
struct Known;
class Host;
class StopSignals;

/// Everything that a host needs beside its services if it runs until it is told to stop. A host that makes a single
/// call does without it.
class Attendance
{
public:
    Attendance(const CommandLine &commandLine, const Configuration &configuration, const StopSignals &stopSignals,
               Known *known);
    ~Attendance();

    /// Why the host must not start; null if it may.
    QString refusal() const { return m_refusal; }
    /// Call it before the plugins are loaded. False if the host should not start: see `Probation::begin`.
    bool begin();
    /// Call it when the plugins have been loaded.
    void attend(Host *host);
    /// Call it when the application has quit, before the host stops.
    void end();

    /// The names of calls that hang: while there are any, the host must not be destroyed.
    QStringList hanging();
    /// Call it when the host is gone. False if a request is still being answered, and so still uses this object.
    bool close() { return !m_door || m_door->close(); }

private:
    Q_DISABLE_COPY(Attendance)
    const Configuration &m_configuration;
    Known *const m_known;
    QString m_refusal;
    std::optional<Door> m_door;
    Probation m_probation;
    Reload m_reload;
    std::optional<Inbox> m_inbox;
    std::optional<ServiceManager> m_serviceManager;
};
