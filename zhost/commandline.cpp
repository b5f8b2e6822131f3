// SPDX-License-Identifier: Apache-2.0
#include "commandline.h"

#include "keycheck.h"

#include <QCommandLineParser>
#include <QJsonDocument>

namespace {

const char description[] = R"(Runs the plugins that a configuration names, until it is told to stop (SIGINT or SIGTERM).

CONFIG.json holds one JSON object. Its section "logger" switches what is written to stderr. Its section
"loader" names the plugins to load ("load-list"), the folder that they are loaded from ("deployed") and the
folder that is watched for new ones ("hot-deploy"); a relative folder is taken from the folder in which the
program zhost itself lies, not from the working directory. With "remember": true what was dropped is loaded at
the next start as well; else only what "load-list" names is. Its section "filesystem" says where temporary files
are made. Its list "schedule" has bus calls that are made on a timetable, such as

  {"url": "//report/daily", "every": 60000, "from": "08:00:00", "to": "18:30:00", "repeat": true}

of which "every" is in milliseconds; without "from" and "to" it goes on all day. A repeated call goes on until
nobody handles it; with "keep": true it goes on even then.

At SIGHUP the file is read anew: severities, new plugins to load and the timetable are followed; what takes a
restart is named. A file that is wrong changes nothing.

The bus endpoint //zhost/printd tells what is wired and what runs.

Exit status: 0 stopped as told, --check found nothing, --call was handled; 1 something had to be left running,
--check found something wrong, --call was not handled; 2 the command line or the configuration file cannot be
used, or a program runs on the deployed folder already; 3 a plugin has ended the program by exit() or quit();
78 five starts in a row have failed, and no plugin is left that could be taken back, or one cannot be renamed.)";

struct Parser : QCommandLineParser
{
    Parser()
    {
        setApplicationDescription(QString::fromLatin1(description));
        addOptions({check, keys, call, in});
        addPositionalArgument(QStringLiteral("CONFIG.json"), QStringLiteral("The configuration."));
    }

    const QCommandLineOption help = addHelpOption();
    const QCommandLineOption version = addVersionOption();
    const QCommandLineOption check{QStringLiteral("check"),
                                   QStringLiteral("Read the configuration, say what is wrong with it, start nothing.")};
    const QCommandLineOption keys{QStringLiteral("keys"),
                                  QStringLiteral("Print the keys that a configuration may have, one a line.")};
    const QCommandLineOption call{
        QStringLiteral("call"),
        QStringLiteral("Call the bus once, print the answer as JSON, and stop. The host that runs by this "
                       "file is asked; without one, it is started for that."),
        QStringLiteral("URL")};
    const QCommandLineOption in{QStringLiteral("in"), QStringLiteral("The request that --call hands over: an object."),
                                QStringLiteral("JSON")};
};

/// Reads the call and its request. Returns why they cannot be used; null if they can.
QString readCall(const Parser &parser, CommandLine *result)
{
    if (!parser.isSet(parser.call))
        return parser.isSet(parser.in) ? QStringLiteral("--in goes with --call") : QString();
    result->isCall = true;
    result->url = QUrl(parser.value(parser.call), QUrl::StrictMode);
    if (result->url.isEmpty() || !result->url.isValid())
        return QStringLiteral("--call needs a URL, as //host/path");
    const QJsonDocument request = QJsonDocument::fromJson(parser.value(parser.in).toUtf8());
    if (parser.isSet(parser.in) && !request.isObject())
        return QStringLiteral("--in needs a JSON object");
    result->request = request.object();
    return {};
}

} // namespace

CommandLine CommandLine::read(const QStringList &arguments)
{
    CommandLine result;
    Parser parser;
    if (!parser.parse(arguments))
        result.error = parser.errorText();
    else if (parser.isSet(parser.help))
        result.text = parser.helpText();
    else if (parser.isSet(parser.version))
        result.text = QStringLiteral("zhost " ZHOST_VERSION);
    else if (parser.isSet(parser.keys))
        result.text = knownKeyPaths().join(QLatin1Char('\n'));
    else if (parser.positionalArguments().size() != 1)
        result.error = QStringLiteral("name one configuration file; see zhost --help");
    else
        result.error = readCall(parser, &result);
    if (!result.error.isEmpty() || !result.text.isEmpty())
        return result;
    result.file = parser.positionalArguments().constFirst();
    result.isCheck = parser.isSet(parser.check);
    return result;
}
