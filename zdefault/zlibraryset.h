// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "zglobal.h"
#include "zlibrary.h"
#include "zlogger.h"
#include "znamedlogger.h"

#include <QMutex>
#include <QObject>
#include <QPair>
#include <QSet>

class ZEmitter;

/**
 * The versions of one plugin that are loaded.
 *
 * A name has one of three forms: the plugin's name ("foo"), the name of a file without its suffix ("libfoo.1.2"), or
 * the part of either before its first dot, under which the newest version is found.
 *
 * Ownership: remembers libraries weakly: a library stays loaded as long as somebody who asked for it holds it. Does
 *            not own the emitter and the logger, which must live as long as the set.
 * Thread:    any. The roots of the plugins live on the set's own thread, and its event loop unloads the files. While
 *            one thread loads, others that load of the same set wait. A load from within an injection does not wait,
 *            since the other may wait for that injection.
 * Failure:   a null library, and "failed to load %1: %2" in the log, also for what a plugin throws.
 */
class ZDEFAULT_EXPORT ZLibrarySet : public QObject
{
    Q_OBJECT
    Q_PROPERTY(ZLogger *zLogger READ getSetZLogger WRITE getSetZLogger)

public:
    /// Injects itself with `emitter`, if there is one, and loads all versions of the plugin called `name`. Those that
    /// nobody else holds afterwards are unloaded again.
    ZLibrarySet(const QString &name, const QString &folder, ZEmitter *emitter);
    /// The same, but lives on `thread`, and loads only when it is first asked to.
    ZLibrarySet(const QString &name, ZEmitter *emitter, QThread *thread);
    ~ZLibrarySet() override;

    /// The library called `name`. A plain name is loaded, with all its versions, only if the set is empty; a name with
    /// a dot is loaded only if no library has that name.
    QSharedPointer<ZLibrary> load(const QString &name, const QString &folder, ZEmitter *emitter);
    /// Loads the plain file, and every version in `folder` that is not loaded yet. Returns the last one in the order of
    /// their names; null if that one failed.
    QSharedPointer<ZLibrary> loadAll(const QString &name, const QString &folder, ZEmitter *emitter);
    /// Loads one file. It is looked for in the application's library paths, not in `folder`.
    QSharedPointer<ZLibrary> loadOne(const QString &name, const QString &folder, ZEmitter *emitter);
    /// The newest library under `name`, if it is still alive; never touches the disk.
    QSharedPointer<ZLibrary> loaded(const QString &name);

    /// Takes the first logger that comes, and no other.
    ZLogger *getSetZLogger(ZLogger *logger = nullptr);

public Q_SLOTS:
    /// Forgets the libraries that are gone, and unloads the file of `loader`, whose library is gone.
    void unloadSlot(QSharedPointer<QPluginLoader> loader);

private:
    friend class ZLibrary;
    class Turn;
    class BeingLoaded;

    void loadFirst(const QString &folder, ZEmitter *emitter);
    bool isLoadingFirst();
    QSharedPointer<ZLibrary> loadFile(const QString &name, ZEmitter *emitter, bool onceMore);

    ZLogger *m_logger = nullptr;
    ZNamedLogger m_log;
    const QSharedPointer<ZVersions> m_versions;
    QRecursiveMutex m_turn;                         // one thread loads at a time
    QMutex m_mutex;                                 // guards what follows
    QString m_first;                                // to be loaded before anything else; null after that
    QSet<QPair<Qt::HANDLE, QString>> m_beingLoaded; // which thread loads which name; a null name stands for all
};
