// SPDX-License-Identifier: Apache-2.0
#include "foldercheck.h"

#include "configuration.h"
#include "ownership.h"
#include "pluginfiles.h"

#include <QCoreApplication>
#include <QDir>
#include <QFileInfo>
#include <QJsonArray>

#include <zdefaultloader.h>

#include <algorithm>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

const QString Deployed = QStringLiteral("deployed");
const QString HotDeploy = QStringLiteral("hot-deploy");
const QString InboxFolder = QStringLiteral("inbox");
const QString LibraryPaths = QStringLiteral("add-library-path");
const QString Paths = QStringLiteral("add-path");
const QString LoadList = QStringLiteral("load-list");

bool isAllowed(const QString &folder, int mode)
{
    return faccessat(AT_FDCWD, QFile::encodeName(folder).constData(), mode, AT_EACCESS) == 0;
}

/// Whether another user owns `folder`, and only the owner may remove what others put there. Never if we are root.
bool isKeptByAnother(const QString &folder)
{
    struct stat status;
    return stat(QFile::encodeName(folder).constData(), &status) == 0 && (status.st_mode & S_ISVTX) != 0 &&
           status.st_uid != geteuid() && geteuid() != 0;
}

class Check
{
public:
    explicit Check(const Configuration &configuration)
        : m_section(configuration.object.value(QStringLiteral("loader")).toObject()),
          m_deployed(configuration.folder(Deployed)), m_hotDeploy(configuration.folder(HotDeploy)),
          m_inbox(configuration.inbox()), m_isStrict(m_section.value(QStringLiteral("strict")).toBool())
    {}

    QVector<Finding> findings;

    void folders()
    {
        own(Deployed, m_deployed);
        own(HotDeploy, m_hotDeploy);
        if (!m_deployed.isEmpty() && QDir(m_deployed).canonicalPath() == QDir(m_hotDeploy).canonicalPath())
            problem(HotDeploy, QStringLiteral("is the folder that \"loader.deployed\" is: nothing can be dropped"));
        for (const QString &key : {LibraryPaths, Paths})
            forEach(key, [&](const QString &path, const QString &value) {
                QDir dir;
                if (value.isEmpty() || !ZDefaultLoader::resolve(value, dir))
                    return;
                openToOthers(path, dir.absolutePath());
                if (key == LibraryPaths)
                    files(path, dir.absolutePath());
            });
        if (QFileInfo(m_inbox).isDir())
            inbox();
    }

    void names()
    {
        if (m_deployed.isEmpty()) // nothing is loaded
            return;
        const QStringList folders = searched();
        forEach(LoadList, [&](const QString &path, const QString &name) {
            const auto has = [&](const QString &folder) { return hasPlugin(folder, name); };
            if (!name.isEmpty() && std::none_of(folders.begin(), folders.end(), has))
                problem(path, QStringLiteral("there is no plugin \"%1\" to load").arg(name));
        });
    }

private:
    void problem(const QString &key, const QString &what, Finding::Weight weight = Finding::Wrong)
    {
        findings.append({QStringLiteral("loader.%1").arg(key), what, weight});
    }

    /// Reports a folder.
    void distrusted(const QString &key, const QString &what)
    {
        problem(key, what, m_isStrict ? Finding::Unusable : Finding::Wrong);
    }

    template <class Deed>
    void forEach(const QString &key, Deed deed)
    {
        const QJsonArray values = m_section.value(key).toArray();
        for (int i = 0; i < values.size(); ++i)
            deed(QStringLiteral("%1[%2]").arg(key, QString::number(i)), values.at(i).toString());
    }

