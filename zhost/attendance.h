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

/// All that attends to a host which serves until it is told to stop, and that one which makes a single call can do
/// without.
class Attendance
{
public:
    Attendance(const CommandLine &commandLine, const Configuration &configuration, const StopSignals &stopSignals,
               Known *known);
    ~Attendance();

    /// Why the host must not start; null if it may.
    QString refusal() const { return m_refusal; }
    /// Before the plugins are loaded. False where no start is worth while: see `Probation::begin`.
    bool begin();
    /// When they have been loaded.
    void attend(Host *host);
    /// When the application has quit, before the host stops.
    void end();

    /// The names of what hangs: while it does, the host must not be destroyed.
    QStringList hanging();
    /// When the host is gone. False if somebody is still being answered, who uses this object on.
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
