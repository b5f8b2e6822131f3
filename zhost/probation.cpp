// SPDX-License-Identifier: Apache-2.0
#include "probation.h"

#include "configuration.h"
#include "crashline.h"
#include "healthcheck.h"
#include "lastwords.h"
#include "loads.h"
#include "pluginfiles.h"
#include "redeployment.h"
#include "stackplace.h"

#include "known/history.h"

#include <QDir>
#include <QFile>
#include <QJsonObject>

#include <algorithm>
#include <cerrno>
#include <utility>

#include <unistd.h>

namespace {

constexpr int DefaultMs = 10000;
constexpr int RetryMs = 1000;
constexpr int StartsInARow = 2;
// More than for taking back, since the host may have been killed: by a machine that is short of memory, or its
// operator.
constexpr int StartsUntilHopeless = 5;

QJsonValue guardOf(const QJsonObject &configuration) { return configuration.value(QStringLiteral("guard")); }

int probationOf(const QJsonObject &configuration)
{
    return qMax(0, guardOf(configuration).toObject().value(QStringLiteral("probation")).toInt(DefaultMs));
}

/// The folder under `key` by its real name, which the kernel shows for files in memory; empty if there is none.
QString folderOf(const Configuration &configuration, const QString &key)
{
    const QString folder = configuration.folder(key);
    return folder.isEmpty() ? folder : QDir(folder).canonicalPath();
}

/// The name of the health check of a file's plugin.
QString checkOf(const QString &file) { return PluginName::parse(file).plugin.toLower(); }

/// Why a file is taken back after so many starts, the last of which has ended while it loaded `loading`.
QString reasonFor(int starts, const QStringList &loading)
{
    const QString reason = QStringLiteral("%1 starts in a row have not come as far as running well").arg(starts);
    return loading.isEmpty() ? reason : QStringLiteral("%1, the last while loading %2").arg(reason, loading.first());
}

void say(const QString &line) { qWarning("zhost: %s", qPrintable(line)); }

} // namespace

Probation::Probation(const Configuration &configuration, History *history)
    : m_hotDeploy(folderOf(configuration, QStringLiteral("hot-deploy"))),
      m_deployed(folderOf(configuration, QStringLiteral("deployed"))), m_notes(m_deployed), m_history(history),
      m_isOn(!m_deployed.isEmpty() && guardOf(configuration.object) != false),
      m_probationMs(probationOf(configuration.object))
{
    m_timer.setSingleShot(true);
    connect(&m_timer, &QTimer::timeout, this, &Probation::passed);
    connect(&m_watcher, &QFileSystemWatcher::directoryChanged, this, &Probation::look);
}

/// Notes first what is to be taken back: so if this start is killed, the next one goes on at that place.
bool Probation::begin()
{
    lookForPluginsIn(m_deployed);
    if (!m_isOn)
        return true;
    noteEndsAt(m_notes.crashPath());
    Notes::Start start = m_notes.start();
    if (start.taking.isEmpty() && !judge(&start))
        return false;
    bool areGone = true;
    for (const QString &file : qAsConst(start.taking))
        areGone = takeAway(file, start.why) && areGone;
    if (!areGone) // the notes stay: if the file were loaded all the same, each start would end
        return false;
    m_notes.forgetCrash();
    m_notes.noteStart({start.count + 1, {}, {}});
    Loads::listen(m_deployed, m_notes.loadingPath());
    m_known = pluginFilesIn(m_deployed);
    return true;
}

/// Whether the file of a crash is not where it was. It may have been renamed or removed while it was still in memory,
/// since somebody held it; the kernel shows its new name.
bool Probation::isAway(const QString &file) const
{
    return !file.isEmpty() &&
           (!Notes::nameBeforeQuarantine(file).isNull() || !QFile::exists(QDir(m_deployed).filePath(file)));
}

