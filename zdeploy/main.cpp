// SPDX-License-Identifier: Apache-2.0
#include "drop.h"
#include "examination.h"
#include "follow.h"
#include "options.h"
#include "pluginname.h"
#include "printable.h"
#include "rehearsal.h"
#include "runninghost.h"
#include "tidying.h"
#include "tryout.h"
#include "versions.h"

#include <QCoreApplication>
#include <QDir>

#include <cstdio>

namespace {

enum ExitCode
{
    Done = 0,
    Refused = 1,
    Usage = 2,
    Hindered = 3
};

void write(std::FILE *stream, const QString &text)
{
    std::fprintf(stream, "%s\n", text.toLocal8Bit().constData());
    std::fflush(stream); // the next line may be long in coming
}

void say(std::FILE *stream, const QString &line) { write(stream, printable(line)); }

int misused(const QString &reason)
{
    say(stderr, QStringLiteral("zdeploy: %1; see zdeploy --help").arg(reason));
    return Usage;
}

int refused(const QString &reason)
{
    say(stderr, QStringLiteral("zdeploy: %1").arg(reason));
    return Refused;
}

/// `deed` is what cannot be done: "dropped".
int hindered(const Drop &drop, const char *deed, const QString &reason)
{
    say(stderr, QStringLiteral("zdeploy: %1 cannot be %2: %3").arg(drop.source, QLatin1String(deed), reason));
    return Hindered;
}

int judged(const Drop &drop, const char *deed, const Verdict &verdict)
{
    if (verdict.isGood())
        return Done;
    return verdict.isItsFault ? refused(QStringLiteral("%1 is refused: %2").arg(drop.source, verdict.text))
                              : hindered(drop, deed, verdict.text);
}

void warn(const QString &file, const QStringList &warnings)
{
    for (const QString &warning : warnings)
        say(stderr, QStringLiteral("zdeploy: warning: %1: %2").arg(file, warning));
}

int follow(const Drop &drop, const QString &file)
{
    const Follow::Result result = Follow{drop.hotDeploy, drop.deployed, file, drop.patience}.run();
    if (!result.isGood)
        return refused(result.text);
    say(stdout, result.text);
    return Done;
}

int deploy(const Drop &drop, bool waits)
{
    if (waits && !RunningHost::on(drop.deployed).isThere())
        return hindered(
            drop, "dropped",
            QStringLiteral("no host runs on %1 that could be waited for").arg(QDir::cleanPath(drop.deployed)));
    const Drop::Result result = drop.run();
    warn(drop.source, result.warnings);
    if (!result.verdict.isGood())
        return judged(drop, "dropped", result.verdict);
    say(stdout, QStringLiteral("dropped as %1").arg(result.name));
    return waits ? follow(drop, result.name) : Done;
}

int listAll(const Drop &drop)
{
    const QVector<Version> versions = versionsIn(drop.hotDeploy, drop.deployed);
    for (const Version &version : versions)
        say(stdout, version.describe());
    return Done;
}

int goBack(Drop drop, const QString &plugin, bool waits)
{
    const QVector<Version> versions = versionsIn(drop.hotDeploy, drop.deployed);
    const PluginName waiting = lastWaiting(plugin, versions);
    if (!waiting.plugin.isNull()) // it may come after what is dropped now, and is none to go back from yet
        return refused(QStringLiteral("%1 still waits for a host: let one load it, or remove it, before you go back")
                           .arg(waiting.file()));
    const PluginName good = goodBeforeNewest(plugin, versions, drop.deployed);
    if (good.plugin.isNull())
        return refused(QStringLiteral("%1 has no good version before the newest").arg(plugin));
    drop.source = QDir::cleanPath(QDir(drop.deployed).filePath(good.file()));
    return deploy(drop, waits);
}

int tidyUp(const Options &options)
{
    const Tidying::Result result =
        Tidying{options.drop.hotDeploy, options.drop.deployed, options.plugin, options.keep}.run();
    for (const QString &name : result.removed)
        say(stdout, QStringLiteral("removed %1").arg(name));
    return result.error.isEmpty() ? Done : refused(result.error);
}

int describe(const Drop &drop)
{
    const Examination::Result result = Examination{drop.source, drop.patience}.run();
    for (const QString &line : result.lines)
        write(stdout, line);
    warn(drop.source, result.warnings);
    return judged(drop, "described", result.verdict);
}

int rehearse(const Options &options)
{
    const Rehearsal::Result result = Rehearsal{options.configuration, options.rehearsal, options.drop.patience}.run();
    if (!result.unusable.isEmpty())
        return misused(result.unusable);
    if (!result.error.isEmpty())
        return refused(QStringLiteral("%1 is refused: %2").arg(options.configuration, result.error));
    say(stdout, QStringLiteral("%1: nothing wrong in %2 seconds").arg(options.configuration).arg(options.rehearsal));
    return Done;
}

} // namespace

int main(int argc, char *argv[])
{
    if (isTryOut(argc, argv))
        return watchTryOut(argv);
    if (Rehearsal::isOne(argc, argv))
        return Rehearsal::watch(argv);
    QCoreApplication application(argc, argv);
    QCoreApplication::setApplicationName(QStringLiteral("zdeploy"));
    QCoreApplication::setApplicationVersion(QStringLiteral(ZDEPLOY_VERSION));

    const Options options = Options::read(QCoreApplication::arguments());
    if (!options.error.isEmpty())
        return misused(options.error);
    switch (options.task) {
    case Options::Print:
        write(stdout, options.text);
        return Done;
    case Options::List:
        return listAll(options.drop);
    case Options::RollBack:
        return goBack(options.drop, options.plugin, options.waits);
    case Options::Keep:
        return tidyUp(options);
    case Options::Rehearse:
        return rehearse(options);
    case Options::Describe:
        return describe(options.drop);
    default:
        return deploy(options.drop, options.waits);
    }
}
