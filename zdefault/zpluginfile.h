// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QPluginLoader>
#include <QSharedPointer>

#include <memory>

QT_BEGIN_NAMESPACE
class QThread;
QT_END_NAMESPACE

class ZObject;
class ZVersions;

/**
 * Loads and unloads a plugin's file. Qt keeps one record for a file in the whole process, and loading, making the root
 * object and unloading race on it. So only one thread at a time works on a file, for all library sets together.
 *
 * Code of a plugin that is called meanwhile runs without a lock. It may load and let go any file but its own.
 */
namespace ZPluginFile {

/// A root object, or the reason why there is none.
struct Root
{
    ZObject *object = nullptr;
    QSharedPointer<ZObject> owner; ///< null if it has none
    std::shared_ptr<void> start;   ///< while it is held nobody destroys the root; let go before the owner
    QString reason;
};

/// The result of an unload.
struct Unloading
{
    enum Result
    {
        Done,   ///< it has left memory
        Stays,  ///< Qt has unloaded it, and yet it is in memory
        Failed, ///< somebody else has loaded it, or it never was
        Later   ///< somebody uses it: `ZVersions::resume` is called when that is over
    } result;
    QString reason; ///< to stay
};

/// A loader for the file that is called `name`; nothing is loaded yet. If a file is loaded with it, and not unloaded
/// again, it stays in memory to the end of the process.
QSharedPointer<QPluginLoader> find(const QString &name);

/// Loads the file and returns its root object, which is moved to the thread `home` when it is made. If another thread
/// works on the file, waits for that; but if the root is being destroyed, only for a while, since that may wait for us.
/// Throws what the root's constructor throws.
Root load(QPluginLoader &loader, QThread *home);

/// The root, shared with its only owner; null if there is none, or it is being destroyed. Throws as `load` does.
QSharedPointer<ZObject> root(QPluginLoader &loader, QThread *home);

/// The root, without waiting; none if it is being destroyed, or was never made.
Root hold(const QPluginLoader &loader);

/// Destroys a root that nobody owns. Unloads the file when all objects that the root has posted for deletion have been
/// deleted: at once, if the caller `isEvent`, that is, was called directly by the event loop.
Unloading unload(const QSharedPointer<QPluginLoader> &loader, const QSharedPointer<ZVersions> &versions, bool isEvent);

} // namespace ZPluginFile
