// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "client.h"

#include <QString>
#include <QStringList>

/// The host to be asked.
struct Search
{
    Address address;
    QString error;       ///< Why it is not clear which, or none is there, and what to do; empty if one was found.
    QStringList choices; ///< What can be added to the command line, where there are several.

    /// The only host on this machine.
    static Search only();
    static Search at(const QString &socket);
    static Search by(const QString &configuration);
    static Search by(const QUrl &url, const QString &tokenFile);
    /// The host that is the process of this number.
    static Search by(qint64 process);
};
