// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "folderwatch.h"

#include <QHash>
#include <QJsonObject>
#include <QStringList>

#include <sys/types.h>

struct Configuration;
class ZLogger;

/**
 * Watches the deployed folder for plugins that are not in "load-list", and so are not loaded after a restart: warns of
 * each, or, with "remember", has it loaded at the next start as well. Also warns of plugins that are not loaded because
 * a file of their name is in memory, and of plugins that somebody is still writing.
 */
class Drops
{
public:
    /// Plugins that are deployed at this moment do not count as new.
    explicit Drops(const Configuration &configuration);

    /// `configuration` with the remembered plugins at the end of its "load-list".
    QJsonObject withRemembered(QJsonObject configuration) const;
    /// Uses the "load-list" of `configuration` from now on. Returns the plugins in it that were not in the one before.
    QStringList follow(const QJsonObject &configuration);
    /// Begins to watch. The logger is not owned.
    void watch(ZLogger *logger);

private:
    Q_DISABLE_COPY(Drops)
    using Files = QHash<QString, ino_t>;

    Files files() const;
    void look();
    void tell(const QString &file);
    bool isTakenForAnother(const QString &file) const;
    bool isListed(const QString &file) const;
    void remember(const QString &name);

    const QString m_folder; // empty if there is none
    const bool m_remembers;
    const QString m_note;
    QStringList m_names;      // plugins that a start loads
    QStringList m_remembered; // those of them that are not in the configuration
    Files m_seen;             // with their inodes, since a new file may have the name of a removed one
    ZLogger *m_logger = nullptr;
    FolderWatch m_watch;
};
