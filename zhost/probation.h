// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "notes.h"

#include "../zdeploy/pluginname.h"

#include <QFileSystemWatcher>
#include <QMap>
#include <QObject>
#include <QStringList>
#include <QTimer>

struct Configuration;
class History;
class ZDbus;

/**
 * Takes back versions of plugins that crash or block the host, or that are not healthy.
 *
 * A version that has run well for a while is good, and is never taken back. Any other version is on probation.
 *
 * Thread: the application's.
 */
class Probation : public QObject
{
    Q_OBJECT

public:
    /// Its decisions are entered in `history`, which must live longer.
    Probation(const Configuration &configuration, History *history);

    /// Call it before the plugins are loaded: takes back the versions that the last start has not survived. False if
    /// the host should not start: too many starts in a row have failed and there is nothing to take back, or something
    /// cannot be taken back.
    bool begin();
    /// Call it after the plugins were loaded: begins the probation of what runs, and of what is dropped.
    void watch(ZDbus *bus);
    /// Call it when the host is told to stop: no version is blamed for that end.
    void end();
    /// The calls that hang, by URL. While there are any, the bus must not be destroyed.
    QStringList hanging() const;

private:
    bool isAway(const QString &file) const;
    bool judge(Notes::Start *start);
    QStringList plugins(bool areGood) const;
    PluginName goodBefore(const QString &file) const;
    QStringList thoseThatRanWell() const;
    QMap<QString, QString> takeVerdicts();
    QStringList toTake(const QStringList &suspects) const;
    void passed();
    bool canBeRead();
    bool look();
    enum Occasion
    {
        AtStart,
        Live
    };
    void check(const QString &file, Occasion occasion);
    void endChecks() const;
    bool takeAway(const QString &file, const QString &why);
    void takeBack(const QString &file, const QString &why);

    const QString m_hotDeploy;
    const QString m_deployed; // empty if there is none
    Notes m_notes;
    History *const m_history;
    bool m_isOn;
    const int m_probationMs;
    QTimer m_timer;
    QFileSystemWatcher m_watcher;
    ZDbus *m_bus = nullptr;
    bool m_cannotBeRead = false;
    QStringList m_known; // the files that have been seen
    QStringList m_again; // copies of good files
};
