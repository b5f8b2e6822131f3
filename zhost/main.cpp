// SPDX-License-Identifier: Apache-2.0
#include "configuration.h"
#include "host.h"
#include "stopsignals.h"

#include <QCommandLineParser>
#include <QCoreApplication>
#include <QJsonDocument>
#include <QTimer>

#include <cstdio>
#include <cstdlib>
#include <optional>

namespace {

constexpr unsigned StopSeconds = 30; // a stop that takes longer is ended by force

enum ExitCode
{
    Success = 0,
    Wrong = 1,
    Unusable = 2
};

const char description[] =
    "Runs the plugins that a configuration names, until it is told to stop (SIGINT or SIGTERM).\n"
    "\n"
    "CONFIG.json holds one JSON object. Its section \"logger\" switches what is written to stderr. Its section\n"
    "\"loader\" names the plugins to load (\"load-list\"), the folder that they are loaded from (\"deployed\") and "
    "the\n"
    "folder that is watched for new ones (\"hot-deploy\"); a relative folder is taken from the folder in which the\n"
    "program zhost itself lies, not from the working directory. Its section \"filesystem\" says where temporary files\n"
    "are made. Its list \"schedule\" has bus calls that are made on a timetable, such as\n"
    "\n"
    "  {\"url\": \"//report/daily\", \"every\": 60000, \"from\": \"08:00:00\", \"to\": \"18:30:00\", \"repeat\": "
    "true}\n"
    "\n"
    "of which \"every\" is in milliseconds; without \"from\" and \"to\" it goes on all day. A repeated call goes on "
    "until\n"
    "nobody handles it.\n"
    "\n"
    "The bus endpoint //zhost/printd tells what is wired and what runs.\n"
    "\n"
    "Exit status: 0 stopped as told, --check found nothing, --call was handled; 1 something had to be left running,\n"
    "--check found something wrong, --call was not handled; 2 the command line or the configuration file cannot be "
    "used.";

void say(std::FILE *stream, const QString &line) { std::fprintf(stream, "%s\n", line.toLocal8Bit().constData()); }

int callOnce(Host &host, const QUrl &url, QJsonObject request)
{
    QJsonObject answer;
    if (!host.call(url, &request, &answer)) {
        say(stderr, QStringLiteral("zhost: nobody handled %1").arg(url.toString()));
        return Wrong;
    }
    say(stdout, QString::fromUtf8(QJsonDocument(answer).toJson(QJsonDocument::Indented).trimmed()));
    return Success;
}

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
    const QCommandLineOption call(QStringLiteral("call"),
                                  QStringLiteral("Start, call the bus once, print the answer as JSON, and stop."),
                                  QStringLiteral("URL"));
    const QCommandLineOption in(QStringLiteral("in"), QStringLiteral("The request that --call hands over: an object."),
                                QStringLiteral("JSON"));
    parser.addOptions({check, call, in});
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

    QUrl url;
    QJsonObject request;
    if (parser.isSet(in) && !parser.isSet(call))
        return refuse(QStringLiteral("--in goes with --call"));
    if (parser.isSet(call)) {
        url = QUrl(parser.value(call), QUrl::StrictMode);
        if (url.isEmpty() || !url.isValid())
            return refuse(QStringLiteral("--call needs a URL, as //host/path"));
        const QJsonDocument document = QJsonDocument::fromJson(parser.value(in).toUtf8());
        if (parser.isSet(in) && !document.isObject())
            return refuse(QStringLiteral("--in needs a JSON object"));
        request = document.object();
    }

    StopSignals stopSignals;
    QObject::connect(&stopSignals, &StopSignals::received, &application, &QCoreApplication::quit);
    std::optional<Host> host;
    const auto start = [&] {
        host.emplace(configuration.object);
        if (parser.isSet(call))
            QCoreApplication::exit(callOnce(*host, url, request));
    };
    QTimer begin; // by the event loop, since a plugin may quit before all are loaded
    begin.setSingleShot(true);
    QObject::connect(&begin, &QTimer::timeout, &application, start);
    begin.start(0);
    const int exitCode = QCoreApplication::exec();

    endWithin(StopSeconds);
    const QStringList running = host ? host->stop() : QStringList();
    if (running.isEmpty())
        return exitCode;
    for (const QString &name : running)
        say(stderr, QStringLiteral("zhost: left running: %1").arg(name));
    std::fflush(stdout);
    std::_Exit(Wrong); // what still runs uses all that would be destroyed on the way out
}
