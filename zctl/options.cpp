// SPDX-License-Identifier: Apache-2.0
#include "options.h"

#include "commands.h"

#include <doorlimits.h>

#include <QCommandLineParser>
#include <QJsonDocument>

namespace {

const char description[] =
    "Asks and steers a zhost that runs. Where one runs on this machine it is found; of several, one is named.\n"
    "\n"
    "Commands:\n"
    "%1\n"
    "Exit status: 0 done; 1 the host says no, the call was not handled, or the status is not healthy; 2 the command\n"
    "line cannot be used, or there is no host.";

Options misused(const QString &error)
{
    Options options;
    options.error = error;
    return options;
}

Options printing(const QString &text)
{
    Options options;
    options.text = text;
    return options;
}

QString usageOf(const Command &command)
{
    return (QLatin1String(command.name) + QLatin1Char(' ') + QLatin1String(command.arguments)).trimmed();
}

QString describeCommands()
{
    QString result;
    for (const Command &command : commands())
        result += QStringLiteral("  %1  %2\n").arg(usageOf(command), -26).arg(QLatin1String(command.text));
    return result;
}

/// The options of the program, and what they say.
class Parser
{
public:
    Parser()
    {
        m_parser.setApplicationDescription(QString::fromLatin1(description).arg(describeCommands()));
        m_parser.addOptions({socket, configuration, url, tokenFile, json, follow, lines, in, deadline});
        m_parser.addPositionalArgument(QStringLiteral("COMMAND"), QStringLiteral("One of those above."),
                                       QStringLiteral("COMMAND ..."));
    }

    Options read(const QStringList &arguments)
    {
        if (!m_parser.parse(arguments))
            return misused(m_parser.errorText());
        if (m_parser.isSet(help))
            return printing(m_parser.helpText());
        if (m_parser.isSet(version))
            return printing(QStringLiteral("zctl " ZCTL_VERSION));
        for (auto check : {&Parser::readHost, &Parser::readCommand, &Parser::readCompanions, &Parser::readNumbers,
                           &Parser::readRequest}) {
            const QString error = (this->*check)();
            if (!error.isEmpty())
                return misused(error);
        }
        return m_options;
    }

private:
    /// What each of these does answers why it cannot, or an empty text.
    QString readHost()
    {
        QString first;
        for (const QCommandLineOption *option : {&socket, &configuration, &url}) {
            if (!m_parser.isSet(*option))
                continue;
            const QString name = QStringLiteral("--") + option->names().constLast();
            if (!first.isEmpty())
                return QStringLiteral("%1 and %2 exclude each other").arg(first, name);
            if (m_parser.value(*option).isEmpty())
                return QStringLiteral("%1 names nothing").arg(name);
            first = name;
        }
        m_options.socket = m_parser.value(socket);
        m_options.configuration = m_parser.value(configuration);
        m_options.tokenFile = m_parser.value(tokenFile);
        m_options.isJson = m_parser.isSet(json);
        if (m_parser.isSet(url) != m_parser.isSet(tokenFile))
            return QStringLiteral("--url and --token-file go together");
        return readUrl();
    }

    QString readUrl()
    {
        m_options.url = QUrl(m_parser.value(url), QUrl::StrictMode);
        const QUrl &given = m_options.url;
        const QUrl bare =
            given.adjusted(QUrl::RemovePath | QUrl::RemoveQuery | QUrl::RemoveFragment | QUrl::RemoveUserInfo);
        const bool isUsable = given.isValid() && given.scheme() == QLatin1String("http") && !given.host().isEmpty() &&
                              (given == bare || given.toString() == bare.toString() + QLatin1Char('/'));
        return isUsable || !m_parser.isSet(url) ? QString()
                                                : QStringLiteral("--url needs an address as http://localhost:8080");
    }

