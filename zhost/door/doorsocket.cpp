// SPDX-License-Identifier: Apache-2.0
#include "doorsocket.h"

#include <doorpath.h>

#include <QFile>

#include <cerrno>

#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

namespace {

constexpr int Backlog = 128;

quint64 inodeOf(const QByteArray &path)
{
    struct stat status;
    return lstat(path.constData(), &status) == 0 ? status.st_ino : 0;
}

/// Whether `path` is a folder into which nobody else can put anything. It is made if there is none.
bool isOurs(const QString &path)
{
    const QByteArray name = QFile::encodeName(path);
    mkdir(name.constData(), 0700);
    struct stat status;
    return lstat(name.constData(), &status) == 0 && S_ISDIR(status.st_mode) && status.st_uid == geteuid() &&
           (status.st_mode & 077) == 0;
}

} // namespace

QString defaultDoorPath(const QString &file)
{
    const QString folder = doorFolder();
    return isServiceFolder() || isOurs(folder) ? folder + QLatin1Char('/') + doorName(file) : QString();
}

DoorSocket::DoorSocket(const QString &path) : m_path(path)
{
    m_error = listenAt(QFile::encodeName(path));
    if (m_error.isNull() || m_descriptor < 0)
        return;
    close(m_descriptor);
    m_descriptor = -1;
}

DoorSocket::~DoorSocket()
{
    const QByteArray path = QFile::encodeName(m_path);
    if (m_inode != 0 && inodeOf(path) == m_inode) // no other socket has taken its place
        unlink(path.constData());
}

/// Binds the socket under another name, and renames it when it listens: so no client finds a socket that does not
/// answer.
QString DoorSocket::listenAt(const QByteArray &path)
{
    if (knock(m_path) == 0) {
        m_isTaken = true;
        return QStringLiteral("somebody listens there");
    }
    struct stat status;
    if (lstat(path.constData(), &status) == 0 && !S_ISSOCK(status.st_mode))
        return QStringLiteral("something else is there");
    const QByteArray aside = path + '.' + QByteArray::number(getpid());
    sockaddr_un address;
    if (!fill(&address, aside))
        return QStringLiteral("the path is too long for a socket");
    m_descriptor = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    unlink(aside.constData());
    if (m_descriptor < 0 || fchmod(m_descriptor, 0600) != 0 ||
        bind(m_descriptor, reinterpret_cast<const sockaddr *>(&address), sizeof address) != 0)
        return qt_error_string(errno);
    m_inode = inodeOf(aside);
    if (listen(m_descriptor, Backlog) == 0 && rename(aside.constData(), path.constData()) == 0)
        return {};
    const QString reason = qt_error_string(errno);
    unlink(aside.constData());
    return reason;
}

std::string DoorSocket::peer(int socket)
{
    ucred user = {};
    socklen_t size = sizeof user;
    if (getsockopt(socket, SOL_SOCKET, SO_PEERCRED, &user, &size) != 0 || (user.uid != 0 && user.uid != geteuid()))
        return {};
    return "uid " + std::to_string(user.uid);
}
