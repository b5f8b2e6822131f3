// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "zglobal.h"

#include <QEnableSharedFromThis>
#include <QJsonObject>
#include <QPluginLoader>
#include <QSet>
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
 * Ownership: the file stays in memory while anyone holds the library. After that the event loop of the library's set
 *            unloads it: never within the call that let it go, and only after everything that its root has posted for
 *            deletion was deleted.
 * Thread:    any. The root lives on the thread of the set.
 * Failure:   null or false; what the plugin's code throws goes no further.
 */
class ZDEFAULT_EXPORT ZLibrary : public QEnableSharedFromThis<ZLibrary>
{
public:
    /// Called by the set that loads the file. `set` is not owned, and may be destroyed first.
    ZLibrary(QSharedPointer<QPluginLoader> loader, ZLibrarySet *set);
    virtual ~ZLibrary();

    /// Loads the file of `library` and makes its root object, which `emitter`, if there is one, then injects.
    /// False when the file does not load or its root is no `ZObject`.
    static bool load(QSharedPointer<ZLibrary> library, ZEmitter *emitter);

    /// The root object, shared with its only owner; null when it is no `ZObject`, or is being destroyed. The object is
    /// deleted with the last copy, at once, on the thread that drops it. Hold the library at least as long: it keeps
    /// the object's code. `ZObject::shared()` holds both, and destroys the object on its own thread.
    operator QSharedPointer<ZObject>();

    /// The plugin's name: "foo" for "libfoo.1.so".
    QString name() const;

private:
    Q_DISABLE_COPY(ZLibrary)
    friend class ZLibrarySet;
    friend class ZReconfiguration;

    ZPluginFile::Root makeRoot();
    QString start(ZObject *root, ZEmitter *emitter);
    static QString begin(ZObject *root);
    const QObject *configure(const QJsonObject &settings, const QSet<const QObject *> &told = {});
    void configureHere(const QJsonObject &settings);

    const QSharedPointer<QPluginLoader> m_loader;
    const QSharedPointer<ZVersions> m_versions;
    bool m_isTwin = false; // another library of this file was there first
};
