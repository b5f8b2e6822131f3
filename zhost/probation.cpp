// SPDX-License-Identifier: Apache-2.0
#include "probation.h"

#include "configuration.h"
#include "crashline.h"
#include "healthcheck.h"
#include "lastwords.h"
#include "redeployment.h"

#include "../zdeploy/pluginname.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QJsonObject>
#include <QMutex>
#include <QMutexLocker>
#include <QSet>

#include <zloading.h>

#include <algorithm>
#include <cerrno>
#include <iterator>
#include <utility>

namespace {

constexpr int DefaultMs = 10000;
constexpr int StartsInARow = 2;
// More, for somebody else may have killed it: a machine that is short of memory, or its operator.
constexpr int StartsUntilHopeless = 5;

/// The files, without ".so", that have been loaded and have not failed since. They may have left memory. Plugins are
/// loaded until the very end, so it is never destroyed.
struct Loads
{
    QMutex mutex;
    QSet<QByteArray> names;

    static Loads &get()
    {
        static auto &loads = *new Loads;
        return loads;
    }
    static void hear(const QByteArray &name, bool isLoaded)
    {
        const QMutexLocker locker(&get().mutex);
        if (isLoaded)
            get().names.insert(name);
        else
            get().names.remove(name);
    }
    static QByteArray nameOf(const QString &file) { return QFile::encodeName(QFileInfo(file).completeBaseName()); }
    static bool contain(const QString &file)
    {
        const QMutexLocker locker(&get().mutex);
        return get().names.contains(nameOf(file));
    }
    /// All but those of `files`.
    static void forgetBut(const QStringList &files)
    {
        const QMutexLocker locker(&get().mutex);
        QSet<QByteArray> kept;
        for (const QString &file : files)
            kept.insert(nameOf(file));
        get().names.intersect(kept);
    }
};

QJsonValue guardOf(const QJsonObject &configuration) { return configuration.value(QStringLiteral("guard")); }

/// By its real name, which the kernel shows for what is in memory; empty if there is none.
QString folderOf(const Configuration &configuration, const QString &key)
{
    const QString folder = configuration.folder(key);
    return folder.isEmpty() ? folder : QDir(folder).canonicalPath();
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

Probation::Probation(const Configuration &configuration)
    : m_hotDeploy(folderOf(configuration, QStringLiteral("hot-deploy"))),
      m_deployed(folderOf(configuration, QStringLiteral("deployed"))), m_notes(m_deployed),
      m_isOn(!m_deployed.isEmpty() && guardOf(configuration.object) != false)
{
    m_timer.setSingleShot(true);
    const QJsonObject guard = guardOf(configuration.object).toObject();
    m_timer.setInterval(qMax(0, guard.value(QStringLiteral("probation")).toInt(DefaultMs)));
    zTellLoads(&Loads::hear);
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
    start->why = crash.text.isEmpty()
                     ? QStringLiteral("%1 starts in a row have not come as far as running well").arg(start->count)
                     : crash.text;
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
        if (!m_notes.isGood(file))
            check(file, AtStart);
    }
    look();
    m_timer.start();
}

void Probation::end()
{
    if (!m_isOn)
        return;
    m_isOn = false; // a plugin may still be loading
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

QStringList Probation::plugins(bool areGood) const
{
    QStringList files = plugins();
    const auto isOther = [&](const QString &file) { return m_notes.isGood(file) != areGood; };
    files.erase(std::remove_if(files.begin(), files.end(), isOther), files.end());
    return files;
}

/// The guilty one, if it may be that; else all that were not there when the host last ran well.
QStringList Probation::toTake(const Notes::Crash &crash) const
{
    const QStringList fresh = plugins(false);
    for (const QString &guilty : {crash.file, crash.loading}) {
        if (fresh.contains(guilty))
            return {guilty};
    }
    return plugins(true).isEmpty() ? QStringList() : fresh;
}

/// What has been loaded and says nothing bad of itself, and what was noted before.
QStringList Probation::thoseThatRanWell() const
{
    const QStringList files = plugins();
    const auto isDoubtful = [&](const QString &file) {
        const auto *const health = findChild<HealthCheck *>(PluginName::parse(file).plugin);
        const bool isUnhealthy = health && !health->isHealthy() && file == newest(health->objectName(), files);
        return !m_notes.isGood(file) && (isUnhealthy || !Loads::contain(file));
    };
    QStringList result;
    std::remove_copy_if(files.begin(), files.end(), std::back_inserter(result), isDoubtful);
    return result;
}

void Probation::passed()
{
    m_notes.noteGood(thoseThatRanWell());
    Loads::forgetBut(plugins(false)); // the others are noted
    endChecks();
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
        check(file, Live);
    }
}

/// Asks the plugin of the newcomer `file`: it is the newest version that answers. At a start, when it may not have all
/// that it needs yet, it is not taken back for what it answers; but it does not become good as long as it is unhealthy.
void Probation::check(const QString &file, Occasion occasion)
{
    const QString plugin = PluginName::parse(file).plugin;
    if (m_again.contains(file) || file != newest(plugin, m_known))
        return;
    if (HealthCheck *before = findChild<HealthCheck *>(plugin))
        before->end();
    auto *check = new HealthCheck(QDir(m_deployed).filePath(file), m_bus, this);
    check->setObjectName(plugin);
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
    const QString before = newest(PluginName::parse(file).plugin, plugins(true));
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
