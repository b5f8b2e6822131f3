// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "client.h"
#include "exitcode.h"

#include <QStringList>

#include <functional>
#include <vector>

struct Options;

/// What is wanted, and who is asked.
struct Request
{
    const Options &options;
    const Client &client;
};

/// One of those that the command line may name.
struct Command
{
    const char *name;
    const char *arguments; ///< In the help.
    int least, most;       ///< How many arguments.
    const char *text;      ///< In the help.
    ExitCode (*run)(const Request &);
    /// What is wrong with the arguments, empty if nothing is; null where anything may be right.
    QString (*check)(const QStringList &arguments) = nullptr;
};

const std::vector<Command> &commands();

ExitCode exitCodeOf(const Answer &answer);

/// Prints the answer as it is, or has `print` do it for people; where it is none, says why not. Answers how the
/// program ends.
ExitCode tell(const Request &request, const Answer &answer, const std::function<void(const QJsonDocument &)> &print);

/// Prints JSON as it is; to a terminal without what does something to that.
void putJson(const QByteArray &json);

// reports.cpp
ExitCode showPlugins(const Request &request);
ExitCode showServices(const Request &request);
ExitCode showEndpoints(const Request &request);
ExitCode showSchedule(const Request &request);
ExitCode showThreads(const Request &request);
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
