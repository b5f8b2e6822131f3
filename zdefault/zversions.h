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
 * The versions of a plugin that are loaded; it unloads their files. The set, its libraries and the events that wait in
 * an event loop share it, since any of them may be the first to go.
 *
 * Ownership: remembers libraries weakly.
 * Thread:    any. The event loop of the set's thread unloads the files; when that thread has ended, or the set is gone,
 *            the event loop of the application does.
 * Failure:   none; without an application nothing is unloaded later.
 */
class ZVersions : public QEnableSharedFromThis<ZVersions>
{
public:
    explicit ZVersions(ZLibrarySet *set) : m_set(set) {}

    /// Enters `library` as the newest one called `name`, and under the part of `name` before its first dot.
    void add(const QString &name, const QSharedPointer<ZLibrary> &library);
    /// Removes `library`, as if it had never been added.
    void remove(const QString &name, const QSharedPointer<ZLibrary> &library);
    /// The newest one under `name`, if it is still alive.
    QSharedPointer<ZLibrary> newest(const QString &name) const;
    bool contains(const QString &name) const;
    bool isEmpty() const;

    /// The thread that unloads; null if there is none any more.
    QThread *thread() const;

    /// Has the event loop unload the file of `loader`, whose library is gone. For a twin (a second library of one file)
    /// no line is logged.
    void queue(const QSharedPointer<QPluginLoader> &loader, bool isTwin = false);
    /// Forgets the libraries that are gone, and unloads the file of `loader`, whose library is gone.
    void unload(const QSharedPointer<QPluginLoader> &loader);
    /// Unloads the queued files now.
    void unloadQueued();
    /// Goes on with an unload that had to wait: at once, if the event loop that unloads has called the caller.
    void resume(const QSharedPointer<QPluginLoader> &loader);
    /// The same, but never within this call.
    void postResume(const QSharedPointer<QPluginLoader> &loader);

    /// Called when the set, and with it the logger, is about to be destroyed.
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
