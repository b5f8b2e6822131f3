// SPDX-License-Identifier: Apache-2.0
#include "configuration.h"
#include "host.h"
#include "stopsignals.h"

#include <QCommandLineParser>
#include <QCoreApplication>

#include <cstdio>

namespace {

enum ExitCode
{
    Success = 0,
    Wrong = 1,
    Unusable = 2
};

const char description[] =
    "Runs the plugins that a configuration names, until it is told to stop (SIGINT or SIGTERM).\n"
    "\n"
    "CONFIG.json holds one JSON object. Its section \"logger\" switches what is written to stderr; its section\n"
    "\"loader\" names the plugins to load (\"load-list\"), the folder that they are loaded from (\"deployed\") and "
    "the\n"
    "folder that is watched for new ones (\"hot-deploy\"). A relative folder is taken from the folder in which the\n"
    "program zhost itself lies, not from the working directory.\n"
    "\n"
    "Exit status: 0 stopped as told, or --check found nothing; 1 --check found something wrong; 2 the command line\n"
    "or the configuration file cannot be used.";

void say(std::FILE *stream, const QString &line) { std::fprintf(stream, "%s\n", line.toLocal8Bit().constData()); }

int refuse(const QString &reason)
{
    say(stderr, QStringLiteral("zhost: %1").arg(reason));
    return Unusable;
}

} // namespace

int main(int argc, char *argv[])
{
    if (!qEnvironmentVariableIsSet("QT_FORCE_STDERR_LOGGING")) // some builds of Qt would write elsewhere by themselves
        qputenv("QT_FORCE_STDERR_LOGGING", "1");
    QCoreApplication application(argc, argv);
    QCoreApplication::setApplicationName(QStringLiteral("zhost"));
    QCoreApplication::setApplicationVersion(QStringLiteral(ZHOST_VERSION));

    QCommandLineParser parser;
    parser.setApplicationDescription(QString::fromLatin1(description));
    const QCommandLineOption help = parser.addHelpOption();
    const QCommandLineOption version = parser.addVersionOption();
    const QCommandLineOption check(QStringLiteral("check"),
                                   QStringLiteral("Read the configuration, say what is wrong with it, start nothing."));
    parser.addOption(check);
    parser.addPositionalArgument(QStringLiteral("CONFIG.json"), QStringLiteral("The configuration."));
    if (!parser.parse(QCoreApplication::arguments()))
        return refuse(parser.errorText());
    if (parser.isSet(help)) {
        say(stdout, parser.helpText());
        return Success;
    }
    if (parser.isSet(version)) {
        say(stdout, QStringLiteral("zhost " ZHOST_VERSION));
        return Success;
    }
    const QStringList files = parser.positionalArguments();
    if (files.size() != 1)
        return refuse(QStringLiteral("name one configuration file; see zhost --help"));

    const Configuration configuration = Configuration::read(files.first());
    if (!configuration.error.isEmpty())
        return refuse(configuration.error);
    bool isWrong = false;
    const QVector<Configuration::Finding> findings = configuration.findings();
    for (const Configuration::Finding &finding : findings) {
        say(stderr, QStringLiteral("zhost: %1: %2").arg(files.first(), finding.text));
        isWrong |= finding.isWrong;
    }
    if (parser.isSet(check)) {
        if (!isWrong)
            say(stdout, QStringLiteral("%1: nothing wrong").arg(files.first()));
        return isWrong ? Wrong : Success;
    }

    StopSignals stopSignals;
    QObject::connect(&stopSignals, &StopSignals::received, &application, &QCoreApplication::quit);
    const Host host(configuration.object);
    return QCoreApplication::exec();
}
