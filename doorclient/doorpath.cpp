// SPDX-License-Identifier: Apache-2.0
#include "doorpath.h"

#include <QCoreApplication>
#include <QCryptographicHash>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QJsonObject>

#include <cerrno>
#include <cstring>

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

namespace {

constexpr int MaxNameLength = 40; // the whole path of a socket has some hundred

QString serviceFolder() { return QFile::decodeName(qgetenv("RUNTIME_DIRECTORY")).section(QLatin1Char(':'), 0, 0); }

/// A socket that is connected to the one at `path`, the caller's; -1, and errno, if there is none.
int connectTo(const QString &path)
{
    sockaddr_un address;
    if (!fill(&address, QFile::encodeName(path))) {
        errno = ENAMETOOLONG;
        return -1;
    }
    const int client = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    if (connect(client, reinterpret_cast<const sockaddr *>(&address), sizeof address) == 0)
        return client;
    const int error = errno;
    close(client);
    errno = error;
    return -1;
}

} // namespace

QString configuredDoor(const QJsonObject &configuration)
{
    const QString path =
        configuration.value(QStringLiteral("door")).toObject().value(QStringLiteral("socket")).toString();
    const QDir program(QCoreApplication::applicationDirPath());
    return path.isEmpty() ? QString() : QDir::cleanPath(program.absoluteFilePath(path));
}

bool isServiceFolder() { return !serviceFolder().isEmpty(); }

QString doorFolder()
{
    if (isServiceFolder())
        return serviceFolder();
    const QString login = QFile::decodeName(qgetenv("XDG_RUNTIME_DIR"));
    return login.isEmpty() ? QStringLiteral("/tmp/zhost-%1").arg(geteuid()) : login + QStringLiteral("/zhost");
}

QString doorName(const QString &file)
{
    // Two configurations in different folders may have one name.
    const QByteArray path = QFile::encodeName(QFileInfo(file).canonicalFilePath());
    const QByteArray hash = QCryptographicHash::hash(path, QCryptographicHash::Sha256).toHex().left(8);
    return QStringLiteral("%1-%2.sock")
        .arg(QFileInfo(file).completeBaseName().left(MaxNameLength), QString::fromLatin1(hash));
}

bool fill(sockaddr_un *address, const QByteArray &path)
{
    *address = {};
    address->sun_family = AF_UNIX;
    if (path.size() >= int(sizeof address->sun_path))
        return false;
    std::memcpy(address->sun_path, path.constData(), static_cast<size_t>(path.size()));
    return true;
}

int knock(const QString &path)
{
    const int client = connectTo(path);
    if (client < 0)
        return errno == EAGAIN ? 0 : errno; // EAGAIN: too many wait already
    close(client);
    return 0;
}

qint64 listenerAt(const QString &path)
{
    const int client = connectTo(path);
    ucred listener = {};
    socklen_t size = sizeof listener;
    const bool isTold = client >= 0 && getsockopt(client, SOL_SOCKET, SO_PEERCRED, &listener, &size) == 0;
    if (client >= 0)
        close(client);
    return isTold ? listener.pid : 0;
}
