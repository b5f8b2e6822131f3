// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "folder.h"

#include <QJsonObject>

/// What endpoints wait for until it is opened.
class Gate
{
public:
    /// For endpoints; together with others.
    QJsonObject option(QJsonObject more = {}) const
    {
        more.insert(QStringLiteral("gate"), m_folder.filePath(QStringLiteral("open")));
        return more;
    }
    void open() const { m_folder.write(QStringLiteral("open"), {}); }

private:
    const Folder m_folder;
};