    QString readCommand()
    {
        m_options.arguments = m_parser.positionalArguments();
        if (m_options.arguments.isEmpty())
            return QStringLiteral("name a command");
        const QString name = m_options.arguments.takeFirst();
        for (const Command &command : commands()) {
            if (name == QLatin1String(command.name))
                m_options.command = &command;
        }
        if (!m_options.command)
            return QStringLiteral("there is no command \"%1\"").arg(name);
        const Command &command = *m_options.command;
        const int count = m_options.arguments.size();
        if (count < command.least || count > command.most)
            return QStringLiteral("it is zctl %1").arg(usageOf(command));
        return command.check ? command.check(m_options.arguments) : QString();
    }

    QString readCompanions()
    {
        const std::pair<const QCommandLineOption &, QString> companions[] = {{follow, QStringLiteral("log")},
                                                                             {lines, QStringLiteral("log")},
                                                                             {in, QStringLiteral("call")},
                                                                             {deadline, QStringLiteral("call")}};
        for (const auto &[option, command] : companions) {
            if (m_parser.isSet(option) && command != QLatin1String(m_options.command->name))
                return QStringLiteral("--%1 goes with %2").arg(option.names().constLast(), command);
        }
        m_options.follows = m_parser.isSet(follow);
        return {};
    }

    QString readNumbers()
    {
        bool isNumber = false;
        m_options.lines = m_parser.value(lines).toInt(&isNumber);
        if (!isNumber || m_options.lines < 0 || m_options.lines > Limits::MaxLines)
            return QStringLiteral("--lines needs a number, 0 to %1").arg(Limits::MaxLines);
        m_options.deadlineMs = m_parser.value(deadline).toInt();
        if (m_options.deadlineMs < 1 || m_options.deadlineMs > Limits::MaxDeadlineMs)
            return QStringLiteral("--deadline needs a number of milliseconds, 1 to %1").arg(Limits::MaxDeadlineMs);
        return {};
    }

    QString readRequest()
    {
        const QJsonDocument request = QJsonDocument::fromJson(m_parser.value(in).toUtf8());
        m_options.request = request.object();
        return m_parser.isSet(in) && !request.isObject() ? QStringLiteral("--in needs a JSON object") : QString();
    }

    QCommandLineParser m_parser;
    const QCommandLineOption help = m_parser.addHelpOption();
    const QCommandLineOption version = m_parser.addVersionOption();
    const QCommandLineOption socket{{QStringLiteral("s"), QStringLiteral("socket")},
                                    QStringLiteral("The Unix socket of the host."),
                                    QStringLiteral("SOCKET")};
    const QCommandLineOption configuration{{QStringLiteral("c"), QStringLiteral("config")},
                                           QStringLiteral("The configuration by which the host runs."),
                                           QStringLiteral("CONFIG.json")};
    const QCommandLineOption url{QStringLiteral("url"),
                                 QStringLiteral("The address of a host that listens by TCP, as http://localhost:8080."),
                                 QStringLiteral("URL")};
    const QCommandLineOption tokenFile{QStringLiteral("token-file"),
                                       QStringLiteral("The file whose first line is the token that --url takes."),
                                       QStringLiteral("FILE")};
    const QCommandLineOption json{QStringLiteral("json"),
                                  QStringLiteral("Print what the host answers as it is, for programs.")};
    const QCommandLineOption follow{{QStringLiteral("f"), QStringLiteral("follow")},
                                    QStringLiteral("With log: the lines that come as well, until the host ends.")};
    const QCommandLineOption lines{
        {QStringLiteral("n"), QStringLiteral("lines")},
        QStringLiteral("With log: how many of the last lines; %1 if nothing is said.").arg(Limits::DefaultLines),
        QStringLiteral("LINES"),
        QString::number(Limits::DefaultLines)};
    const QCommandLineOption in{QStringLiteral("in"), QStringLiteral("With call: the request, an object."),
                                QStringLiteral("JSON")};
    const QCommandLineOption deadline{
        QStringLiteral("deadline"),
        QStringLiteral("With call: how long to wait for its end, in milliseconds; %1 if nothing is said. It goes on "
                       "after that.")
            .arg(Limits::DefaultDeadlineMs),
        QStringLiteral("MS"), QString::number(Limits::DefaultDeadlineMs)};
    Options m_options;
};

} // namespace

Options Options::read(const QStringList &arguments) { return Parser().read(arguments); }
