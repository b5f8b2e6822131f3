// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "finding.h"

#include <QJsonObject>
#include <QString>
#include <QStringList>
#include <QVector>

/// The configuration file of the host.
struct Configuration
{
    QJsonObject object;
    QString error;       ///< One line that says why the file cannot be used; empty if it can.
    QStringList doubled; ///< The paths of keys that are given more than once.

    /// Reads the file; fills either `object` or `error`.
    static Configuration read(const QString &file);

    /// The folder that the section "loader" names under `key`, or the default one, as the loader finds it; empty if it
    /// does not exist.
    QString folder(const QString &key) const;

    /// The folder that the section "loader" names under "inbox", even if it does not exist; empty if none is named.
    QString inbox() const;

    /// The names of plugins under "load-list" in the section "loader" of a configuration.
    static QStringList loadListOf(const QJsonObject &configuration);

    /// What is wrong with the configuration, or may be. The services ignore all of this silently.
    QVector<Finding> findings() const;
};
