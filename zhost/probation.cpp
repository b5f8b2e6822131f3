// SPDX-License-Identifier: Apache-2.0
#include "probation.h"

#include "crashline.h"
#include "healthcheck.h"
#include "mappedfiles.h"
#include "redeployment.h"

#include "../zdeploy/pluginname.h"

#include <QDir>
#include <QJsonObject>

#include <zdefaultloader.h>

#include <algorithm>
#include <cerrno>
#include <utility>

namespace {

constexpr int DefaultMs = 10000;
constexpr int StartsInARow = 2;

QJsonValue guardOf(const QJsonObject &configuration) { return configuration.value(QStringLiteral("guard")); }

/// The folder that the loader uses; empty if there is none.
QString folderOf(const QJsonObject &configuration, const QString &key)
{
    const QJsonValue loader = configuration.value(QStringLiteral("loader"));
    const QString path = loader.toObject().value(key).toString();
    QDir dir;
    if (!loader.isObject() || !ZDefaultLoader::resolve(path.isEmpty() ? key : path, dir))
        return {};
    return dir.canonicalPath();
}

/// The version of `plugin` that is loaded last of `files`, which are in the order of their names; empty if there is
/// none.
QString newest(const QString &plugin, const QStringList &files)
{
    QString result; // the plain file comes first of all
    for (const QString &file : files) {
        const PluginName name = PluginName::parse(file);
        if (name.plugin == plugin && (result.isEmpty() || !name.version.isEmpty()))
            result = file;
    }
    return result;
}

void say(const QString &line) { qWarning("zhost: %s", qPrintable(line)); }

} // namespace

Probation::Probation(const QJsonObject &configuration)
    : m_hotDeploy(folderOf(configuration, QStringLiteral("hot-deploy"))),
      m_deployed(folderOf(configuration, QStringLiteral("deployed"))), m_notes(m_deployed),
      m_isOn(!m_deployed.isEmpty() && guardOf(configuration) != false)
{
    m_timer.setSingleShot(true);
    m_timer.setInterval(qMax(0, guardOf(configuration).toObject().value(QStringLiteral("probation")).toInt(DefaultMs)));
    connect(&m_timer, &QTimer::timeout, this, &Probation::passed);
    connect(&m_watcher, &QFileSystemWatcher::directoryChanged, this, &Probation::look);
}

/// Whenever it is killed, the next start goes on where it was: what is to be taken back is noted first.
bool Probation::begin()
{
    noteCrashes(m_deployed, m_isOn ? m_notes.crashPath() : QString());
    if (!m_isOn)
        return true;
    Notes::Start start = m_notes.start();
    if (start.taking.isEmpty() && !judge(&start))
        return false;
    for (const QString &file : qAsConst(start.taking))
        takeAway(file, start.why);
    m_notes.forgetCrash();
    m_notes.noteStart({start.count + 1, {}, {}});
    m_known = plugins();
    return true;
}

/// Decides what is to be taken back, and notes it. False if something should be, but nothing can.
bool Probation::judge(Notes::Start *start)
{
    const Notes::Crash crash = m_notes.crash();
    const bool isInARow = start->count >= StartsInARow;
    if (!isInARow && crash.text.isEmpty())
        return true;
    start->taking = toTake(crash);
    start->why =
        crash.text.isEmpty() ? QStringLiteral("two starts in a row have not come as far as running well") : crash.text;
    if (!start->taking.isEmpty()) {
        start->count = 0;
        m_notes.noteStart(*start);
        return true;
    }
    if (!isInARow)
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
    look();
    m_timer.start();
}

void Probation::end()
{
    if (!m_bus)
        return;
    m_timer.stop();
    m_watcher.removePath(m_deployed);
    endChecks();
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

QStringList Probation::plugins() const
{
    return QDir(m_deployed).entryList({QStringLiteral("lib*.so")}, QDir::Files, QDir::Name);
}

QStringList Probation::goodOnes() const
{
    QStringList files = plugins();
    const auto isFresh = [this](const QString &file) { return !m_notes.isGood(file); };
    files.erase(std::remove_if(files.begin(), files.end(), isFresh), files.end());
    return files;
}

/// The guilty one, if it may be that; else all that were not there when the host last ran well.
QStringList Probation::toTake(const Notes::Crash &crash) const
{
    QStringList fresh = plugins();
    const QStringList good = goodOnes();
    for (const QString &file : good)
        fresh.removeOne(file);
    for (const QString &guilty : {crash.file, crash.loading}) {
        if (fresh.contains(guilty))
            return {guilty};
    }
    return m_notes.hasGood() ? fresh : QStringList();
}

/// What is in memory, and what was noted before. A file that nobody has loaded may still be bad.
QStringList Probation::thoseThatRanWell() const
{
    const QStringList mapped = mappedFiles();
    QStringList files = plugins();
    const auto isUntried = [&](const QString &file) {
        return !m_notes.isGood(file) && !mapped.contains(m_deployed + QLatin1Char('/') + file);
    };
    files.erase(std::remove_if(files.begin(), files.end(), isUntried), files.end());
    return files;
}

void Probation::passed()
{
    endChecks();
    m_notes.noteGood(thoseThatRanWell());
    m_notes.forgetStart();
}

void Probation::look()
{
    const QStringList before = std::exchange(m_known, plugins());
    for (const QString &file : qAsConst(m_known)) {
        if (before.contains(file) || m_notes.isGood(file))
            continue;
        if (!m_timer.isActive()) // else a note is there
            m_notes.noteStart({1, {}, {}});
        m_timer.start();
        check(file);
    }
}

/// Asks the plugin of the newcomer `file`: it is the newest version that answers.
void Probation::check(const QString &file)
{
    const QString plugin = PluginName::parse(file).plugin;
    if (m_again.contains(file) || file != newest(plugin, m_known))
        return;
    if (HealthCheck *before = findChild<HealthCheck *>(plugin))
        before->end();
    auto *check = new HealthCheck(QDir(m_deployed).filePath(file), m_bus, this);
    check->setObjectName(plugin);
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
    const bool isGone = m_notes.quarantine(file, why) || errno == ENOENT; // by a start that was killed
    if (isGone)
        say(QStringLiteral("%1 is taken back, and now called %1%2: %3").arg(file, Notes::Quarantined, why));
    else
        say(QStringLiteral("%1 should be taken back, but cannot be renamed: %2: %3")
                .arg(file, qt_error_string(errno), why));
    return isGone;
}

/// Under its callers: the version before comes as any new one does.
void Probation::takeBack(const QString &file, const QString &why)
{
    if (!takeAway(file, why))
        return;
    const QString before = newest(PluginName::parse(file).plugin, goodOnes());
    if (before.isEmpty()) {
        say(QStringLiteral("no version before %1 has run well: it serves on until the host ends").arg(file));
        return;
    }
    const Redeployment::Result again = Redeployment{m_deployed, before, m_hotDeploy}.run();
    if (!again.error.isEmpty()) {
        say(QStringLiteral("%1 cannot be deployed again: %2").arg(before, again.error));
        return;
    }
    m_again.append(again.name);
    say(QStringLiteral("%1 is deployed again, as %2").arg(before, again.name));
}
