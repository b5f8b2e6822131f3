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
 * All that is done to a plugin's file. Qt keeps one record for a file in the whole process, on which loading, making
 * the root object and unloading race: so a file is worked on by one thread at a time, whoever's set it is for.
 *
 * What a plugin runs meanwhile runs without a lock, and may load or let go whatever it likes: but not its own file.
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

/// What has become of a file that was to be unloaded.
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

/// A loader for the file that is called `name`; nothing is loaded yet. What is loaded with it and not unloaded again
/// stays to the end of the process.
QSharedPointer<QPluginLoader> find(const QString &name);

/// Loads the file and answers its root object, which is moved to the thread `home` as it is made. Waits for another
/// thread that works on the file, but only for a while for a root that is being destroyed: it may wait for us. Throws
/// what the root's constructor throws.
Root load(QPluginLoader &loader, QThread *home);

/// The root as its one owner has it; null if there is none, or it is being destroyed. Throws as `load` does.
QSharedPointer<ZObject> root(QPluginLoader &loader, QThread *home);

/// Destroys a root that nobody owns and, once all that it has posted for deletion has been deleted, unloads the file:
/// at once, if the caller `isEvent`, called by the event loop and nobody else.
Unloading unload(const QSharedPointer<QPluginLoader> &loader, const QSharedPointer<ZVersions> &versions, bool isEvent);

} // namespace ZPluginFile
