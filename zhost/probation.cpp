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
// More, for somebody else may have killed it: a machine that is short of memory, or its operator.
constexpr int StartsUntilHopeless = 5;

QJsonValue guardOf(const QJsonObject &configuration) { return configuration.value(QStringLiteral("guard")); }

int probationOf(const QJsonObject &configuration)
{
    return qMax(0, guardOf(configuration).toObject().value(QStringLiteral("probation")).toInt(DefaultMs));
}

/// By its real name, which the kernel shows for what is in memory; empty if there is none.
QString folderOf(const Configuration &configuration, const QString &key)
{
    const QString folder = configuration.folder(key);
    return folder.isEmpty() ? folder : QDir(folder).canonicalPath();
}

/// What the check of a file's plugin is called.
QString checkOf(const QString &file) { return PluginName::parse(file).plugin.toLower(); }

/// Why something is taken back after so many starts, the last of which has ended with `loading`.
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

/// Whenever it is killed, the next start goes on where it was: what is to be taken back is noted first.
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
    if (!areGone) // the notes stay: what is loaded all the same would be the end of each start
        return false;
    m_notes.forgetCrash();
    m_notes.noteStart({start.count + 1, {}, {}});
    Loads::listen(m_deployed, m_notes.loadingPath());
    m_known = pluginFilesIn(m_deployed);
    return true;
}

/// Whether the file in which a crash came is not where it was: a version stays in memory as long as it is held, and the
/// kernel knows it by its new name.
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
    if (!loading.isEmpty()) // what was dropped may have hung, and nobody have counted it
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
    return !m_notes.forgetStart(); // who starts it by hand has it tried again
}

void Probation::watch(ZDbus *bus)
{
    if (!m_isOn)
        return;
    m_bus = bus;
    m_watcher.addPath(m_deployed);
    for (const QString &file : qAsConst(m_known)) { // what a stop has kept from its verdict
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

/// The first of `suspects` that may be guilty; else all that were not there when the host last ran well.
QStringList Probation::toTake(const QStringList &suspects) const
{
    const QStringList fresh = plugins(false);
    for (const QString &suspect : suspects) {
        if (fresh.contains(suspect))
            return {suspect};
    }
    return plugins(true).isEmpty() ? QStringList() : fresh;
}

/// What serves, and what was noted before.
QStringList Probation::thoseThatRanWell() const
{
    QStringList files = pluginFilesIn(m_deployed);
    const auto isDoubtful = [&](const QString &file) { return !m_notes.isGood(file) && !Loads::contain(file); };
    files.erase(std::remove_if(files.begin(), files.end(), isDoubtful), files.end());
    return files;
}

/// The files that are still unhealthy, with the reason. They do not become good, and neither does one that has given
/// its last answer only late, or not at all.
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

/// Whether what is in the folder can be told: one that is away, or closed, is not an empty one.
bool Probation::canBeRead()
{
    const bool can = access(QFile::encodeName(m_deployed).constData(), R_OK | X_OK) == 0;
    const QString reason = qt_error_string(errno);
    const bool couldNot = std::exchange(m_cannotBeRead, !can);
    if (!can && !couldNot)
        say(QStringLiteral("cannot read %1: %2; what is there is not judged until that is mended")
                .arg(m_deployed, reason));
    if (can && couldNot) { // it may be another one by now
        m_watcher.removePath(m_deployed);
        m_watcher.addPath(m_deployed);
    }
    return can;
}

/// Has newcomers begin a probation. False if it cannot be told whether there are any: it is tried again soon.
bool Probation::look()
{
    if (Loads::areUnderWay() || !canBeRead()) { // what is being loaded may be judged only when it has been
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
        if (Loads::contain(file) && !m_again.contains(file)) // the one that came last answers
            check(file, Live);
    }
    return true;
}

/// Asks the plugin of the newcomer `file`. At a start, when it may not have all that it needs yet, only what it answers
/// at the end of the probation counts.
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
    if (!QFile::exists(QDir(m_deployed).filePath(file))) { // a start has renamed it that was killed then
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

/// Under its callers: the version before comes as any new one does.
void Probation::takeBack(const QString &file, const QString &why)
{
    Loads::forget(file); // also where it keeps its name: it is not good
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
