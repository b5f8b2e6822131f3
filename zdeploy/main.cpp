// SPDX-License-Identifier: Apache-2.0
#include "drop.h"
#include "pluginname.h"
#include "printable.h"
#include "tryout.h"
#include "versions.h"

#include <QCommandLineParser>
#include <QCoreApplication>
#include <QDir>
#include <QFileInfo>

#include <cstdio>

namespace {

enum ExitCode
{
    Dropped = 0,
    Refused = 1,
    Usage = 2
};

const char description[] =
    "Drops a plugin into the folder that a running program watches, so that nothing can go wrong there: the file is\n"
    "inspected, copied, tried out in a host and a process of its own, and appears in one step under a name that sorts\n"
    "after all versions that are there.\n"
    "\n"
    "With --list it drops nothing, and tells what is there. With --rollback it drops once more, as the newest, the\n"
    "last version before the newest that the running program has noted as good.\n"
    "\n"
    "Exit status: 0 dropped; 1 refused, and nothing is left behind; 2 the command line cannot be used.";

constexpr int DefaultPatience = 60;
constexpr int MostPatience = 3600;

void write(std::FILE *stream, const QString &text) { std::fprintf(stream, "%s\n", text.toLocal8Bit().constData()); }

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

int run(const Drop &drop)
{
    const Drop::Result result = drop.run();
    if (!result.error.isEmpty())
        return refused(QStringLiteral("%1 is refused: %2").arg(drop.source, result.error));
    say(stdout, QStringLiteral("dropped as %1").arg(result.name));
    return Dropped;
}

int listAll(const Drop &drop)
{
    const QVector<Version> versions = versionsIn(drop.hotDeploy, drop.deployed);
    for (const Version &version : versions)
        say(stdout, version.describe());
    return Dropped;
}

int goBack(Drop drop, const QString &plugin)
{
    const PluginName good = goodBeforeNewest(plugin, versionsIn(drop.hotDeploy, drop.deployed));
    if (good.plugin.isNull())
        return refused(QStringLiteral("%1 has no good version before the newest").arg(plugin));
    drop.source = QDir::cleanPath(QDir(drop.deployed).filePath(good.file()));
    return run(drop);
}

} // namespace

int main(int argc, char *argv[])
{
    if (isTryOut(argc, argv))
        return watchTryOut(argv);
    QCoreApplication application(argc, argv);
    QCoreApplication::setApplicationName(QStringLiteral("zdeploy"));
    QCoreApplication::setApplicationVersion(QStringLiteral(ZDEPLOY_VERSION));

    QCommandLineParser parser;
    parser.setApplicationDescription(QString::fromLatin1(description));
    const QCommandLineOption help = parser.addHelpOption();
    const QCommandLineOption version = parser.addVersionOption();
    const QCommandLineOption as(
        QStringLiteral("as"),
        QStringLiteral(
            "The version to drop it as: libfoo.so becomes libfoo.VERSION.so. Without it a free name stays as "
            "it is, and for one that is taken the next version is found."),
        QStringLiteral("VERSION"));
    const QCommandLineOption deployed(
        QStringLiteral("deployed"),
        QStringLiteral("The folder to which the running program moves what it finds in FOLDER. Without it, the folder "
                       "\"deployed\" beside FOLDER."),
        QStringLiteral("FOLDER"));
    const QCommandLineOption patience(
        QStringLiteral("patience"),
        QStringLiteral("How long trying it out may take, in seconds: %1 if nothing is said.").arg(DefaultPatience),
        QStringLiteral("SECONDS"), QString::number(DefaultPatience));
    const QCommandLineOption list(QStringLiteral("list"),
                                  QStringLiteral("List the plugins in both folders, and what is known of them."));
    const QCommandLineOption rollback(
        QStringLiteral("rollback"),
        QStringLiteral("Go back to the last good version of the plugin NAME, such as \"ticker\", before the newest."),
        QStringLiteral("NAME"));
    parser.addOptions({as, deployed, patience, list, rollback});
    parser.addPositionalArgument(QStringLiteral("PLUGIN.so"), QStringLiteral("The plugin's file."));
    parser.addPositionalArgument(QStringLiteral("FOLDER"), QStringLiteral("The hot-deploy folder."));
    if (!parser.parse(QCoreApplication::arguments()))
        return misused(parser.errorText());
    if (parser.isSet(help)) {
        write(stdout, parser.helpText());
        return Dropped;
    }
    if (parser.isSet(version)) {
        say(stdout, QStringLiteral("zdeploy " ZDEPLOY_VERSION));
        return Dropped;
    }

    const QStringList arguments = parser.positionalArguments();
    if (parser.isSet(list) && parser.isSet(rollback))
        return misused(QStringLiteral("--list and --rollback exclude each other"));
    const bool namesFile = !parser.isSet(list) && !parser.isSet(rollback);
    if (arguments.size() != (namesFile ? 2 : 1))
        return misused(namesFile ? QStringLiteral("name one plugin and one folder")
                                 : QStringLiteral("name one folder"));
    if (parser.isSet(as) && !PluginName::isVersion(parser.value(as)))
        return misused(QStringLiteral("\"%1\" is no version: letters, digits and single dots").arg(parser.value(as)));
    const int seconds = parser.value(patience).toInt();
    if (seconds < 1 || seconds > MostPatience)
        return misused(QStringLiteral("--patience needs a number of seconds, 1 to %1").arg(MostPatience));
    const QFileInfo hotDeploy(arguments.last());
    if (!hotDeploy.isDir())
        return misused(QStringLiteral("there is no folder %1").arg(hotDeploy.filePath()));
    const QDir real(hotDeploy.canonicalFilePath()); // what is beside a link is not beside the folder
    const Drop drop{arguments.first(), hotDeploy.filePath(),
                    parser.isSet(deployed) ? parser.value(deployed) : real.filePath(QStringLiteral("../deployed")),
                    parser.value(as), seconds};
    if (!QFileInfo(drop.deployed).isDir())
        return misused(QStringLiteral("there is no folder %1: name the one to which plugins are moved with --deployed")
                           .arg(QDir::cleanPath(drop.deployed)));
    if (QFileInfo(drop.deployed).canonicalFilePath() == real.path())
        return misused(QStringLiteral("%1 is the folder to which plugins are moved: name the one that is watched")
                           .arg(drop.hotDeploy));

    if (parser.isSet(list))
        return listAll(drop);
    return parser.isSet(rollback) ? goBack(drop, parser.value(rollback)) : run(drop);
}
