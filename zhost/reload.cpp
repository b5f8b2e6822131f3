// SPDX-License-Identifier: Apache-2.0
#include "reload.h"

#include "configuration.h"
#include "host.h"
#include "say.h"
#include "servicemanager.h"
#include "tellfindings.h"

#include <QFileInfo>
#include <QJsonArray>
#include <QLoggingCategory>

#include <zdefaultconfig.h>
#include <zdefaultlogger.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <utility>

#include <syslog.h>
#include <unistd.h>

namespace {

const QString Logger = QStringLiteral("logger");
const QString Loader = QStringLiteral("loader");
const QString FileSystem = QStringLiteral("filesystem");
const QString Schedule = QStringLiteral("schedule");
const QString Guard = QStringLiteral("guard");
const QString Door = QStringLiteral("door");
const QString Plugins = QStringLiteral("plugins");
const QString LoadList = QStringLiteral("load-list");

/// The sections of the host's own services, with the keys that a running host follows.
const struct
{
    QString name;
    QStringList followed;
} sections[] = {{Logger,
                 {QStringLiteral("debug"), QStringLiteral("info"), QStringLiteral("warning"),
                  QStringLiteral("critical"), QStringLiteral("fatal")}},
                {Loader, {LoadList}},
                {FileSystem, {}}};

volatile std::sig_atomic_t writeEnd = -1;

void handle(int)
{
    const int error = errno;
    const char byte = 0;
    if (write(writeEnd, &byte, 1) != 1) {
    } // the pipe is full of signals that are not handled yet: one is enough
    errno = error;
}

bool isComment(const QString &key) { return key.startsWith(QLatin1Char('#')); }

/// The keys under which the two differ, but for comments.
QStringList differences(const QJsonObject &left, const QJsonObject &right)
{
    QStringList keys = left.keys() + right.keys();
    keys.removeDuplicates();
    keys.erase(
        std::remove_if(keys.begin(), keys.end(),
                       [&](const QString &key) { return isComment(key) || left.value(key) == right.value(key); }),
        keys.end());
    return keys;
}

} // namespace

Reload::Reload(const QString &file, const Configuration &started)
    : m_file(QFileInfo(file).absoluteFilePath()), m_started(started.object), m_now(started.object),
      m_listed(Configuration::loadListOf(started.object))
{
    const QLoggingCategory *const category = QLoggingCategory::defaultCategory();
    m_severities = {{QStringLiteral("debug"), int(category->isDebugEnabled())},
                    {QStringLiteral("info"), int(category->isInfoEnabled())},
                    {QStringLiteral("warning"), int(category->isWarningEnabled())},
                    {QStringLiteral("critical"), int(category->isCriticalEnabled())}};
    m_pipe.setEnabled(false);
    QObject::connect(&m_pipe, &SignalPipe::written, &m_pipe, [this] { reload(); });
    writeEnd = m_pipe.writeEnd();
    struct sigaction action = {};
    action.sa_handler = handle;
    action.sa_flags = SA_RESTART;
    sigaction(SIGHUP, &action, nullptr);
}

Reload::~Reload() { std::signal(SIGHUP, SIG_IGN); }

void Reload::begin(Host *host, ServiceManager *serviceManager)
{
    m_host = host;
    m_serviceManager = serviceManager;
    m_pipe.setEnabled(true);
}

void Reload::end() { m_pipe.setEnabled(false); }

void Reload::reload()
{
    m_pipe.setEnabled(false); // a plugin that is loaded may run the event loop
    m_serviceManager->reloading();
    writeLine(LOG_NOTICE, follow() ? QStringLiteral("zhost: %1 has been read anew").arg(m_file)
                                   : QStringLiteral("zhost: all stays as it was: %1 is wrong").arg(m_file));
    m_serviceManager->ready();
    m_pipe.setEnabled(true);
}

/// False if the file is wrong.
bool Reload::follow()
{
    const Configuration wanted = Configuration::read(m_file);
    if (!wanted.error.isEmpty()) {
        complain(wanted.error);
        return false;
    }
    // Stricter than a start, which runs without what is wrong: a reload has a running host to lose.
    if (tellFindings(m_file, wanted) >= Finding::Wrong)
        return false;
    const QJsonObject configuration = inForce(wanted.object);
    tellUnloaded(configuration);
    tellPlugins(configuration);
    switchSeverities(configuration.value(Logger).toObject());
    const QJsonObject before = std::exchange(m_now, configuration);
    const QStringList heard = m_host->follow(configuration);
    tellSettings(before.value(Plugins).toObject(), configuration.value(Plugins).toObject(), heard);
    return true;
}

/// `wanted`, as far as it can be applied without a restart. Reports the keys that need one.
QJsonObject Reload::inForce(QJsonObject wanted) const
{
    for (const auto &[name, followed] : sections) {
        const QJsonObject was = m_started.value(name).toObject();
        QJsonObject section = wanted.value(name).toObject();
        const QStringList keys = differences(was, section);
        for (const QString &key : keys) {
            if (followed.contains(key))
                continue;
            complain(QStringLiteral("\"%1.%2\" has changed: that takes a restart").arg(name, key));
            section.insert(key, was.value(key)); // this removes a key that was not there
            wanted.insert(name, section);
        }
    }
    for (const QString &name : {Guard, Door}) { // which may be false, too
        if (wanted.value(name) == m_started.value(name))
            continue;
        complain(QStringLiteral("\"%1\" has changed: that takes a restart").arg(name));
        wanted.insert(name, m_started.value(name));
    }
    return wanted;
}

void Reload::tellUnloaded(const QJsonObject &configuration)
{
    const QStringList names = Configuration::loadListOf(configuration);
    for (const QString &name : qAsConst(m_listed)) {
        if (!names.contains(name))
            complain(
                QStringLiteral("\"loader.load-list\" has no \"%1\" any more: to unload it takes a restart").arg(name));
    }
    m_listed += names;
    m_listed.removeDuplicates();
}

void Reload::tellPlugins(const QJsonObject &configuration) const
{
    const QStringList keys = differences(m_now, configuration);
    for (const QString &key : keys) {
        if (key != Logger && key != Loader && key != FileSystem && key != Schedule && key != Plugins)
            writeLine(LOG_NOTICE,
                      QStringLiteral("zhost: \"%1\" has changed: a plugin sees that when it asks again").arg(key));
    }
}

/// Reports changes of the section "plugins".
void Reload::tellSettings(const QJsonObject &before, const QJsonObject &now, const QStringList &heard)
{
    const QStringList names = differences(before, now);
    for (const QString &name : names)
        writeLine(LOG_NOTICE,
                  QStringLiteral("zhost: \"plugins.%1\" has changed: %2")
                      .arg(name, heard.contains(name) ? QStringLiteral("the plugin has been told")
                                                      : QStringLiteral("a plugin sees that when it asks again")));
}

void Reload::switchSeverities(QJsonObject section) const
{
    for (auto severity = m_severities.begin(); severity != m_severities.end(); ++severity) {
        if (!section.value(severity.key()).isDouble())
            section.insert(severity.key(), severity.value());
    }
    // A logger that is not announced reads the section: the switches are the same for the whole process. The logger
    // that writes is not exchanged, since components have asked it for their categories.
    ZDefaultConfig config({{Logger, section}});
    ZDefaultLogger().getSetZConfig(&config);
}
