// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QByteArray>
#include <QString>

class QJsonObject;
struct sockaddr_un;

// Finds the door of a host, by a rule that the host and its clients share.

/// The full path of the door that the configuration names; empty if it names none.
QString configuredDoor(const QJsonObject &configuration);

/// The folder of doors: that of the service manager or of the login, else one of this user. Does not make it.
QString doorFolder();

/// Whether `doorFolder` is one that the service manager has made for this service.
bool isServiceFolder();

/// The name, in such a folder, of the door of a host that runs by the configuration `file`.
QString doorName(const QString &file);

/// Makes `address` that of a socket at `path`; false if the path is too long for one.
bool fill(sockaddr_un *address, const QByteArray &path);

/// Why nobody can be reached at the Unix socket `path`, as errno; 0 if a process listens there. Does not wait for it.
int knock(const QString &path);

/// The number of the process that listens at the socket at `path`; 0 if none does. The kernel tells it, so no process
/// can claim another number.
qint64 listenerAt(const QString &path);
