// SPDX-License-Identifier: Apache-2.0
#include "options.h"

#include "pluginname.h"

#include <QCommandLineParser>
#include <QDir>
#include <QFileInfo>

#include <optional>

namespace {

const char description[] =
    "Drops a plugin into the folder that a running program watches, so that nothing can go wrong there: the file is\n"
    "inspected, copied, tried out in a host and a process of its own, and appears in one step under a name that sorts\n"
    "after all versions that are there.\n"
    "\n"
    "With --list it drops nothing, and tells what is there. With --rollback it drops once more, as the newest, the\n"
    "last version before the newest that the running program has noted as good. With --wait it tells what becomes of\n"
    "what it has dropped: loaded, and noted as good, or taken back. With --keep it removes old versions from the\n"
    "deployed folder: zdeploy --keep N [NAME] FOLDER. With --rehearse it runs all plugins of a configuration for a\n"
    "while, in a host and a process of its own: zdeploy --rehearse CONFIG.json. With --describe it tells what a\n"
    "plugin is and asks for, and what in it compiles and does nothing: zdeploy --describe PLUGIN.so.\n"
    "\n"
    "Exit status: 0 dropped, or done; 1 refused, and nothing is left behind, or, with --wait, not loaded and good;\n"
    "2 the command line cannot be used; 3 the drop could not be done, for no fault of the plugin: the folder is "
    "locked,\n"
    "cannot be written or has no room, the plugin cannot be tried out, or no host runs that could be waited for.";

constexpr int DefaultPatience = 60;
constexpr int DefaultRehearsal = 10;
constexpr int MostSeconds = 3600;
constexpr int MostVersions = 1000000;

Options misused(const QString &error)
{
    Options options;
    options.error = error;
    return options;
}

Options printing(const QString &text)
{
    Options options;
    options.task = Options::Print;
    options.text = text;
    return options;
}

/// The options of the program, and what they say.
class Parser
{
public:
    Parser()
    {
        m_parser.setApplicationDescription(QString::fromLatin1(description));
        m_parser.addOptions({as, deployed, patience, list, rollback, wait, keep, rehearse, during, describe});
        m_parser.addPositionalArgument(QStringLiteral("PLUGIN.so"), QStringLiteral("The plugin's file."));
        m_parser.addPositionalArgument(QStringLiteral("FOLDER"), QStringLiteral("The hot-deploy folder."));
    }

    Options read(const QStringList &arguments)
    {
        if (!m_parser.parse(arguments))
            return misused(m_parser.errorText());
        if (m_parser.isSet(help))
            return printing(m_parser.helpText());
        if (m_parser.isSet(version))
            return printing(QStringLiteral("zdeploy " ZDEPLOY_VERSION));
        for (auto check : {&Parser::readTask, &Parser::readNumbers, &Parser::readArguments}) {
            const QString error = (this->*check)();
            if (!error.isEmpty())
                return misused(error);
        }
        return m_options;
    }

private:
    /// What each of these does answers why it cannot, or an empty text.
    QString readTask()
    {
        const std::pair<const QCommandLineOption &, Options::Task> tasks[] = {{list, Options::List},
                                                                              {rollback, Options::RollBack},
                                                                              {keep, Options::Keep},
                                                                              {rehearse, Options::Rehearse},
                                                                              {describe, Options::Describe}};
        QString first;
        for (const auto &[option, task] : tasks) {
            if (!m_parser.isSet(option))
                continue;
            const QString name = QStringLiteral("--") + option.names().constFirst();
            if (!first.isEmpty())
                return QStringLiteral("%1 and %2 exclude each other").arg(first, name);
            first = name;
            m_options.task = task;
        }
        m_options.waits = m_parser.isSet(wait);
        if (m_options.waits && m_options.task != Options::Deploy && m_options.task != Options::RollBack)
            return QStringLiteral("--wait and %1 exclude each other").arg(first);
        if (m_parser.isSet(during) && m_options.task != Options::Rehearse)
            return QStringLiteral("--for goes with --rehearse");
        m_options.drop.version = m_parser.value(as);
        if (m_parser.isSet(as) && !PluginName::isVersion(m_options.drop.version))
            return QStringLiteral("\"%1\" is no version: letters, digits and single dots").arg(m_options.drop.version);
        return {};
    }

    QString readNumbers()
    {
        for (const auto &[option, number] :
             {std::make_pair(&patience, &m_options.drop.patience), std::make_pair(&during, &m_options.rehearsal)}) {
            *number = m_parser.value(*option).toInt();
            if (*number < 1 || *number > MostSeconds)
                return QStringLiteral("--%1 needs a number of seconds, 1 to %2")
                    .arg(option->names().constFirst())
                    .arg(MostSeconds);
        }
        m_options.keep = m_parser.value(keep).toInt();
        if (m_options.task == Options::Keep && (m_options.keep < 1 || m_options.keep > MostVersions))
            return QStringLiteral("--keep needs a number of versions, 1 to %1").arg(MostVersions);
        return {};
    }

