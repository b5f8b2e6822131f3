// SPDX-License-Identifier: Apache-2.0
// Any configuration: as the host reads and checks it, and as the services take it. All folders that it may name are
// moved into a temporary one.
#include "fuzz.h"

#include "configuration.h"
#include "folder.h"
#include "testcase.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QJsonArray>
#include <QJsonObject>
#include <QLoggingCategory>
#include <QTemporaryFile>

#include <zdefaultconfig.h>
#include <zdefaultdbus.h>
#include <zdefaultemitter.h>
#include <zdefaultfilesystem.h>
#include <zdefaultloader.h>
#include <zdefaultlogger.h>
#include <zdefaultpoolset.h>
#include <zdefaultscheduler.h>

#include <sanitizer/lsan_interface.h>

#include <climits>
#include <filesystem>

namespace {

/// A folder to which everything is confined: the working directory, and the home of temporary files.
class Prison
{
public:
    Prison()
    {
        qputenv("TMPDIR", QFile::encodeName(m_folder.path()));
        std::filesystem::current_path(m_folder.path().toStdString());
        QCoreApplication::setLibraryPaths({});
        QDir here;
        promise(here.mkdir(QStringLiteral("deployed")) && here.mkdir(QStringLiteral("hot-deploy")) &&
                    QFile::copy(QStringLiteral(PATIENT), QStringLiteral("deployed/libpatient.so")) &&
                    m_folder.write(QStringLiteral("hot-deploy/libdamaged.so"), "no plugin") &&
                    m_folder.write(QStringLiteral("app.old"), "left over"),
                "there is a folder to begin with");
    }
    ~Prison()
    {
        qputenv("PATH", m_path);
        qunsetenv("TMPDIR");
        std::filesystem::current_path(m_before);
    }

    QString filePath(const QString &name) const { return m_folder.filePath(name); }

    /// The same configuration for somebody to whom this folder is the root.
    QJsonObject confined(QJsonObject config) const
    {
        change(config, "loader", [this](QJsonObject &section) {
            for (const char *key : {"hot-deploy", "deployed", "add-library-path", "add-path"})
                confine(section, key, [this](const QString &path) { return filePath(harmless(path)); });
            confine(section, "load-list",
                    [](const QString &name) { return QString(name).replace(QLatin1Char('/'), QLatin1Char('_')); });
        });
        change(config, "filesystem", [this](QJsonObject &section) {
            confine(section, "temporary-folder", [this](const QString &path) {
                return path.startsWith(QLatin1Char('/')) ? filePath(harmless(path)) : harmless(path);
            });
            confine(section, "temporary-fn-template", harmless);
        });
        return config;
    }

private:
    /// A path that leads to nowhere else. The root's own files are not its business either.
    static QString harmless(QString path)
    {
        path.replace(QStringLiteral(".."), QStringLiteral("_"));
        while (path.startsWith(QLatin1Char('/')))
            path.remove(0, 1);
        return path.isEmpty() ? QStringLiteral("_") : path;
    }

    template <class Change>
    static void change(QJsonObject &config, const char *key, Change change)
    {
        const QJsonValue value = config.value(QLatin1String(key));
        if (!value.isObject())
            return;
        QJsonObject section = value.toObject();
        change(section);
        config.insert(QLatin1String(key), section);
    }

    /// Changes the text that is called `key`, or those in the array of that name. An empty one stays.
    template <class Change>
    static void confine(QJsonObject &section, const char *key, Change change)
    {
        const auto changed = [&](const QJsonValue &value) {
            const QString text = value.toString();
            return text.isEmpty() ? value : QJsonValue(change(text));
        };
        QJsonValue value = changed(section.value(QLatin1String(key)));
        if (value.isArray()) {
            QJsonArray array = value.toArray();
            for (int i = 0; i < array.size(); ++i)
                array[i] = changed(array.at(i));
            value = array;
        }
        if (!value.isUndefined())
            section.insert(QLatin1String(key), value);
    }

