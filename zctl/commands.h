// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "client.h"
#include "exitcode.h"

#include <QStringList>

#include <functional>
#include <vector>

struct Options;

/// What the user wants, and which host is asked.
struct Request
{
    const Options &options;
    const Client &client;
};

/// A command of the command line.
struct Command
{
    const char *name;
    const char *arguments; ///< In the help.
    int least, most;       ///< How many arguments.
    const char *text;      ///< In the help.
    ExitCode (*run)(const Request &);
    /// Returns what is wrong with the arguments, empty if nothing is. A null pointer if no check is needed.
    QString (*check)(const QStringList &arguments) = nullptr;
};

const std::vector<Command> &commands();

ExitCode exitCodeOf(const Answer &answer);

/// Prints the answer as it is, or calls `print` for people. If there is no answer, says why. Returns the exit status of
/// the program.
ExitCode tell(const Request &request, const Answer &answer, const std::function<void(const QJsonDocument &)> &print);

/// Prints JSON as it is; on a terminal without characters that would control it.
void putJson(const QByteArray &json);

// reports.cpp
ExitCode showPlugins(const Request &request);
ExitCode showServices(const Request &request);
ExitCode showEndpoints(const Request &request);
ExitCode showSchedule(const Request &request);
ExitCode showThreads(const Request &request);
// hosts.cpp
ExitCode showHosts(const Request &request);
// status.cpp
ExitCode showStatus(const Request &request);
// log.cpp
ExitCode showLog(const Request &request);
// top.cpp
ExitCode showTop(const Request &request);
// steering.cpp
ExitCode callBus(const Request &request);
ExitCode runEntry(const Request &request);
ExitCode cancelEntry(const Request &request);
ExitCode restartEntry(const Request &request);
ExitCode rollBack(const Request &request);
ExitCode release(const Request &request);
ExitCode setLogLevel(const Request &request);
ExitCode reload(const Request &request);
ExitCode stop(const Request &request);
