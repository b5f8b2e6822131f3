// SPDX-License-Identifier: Apache-2.0
#include "zdefaultloader.h"

#include "zcaught.h"
#include "zdeployment.h"
#include "zfolderwatch.h"
#include "zparking.h"
#include "ztexts.h"
#include "ztypename.h"
#include "zwiring.h"

#include <QCoreApplication>
#include <QDateTime>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonObject>
#include <QMutexLocker>
#include <QPointer>
#include <QThread>

#include <algorithm>
#include <utility>

namespace {

constexpr int LineKind = 2;
const QLatin1String Prefix("lib");
const QLatin1String Suffix(".so");
const QLatin1String DropPattern("lib*.so");

/// The texts in the array `value` that are not empty; none if it is not an array.
QStringList texts(const QJsonValue &value)
{
    QStringList result;
    const QJsonArray array = value.toArray();
    for (const auto &element : array) {
        const QString text = element.toString();
        if (!text.isEmpty())
            result.append(text);
    }
    return result;
}

QString textOr(const QJsonValue &value, const QString &otherwise)
{
    const QString text = value.toString();
    return text.isEmpty() ? otherwise : text;
}

/// The absolute paths of all folders among `paths`.
QStringList folders(const QStringList &paths)
{
    QStringList result;
    for (const QString &path : paths) {
        QDir dir;
        if (ZDefaultLoader::resolve(path, dir))
            result.append(dir.absolutePath());
    }
    return result;
}

void prependToPath(const QStringList &folders)
{
    if (folders.isEmpty())
        return;
    QByteArray path = QFile::encodeName(folders.join(QLatin1Char(':')));
    const QByteArray old = qgetenv("PATH");
    if (!old.isEmpty())
        path += ':' + old;
    qputenv("PATH", path);
}

QStringList drops(const QDir &hot) { return hot.entryList({DropPattern}); }

/// Deletes a watcher or a timer. Only its own thread may do so, but the last holder of the loader may be a call on
/// another thread; and while it `isSending` a signal, it needs itself. In both cases it is deleted later.
void destroy(QObject *helper, bool isSending)
{
    if (helper->thread() == QThread::currentThread() && !isSending)
        delete helper;
    else
        helper->deleteLater();
}

} // namespace

const char *zDefaultLoaderTypeName() { return zTypeName<ZDefaultLoader>("ZDefaultLoader*"); }

const char *const ZDefaultLoader::TypeName = zDefaultLoaderTypeName();

ZDefaultLoader::ZDefaultLoader() : m_watcher(new ZFolderWatch), m_deployment(new ZDeployment)
{
    connect(m_watcher, SIGNAL(directoryChanged(QString)), this, SLOT(directoryChangedSlot(QString)));
    connect(m_watcher, &ZFolderWatch::unwatched, this, [this](const QString &folder) {
        zCaught([&] { // the logger may throw
            m_log.warn(LineKind, QStringLiteral("%1 cannot be watched: it is looked at every two seconds").arg(folder));
        });
    });
    connect(m_deployment, &ZDeployment::due, this, [this](const QString &source) { lookAgain(source); });
}

ZDefaultLoader::~ZDefaultLoader()
{
    disconnect(m_watcher, nullptr, this, nullptr); // it may be sending a signal on its own thread
    destroy(m_watcher, m_isNotified);
    destroy(m_deployment, m_isNotified);
}

QSharedPointer<ZLibrary> ZDefaultLoader::loaded0(QString name)
{
    const QSharedPointer<ZLibrarySet> set = setOf(basen(name));
    return set ? set->loaded(name) : QSharedPointer<ZLibrary>();
}

QSharedPointer<ZLibrary> ZDefaultLoader::load0(QString name)
{
    const ZParking parking;                 // the plugin may take our place
    if (!name.contains(QLatin1Char('.'))) { // a library that is there need not wait for a load
        if (QSharedPointer<ZLibrary> library = ZDefaultLoader::loaded0(name))
            return library;
    }
    const QString key = zDeepCopy(basen(name));
    QSharedPointer<ZLibrarySet> set = setOf(key);
    if (!set) { // made without our lock, since it is injected
        const auto made = QSharedPointer<ZLibrarySet>::create(name, m_emitter, thread());
        const QMutexLocker locker(&m_mutex);
        QSharedPointer<ZLibrarySet> &entry = m_sets[key];
        if (!entry) // else another thread was quicker
            entry = made;
        set = entry;
    }
    return set->load(name, m_deployed, m_emitter);
}

QSharedPointer<ZLibrarySet> ZDefaultLoader::setOf(const QString &key) const
{
    const QMutexLocker locker(&m_mutex);
    return m_sets.value(key);
}

ZLogger *ZDefaultLoader::getSetZLogger(ZLogger *logger)
{
    if (zKeepFirst(m_logger, logger))
        m_log = ZNamedLogger(logger, QStringLiteral("zdefault"));
    return m_logger;
}

ZEmitter *ZDefaultLoader::getSetZEmitter(ZEmitter *emitter)
{
    if (zKeepFirst(m_emitter, emitter))
        return zAnnounce<ZLoaderDelegate>(this, emitter); // this may destroy us
    return m_emitter;
}

ZConfig *ZDefaultLoader::getSetZConfig(ZConfig *config)
{
    if (!zKeepFirst(m_config, config))
        return m_config;
    const QJsonValue section = config->toJson0().value(QStringLiteral("loader"));
    if (section.isObject())
        apply(section.toObject());
    else if (m_logger)
        m_logger->warning0(QStringLiteral("Can't parse loader configuration (json object required)"));
    return m_config;
}

