// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <client.h>

#include <QDateTime>
#include <QString>

#include <optional>

/// Asks the host that loads the file. It may be another process each time.
class HostDoor
{
public:
    /// Why the host that is `process` could not load `file`, since a moment; null if it could, or cannot be asked.
    QString refusal(const QString &process, const QString &file, const QDateTime &since);

private:
    QString m_process;
    std::optional<Client> m_client; // for that process
};
