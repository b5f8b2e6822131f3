// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "folder.h"
#include "program.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QMap>
#include <QProcess>
#include <QProcessEnvironment>

#include <csignal>

constexpr int Patience = 30000; // milliseconds: a busy machine may take seconds for what is done in one

inline QJsonObject loaderOf(const QString &deployed, const QString &hotDeploy, const QStringList &names = {})
{
    return {
        {QStringLiteral("logger"), QJsonObject{{QStringLiteral("debug"), 1},
                                               {QStringLiteral("log"), QJsonObject{{QStringLiteral("zdefault"), 3}}}}},
        {QStringLiteral("loader"), QJsonObject{{QStringLiteral("deployed"), deployed},
                                               {QStringLiteral("hot-deploy"), hotDeploy},
                                               {QStringLiteral("load-list"), QJsonArray::fromStringList(names)}}}};
}
inline QJsonObject loaderOf(const Folder &deployed, const Folder &hotDeploy, const QStringList &names = {})
{
    return loaderOf(deployed.path(), hotDeploy.path(), names);
}

/// For a program that tells of crashes: the sanitizers would do so themselves, if they might.
inline QMap<QString, QString> withoutSanitizersSignals()
{
    const QString quiet = QStringLiteral("handle_segv=0:handle_sigbus=0:use_sigaltstack=0");
    return {{QStringLiteral("ASAN_OPTIONS"), quiet + QStringLiteral(":detect_leaks=0")},
            {QStringLiteral("TSAN_OPTIONS"), quiet}};
}

inline QProcessEnvironment environmentOf(const QMap<QString, QString> &variables)
{
    QProcessEnvironment environment;
    for (auto variable = variables.begin(); variable != variables.end(); ++variable)
        environment.insert(variable.key(), variable.value());
    return environment;
}

/// The environment of this process, with these as well.
inline QProcessEnvironment environmentWith(const QMap<QString, QString> &variables)
{
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert(environmentOf(variables));
    return environment;
}

/// Of the section "schedule".
inline QJsonObject entry(const char *url, bool repeat = true)
{
    return {
        {QStringLiteral("url"), QLatin1String(url)}, {QStringLiteral("every"), 1}, {QStringLiteral("repeat"), repeat}};
}

/// A host that runs until it is told to stop. What it writes is collected.
class Running
{
public:
    /// `deed` is for the plugin "unruly", or for the one whose variable is named.
    explicit Running(const QJsonObject &configuration, const QString &deed = QString(),
                     const QString &variable = QStringLiteral("UNRULY"))
        : Running(configuration, {{variable, deed}}, {})
    {}
    Running(const QJsonObject &configuration, const QMap<QString, QString> &variables, const QStringList &options)
    {
        m_host.setProcessEnvironment(environmentWith(variables));
        configure(QJsonDocument(configuration).toJson());
        m_host.setProcessChannelMode(QProcess::MergedChannels);
        m_host.start(QStringLiteral(ZHOST), options + QStringList{configurationFile()});
    }

    /// Writes its configuration file anew.
    void configure(const QByteArray &text) { m_folder.write(QStringLiteral("config.json"), text); }
    QString configurationFile() const { return m_folder.filePath(QStringLiteral("config.json")); }

    ~Running()
    {
        m_host.kill();
        m_host.waitForFinished();
    }

    bool hasWritten(const QString &text)
    {
        m_written += QString::fromUtf8(m_host.readAll());
        return m_written.contains(text);
    }

    /// Tells it to stop, and waits for that.
    void stop()
    {
        signal(SIGTERM);
        m_host.waitForFinished(120000);
        hasWritten(QString());
    }
    bool hasEndedWell() const { return exitCode() == 0; }

    QString written() const { return m_written; }
    /// How it has ended: -1 if it crashed, or has not ended.
    int exitCode() const
    {
        const bool hasExited = m_host.state() == QProcess::NotRunning && m_host.exitStatus() == QProcess::NormalExit;
        return hasExited ? m_host.exitCode() : -1;
    }
    void signal(int number) { ::kill(static_cast<pid_t>(m_host.processId()), number); }
    QProcess &process() { return m_host; }

private:
    Folder m_folder;
    QProcess m_host;
    QString m_written;
};
