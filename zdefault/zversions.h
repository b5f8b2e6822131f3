// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "znamedlogger.h"

#include <QEnableSharedFromThis>
#include <QMultiMap>
#include <QMutex>
#include <QPluginLoader>
#include <QSharedPointer>
#include <QVector>
#include <QWeakPointer>

class ZLibrary;
class ZLibrarySet;

/**
 * The versions of a plugin that are loaded, and the unloading of their files. The set and its libraries share it, and
 * so does what waits in an event loop: any of them may be the first to go.
 *
 * Ownership: remembers libraries weakly.
 * Thread:    any. Files are unloaded by the event loop of the set's thread; once that has ended, or the set is gone, by
 * the application's. Failure:   none; without an application nothing is unloaded later.
 */
class ZVersions : public QEnableSharedFromThis<ZVersions>
{
public:
    explicit ZVersions(ZLibrarySet *set) : m_set(set) {}

    /// Enters `library` as the newest one called `name`, and under the part of `name` before its first dot.
    void add(const QString &name, const QSharedPointer<ZLibrary> &library);
    /// The newest one under `name`, if it is still alive.
    QSharedPointer<ZLibrary> newest(const QString &name) const;
    bool contains(const QString &name) const;
    bool isEmpty() const;

    /// The thread that unloads; null if there is none any more.
    QThread *thread() const;

    /// Has the file of `loader`, whose library has died, unloaded by the event loop. A `twin` of a library that came
    /// first is not worth a word.
    void queue(const QSharedPointer<QPluginLoader> &loader, bool isTwin = false);
    /// Forgets the libraries that have died, and unloads the file of `loader`, whose library has.
    void unload(const QSharedPointer<QPluginLoader> &loader);
    /// Does what is queued, now.
    void unloadQueued();
    /// Goes on with an unload that had to wait: at once, if the caller is called by the event loop that unloads.
    void resume(const QSharedPointer<QPluginLoader> &loader);
    /// The same, but never within this call.
    void postResume(const QSharedPointer<QPluginLoader> &loader);

    /// The set is about to go, and with it the logger.
    void forgetSet();
    void setLog(const ZNamedLogger &log);
    /// Where the set's lines go. They are never written under a lock.
    ZNamedLogger log() const;

private:
    Q_DISABLE_COPY(ZVersions)
    bool takeUp(const QSharedPointer<QPluginLoader> &loader);
    void forgetDead(const QSharedPointer<QPluginLoader> &loader);
    void finish(const QSharedPointer<QPluginLoader> &loader, bool isEvent);

    mutable QMutex m_mutex; // guards all that follow
    ZLibrarySet *m_set;
    ZNamedLogger m_log;
    QMultiMap<QString, QWeakPointer<ZLibrary>> m_libraries; // newest first under one name
    QVector<QSharedPointer<QPluginLoader>> m_queued;
    QVector<const QPluginLoader *> m_twins;
};
