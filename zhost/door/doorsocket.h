// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QString>

/// The path of the door of a host that runs by the configuration `file`, if the configuration names none: in the
/// runtime folder of the service manager or of the login, else in a folder of this user. Empty if there is none of
/// these.
QString defaultDoorPath(const QString &file);

/// A Unix socket that listens at a path, as long as it lives. Only the user of this process and root can connect.
class DoorSocket
{
public:
    /// Replaces a socket at which nobody listens any more.
    explicit DoorSocket(const QString &path);
    ~DoorSocket();

    /// -1 if there is an error.
    int descriptor() const { return m_descriptor; }
    /// Why it does not listen; null if it does.
    QString error() const { return m_error; }
    /// Whether that is because another process listens there.
    bool isTaken() const { return m_isTaken; }

    /// "uid 1000" for a user who may be served; empty for any other.
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
