// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "zconfig.h"
#include "zdelegate.h"
#include "zemitter.h"
#include "zlibraryset.h"
#include "zloader.h"
#include "zlogger.h"
#include "znamedlogger.h"
#include "zowned.h"

#include <QDir>
#include <QHash>
#include <QMutex>

class ZDeployment;
class ZFolderWatch;

/// Returns "ZDefaultLoader*", and registers that type as a metatype.
ZDEFAULT_EXPORT const char *zDefaultLoaderTypeName();

/**
 * Loads plugins from the deployed folder, as the section "loader" says, and deploys what is dropped into the
 * hot-deploy folder.
 *
 * Ownership: the emitter owns it, once it is announced. Owns one library set per plugin; keeps no library.
 * Thread:    any. The hot-deploy folder is watched on the loader's own thread, which needs an event loop; the roots of
 *            the plugins live there, too. While a plugin is loaded, other loads of the same plugin wait.
 * Failure:   a null library; the reason is in the log.
 */
class ZDEFAULT_EXPORT ZDefaultLoader : public QObject, public ZLoader, public ZOwned
{
    Q_OBJECT
    Q_INTERFACES(ZLoader)
    Q_PROPERTY(ZLogger *zLogger READ getSetZLogger WRITE getSetZLogger)
    Q_PROPERTY(ZEmitter *zEmitter READ getSetZEmitter WRITE getSetZEmitter)
    Q_PROPERTY(ZConfig *zConfig READ getSetZConfig WRITE getSetZConfig)

public:
    static const char *const TypeName;

    Q_INVOKABLE ZDefaultLoader();
    ~ZDefaultLoader() override;

    QSharedPointer<ZLibrary> loaded0(QString name) override;
    QSharedPointer<ZLibrary> load0(QString name) override;

    /// Takes the first logger that comes, and no other.
    ZLogger *getSetZLogger(ZLogger *logger = nullptr);
    /// Takes the first emitter that comes, and no other, and announces the loader there.
    ZEmitter *getSetZEmitter(ZEmitter *emitter = nullptr);
    /// Takes the first configuration that comes, and no other, and applies it: paths, plugins to load, folder to watch.
    ZConfig *getSetZConfig(ZConfig *config = nullptr);

    /// Sets `dir` to the folder at `path`, which is relative to the application's folder unless it is absolute. False
    /// if there is no such folder; `dir` stays as it was.
    static bool resolve(const QString &path, QDir &dir);
    /// A plugin's name with its versions: "foo.1" for "libfoo.1.so".
    static QString undecorate(const QString &name);
    /// A plugin's name: "foo" for "libfoo.1.so".
    static QString basen(const QString &name);

public Q_SLOTS:
    /// Moves each plugin file in the hot-deploy folder `n` to the deployed folder, and loads it. If the folders are on
    /// two file systems, files that are being written, or are large, follow later, from the event loop.
    void directoryChangedSlot(QString n);

private:
    void apply(const QJsonObject &section);
    template <class Deed>
    void outlive(Deed deed);
    void lookAgain(const QString &source);
    void take(const QDir &hot, const QString &entry);
    void deploy(const QDir &hot, const QString &source, const QString &target);
    QSharedPointer<ZLibrarySet> setOf(const QString &key) const;

    ZLogger *m_logger = nullptr;
    ZEmitter *m_emitter = nullptr;
    ZConfig *m_config = nullptr;
    QString m_deployed; // absolute
    ZFolderWatch *const m_watcher;
    ZDeployment *const m_deployment;
    bool m_isNotified = false;                          // one of these two is calling us at this moment
    QHash<QString, QSharedPointer<ZLibrarySet>> m_sets; // by base name
    mutable QMutex m_mutex;                             // guards m_sets
    ZNamedLogger m_log;
};

/// The delegate of a `ZLoader`. Otherwise as `ZDelegate`.
class ZDEFAULT_EXPORT ZLoaderDelegate : public ZDelegate, public ZLoader
{
public:
    explicit ZLoaderDelegate(QObject *object);
    explicit ZLoaderDelegate(QSharedPointer<QObject> object);

    QSharedPointer<ZLibrary> loaded0(QString name) override;
    QSharedPointer<ZLibrary> load0(QString name) override;
};
