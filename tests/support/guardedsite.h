// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "folder.h"

#include <QFile>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QProcessEnvironment>
#include <QTest>

#include <csignal>
#include <memory>

constexpr int Patience = 60000; // milliseconds: a busy machine may take seconds for what is done in one
constexpr int Short = 1;        // a probation
constexpr int Long = 3600000;
constexpr int Hopeless = 78;

inline const QString One = QStringLiteral("libguarded.1.so");
inline const QString Two = QStringLiteral("libguarded.2.so");
inline const QString Three = QStringLiteral("libguarded.3.so");
inline const QString Four = QStringLiteral("libguarded.4.so");

inline const QString Last = QStringLiteral("libguarded.9.so");
inline const QString Innocent = QStringLiteral("libinnocent.so");
inline const QString Watching = QStringLiteral("hot-deploy folder changed"); // when all plugins have been loaded

inline QString quarantined(const QString &file) { return file + QStringLiteral(".quarantined"); }

inline QString guarded(const char *deed) { return QStringLiteral("guarded_%1").arg(QLatin1String(deed)); }

/// The two folders, and a host that is started on them again and again.
class Site
{
public:
    ~Site() { kill(); }

    void setProbation(int milliseconds) { guard = QJsonObject{{QStringLiteral("probation"), milliseconds}}; }
    /// Has the host call a URL at once.
    void setCall(const char *url)
    {
        schedule = {QJsonObject{{QStringLiteral("url"), QLatin1String(url)},
                                {QStringLiteral("every"), 1},
                                {QStringLiteral("repeat"), false}}};
    }

    /// Has calls of the system fail, or the host killed at one: see support/failing.cpp.
    void start(const QString &failing = QString())
    {
        kill();
        const QJsonObject loader{{QStringLiteral("deployed"), deployed.path()},
                                 {QStringLiteral("hot-deploy"), hotDeploy.path()},
                                 {QStringLiteral("load-list"), loadList}};
        const QJsonObject logger{{QStringLiteral("log"), QJsonObject{{QStringLiteral("zdefault"), 3}}}};
        const QJsonObject configuration{{QStringLiteral("logger"), logger},
                                        {QStringLiteral("loader"), loader},
                                        {QStringLiteral("schedule"), schedule},
                                        {QStringLiteral("guard"), guard}};
        m_folder.write(QStringLiteral("config.json"), QJsonDocument(configuration).toJson());
        QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
        // The sanitizers tell of crashes themselves, if they may.
        const QString quiet = QStringLiteral("handle_segv=0:handle_sigbus=0:use_sigaltstack=0");
        environment.insert(QStringLiteral("ASAN_OPTIONS"),
                           quiet + QStringLiteral(":detect_leaks=0:verify_asan_link_order=0"));
        environment.insert(QStringLiteral("TSAN_OPTIONS"), quiet);
        if (!failing.isEmpty()) {
            const QString others = environment.value(QStringLiteral("LD_PRELOAD"));
            environment.insert(QStringLiteral("LD_PRELOAD"), QStringLiteral(FAILING " ") + others);
            environment.insert(QStringLiteral("FAILING"), failing);
        }
        m_written.clear();
        m_host = std::make_unique<QProcess>();
        m_host->setProcessEnvironment(environment);
        m_host->setProcessChannelMode(QProcess::MergedChannels);
        m_host->start(QStringLiteral(ZHOST), {m_folder.filePath(QStringLiteral("config.json"))});
    }

    QString written()
    {
        m_written += QString::fromUtf8(m_host->readAll());
        return m_written;
    }
    bool hasWritten(const QString &text) { return written().contains(text); }
    /// How often it says something of this kind.
    int count(const QString &text) { return written().count(text); }

    bool hasEnded() const { return m_host->state() == QProcess::NotRunning; }
    /// Waits until it has crashed.
    bool crashes()
    {
        return (hasEnded() || m_host->waitForFinished(Patience)) && m_host->exitStatus() == QProcess::CrashExit;
    }
    /// Waits for its end: the exit status, or -1 if it crashed.
    int exits()
    {
        return (hasEnded() || m_host->waitForFinished(Patience)) && m_host->exitStatus() == QProcess::NormalExit
                   ? m_host->exitCode()
                   : -1;
    }
    int stop()
    {
        signal(SIGTERM);
        return exits();
    }
    void kill()
    {
        if (!m_host)
            return;
        m_host->kill();
        m_host->waitForFinished();
    }
    void signal(int number)
    {
        if (m_host->processId() != 0) // else it has ended
            ::kill(static_cast<pid_t>(m_host->processId()), number);
    }

    /// What "good.json" has.
    QJsonObject good() const { return note(QStringLiteral("good.json")); }
    /// Why `file` was taken back, as "quarantined.json" has it.
    QString why(const QString &file) const { return whyCalled(quarantined(file)); }
    QString whyCalled(const QString &name) const
    {
        const QJsonValue entry = note(QStringLiteral("quarantined.json")).value(name);
        return entry.toObject().value(QStringLiteral("why")).toString();
    }
    bool isGood(const QString &file) const { return good().contains(file); }
    bool isDeployed(const QString &file) const { return QFile::exists(deployed.filePath(file)); }
    bool isStarting() const { return QFile::exists(deployed.filePath(QStringLiteral(".zhost-starting.json"))); }
    /// What is being loaded.
    QByteArray loading() const
    {
        QFile note(deployed.filePath(QStringLiteral(".zhost-loading.txt")));
        return note.open(QIODevice::ReadOnly) ? note.readAll() : QByteArray();
    }
    /// The plugins there, whatever has become of them.
    QStringList plugins() const { return deployed.files().filter(QStringLiteral("libguarded")); }

    const Folder deployed, hotDeploy;
    QJsonArray loadList{QStringLiteral("guarded")};
    QJsonArray schedule;
    QJsonValue guard;

private:
    QJsonObject note(const QString &name) const
    {
        QFile file(deployed.filePath(name));
        return file.open(QIODevice::ReadOnly) ? QJsonDocument::fromJson(file.readAll()).object() : QJsonObject();
    }

    const Folder m_folder;
    std::unique_ptr<QProcess> m_host;
    QString m_written;
};

/// Runs version 1 until it is good.
inline bool startsWell(Site *site, const char *deed = "Serve", const QString &file = One)
{
    site->deployed.drop(guarded(deed), file);
    site->setProbation(Short);
    site->start();
    const bool isGood = QTest::qWaitFor([&] { return site->isGood(file) && !site->isStarting(); }, Patience);
    return isGood && site->stop() == 0;
}

/// The same, with a plugin that calls it all the time.
inline bool startsWellWithCaller(Site *site)
{
    site->loadList.append(QStringLiteral("caller"));
    return site->deployed.drop(QStringLiteral("caller")) && startsWell(site);
}

inline QString loaded(const QString &file)
{
    return QStringLiteral("loaded: %1\n").arg(QFileInfo(file).completeBaseName());
}

inline QString takenBack(const QString &file)
{
    return QStringLiteral("zhost: %1 is taken back, and now called %1.quarantined: ").arg(file);
}
