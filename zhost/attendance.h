// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "inbox.h"
#include "probation.h"
#include "reload.h"
#include "servicemanager.h"

#include <optional>

struct CommandLine;
struct Configuration;
class Host;
class StopSignals;

/// All that attends to a host which serves until it is told to stop, and that one which makes a single call can do
/// without.
class Attendance
{
public:
    Attendance(const CommandLine &commandLine, const Configuration &configuration, const StopSignals &stopSignals);

    /// Before the plugins are loaded. False where no start is worth while: see `Probation::begin`.
    bool begin() { return m_probation.begin(); }
    /// When they have been loaded.
    void attend(Host *host);
    /// When the application has quit, before the host stops.
    void end();

    /// The names of what hangs: while it does, the host must not be destroyed.
    QStringList hanging() const { return m_probation.hanging(); }

private:
    const Configuration &m_configuration;
    Probation m_probation;
    Reload m_reload;
    std::optional<Inbox> m_inbox;
    std::optional<ServiceManager> m_serviceManager;
};