/// Decides what is to be taken back, and notes it. False if something should be, but nothing can.
bool Probation::judge(Notes::Start *start)
{
    const Notes::Crash crash = m_notes.crash();
    const QStringList loading = Loads::notedIn(m_notes.loadingPath());
    if (!loading.isEmpty()) // a drop may have hung that was not counted as a start
        start->count = qMax(start->count, 1);
    if (start->count < StartsInARow && crash.text.isEmpty())
        return true;
    if (isAway(crash.file)) {
        say(QStringLiteral("nothing is taken back, for the guilty one is away already: %1").arg(crash.text));
        start->count = 0;
        return true;
    }
    start->why = crash.text.isEmpty() ? reasonFor(start->count, loading) : crash.text;
    start->taking = toTake(crash.text.isEmpty() ? loading : QStringList{crash.file, crash.loading});
    if (!start->taking.isEmpty()) {
        start->count = 0;
        m_notes.noteStart(*start);
        return true;
    }
    if (start->count < StartsUntilHopeless)
        return true;
    say(QStringLiteral("%1, and nothing is left that could be taken back").arg(start->why));
    m_notes.forgetCrash();
    return !m_notes.forgetStart(); // a start by hand tries again
}

void Probation::watch(ZDbus *bus)
{
    if (!m_isOn)
        return;
    m_bus = bus;
    m_watcher.addPath(m_deployed);
    for (const QString &file : qAsConst(m_known)) { // files whose probation a stop has cut short
        if (!m_notes.isGood(file) && Loads::contain(file))
            check(file, AtStart);
    }
    look();
    m_timer.start(m_probationMs);
}

void Probation::end()
{
    if (!m_isOn)
        return;
    m_isOn = false; // a plugin may still be loading
    m_timer.stop();
    m_watcher.removePath(m_deployed);
    endChecks();
    Loads::endNote();
    m_notes.forgetStart();
}

QStringList Probation::hanging() const
{
    QStringList urls;
    const QList<HealthCheck *> checks = findChildren<HealthCheck *>();
    for (HealthCheck *check : checks) {
        if (check->hangs())
            urls.append(check->url().toString());
    }
    return urls;
}

QStringList Probation::plugins(bool areGood) const
{
    QStringList files = pluginFilesIn(m_deployed);
    const auto isOther = [&](const QString &file) { return m_notes.isGood(file) != areGood; };
    files.erase(std::remove_if(files.begin(), files.end(), isOther), files.end());
    return files;
}

/// The first of `suspects` that may be guilty; else all files that were not there when the host last ran well.
QStringList Probation::toTake(const QStringList &suspects) const
{
    const QStringList fresh = plugins(false);
    for (const QString &suspect : suspects) {
        if (fresh.contains(suspect))
            return {suspect};
    }
    return plugins(true).isEmpty() ? QStringList() : fresh;
}

/// The files that serve, and those that were noted before.
QStringList Probation::thoseThatRanWell() const
{
    QStringList files = pluginFilesIn(m_deployed);
    const auto isDoubtful = [&](const QString &file) { return !m_notes.isGood(file) && !Loads::contain(file); };
    files.erase(std::remove_if(files.begin(), files.end(), isDoubtful), files.end());
    return files;
}

/// Ends the checks. Returns the files that are still unhealthy, with the reason. They do not become good; neither does
/// a file whose last answer was late, or has not come.
QMap<QString, QString> Probation::takeVerdicts()
{
    QMap<QString, QString> unhealthy;
    const QList<HealthCheck *> checks = findChildren<HealthCheck *>();
    for (HealthCheck *check : checks) {
        if (!check->isHealthy())
            Loads::forget(check->file());
        if (!check->failure().isNull())
            unhealthy.insert(check->file(), check->failure());
        check->end();
    }
    return unhealthy;
}

void Probation::passed()
{
    if (!look() || m_timer.isActive())
        return;
    const QMap<QString, QString> unhealthy = takeVerdicts();
    const QStringList good = thoseThatRanWell();
    for (const QString &file : good) {
        if (!m_notes.isGood(file))
            m_history->add("good", file);
    }
    m_notes.noteGood(good);
    m_notes.forgetStart();
    for (auto verdict = unhealthy.begin(); verdict != unhealthy.end(); ++verdict) {
        if (goodBefore(verdict.key()).plugin.isNull())
            say(QStringLiteral("%1 serves on, though it is not healthy, for no version before it has run well: %2")
                    .arg(verdict.key(), verdict.value()));
        else
            takeBack(verdict.key(), verdict.value());
    }
}