bool ZDefaultLoader::resolve(const QString &path, QDir &dir)
{
    QDir found(QCoreApplication::applicationDirPath());
    if (!found.cd(path)) // an absolute path is taken as it is
        return false;
    dir = found;
    return true;
}

QString ZDefaultLoader::undecorate(const QString &name)
{
    const int prefix = name.startsWith(Prefix) ? Prefix.size() : 0;
    const int suffix = name.endsWith(Suffix) ? Suffix.size() : 0;
    return name.mid(prefix, name.size() - prefix - suffix);
}

QString ZDefaultLoader::basen(const QString &name) { return zBeforeDot(undecorate(name)); }

void ZDefaultLoader::directoryChangedSlot(QString n)
{
    outlive([&] {
        m_log.log(LineKind, [&] { return QStringLiteral("hot-deploy folder changed: %1").arg(n); });
        if (m_deployed.isEmpty())
            return;
        const QDir hot(n);
        const QStringList entries = drops(hot);
        for (const QString &entry : entries)
            take(hot, entry);
    });
}

void ZDefaultLoader::lookAgain(const QString &source)
{
    outlive([&] {
        const QFileInfo file(source);
        if (drops(file.dir()).contains(file.fileName()))
            take(file.dir(), file.fileName());
    });
}

/// Runs `deed`. A plugin that is loaded in it may take our place, so we may be gone afterwards.
template <class Deed>
void ZDefaultLoader::outlive(Deed deed)
{
    QSharedPointer<QObject> self = held();
    const QPointer<ZDefaultLoader> guard(this);
    const bool wasNotified = std::exchange(m_isNotified, m_isNotified || sender());
    zCaught(deed); // the logger may throw
    self.clear();
    if (guard)
        m_isNotified = wasNotified;
}

void ZDefaultLoader::take(const QDir &hot, const QString &entry)
{
    // Skips a name that is a symbolic link in the working directory of the process. Operators keep a plugin back by
    // such a link; it has always been so. The name is given without a folder, so it is looked for in the working
    // directory.
    if (QFileInfo(entry).isSymLink())
        return;
    const QFileInfo file(hot, entry);
    if (file.isDir() && !file.isSymLink())
        return;
    const QDir deployed(m_deployed);
    if (!deployed.exists(entry)) {
        deploy(hot, entry, deployed.filePath(entry));
        return;
    }
    if (!file.exists() && !file.isSymLink()) // it has been deployed in an event loop that the plugin before it has run
        return;
    // The name is taken, so the file stays where it is, and the log says so: what is moved is the stamped name, which a
    // file in the hot-deploy folder has only by chance.
    const QString stamp = QDateTime::currentDateTime().toString(QStringLiteral("yyyyMMdd-hhmmsszzz"));
    const QString stamped = QStringLiteral("%1.%2.%3").arg(file.completeBaseName(), stamp, file.suffix());
    deploy(hot, stamped, deployed.filePath(stamped));
}

void ZDefaultLoader::apply(const QJsonObject &section)
{
    const QString hotDeploy = textOr(section.value(QStringLiteral("hot-deploy")), QStringLiteral("hot-deploy"));
    const QString deployed = textOr(section.value(QStringLiteral("deployed")), QStringLiteral("deployed"));

    const QStringList libraryPaths = folders(texts(section.value(QStringLiteral("add-library-path"))));
    for (const QString &folder : libraryPaths)
        QCoreApplication::addLibraryPath(folder);
    prependToPath(folders(texts(section.value(QStringLiteral("add-path")))));

    QDir dir;
    if (!resolve(deployed, dir))
        return;
    m_deployed = dir.absolutePath();
    QCoreApplication::addLibraryPath(m_deployed);
    const QStringList names = texts(section.value(QStringLiteral("load-list")));
    for (const QString &name : names)
        load0(name);

    if (!resolve(hotDeploy, dir))
        return;
    const QStringList seen = drops(dir);
    directoryChangedSlot(dir.absolutePath());
    m_watcher->watch(dir.absolutePath());
    const QStringList now = drops(dir);
    const auto isNew = [&](const QString &entry) { return !seen.contains(entry); };
    if (std::any_of(now.begin(), now.end(), isNew)) // dropped meanwhile: no signal comes for it
        directoryChangedSlot(dir.absolutePath());
}

void ZDefaultLoader::deploy(const QDir &hot, const QString &source, const QString &target)
{
    const ZDeployment::Result result = m_deployment->move(hot.filePath(source), target);
    if (result == ZDeployment::Moved)
        load0(QFileInfo(source).completeBaseName());
    else if (result == ZDeployment::Failed)
        m_log.warn(LineKind, QStringLiteral("failed to rename %1 to %2").arg(hot.filePath(source), target));
}

ZLoaderDelegate::ZLoaderDelegate(QObject *object) : ZDelegate(refer(object)) { provide<ZLoader>(this); }

ZLoaderDelegate::ZLoaderDelegate(QSharedPointer<QObject> object) : ZDelegate(refer(std::move(object)))
{
    provide<ZLoader>(this);
}

QSharedPointer<ZLibrary> ZLoaderDelegate::loaded0(QString name) { return forward(&ZLoader::loaded0, {}, name); }

QSharedPointer<ZLibrary> ZLoaderDelegate::load0(QString name) { return forward(&ZLoader::load0, {}, name); }
