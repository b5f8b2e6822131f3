// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QMutex>
#include <QPluginLoader>
#include <QSharedPointer>
#include <QVector>

class ZLibrarySet;
class ZObject;

/**
 * Where the files of a set go to be unloaded. The set and its libraries share it, since either may die first.
 *
 * Ownership: the set's and its libraries'.
 * Thread:    any.
 * Failure:   none; without a set the application object's event loop does the work.
 */
class ZUnloader
{
public:
    explicit ZUnloader(ZLibrarySet *set) : m_set(set) {}

    /// Has the set unload the file of `loader` from its event loop.
    void queue(const QSharedPointer<QPluginLoader> &loader);
    /// What the set has to take up next; null if nothing.
    QSharedPointer<QPluginLoader> next();
    /// Called by the set when it takes up what was queued.
    void takeUp(const QSharedPointer<QPluginLoader> &loader);
    /// Called by the set's destructor. What it has not taken up goes to the application object.
    void forgetSet();

private:
    QMutex m_mutex; // guards both; m_set, so that it does not die while it is sent to
    ZLibrarySet *m_set;
    QVector<QSharedPointer<QPluginLoader>> m_queued; // what is posted to the set dies with it
};

/**
 * All that is done to a plugin's file. Qt keeps one record for a file in the whole process, on which loading, making
 * the root object and unloading race: so they come one at a time, for all sets.
 */
namespace ZPluginFile {

/// A loader for the file that is called `name`; nothing is loaded yet. What is loaded with it and not unloaded again
/// stays to the end of the process.
QSharedPointer<QPluginLoader> find(const QString &name);
/// Loads the file and returns its root object; null if either fails, or the root is no `ZObject`.
ZObject *load(QPluginLoader &loader);
/// Why `load` failed: Qt's reason, unless the file was not given to Qt.
QString error(const QPluginLoader &loader);
/// The root as its one owner has it; null if there is none, or it is being destroyed.
QSharedPointer<ZObject> root(QPluginLoader &loader);
/// Unloads the file: true if it has left memory. While somebody holds its root it stays, and is queued again
/// when the root is gone.
bool unload(const QSharedPointer<QPluginLoader> &loader, const QSharedPointer<ZUnloader> &unloader);

} // namespace ZPluginFile
