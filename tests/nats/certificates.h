// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "folder.h"

#include <QString>

/// An authority, and what it has signed: a pair of files for the server (127.0.0.1, localhost, "broker.test"), and one
/// for clients.
class Certificates
{
public:
    Certificates();

    bool isValid() const { return m_isValid; }
    /// "ca.crt", "server.crt", "server.key", "client.crt", "client.key".
    QString file(const QString &name) const { return m_folder.filePath(name); }
    /// For a broker's configuration.
    QString tls(bool clientsToo = false) const;

private:
    bool sign(const QString &name, const QByteArray &alternatives) const;

    const Folder m_folder;
    bool m_isValid = false;
};
