// SPDX-License-Identifier: Apache-2.0
#include "rehearsal.h"

#include "account.h"
#include "confinement.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QJsonObject>
#include <QThread>
#include <QTimer>

#include <configuration.h>
#include <crashline.h>
#include <exitguard.h>
#include <host.h>
#include <known/known.h>
#include <lastwords.h>
#include <notes.h>
#include <pluginfiles.h>
#include <stackplace.h>
#include <zdefaultloader.h>

#include <cstdlib>
#include <cstring>
#include <optional>

#include <unistd.h>

namespace {

const char Option[] = "--rehearse-in"; // DEPLOYED CONFIG SECONDS PATIENCE
const QString Stopping = QStringLiteral("stopping");

/// Where the process of the host plays. Those who listen to it are functions that know of nothing else.
struct
{
    QDir deployed;
    int answer = -1;
} stage;

/// Whether a plugin could not be loaded. Of one that has versions only, the plain file is looked for as well.
bool isFailure(const QString &name)
{
    const QString plugin = ZDefaultLoader::undecorate(name);
    return stage.deployed.exists(QStringLiteral("lib%1.so").arg(plugin)) || !hasVersions(stage.deployed.path(), plugin);
}

/// Paths within the scratch folder are of no use to anybody.
QString withoutPaths(QString text, const QDir &deployed) { return text.remove(deployed.path() + QLatin1Char('/')); }

/// Ends the process.
void refuse(const QString &verdict)
{
    Account::judge(stage.answer, {withoutPaths(verdict, stage.deployed)});
    std::_Exit(EXIT_SUCCESS);
}

void listen(QtMsgType, const QMessageLogContext &, const QString &text)
{
    const QString beginning = QStringLiteral("failed to load ");
    if (text.startsWith(beginning) && isFailure(text.mid(beginning.size()).section(QStringLiteral(": "), 0, 0)))
        refuse(text);
}

/// `configuration` for a host that has its folders in the scratch folder.
Configuration within(const QString &scratch, QJsonObject configuration)
{
    const QDir dir(scratch);
    const auto set = [&](const char *section, const char *key, const char *folder) {
        QJsonObject object = configuration.value(QLatin1String(section)).toObject();
        object.insert(QLatin1String(key), dir.filePath(QLatin1String(folder)));
        configuration.insert(QLatin1String(section), object);
    };
    set("loader", "deployed", "deployed");
    set("loader", "hot-deploy", "hot-deploy");
    set("filesystem", "temporary-folder", "temporary");
    configuration.remove(QStringLiteral("logger")); // which may switch off what is listened to
    configuration.remove(QStringLiteral("nats"));   // or it would answer others, and do what is done once
    return {configuration, {}, {}};
}

/// Answers what went wrong, or an empty text.
QString copyPlugins(const QString &deployed, const QString &scratch)
{
    const QDir to(scratch);
    for (const char *const folder : {"deployed", "hot-deploy", "temporary"})
        to.mkdir(QLatin1String(folder));
    const QDir from(deployed);
    const QStringList names =
        from.entryList({PluginPattern, QStringLiteral(".zhost-remembered.json")}, QDir::Files | QDir::Hidden);
    for (const QString &name : names) {
        QFile file(from.filePath(name));
        if (!file.copy(to.filePath(QStringLiteral("deployed/") + name)))
            return QStringLiteral("cannot copy %1: %2").arg(file.fileName(), file.errorString());
    }
    return {};
}

/// Waits for what the host has left running, which is named where it does not end.
void awaitRest(Host *host)
{
    for (QStringList left = host->stop(); !left.isEmpty(); left = host->stop()) {
        Account::begin(stage.answer, left.join(QStringLiteral(", ")));
        lookForPluginsIn({}); // it hangs on a thread of its own, and not where this one waits for it
        noteEndsAt({});
    }
}

/// The verdict on what a host does in this event loop.
QString runHost(const Configuration &configuration, int seconds)
{
    const ExitGuard exitGuard([](const QString &line) { refuse(line); });
    Account::begin(stage.answer, QStringLiteral("loading the plugins"));
    Known known({});
    std::optional<Host> host;
    bool isOver = false;
    const auto finish = [&] {
        isOver = true;
        Account::begin(stage.answer, Stopping);
        QCoreApplication::quit();
    };
    const auto start = [&] {
        host.emplace(configuration, &known);
        Account::begin(stage.answer, QStringLiteral("running"));
        QTimer::singleShot(seconds * 1000, finish);
    };
    QTimer::singleShot(0, start); // by the event loop, which a plugin may quit
    QCoreApplication::exec();
    if (!isOver)
        return QStringLiteral("ended by quit(), called by a plugin");
    awaitRest(&*host);
    Account::begin(stage.answer, Stopping);
    host.reset();
    return {};
}

/// The verdict, with what the process has noted of its end.
QString withPlace(const Verdict &verdict, const Notes::Crash &crash, const QDir &deployed)
{
    if (!verdict.isHang)
        return crash.text.isEmpty() ? verdict.text : withoutPaths(crash.text, deployed);
    QString text = verdict.text;
    if (!crash.file.isEmpty())
        text += QStringLiteral(", in %1").arg(crash.file);
    if (!crash.loading.isEmpty())
        text += QStringLiteral(", while loading %1").arg(crash.loading);
    return text;
}

/// What is wrong; empty if nothing is, or nobody wants to know any more.
QString rehearse(const QString &deployed, const QJsonObject &object, int seconds, int patience)
{
    const Confinement confinement(deployed, seconds + patience);
    const QString error =
        confinement.error().isEmpty() ? copyPlugins(deployed, confinement.scratch()) : confinement.error();
    if (!error.isEmpty())
        return notTriedOut(error).text;
    if (confinement.isForNobody())
        return {};
    const QString scratch = QDir(confinement.scratch()).canonicalPath();
    const QDir copies(scratch + QStringLiteral("/deployed"));
    const Notes notes(copies.path());
    const auto work = [&](int answer) {
        stage = {copies, answer};
        qInstallMessageHandler(listen);
        sayWhatCrashes();
        lookForPluginsIn(copies.path());
        noteEndsAt(notes.crashPath());
        return runHost(within(scratch, object), seconds);
    };
    const Verdict verdict = confinement.run(work, (seconds + patience) * QThread::idealThreadCount());
    return withPlace(verdict, notes.crash(), copies);
}

} // namespace

Rehearsal::Result Rehearsal::run() const
{
    const Configuration file = Configuration::read(configuration);
    if (!file.error.isEmpty())
        return {file.error, {}};
    const QString deployed = file.folder(QStringLiteral("deployed"));
    if (deployed.isEmpty())
        return {QStringLiteral("%1 has no deployed folder that is there").arg(configuration), {}};
    const QStringList arguments{QLatin1String(Option), deployed, configuration, QString::number(seconds),
                                QString::number(patience)};
    return {{}, askAnotherProcess(arguments, seconds + patience).text};
}

bool Rehearsal::isOne(int argc, char *argv[]) { return argc == 6 && std::strcmp(argv[1], Option) == 0; }

int Rehearsal::watch(char *argv[])
{
    // Before any rights are given up: the owner of the folder may have none to read the file.
    const QJsonObject object = Configuration::read(QFile::decodeName(argv[3])).object;
    const QString verdict =
        rehearse(QFile::decodeName(argv[2]), object, QByteArray(argv[4]).toInt(), QByteArray(argv[5]).toInt());
    Account::judge(STDOUT_FILENO, {verdict});
    return 0;
}