    const QByteArray m_path = qgetenv("PATH");
    const std::filesystem::path m_before = std::filesystem::current_path();
    const Folder m_folder;
};

void checkLogger(const QJsonObject &config, ZLogger *logger)
{
    const QJsonObject section = config.value(QStringLiteral("logger")).toObject();
    const auto isOn = [&](const char *key) {
        const QJsonValue value = section.value(QLatin1String(key));
        return !value.isDouble() || value.toDouble() <= -1 || value.toDouble() >= 1; // on before, and cut to whole
    };
    promise(logger->debug0() == isOn("debug") && logger->info0() == isOn("info") &&
                logger->warning0() == isOn("warning") && logger->critical0() == isOn("critical"),
            "a severity is switched off by nothing but a zero");

    int categories = 0;
    const QJsonObject log = section.value(QStringLiteral("log")).toObject();
    for (auto entry = log.begin(); entry != log.end(); ++entry) {
        const int index = logger->log0(entry.key());
        const bool isCategory = !entry.key().startsWith(QLatin1Char('#')) && entry.value().isDouble();
        promise((index >= 0) == isCategory, "a number makes a category, unless it is commented out", entry.key());
        if (!isCategory)
            continue;
        ++categories;
        const double wanted = entry.value().toDouble();
        if (wanted > INT_MIN && wanted < INT_MAX)
            promise(logger->log0(index) == int(wanted), "a category has its mask", entry.key());
        logger->log0(index, 1, QStringLiteral("%1 %2 %3 %4"));
    }
    for (const int index : {INT_MIN, -1, categories, INT_MAX}) {
        promise(logger->log0(index) == 0, "there is no mask where there is no category");
        logger->log0(index, 1, QStringLiteral("to nobody"));
    }
    for (int index = 0; index < categories; ++index)
        logger->log0(index, INT_MIN, QString());
}

/// All services are made with this configuration, and go again.
void start(const Prison &prison, const QJsonObject &config)
{
    for (const QtMsgType severity : {QtDebugMsg, QtInfoMsg, QtWarningMsg, QtCriticalMsg, QtFatalMsg})
        QLoggingCategory::defaultCategory()->setEnabled(severity, true);
    const QByteArray path = qgetenv("PATH");
    const Wiring wiring;
    auto *holder = qobject_cast<ZConfig *>(wiring->zemit0(ZDefaultConfig::TypeName, Q_ARG(QJsonObject, config)));
    promise(holder->toJson0() == config, "the configuration is kept as it is");
    checkLogger(config, qobject_cast<ZLogger *>(wiring->zemit0(ZDefaultLogger::TypeName)));

    wiring->zemit0(ZDefaultLoader::TypeName);
    const QJsonObject loader = config.value(QStringLiteral("loader")).toObject();
    if (!loader.value(QStringLiteral("add-path")).isArray())
        promise(qgetenv("PATH") == path, "PATH stays as it is unless folders are added");
    promise(qgetenv("PATH").endsWith(path), "PATH keeps what it had");
    const QString deployed = loader.value(QStringLiteral("deployed")).toString();
    if (deployed == prison.filePath(QStringLiteral("deployed")))
        promise(QCoreApplication::libraryPaths().contains(QDir(deployed).canonicalPath()),
                "the deployed folder is a library path");
    else if (!loader.value(QStringLiteral("add-library-path")).isArray() && !QDir(deployed).exists())
        promise(QCoreApplication::libraryPaths().isEmpty(), "no library path is added for a folder that is missing");

    auto *files = qobject_cast<ZTempFile *>(wiring->zemit0(ZDefaultTempFile::TypeName));
    const QSharedPointer<QTemporaryFile> file = files->newFile0();
    promise(file && !file->isOpen(), "a temporary file comes unopened");
    if (QFileInfo(file->fileTemplate()).absoluteFilePath().startsWith(prison.filePath(QString()))) // not the root
        file->open();

    for (const char *type : {ZDefaultJobPoolSet::TypeName, ZDefaultThreadPoolSet::TypeName, ZDefaultDbus::TypeName,
                             ZDefaultScheduler::TypeName})
        promise(wiring->zemit0(type), "every service can be made", QLatin1String(type));
}

} // namespace

void fuzz(const QByteArray &input)
{
    const Prison prison;
    const QString file = prison.filePath(QStringLiteral("config.json"));
    {
        QFile out(file);
        promise(out.open(QIODevice::WriteOnly) && out.write(input) == input.size(), "the disk has room");
    }
    Configuration configuration;
    {
        const __lsan::ScopedDisabler disabler; // Qt's parser leaks an object whose key is given again
        configuration = Configuration::read(file);
    }
    promise(configuration.object.isEmpty() || configuration.error.isEmpty(), "a file is read, or it is not");
    promise(!configuration.error.contains(QLatin1Char('\n')), "an error is one line", configuration.error);
    configuration.object = prison.confined(configuration.object);
    const QVector<Finding> findings = configuration.findings();
    for (const Finding &finding : findings)
        promise(!finding.text.isEmpty() && !finding.text.contains(QLatin1Char('\n')), "a finding is one line",
                finding.text);
    start(prison, configuration.object);
}