    /// Checks one of the two folders of the loader.
    void own(const QString &key, const QString &folder)
    {
        if (folder.isEmpty()) {
            if (!m_section.contains(key)) // else what it names has been looked for
                problem(key, QStringLiteral("is left out, and there is no folder %1/%2")
                                 .arg(QCoreApplication::applicationDirPath(), key));
            return;
        }
        if (!isAllowed(folder, R_OK | X_OK))
            problem(key, QStringLiteral("%1 cannot be read").arg(folder));
        if (!isAllowed(folder, W_OK | X_OK))
            problem(key, QStringLiteral("%1 cannot be written: nothing can be dropped").arg(folder));
        openToOthers(key, folder);
        files(key, folder);
    }

    void openToOthers(const QString &key, const QString &folder)
    {
        const QString reason = distrust(folder);
        if (!reason.isNull())
            distrusted(key, QStringLiteral("%1, and so have this program run anything").arg(reason));
    }

    /// Checks the plugins in `folder`, unless the folder itself was reported.
    void files(const QString &key, const QString &folder)
    {
        if (!distrust(folder).isNull())
            return;
        const QFileInfoList plugins = QDir(folder).entryInfoList({QStringLiteral("*.so")}, QDir::Files);
        for (const QFileInfo &plugin : plugins) {
            const QString reason = distrust(plugin.filePath());
            if (!reason.isNull())
                problem(key, QStringLiteral("%1, and so have this program run anything%2")
                                 .arg(reason, QLatin1String(m_isStrict ? "; it is not loaded" : "")));
        }
    }

    void inbox()
    {
        for (const QString &key : {Deployed, HotDeploy}) {
            const QString other = key == Deployed ? m_deployed : m_hotDeploy;
            if (!other.isEmpty() && QDir(m_inbox).canonicalPath() == QDir(other).canonicalPath())
                problem(InboxFolder, QStringLiteral("is the folder that \"loader.%1\" is").arg(key), Finding::Unusable);
        }
        if (!isAllowed(m_inbox, R_OK | W_OK | X_OK))
            problem(InboxFolder, QStringLiteral("%1 cannot be read and written: nothing is taken out").arg(m_inbox));
        if (isKeptByAnother(m_inbox))
            problem(InboxFolder,
                    QStringLiteral("%1 is of another user, and its sticky bit is set: what others put there "
                                   "cannot be taken out")
                        .arg(m_inbox));
        const QString reason = distrust(m_inbox, Use::Shared);
        if (!reason.isNull())
            distrusted(InboxFolder, QStringLiteral("%1, and so take away what others put there").arg(reason));
    }

    /// The folders in which plugins are looked for, and the hot-deploy folder, from which they come.
    QStringList searched()
    {
        QStringList result{m_deployed, m_hotDeploy};
        forEach(LibraryPaths, [&](const QString &, const QString &value) {
            QDir dir;
            if (!value.isEmpty() && ZDefaultLoader::resolve(value, dir))
                result.append(dir.absolutePath());
        });
        result += QCoreApplication::libraryPaths();
        result.removeAll(QString());
        return result;
    }

    /// Whether `folder` has the file called `name`, decorated or not, or a version of a plugin called so.
    static bool hasPlugin(const QString &folder, const QString &name)
    {
        const QDir dir(folder);
        for (const char *const form : {"%1", "lib%1.so", "lib%1", "%1.so"}) {
            if (QFileInfo(dir, QString::fromLatin1(form).arg(name)).isFile())
                return true;
        }
        return !name.contains(QLatin1Char('.')) && hasVersions(folder, name);
    }

    const QJsonObject m_section;
    const QString m_deployed; // each empty if there is none
    const QString m_hotDeploy;
    const QString m_inbox;
    const bool m_isStrict;
};

} // namespace

QVector<Finding> checkFolders(const Configuration &configuration)
{
    const QString section = QStringLiteral("loader");
    if (!configuration.object.contains(section))
        return {{section, QStringLiteral("is missing: no plugin is loaded"), Finding::Wrong}};
    if (!configuration.object.value(section).isObject())
        return {};
    Check check(configuration);
    check.folders();
    check.names();
    return check.findings;
}
