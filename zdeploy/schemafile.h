// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QByteArray>
#include <QString>

/// Copies the schema of a plugin's settings, if there is one beside its file, into the deployed folder. There is one
/// schema for all versions: that of the newest.
class SchemaFile
{
public:
    /// Reads the file, so that exactly the content is dropped that was checked.
    SchemaFile(const QString &plugin, const QString &source, const QString &deployed);

    /// Why the schema cannot be used; empty if it can, or there is none.
    QString fault() const;
    /// Puts the schema into the folder in one step. Returns why that fails; empty if it does not, or there is none.
    QString drop() const;

private:
    QString m_source;
    QString m_target;
    bool m_isThere = false;
    QByteArray m_text;
};
