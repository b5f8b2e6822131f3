// SPDX-License-Identifier: Apache-2.0
#include "hosts.h"

#include "doorpath.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QJsonDocument>
#include <QStringList>
#include <QUrl>

#include <algorithm>
#include <cerrno>

#include <unistd.h>

namespace {

constexpr int NamingSeconds = 1; // a host that takes longer to tell its name stays without one

Search failure(const QString &error) { return {{}, error, {}}; }
Search found(const QString &socket) { return {{socket, {}, {}}, {}, {}}; }

QStringList foldersIn(const QString &parent, const QString &filter, const QString &below = QString())
{
    QStringList result;
    const QStringList names = QDir(parent).entryList({filter}, QDir::Dirs | QDir::NoDotAndDotDot);
    for (const QString &name : names)
        result.append(parent + QLatin1Char('/') + name + below);
    return result;
}

/// Whether a folder in /tmp belongs to the user in its name. Anybody can make folders there.
bool isItsUsers(const QFileInfo &folder)
{
    return !folder.isSymLink() && folder.fileName() == QStringLiteral("zhost-%1").arg(folder.ownerId());
}

/// The folders in which hosts of this user, and services, have their sockets; they may not exist. Folders of other
/// users are left out: only root could connect there, and any process could claim to be a host. Within a service, only
/// the folder of that service.
QStringList doorFolders()
{
    QStringList result{doorFolder()};
    if (isServiceFolder())
        return result;
    const QString shared = QStringLiteral("/tmp");
    const QString anyHost = QStringLiteral("zhost-*");
    result.append(QStringLiteral("/run/user/%1/zhost").arg(geteuid()));
    result.append(QStringLiteral("%1/zhost-%2").arg(shared).arg(geteuid()));
    result.append(QStringLiteral("/run/zhost"));
    result += foldersIn(QStringLiteral("/run"), anyHost);
    const auto isForeign = [&](const QString &folder) {
        const QFileInfo info(folder);
        return info.path() == shared && info.exists() && !isItsUsers(info);
    };
    result.erase(std::remove_if(result.begin(), result.end(), isForeign), result.end());
    result.removeDuplicates();
    return result;
}

QStringList socketsIn(const QStringList &folders)
{
    QStringList result;
    for (const QString &folder : folders) {
        const QStringList names = QDir(folder).entryList({QStringLiteral("*.sock")}, QDir::System);
        for (const QString &name : names)
            result.append(folder + QLatin1Char('/') + name);
    }
    return result;
}

/// Sockets, by what they are good for.
struct Knocked
{
    QStringList hosts;
    QStringList closed; ///< To this user.

    explicit Knocked(const QStringList &sockets)
    {
        for (const QString &socket : sockets) {
            const int error = knock(socket);
            if (error == 0)
                hosts.append(socket);
            else if (error == EACCES)
                closed.append(socket);
        }
    }
};

QString closedText(const QStringList &sockets)
{
    return QStringLiteral("%1 answers its own user and root alone: try it as one of them")
        .arg(sockets.join(QStringLiteral(", ")));
}

QJsonObject hostAt(const QString &socket)
{
    return Client({socket, {}, {}}).get(QStringLiteral("/v1/report/host"), NamingSeconds).json.object();
}

Search oneOf(const QStringList &hosts)
{
    if (hosts.size() == 1)
        return found(hosts.constFirst());
    Search result = failure(QStringLiteral("%1 hosts run here: choose one by").arg(hosts.size()));
    for (const QString &host : hosts) {
        const QString configuration = hostAt(host).value(QStringLiteral("configuration")).toString();
        result.choices.append(configuration.isEmpty() ? QStringLiteral("  -s %1").arg(host)
                                                      : QStringLiteral("  -s %1  (%2)").arg(host, configuration));
    }
    return result;
}

} // namespace

Search Search::only()
{
    const QStringList folders = doorFolders();
    const Knocked knocked(socketsIn(folders));
    if (!knocked.hosts.isEmpty())
        return oneOf(knocked.hosts);
    if (!knocked.closed.isEmpty())
        return failure(closedText(knocked.closed));
    return failure(
        QStringLiteral("no host runs here that could be asked: there is none in %1; one that is elsewhere is "
                       "named by -s SOCKET, -c CONFIG.json or --url")
            .arg(folders.join(QStringLiteral(", "))));
}

Search Search::at(const QString &socket)
{
    const int error = knock(socket);
    if (error == 0)
        return found(socket);
    if (error == EACCES)
        return failure(closedText({socket}));
    return failure(QStringLiteral("no host is at %1: %2").arg(socket, qt_error_string(error)));
}

Search Search::by(const QString &configuration)
{
    QFile file(configuration);
    if (!file.open(QIODevice::ReadOnly))
        return failure(QStringLiteral("cannot read %1: %2").arg(configuration, file.errorString()));
    // Mistakes in the file do not matter here: the host may have been started before they were made.
    const QJsonObject object = QJsonDocument::fromJson(file.readAll()).object();
    if (object.value(QStringLiteral("door")) == QJsonValue(false))
        return failure(QStringLiteral("%1 says that its host has no door: \"door\" is false").arg(configuration));
    const QString configured = configuredDoor(object);
    if (!configured.isEmpty())
        return at(configured);
    QStringList sockets;
    const QStringList folders = doorFolders();
    for (const QString &folder : folders)
        sockets.append(folder + QLatin1Char('/') + doorName(configuration));
    const Knocked knocked(sockets);
    if (!knocked.hosts.isEmpty())
        return found(knocked.hosts.constFirst());
    if (!knocked.closed.isEmpty())
        return failure(closedText(knocked.closed));
    return failure(QStringLiteral("no host runs by %1: there is no %2 in %3")
                       .arg(configuration, doorName(configuration), folders.join(QStringLiteral(", "))));
}

Search Search::by(const QUrl &url, const QString &tokenFile)
{
    QFile file(tokenFile);
    if (!file.open(QIODevice::ReadOnly))
        return failure(QStringLiteral("cannot read %1: %2").arg(tokenFile, file.errorString()));
    const QByteArray token = file.readLine().trimmed();
    if (token.isEmpty())
        return failure(QStringLiteral("the first line of %1 is to be the token, and is empty").arg(tokenFile));
    return {{{}, url, token}, {}, {}};
}

Search Search::by(qint64 process)
{
    const QStringList folders = doorFolders() +
                                foldersIn(QStringLiteral("/run/user"), QStringLiteral("*"), QStringLiteral("/zhost")) +
                                foldersIn(QStringLiteral("/tmp"), QStringLiteral("zhost-*"));
    const QStringList sockets = socketsIn(folders);
    for (const QString &socket : sockets) {
        if (listenerAt(socket) == process)
            return found(socket);
    }
    return failure(QStringLiteral("process %1 has no door here").arg(process));
}
