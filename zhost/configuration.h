// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QJsonObject>
#include <QString>
#include <QVector>

/// The configuration file of the host.
struct Configuration
{
    QJsonObject object;
    QString error; ///< One line that says why the file cannot be used; empty if it can.

    /// Reads the file; fills either `object` or `error`.
    static Configuration read(const QString &file);

    /// The folder that the section "loader" has under `key`, or by default, as the loader finds it; empty if there is
    /// none.
    QString folder(const QString &key) const;

    struct Finding
    {
        QString text; ///< One line.
        bool isWrong; ///< False for a section of which only a plugin can tell.
    };

    /// What no service would understand: unknown keys, values of a wrong type, folders that are missing. The services
    /// pass over all of it silently.
    QVector<Finding> findings() const;
};
