// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "zglobal.h"

#include <QEnableSharedFromThis>
#include <QPluginLoader>
#include <QSharedPointer>

class ZEmitter;
class ZLibrarySet;
class ZObject;
class ZVersions;
namespace ZPluginFile {
struct Root;
}

/**
 * One plugin file, loaded.
 *
 * Ownership: the file stays in memory while anyone holds the library; after that it is unloaded by its set's event
 *            loop, never within the call that let it go, and after all that its root has posted for deletion.
 * Thread:    any. The root lives on the thread of the set.
 * Failure:   null or false; what the plugin's code throws goes no further.
 */
class ZDEFAULT_EXPORT ZLibrary : public QEnableSharedFromThis<ZLibrary>
{
public:
    /// For the set that loads the file. `set` is not owned, and may die first.
    ZLibrary(QSharedPointer<QPluginLoader> loader, ZLibrarySet *set);
    virtual ~ZLibrary();

    /// Loads the file of `library` and makes its root object, which `emitter`, if there is one, then injects.
    /// False when the file does not load or its root is no `ZObject`.
    static bool load(QSharedPointer<ZLibrary> library, ZEmitter *emitter);

    /// The root object as its one owner has it; null when it is no `ZObject`, or is being destroyed. It is deleted
    /// with the last copy, at once, on whatever thread that goes. Hold the library at least as long: the object's code
    /// goes with it. `ZObject::shared()` does both, and lets it end on its own thread.
    operator QSharedPointer<ZObject>();

private:
    Q_DISABLE_COPY(ZLibrary)
    friend class ZLibrarySet;

    ZPluginFile::Root makeRoot();
    QString start(ZObject *root, ZEmitter *emitter);

    const QSharedPointer<QPluginLoader> m_loader;
    const QSharedPointer<ZVersions> m_versions;
    bool m_isTwin = false; // another library of this file was first
};
