// SPDX-License-Identifier: Apache-2.0
#include "attendance.h"
#include "callrunninghost.h"
#include "commandline.h"
#include "configuration.h"
#include "crashline.h"
#include "exitcode.h"
#include "exitguard.h"
#include "folderlock.h"
#include "foldermark.h"
#include "host.h"
#include "known/known.h"
#include "lastwords.h"
#include "logformat.h"
#include "printable.h"
#include "say.h"
#include "standardstreams.h"
#include "stopsignals.h"
#include "tellfindings.h"

#include <QCoreApplication>
#include <QFile>
#include <QFileInfo>
#include <QTimer>

#include <cstdio>
#include <cstdlib>
#include <optional>

namespace {

constexpr int LockPatienceMs = 500; // a process that only looks whether the folder is locked has the lock for a moment

int refuse(const QString &reason)
{
    complain(reason);
    return Unusable;
}

int callOnce(Host &host, const CommandLine &commandLine)
{
    QJsonObject request = commandLine.request;
    QJsonObject answer;
    const QString failure = host.call(commandLine.url, &request, &answer);
    if (!failure.isNull()) {
        complain(failure);
        return Wrong;
    }
    printJson(answer);
    return Success;
}

void tellWhoElseTakes(const QString &folder, const FolderMark &mark)
{
    if (const QString other = mark.other(); !other.isEmpty())
        complain(
            QStringLiteral("process %1 takes what is put into %2, too: each gets a part of it").arg(other, folder));
}

int run(const CommandLine &commandLine, const Configuration &configuration)
{
    // Two hosts would take each other's drops, and each would remove the other's temporary files.
    const QString deployed = configuration.folder(QStringLiteral("deployed"));
    const FolderLock lock(deployed, LockPatienceMs);
    if (!lock.holder().isNull())
        return refuse(QStringLiteral("%1 is in use by %2").arg(deployed, lock.holder()));
    if (!lock.error().isNull())
        complain(lock.error());
    const QString hotDeploy = configuration.folder(QStringLiteral("hot-deploy"));
    const QString inbox = commandLine.isCall ? QString() : configuration.inbox();
    const FolderMark hotDeployMark(hotDeploy);
    const FolderMark inboxMark(inbox);
    tellWhoElseTakes(hotDeploy, hotDeployMark);
    tellWhoElseTakes(inbox, inboxMark);
    StopSignals stopSignals;
    QObject::connect(&stopSignals, &StopSignals::received, &QCoreApplication::quit);
    const ExitGuard exitGuard;
    Known known(QFileInfo(commandLine.file).absoluteFilePath());
    known.setConfiguration(configuration.object);
    std::optional<Host> host;
    std::optional<Attendance> attendance;
    if (!commandLine.isCall) {
        attendance.emplace(commandLine, configuration, stopSignals, &known);
        if (!attendance->refusal().isNull())
            return refuse(attendance->refusal());
    }
    std::optional<int> result; // the exit status of a task that ends by itself
    const auto finish = [&](int exitCode) {
        result = exitCode;
        QCoreApplication::quit();
    };
    // Each step is an event: a plugin may quit before all are loaded, and then the later steps are not called.
    QTimer::singleShot(0, [&] {
        if (attendance && !attendance->begin())
            return finish(Hopeless);
        host.emplace(configuration, &known);
        if (attendance)
            attendance->attend(&*host);
        else
            QTimer::singleShot(0, [&] { finish(callOnce(*host, commandLine)); });
    });
    QCoreApplication::exec();

    boundStop();
    if (attendance)
        attendance->end();
    const bool isDone = StopSignals::isStopWanted() || result;
    if (!isDone) {
        const QString line = QStringLiteral("ended by quit(), called by a plugin");
        complain(line);
        noteEnd("", QFile::encodeName(line + QLatin1Char('\n')).constData()); // it is not known which plugin
    }
    const int asTold = result.value_or(commandLine.isCall ? Wrong : Success); // a signal may have come before the call
    const int exitCode = isDone ? asTold : EndedByPlugin;
    QStringList running = host ? host->stop() : QStringList();
    if (attendance)
        running += attendance->hanging();
    if (running.isEmpty()) {
        host.reset();
        if (!attendance || attendance->close())
            return exitCode;
        std::fflush(stdout);
        std::_Exit(exitCode); // a request is still being answered, and uses objects that a normal exit would destroy
    }
    for (const QString &name : running)
        complain(QStringLiteral("left running: %1").arg(name));
    std::fflush(stdout);
    std::_Exit(exitCode == Success ? Wrong : exitCode); // what still runs uses objects that a normal exit would destroy
}

} // namespace

int main(int argc, char *argv[])
{
    openStandardStreams();
    sayWhatCrashes();
    outliveReaders();
    installLogFormat();
    QCoreApplication application(argc, argv);
    QCoreApplication::setApplicationName(QStringLiteral("zhost"));
    QCoreApplication::setApplicationVersion(QStringLiteral(ZHOST_VERSION));

    const CommandLine commandLine = CommandLine::read(QCoreApplication::arguments());
    if (!commandLine.error.isEmpty())
        return refuse(commandLine.error);
    if (!commandLine.text.isEmpty()) {
        print(commandLine.text);
        return Success;
    }
    const Configuration configuration = Configuration::read(commandLine.file);
    if (!configuration.error.isEmpty())
        return refuse(configuration.error);
    if (commandLine.isCall) { // before the configuration is checked: the caller may be another user than the host's
        if (const std::optional<int> exitCode = callRunningHost(commandLine))
            return *exitCode;
    }
    const Finding::Weight worst = tellFindings(commandLine.file, configuration);
    if (worst == Finding::Unusable)
        return Unusable;
    if (!commandLine.isCheck)
        return run(commandLine, configuration);
    if (worst == Finding::Wrong)
        return Wrong;
    print(printable(QStringLiteral("%1: nothing wrong").arg(commandLine.file)));
    return Success;
}
