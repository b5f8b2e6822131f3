// SPDX-License-Identifier: Apache-2.0
#include "inspection.h"

#include <QCoreApplication>
#include <QFileInfo>
#include <QJsonObject>
#include <QPluginLoader>
#include <QProcess>

#include <zobject.h>
#include <zpluginmetadata.h>

#include <csignal>
#include <cstdio>
#include <cstring>

#include <sys/prctl.h>

namespace {

constexpr int PatienceMs = 60000;

/// How the other process ends. A plugin may end it, too, and would do so with 0 first of all.
enum TryOutCode
{
    Loadable = 100,
    NotLoadable
};

} // namespace

QString inspect(const QString &file)
{
    const QFileInfo info(file);
    if (!info.exists())
        return QStringLiteral("there is no such file");
    if (!info.isFile())
        return QStringLiteral("it is no file");
    if (!info.isReadable())
        return QStringLiteral("it cannot be read");
    const QPluginLoader loader(info.absoluteFilePath());
    const QJsonObject metaData = loader.metaData();
    if (metaData.isEmpty())
        return QStringLiteral("it is no plugin: %1").arg(loader.errorString());
    const QString iid = metaData.value(QStringLiteral("IID")).toString();
    if (iid != QLatin1String(ZObject_iid))
        return QStringLiteral("it is a plugin of another kind: its identifier is \"%1\", not \"%2\"")
            .arg(iid, QLatin1String(ZObject_iid));
    return zInterfaceMismatch(metaData);
}

QString tryOut(const QString &file)
{
    QProcess child;
    child.setProcessChannelMode(QProcess::SeparateChannels);
    child.start(QCoreApplication::applicationFilePath(), {QStringLiteral("--try-out"), file});
    if (!child.waitForFinished(PatienceMs)) {
        const bool started = child.state() == QProcess::Running;
        child.kill();
        child.waitForFinished();
        return started ? QStringLiteral("loading it does not end")
                       : QStringLiteral("it cannot be tried out: %1").arg(child.errorString());
    }
    if (child.exitStatus() == QProcess::CrashExit) // QProcess has the number of the signal for an exit code
        return QStringLiteral("loading it ends the process: %1").arg(QLatin1String(strsignal(child.exitCode())));
    if (child.exitCode() == Loadable)
        return {};
    if (child.exitCode() == NotLoadable)
        return QString::fromUtf8(child.readAllStandardOutput()).trimmed();
    return QStringLiteral("loading it ends the process: exit status %1").arg(child.exitCode());
}

int tryOutHere(const QString &file)
{
    const auto refuse = [](const QString &reason) {
        std::fputs(reason.toUtf8().constData(), stdout);
        return NotLoadable;
    };
    prctl(PR_SET_PDEATHSIG, SIGKILL); // a plugin that never comes back must not outlive who asked
    QPluginLoader loader(file);
    loader.setLoadHints(QLibrary::ResolveAllSymbolsHint);
    QObject *const root = loader.instance();
    if (!root)
        return refuse(QStringLiteral("it cannot be loaded: %1").arg(loader.errorString()));
    if (!qobject_cast<ZObject *>(root))
        return refuse(
            QStringLiteral("its root object, %1, is no ZObject").arg(QLatin1String(root->metaObject()->className())));
    loader.unload(); // deletes the root, too
    return Loadable;
}
