// SPDX-License-Identifier: Apache-2.0
#include "trial.h"

#include "account.h"
#include "description.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QJsonArray>
#include <QJsonObject>
#include <QMutex>
#include <QPluginLoader>
#include <QTimer>

#include <configuration.h>
#include <host.h>
#include <known/known.h>
#include <zcaught.h>
#include <zobject.h>

#include <optional>

namespace {

const QString GivingServices = QStringLiteral("giving it its services");

/// What the host has said of a plugin that it could not load.
struct
{
    QMutex mutex;
    QString beginning; // of the line that tells of it
    QString reason;
} failure;

void listen(QtMsgType, const QMessageLogContext &, const QString &text)
{
    const QMutexLocker locker(&failure.mutex);
    if (text.startsWith(failure.beginning))
        failure.reason = text.mid(failure.beginning.size());
}

QString fails(const QString &doing, const QString &reason) { return QStringLiteral("%1 fails: %2").arg(doing, reason); }

/// A configuration with which a host has the plugin, and touches nothing outside the scratch folder.
Configuration configuration(const Trial &trial)
{
    const QDir dir(trial.scratch);
    for (const char *const folder : {"deployed", "hot-deploy", "temporary"})
        dir.mkdir(QLatin1String(folder));
    QFile::link(trial.file, dir.filePath(QStringLiteral("deployed/lib%1.so").arg(trial.plugin)));
    return {{{QStringLiteral("loader"),
              QJsonObject{{QStringLiteral("deployed"), dir.filePath(QStringLiteral("deployed"))},
                          {QStringLiteral("hot-deploy"), dir.filePath(QStringLiteral("hot-deploy"))},
                          {QStringLiteral("load-list"), QJsonArray{trial.plugin}}}},
             {QStringLiteral("filesystem"),
              QJsonObject{{QStringLiteral("temporary-folder"), dir.filePath(QStringLiteral("temporary"))}}}},
            {},
            {}};
}

/// The interfaces that the plugin serves.
QStringList served(const WiringBook &wiring)
{
    QStringList interfaces;
    const QJsonArray services = wiring.services();
    for (const auto &service : services) {
        if (!service[QStringLiteral("file")].toString().isEmpty()) // else it is the host that serves it
            interfaces.append(service[QStringLiteral("interface")].toString());
    }
    return interfaces;
}

/// The verdict of a host that runs in this event loop.
QString runHost(const Trial &trial)
{
    failure.beginning = QStringLiteral("failed to load %1: ").arg(trial.plugin);
    qInstallMessageHandler(listen);
    Account::begin(trial.answer, GivingServices);
    Known known({});
    std::optional<Host> host;
    bool isOver = false;
    const auto finish = [&] {
        isOver = true;
        Account::begin(trial.answer, QStringLiteral("stopping it"));
        QCoreApplication::quit();
    };
    const auto start = [&] {
        host.emplace(configuration(trial), &known);
        Description description;
        description.serves = served(known.wiring);
        Account::tell(trial.answer, description.toLines());
        QTimer::singleShot(0, finish);
    };
    QTimer::singleShot(0, start); // by the event loop, which the plugin may quit
    QCoreApplication::exec();
    {
        const QMutexLocker locker(&failure.mutex);
        if (!failure.reason.isEmpty())
            return fails(GivingServices, failure.reason);
    }
    if (!isOver)
        return QStringLiteral("%1 quits the program").arg(GivingServices);
    if (host->stop().isEmpty()) // else it has something that takes longer, and that uses what would go now
        host.reset();
    return {};
}

/// The verdict on the root object.
QString makeRoot(const Trial &trial)
{
    const QString loading = QStringLiteral("loading it");
    Account::begin(trial.answer, loading);
    QPluginLoader loader(trial.file);
    loader.setLoadHints(QLibrary::ResolveAllSymbolsHint);
    QObject *root = nullptr;
    const QString thrown = zCaught([&] { root = loader.instance(); });
    if (!thrown.isNull())
        return fails(loading, thrown);
    if (!root)
        return QStringLiteral("it cannot be loaded: %1").arg(loader.errorString());
    const Description description = Description::of(root);
    Account::tell(trial.answer, description.toLines());
    if (!qobject_cast<ZObject *>(root))
        return QStringLiteral("its root object, %1, is no ZObject: derive its class from ZObject")
            .arg(description.className);
    Account::begin(trial.answer, QStringLiteral("destroying it"));
    loader.unload(); // deletes the root, too
    return {};
}

} // namespace

QString Trial::loadAlone() const { return makeRoot(*this); }

QString Trial::loadInHost() const { return runHost(*this); }
