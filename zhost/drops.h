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
 * Watches the deployed folder for plugins that are not in "load-list", and so would be gone after a restart: warns of
 * each, or, with "remember", loads it at the next start as well. Warns of those, too, that are not loaded since a file
 * of their name is in memory, and of those that somebody is still writing.
 */
class Drops
{
public:
    /// What is deployed at this moment is not new.
    explicit Drops(const Configuration &configuration);

    /// `configuration` with the remembered plugins at the end of its "load-list".
    QJsonObject withRemembered(QJsonObject configuration) const;
    /// Goes by the "load-list" of `configuration` from now on. Answers the plugins in it that were not there before.
    QStringList follow(const QJsonObject &configuration);
    /// Looks what is new, from now on. The logger is not owned.
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
    QStringList m_names;      // of the plugins that a start loads
    QStringList m_remembered; // those of them that are not in the configuration
    Files m_seen;             // with their inodes: another one may have the name of one that was removed
    ZLogger *m_logger = nullptr;
    FolderWatch m_watch;
};