    QString readArguments()
    {
        const QStringList arguments = m_parser.positionalArguments();
        switch (m_options.task) {
        case Options::Rehearse:
            m_options.configuration = m_parser.value(rehearse);
            return arguments.isEmpty() ? QString() : QStringLiteral("--rehearse needs no more than a configuration");
        case Options::Describe:
            m_options.drop.source = m_parser.value(describe);
            return arguments.isEmpty() ? QString() : QStringLiteral("--describe needs no more than a plugin");
        case Options::Deploy:
            if (arguments.size() != 2)
                return QStringLiteral("name one plugin and one folder");
            m_options.drop.source = arguments.constFirst();
            break;
        case Options::Keep:
            if (arguments.isEmpty() || arguments.size() > 2)
                return QStringLiteral("name one folder, or one plugin and one folder");
            m_options.plugin = arguments.size() == 2 ? arguments.constFirst() : QString();
            break;
        default:
            if (arguments.size() != 1)
                return QStringLiteral("name one folder");
            m_options.plugin = m_parser.value(rollback);
        }
        return readFolders(arguments.constLast());
    }

    /// The loader's folders, which are all looked at: a version that is not seen would be dropped once more.
    QString readFolders(const QString &name)
    {
        const QFileInfo hotDeploy(name);
        if (!hotDeploy.isDir())
            return QStringLiteral("there is no folder %1").arg(hotDeploy.filePath());
        const QDir real(hotDeploy.canonicalFilePath()); // what is beside a link is not beside the folder
        Drop &drop = m_options.drop;
        drop.hotDeploy = hotDeploy.filePath();
        drop.deployed =
            m_parser.isSet(deployed) ? m_parser.value(deployed) : real.filePath(QStringLiteral("../deployed"));
        if (!QFileInfo(drop.deployed).isDir())
            return QStringLiteral("there is no folder %1: name the one to which plugins are moved with --deployed")
                .arg(QDir::cleanPath(drop.deployed));
        if (QFileInfo(drop.deployed).canonicalFilePath() == real.path())
            return QStringLiteral("%1 is the folder to which plugins are moved: name the one that is watched")
                .arg(drop.hotDeploy);
        for (const QString &folder : {drop.hotDeploy, drop.deployed}) {
            if (!QFileInfo(folder).isReadable())
                return QStringLiteral("%1 cannot be read").arg(QDir::cleanPath(folder));
        }
        return {};
    }

    QCommandLineParser m_parser;
    const QCommandLineOption help = m_parser.addHelpOption();
    const QCommandLineOption version = m_parser.addVersionOption();
    const QCommandLineOption as{
        QStringLiteral("as"),
        QStringLiteral(
            "The version to drop it as: libfoo.so becomes libfoo.VERSION.so. Without it a free name stays as "
            "it is, and for one that is taken the next version is found."),
        QStringLiteral("VERSION")};
    const QCommandLineOption deployed{
        QStringLiteral("deployed"),
        QStringLiteral("The folder to which the running program moves what it finds in FOLDER. Without it, the folder "
                       "\"deployed\" beside FOLDER."),
        QStringLiteral("FOLDER")};
    const QCommandLineOption patience{
        QStringLiteral("patience"),
        QStringLiteral("How long trying it out may take, in seconds: %1 if nothing is said. With --wait, how long the "
                       "running program may take as well; with --rehearse, the start and the stop.")
            .arg(DefaultPatience),
        QStringLiteral("SECONDS"), QString::number(DefaultPatience)};
    const QCommandLineOption list{QStringLiteral("list"),
                                  QStringLiteral("List the plugins in both folders, and what is known of them.")};
    const QCommandLineOption rollback{
        QStringLiteral("rollback"),
        QStringLiteral("Go back to the last good version of the plugin NAME, such as \"ticker\", before the newest."),
        QStringLiteral("NAME")};
    const QCommandLineOption wait{
        QStringLiteral("wait"),
        QStringLiteral("Wait until the running program has loaded what was dropped and has noted it as good, or has "
                       "taken it back.")};
    const QCommandLineOption keep{
        QStringLiteral("keep"),
        QStringLiteral("Remove all but the N newest versions of each plugin, or of the plugin NAME; never one that is "
                       "loaded, nor the newest good one."),
        QStringLiteral("N")};
    const QCommandLineOption rehearse{
        QStringLiteral("rehearse"),
        QStringLiteral("Run copies of all plugins that this configuration has, with its timetable."),
        QStringLiteral("CONFIG.json")};
    const QCommandLineOption during{
        QStringLiteral("for"), QStringLiteral("How long, in seconds: %1 if nothing is said.").arg(DefaultRehearsal),
        QStringLiteral("SECONDS"), QString::number(DefaultRehearsal)};
    const QCommandLineOption describe{
        QStringLiteral("describe"),
        QStringLiteral("Tell what the plugin's root object is, what it serves and asks for, and what in it compiles "
                       "and does nothing. It is tried out for that, and not dropped."),
        QStringLiteral("PLUGIN.so")};
    Options m_options;
};

} // namespace

Options Options::read(const QStringList &arguments) { return Parser().read(arguments); }
