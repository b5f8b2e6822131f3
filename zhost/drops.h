// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QFileSystemWatcher>
#include <QJsonObject>
#include <QStringList>

struct Configuration;
class ZLogger;

/**
 * Watches the deployed folder for plugins that are not in "load-list", and so would be gone after a restart: warns of
 * each, or, with "remember", loads it at the next start as well.
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
    void look();
    bool isListed(const QString &file) const;
    void remember(const QString &name);

    const QString m_folder; // empty if there is none
    const bool m_remembers;
    const QString m_note;
    QStringList m_names;      // of the plugins that a start loads
    QStringList m_remembered; // those of them that are not in the configuration
    QStringList m_seen;
    ZLogger *m_logger = nullptr;
    QFileSystemWatcher m_watcher;
};
