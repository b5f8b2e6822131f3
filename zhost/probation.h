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
 * Takes versions of plugins back that the host does not survive, or that are not healthy.
 *
 * What has run well for a while is good, and is never taken back. What has not is on probation.
 *
 * Thread: the application's.
 */
class Probation : public QObject
{
    Q_OBJECT

public:
    /// What it decides is entered in `history`, which must live longer.
    Probation(const Configuration &configuration, History *history);

    /// Before the plugins are loaded: takes back what the last start has not survived. False if too many in a row have
    /// not been survived and there is nothing to take back, or something cannot be taken back: then the host should not
    /// start.
    bool begin();
    /// After they have been loaded: what runs from now on, and what is dropped, is on probation.
    void watch(ZDbus *bus);
    /// The host is told to stop: that it does so is nobody's fault.
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
    QStringList m_known; // the plugins that have been seen
    QStringList m_again; // those that are copies of good ones
};
