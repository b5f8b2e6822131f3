// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QByteArray>
#include <QString>

class QJsonObject;
struct sockaddr_un;

// Where the door of a host is, by a rule that the host and those who ask it share.

/// Where the configuration says that it is, in full; empty if it leaves that to the host.
QString configuredDoor(const QJsonObject &configuration);

/// The folder that the service manager or the login of this process has given, else one of this user's own. Does not
/// make it.
QString doorFolder();

/// Whether `doorFolder` is one that the service manager has made for this service.
bool isServiceFolder();

/// The name, in such a folder, of the door of a host that runs by the configuration `file`.
QString doorName(const QString &file);

/// Makes `address` that of a socket at `path`; false if the path is too long for one.
bool fill(sockaddr_un *address, const QByteArray &path);

/// Why nobody can be reached at the Unix socket `path`, as errno; 0 if somebody listens there. Does not wait for him.
int knock(const QString &path);

/// The number of the process that listens at the socket at `path`; 0 if none does. It cannot be claimed.
qint64 listenerAt(const QString &path);
