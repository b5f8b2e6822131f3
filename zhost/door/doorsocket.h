// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QString>

/// Where the door of a host is that runs by the configuration `file`, unless it says so itself: in the runtime folder
/// that the service manager or the login has given, else in one of this user's own. Empty if there is none.
QString defaultDoorPath(const QString &file);

/// A Unix socket that listens at a path, as long as it lives. The user of this process can connect, and root.
class DoorSocket
{
public:
    /// Takes the place of a socket at which nobody listens any more.
    explicit DoorSocket(const QString &path);
    ~DoorSocket();

    /// -1 if there is an error.
    int descriptor() const { return m_descriptor; }
    /// Why it does not listen; null if it does.
    QString error() const { return m_error; }
    /// Whether that is because somebody else does.
    bool isTaken() const { return m_isTaken; }

    /// "uid 1000", for who may be served; empty for anybody else.
    static std::string peer(int socket);

private:
    Q_DISABLE_COPY(DoorSocket)
    QString listenAt(const QByteArray &path);

    const QString m_path;
    int m_descriptor = -1;
    quint64 m_inode = 0;
    bool m_isTaken = false;
    QString m_error;
};
