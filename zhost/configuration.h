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

    /// The folder that the section "loader" has under `key`, or by default, as the loader finds it; empty if there is
    /// none.
    QString folder(const QString &key) const;

    /// The folder that the section "loader" has under "inbox", be it there or not; empty if none is named.
    QString inbox() const;

    /// The names of plugins that the section "loader" of a configuration has under "load-list".
    static QStringList loadListOf(const QJsonObject &configuration);

    /// What is wrong with it, or may be. The services pass over all of it silently.
    QVector<Finding> findings() const;
};