/// Whether the folder can be read: a folder that is missing, or must not be read, does not count as an empty one.
bool Probation::canBeRead()
{
    const bool can = access(QFile::encodeName(m_deployed).constData(), R_OK | X_OK) == 0;
    const QString reason = qt_error_string(errno);
    const bool couldNot = std::exchange(m_cannotBeRead, !can);
    if (!can && !couldNot)
        say(QStringLiteral("cannot read %1: %2; what is there is not judged until that is mended")
                .arg(m_deployed, reason));
    if (can && couldNot) { // the folder may be another one by now
        m_watcher.removePath(m_deployed);
        m_watcher.addPath(m_deployed);
    }
    return can;
}

/// Begins the probation of new files. False if it cannot be found out whether there are any: it is tried again soon.
bool Probation::look()
{
    if (Loads::areUnderWay() || !canBeRead()) { // a file can be judged only when it has been loaded
        if (!m_timer.isActive())
            m_timer.start(RetryMs);
        return false;
    }
    m_notes.noteLoads(Loads::takeResults());
    QStringList newcomers = pluginFilesIn(m_deployed);
    const QStringList before = std::exchange(m_known, newcomers);
    const auto isKnown = [&](const QString &file) { return before.contains(file) || m_notes.isGood(file); };
    newcomers.erase(std::remove_if(newcomers.begin(), newcomers.end(), isKnown), newcomers.end());
    if (newcomers.isEmpty())
        return true;
    if (m_notes.start().count == 0) // else a probation is under way
        m_notes.noteStart({1, {}, {}});
    m_timer.start(m_probationMs);
    for (const QString &file : qAsConst(newcomers)) {
        if (Loads::contain(file) && !m_again.contains(file)) // the version that came last answers the call
            check(file, Live);
    }
    return true;
}

/// Begins to ask the plugin of the new file `file`. At a start it may not have all that it needs yet, so then only its
/// answer at the end of the probation counts.
void Probation::check(const QString &file, Occasion occasion)
{
    if (HealthCheck *before = findChild<HealthCheck *>(checkOf(file)))
        before->end();
    auto *check = new HealthCheck(QDir(m_deployed).filePath(file), m_bus, this);
    check->setObjectName(checkOf(file));
    if (occasion == AtStart)
        return;
    connect(check, &HealthCheck::failed, this, [this, check, file](const QString &reason) {
        check->end();
        takeBack(file, reason);
    });
}

void Probation::endChecks() const
{
    const QList<HealthCheck *> checks = findChildren<HealthCheck *>();
    for (HealthCheck *check : checks)
        check->end();
}

bool Probation::takeAway(const QString &file, const QString &why)
{
    if (!QFile::exists(QDir(m_deployed).filePath(file))) { // an earlier start has renamed it, and was killed then
        say(QStringLiteral("%1 is gone already: %2").arg(file, why));
        return true;
    }
    const QString name = m_notes.quarantine(file, why);
    if (name.isNull()) {
        say(QStringLiteral("%1 should be taken back, but cannot be renamed: %2: %3")
                .arg(file, qt_error_string(errno), why));
        return false;
    }
    say(QStringLiteral("%1 is taken back, and now called %2: %3").arg(file, name, why));
    m_history->add("taken back", file, why);
    return true;
}

PluginName Probation::goodBefore(const QString &file) const { return PluginName::parse(file).newest(plugins(true)); }

/// Takes `file` back while it is called: the version before it is dropped like any new one.
void Probation::takeBack(const QString &file, const QString &why)
{
    Loads::forget(file); // even if it keeps its name: it is not good
    if (!takeAway(file, why))
        return;
    const PluginName good = goodBefore(file);
    if (good.plugin.isNull()) {
        say(QStringLiteral("no version before %1 has run well: it serves on until the host ends").arg(file));
        return;
    }
    const QString before = good.file();
    const Redeployment::Result again = Redeployment{m_deployed, before, m_hotDeploy}.run();
    if (!again.error.isEmpty()) {
        say(QStringLiteral("%1 cannot be deployed again: %2").arg(before, again.error));
        return;
    }
    m_again.append(again.name);
    say(QStringLiteral("%1 is deployed again, as %2").arg(before, again.name));
}
