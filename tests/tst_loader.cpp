// SPDX-License-Identifier: Apache-2.0
#include "greeter.h"
#include "host.h"
#include "journal.h"

#include <QDir>
#include <QFileInfo>
#include <QJsonArray>
#include <QMetaProperty>
#include <QPointer>
#include <QRegularExpression>
#include <QSemaphore>
#include <QTemporaryFile>

#include <zdefaultfilesystem.h>
#include <zdefaultlogger.h>
#include <zlibrary.h>
#include <zobject.h>

#include <functional>
#include <thread>
#include <vector>

#include <sys/wait.h>
#include <unistd.h>

using Library = QSharedPointer<ZLibrary>;

namespace {

const QString Deployed = QStringLiteral("deployed");
const QString HotDeploy = QStringLiteral("hot-deploy");
const QString AddPath = QStringLiteral("add-path");
const QString AddLibraryPath = QStringLiteral("add-library-path");
const QString LoadList = QStringLiteral("load-list");

class Consumer : public QObject
{
    Q_OBJECT
    Q_PROPERTY(ZLoader *zLoader MEMBER loader)

public:
    ZLoader *loader = nullptr;
};

/// A folder of a given name beside the program, while this object lives.
class FolderBeside
{
public:
    explicit FolderBeside(const QString &name) : m_dir(QCoreApplication::applicationDirPath() + QLatin1Char('/') + name)
    {
        m_dir.removeRecursively(); // a run that was killed leaves it
        m_dir.mkpath(m_dir.path());
    }
    ~FolderBeside() { m_dir.removeRecursively(); }

    QString path() const { return m_dir.path(); }
    bool drop(const QString &plugin, const QString &file)
    {
        return QFile::copy(pluginFile(plugin), m_dir.filePath(file));
    }

private:
    Q_DISABLE_COPY(FolderBeside)
    QDir m_dir;
};

/// Sets the environment's PATH while it lives; unsets it for a null text.
class Path
{
public:
    explicit Path(const QByteArray &path) : m_before(qgetenv("PATH"))
    {
        if (path.isNull())
            qunsetenv("PATH");
        else
            qputenv("PATH", path);
    }
    ~Path() { qputenv("PATH", m_before); }

private:
    Q_DISABLE_COPY(Path)
    const QByteArray m_before;
};

/// A service of the application's own that might as well be a plugin's.
class OwnFiles : public ZObject, public ZTempFile
{
    Q_OBJECT
    Q_INTERFACES(ZTempFile)

public:
    QSharedPointer<QTemporaryFile> newFile0() override { return QSharedPointer<QTemporaryFile>::create(); }
};

/// An emitter that tells when somebody is about to be injected.
class Doorman : public ZDefaultEmitter
{
public:
    QSemaphore entered;

    QObject *inject0(QObject *object) override
    {
        entered.release();
        return ZDefaultEmitter::inject0(object);
    }
};

/// A component whose writer does what a test wants.
class Errand : public QObject
{
    Q_OBJECT
    Q_PROPERTY(ZLoader *zLoader READ run WRITE run)

public:
    std::function<void(ZLoader *)> task;

    ZLoader *run(ZLoader *loader = nullptr)
    {
        if (loader)
            task(loader);
        return loader;
    }
};

QStringList entriesOf(const QString &text, QStringList entries)
{
    for (QString &entry : entries)
        entry.prepend(text);
    return entries;
}

void letGo(const Library &library) { QMetaObject::invokeMethod(QSharedPointer<ZObject>(*library).data(), "letGo"); }

} // namespace

class tst_Loader : public TestCase
{
    Q_OBJECT

private Q_SLOTS:
    void undecoratedNameHasNeitherPrefixNorSuffix_data();
    void undecoratedNameHasNeitherPrefixNorSuffix();
    void baseNameIgnoresDecorationAndVersion_data();
    void baseNameIgnoresDecorationAndVersion();
    void foldersAreResolvedFromTheApplicationsFolder_data();
    void foldersAreResolvedFromTheApplicationsFolder();
    void foldersThatDoNotExistAreNotResolved_data();
    void foldersThatDoNotExistAreNotResolved();

    void loaderIsAComponentOfThreeServices();
    void loaderAnnouncesItself();
    void firstLoggerWins();
    void firstEmitterWins();
    void firstConfigurationWins();

    void sectionThatIsNoObjectIsRefused_data();
    void sectionThatIsNoObjectIsRefused();
    void sectionThatIsRefusedIsToldWhateverIsSwitchedOff();
    void sectionThatIsRefusedIsNotToldWithoutALogger();
    void pluginsAreLoadedFromTheDeployedFolder();
    void foldersHaveDefaults_data();
    void foldersHaveDefaults();
    void foldersMayBeRelativeToTheApplicationsFolder();
    void deployedFolderIsALibraryPath();
    void libraryPathsAreAdded();
    void listsOfAnotherTypeAreSkipped_data();
    void listsOfAnotherTypeAreSkipped();
    void pathsAreSearchedFirst_data();
    void pathsAreSearchedFirst();
    void pathStaysWithoutAFolder();
    void pluginsAreLoadedInTheOrderOfTheList();
    void pluginsOfTheListAreReleasedAtOnce();
    void namesOfOnePluginShareASet();
    void withoutADeployedFolderNothingIsLoadedOrDeployed_data();
    void withoutADeployedFolderNothingIsLoadedOrDeployed();

    void firstLoadLoadsEveryVersion();
    void pluginThatKeepsItselfIsAnswered();
    void versionIsAnsweredToItsHolder();
    void nameThatWasNeverLoadedIsNotThere();
    void unloadingGoesToTheLoadersThread();
    void manyThreadsMayLoadOnePlugin();
    void pluginMayLoadAnotherWhileItIsInjected();
    void writerMayLoadWhileAnotherThreadLoads_data();
    void writerMayLoadWhileAnotherThreadLoads();
    void pluginMayAskForItselfWhileItIsInjected_data();
    void pluginMayAskForItselfWhileItIsInjected();
    void namesOutliveThePluginThatGaveThem();
    void plainNamesOutliveTheirCaller();
    void libraryMayOutliveItsLoader();
    void twoLoadersMayLoadOneFile();
    void serviceOfAPluginIsReachedAndLeavesWithIt();
    void whatAPluginGaveKeepsItInMemory();
    void whatAnApplicationGaveDoesNotKeepTheComponent();
    void pluginThatServesMayBeInjectedAgain();
    void pluginWithTheFirstDelegateOfAnInterfaceStaysInMemory();
    void messagesReachTheDefaultLogger();
};

void tst_Loader::undecoratedNameHasNeitherPrefixNorSuffix_data()
{
    QTest::addColumn<QString>("name");
    QTest::addColumn<QString>("undecorated");
    QTest::newRow("both") << "libfoo.so"
                          << "foo";
    QTest::newRow("prefix") << "libfoo"
                            << "foo";
    QTest::newRow("suffix") << "foo.so"
                            << "foo";
    QTest::newRow("neither") << "foo"
                             << "foo";
    QTest::newRow("versioned") << "libfoo.1.so"
                               << "foo.1";
    QTest::newRow("version of two parts") << "libfoo.1.2"
                                          << "foo.1.2";
    QTest::newRow("version after the suffix") << "libfoo.so.1"
                                              << "foo.so.1";
    QTest::newRow("nothing but the prefix") << "lib"
                                            << "";
    QTest::newRow("nothing but the suffix") << ".so"
                                            << "";
    QTest::newRow("nothing but both") << "lib.so"
                                      << "";
    QTest::newRow("twice") << "liblibfoo.so.so"
                           << "libfoo.so";
    QTest::newRow("in the middle") << "mylib.sox"
                                   << "mylib.sox";
    QTest::newRow("other case") << "LIBfoo.SO"
                                << "LIBfoo.SO";
    QTest::newRow("empty") << ""
                           << "";
}

void tst_Loader::undecoratedNameHasNeitherPrefixNorSuffix()
{
    QFETCH(QString, name);
    QTEST(ZDefaultLoader::undecorate(name), "undecorated");
}

void tst_Loader::baseNameIgnoresDecorationAndVersion_data()
{
    QTest::addColumn<QString>("name");
    QTest::addColumn<QString>("base");
    QTest::newRow("plain") << "foo"
                           << "foo";
    QTest::newRow("file") << "libfoo.so"
                          << "foo";
    QTest::newRow("versioned") << "libfoo.1.2.so"
                               << "foo";
    QTest::newRow("version after the suffix") << "libfoo.so.1"
                                              << "foo";
    QTest::newRow("version only") << ".1"
                                  << "";
    QTest::newRow("nothing left") << "lib"
                                  << "";
}

void tst_Loader::baseNameIgnoresDecorationAndVersion()
{
    QFETCH(QString, name);
    QTEST(ZDefaultLoader::basen(name), "base");
}

void tst_Loader::foldersAreResolvedFromTheApplicationsFolder_data()
{
    const QDir home(QCoreApplication::applicationDirPath());
    QTest::addColumn<QString>("path");
    QTest::addColumn<QString>("resolved");
    QTest::newRow("absolute") << QDir::tempPath() << QDir::tempPath();
    QTest::newRow("relative") << "plugins" << home.absoluteFilePath(QStringLiteral("plugins"));
    QTest::newRow("above") << ".." << QFileInfo(home.path()).path();
    QTest::newRow("there") << "." << home.path();
}

void tst_Loader::foldersAreResolvedFromTheApplicationsFolder()
{
    QFETCH(QString, path);
    const Folder elsewhere;
    const QString working = QDir::currentPath();
    QDir::setCurrent(elsewhere.path());
    QDir dir;
    const bool found = ZDefaultLoader::resolve(path, dir);
    const QString resolved = dir.absolutePath();
    QDir::setCurrent(working);
    QVERIFY(found);
    QTEST(resolved, "resolved");
}

void tst_Loader::foldersThatDoNotExistAreNotResolved_data()
{
    QTest::addColumn<QString>("path");
    QTest::newRow("absolute") << "/nowhere/at/all";
    QTest::newRow("relative") << "nowhere";
    QTest::newRow("relative file") << "tst_loader";
    QTest::newRow("absolute file") << QCoreApplication::applicationFilePath();
}

void tst_Loader::foldersThatDoNotExistAreNotResolved()
{
    QFETCH(QString, path);
    QDir dir(QDir::rootPath());
    QVERIFY(!ZDefaultLoader::resolve(path, dir));
    QCOMPARE(dir.path(), QDir::rootPath());
    QVERIFY(!QFileInfo(QDir(QCoreApplication::applicationDirPath()), path).isDir());
}

void tst_Loader::loaderIsAComponentOfThreeServices()
{
    QCOMPARE(ZDefaultLoader::TypeName, "ZDefaultLoader*");
    QCOMPARE(zDefaultLoaderTypeName(), "ZDefaultLoader*");
    ZDefaultLoader loader;
    QCOMPARE(loader.qt_metacast("ZDefaultLoader"), static_cast<void *>(&loader));
    QCOMPARE(loader.qt_metacast("zdefault::ZLoader"), static_cast<void *>(static_cast<ZLoader *>(&loader)));

    const QMetaObject *meta = loader.metaObject();
    QStringList properties;
    for (int i = meta->propertyOffset(); i < meta->propertyCount(); ++i)
        properties.append(QStringLiteral("%1 %2").arg(QLatin1String(meta->property(i).typeName()),
                                                      QLatin1String(meta->property(i).name())));
    QCOMPARE(properties, QStringList({QStringLiteral("ZLogger* zLogger"), QStringLiteral("ZEmitter* zEmitter"),
                                      QStringLiteral("ZConfig* zConfig")}));
    QVERIFY(meta->indexOfSlot("directoryChangedSlot(QString)") >= 0);
}

void tst_Loader::loaderAnnouncesItself()
{
    const Folder folder;
    folder.drop(QStringLiteral("plain"), QStringLiteral("libfoo.1.so"));
    const Host host;
    const QJsonObject config{{QStringLiteral("loader"), QJsonObject{{Deployed, folder.path()}}}};
    host->zemit0(ZDefaultConfig::TypeName, Q_ARG(QJsonObject, config));
    auto *loader = qobject_cast<ZDefaultLoader *>(host->zemit0(ZDefaultLoader::TypeName));
    QVERIFY(loader);
    Consumer consumer;
    host->inject0(&consumer);
    QVERIFY(consumer.loader);
    QVERIFY(consumer.loader != loader); // its delegate
    const Library library = consumer.loader->load0(QStringLiteral("libfoo.1"));
    QVERIFY(library);
    QCOMPARE(consumer.loader->loaded0(QStringLiteral("libfoo.1")), library);
    QCOMPARE(loader->loaded0(QStringLiteral("libfoo.1")), library);
}

void tst_Loader::firstLoggerWins()
{
    Journal first;
    Journal second;
    ZDefaultLoader loader;
    QCOMPARE(loader.getSetZLogger(), nullptr);
    QCOMPARE(loader.getSetZLogger(&first), &first);
    QCOMPARE(loader.getSetZLogger(&second), &first);
    QCOMPARE(loader.property("zLogger").value<ZLogger *>(), &first);
    loader.directoryChangedSlot(QString());
    QCOMPARE(first.take().size(), 1);
    QVERIFY(second.isEmpty());
}

void tst_Loader::firstEmitterWins()
{
    const Host first;
    const Host second;
    auto *loader = new ZDefaultLoader;
    QCOMPARE(loader->getSetZEmitter(), nullptr);
    QCOMPARE(loader->getSetZEmitter(first.emitter()), first.emitter());
    QCOMPARE(loader->getSetZEmitter(second.emitter()), first.emitter());
    QCOMPARE(loader->property("zEmitter").value<ZEmitter *>(), first.emitter());
    Consumer consumer;
    second->inject0(&consumer);
    QVERIFY(!consumer.loader);
    first->inject0(&consumer);
    QVERIFY(consumer.loader);
}

void tst_Loader::firstConfigurationWins()
{
    const Folder folder;
    folder.drop(QStringLiteral("plain"), QStringLiteral("libfoo.so"));
    Journal journal;
    ZDefaultLoader loader;
    loader.getSetZLogger(&journal);
    ZDefaultConfig first;
    ZDefaultConfig second(
        QJsonObject{{QStringLiteral("loader"),
                     QJsonObject{{Deployed, folder.path()}, {LoadList, QJsonArray{QStringLiteral("foo")}}}}});
    QCOMPARE(loader.getSetZConfig(), nullptr);
    QCOMPARE(loader.getSetZConfig(&first), &first);
    journal.take();
    QCOMPARE(loader.getSetZConfig(&second), &first);
    QCOMPARE(loader.getSetZConfig(), &first);
    QCOMPARE(loader.property("zConfig").value<ZConfig *>(), &first);
    QVERIFY(journal.isEmpty());
    QVERIFY(!QCoreApplication::libraryPaths().contains(folder.path()));
}

void tst_Loader::sectionThatIsNoObjectIsRefused_data()
{
    QTest::addColumn<QJsonValue>("section");
    QTest::newRow("absent") << QJsonValue(QJsonValue::Undefined);
    QTest::newRow("null") << QJsonValue();
    QTest::newRow("array") << QJsonValue(QJsonArray{QJsonObject()});
    QTest::newRow("string") << QJsonValue(QStringLiteral("{}"));
    QTest::newRow("number") << QJsonValue(1);
    QTest::newRow("bool") << QJsonValue(true);
}

void tst_Loader::sectionThatIsNoObjectIsRefused()
{
    QFETCH(QJsonValue, section);
    FolderBeside deployed(Deployed);
    const QStringList paths = QCoreApplication::libraryPaths();
    const Host host;
    const auto journal = Journal::bind(host.emitter());
    host.wire(section);
    QCOMPARE(journal->take(),
             QStringList{QStringLiteral("warning: Can't parse loader configuration (json object required)")});
    QCOMPARE(QCoreApplication::libraryPaths(), paths);
}

void tst_Loader::sectionThatIsRefusedIsToldWhateverIsSwitchedOff()
{
    const Host host;
    const auto journal = Journal::bind(host.emitter(), 0xff, false);
    host.wire(QJsonArray());
    QCOMPARE(journal->take(),
             QStringList{QStringLiteral("warning: Can't parse loader configuration (json object required)")});
}

void tst_Loader::sectionThatIsRefusedIsNotToldWithoutALogger()
{
    const Host host;
    host.wire(QJsonArray());
    QVERIFY(messages().takeAll().isEmpty());
}

void tst_Loader::pluginsAreLoadedFromTheDeployedFolder()
{
    const Folder folder;
    folder.drop(QStringLiteral("plain"), QStringLiteral("libfoo.1.so"));
    const Host host;
    ZLoader *loader = host.wire(QJsonObject{{Deployed, folder.path()}});
    const Library library = loader->load0(QStringLiteral("libfoo.1"));
    QVERIFY(library);
    QVERIFY(isMapped(folder.filePath(QStringLiteral("libfoo.1.so"))));
}

void tst_Loader::foldersHaveDefaults_data()
{
    QTest::addColumn<QJsonValue>("value");
    QTest::newRow("absent") << QJsonValue(QJsonValue::Undefined);
    QTest::newRow("empty") << QJsonValue(QString());
    QTest::newRow("null") << QJsonValue();
    QTest::newRow("number") << QJsonValue(1);
    QTest::newRow("array") << QJsonValue(QJsonArray{QStringLiteral("plugins")});
    QTest::newRow("object") << QJsonValue(QJsonObject());
}

void tst_Loader::foldersHaveDefaults()
{
    QFETCH(QJsonValue, value);
    FolderBeside deployed(QStringLiteral("deployed"));
    FolderBeside hot(QStringLiteral("hot-deploy"));
    deployed.drop(QStringLiteral("plain"), QStringLiteral("libfoo.so"));
    const Host host;
    const auto journal = Journal::bind(host.emitter());
    host.wire(QJsonObject{{Deployed, value}, {HotDeploy, value}, {LoadList, QJsonArray{QStringLiteral("foo")}}});
    QCOMPARE(journal->take(),
             QStringList({QStringLiteral("zdefault 1: loaded: foo"),
                          QStringLiteral("zdefault 2: hot-deploy folder changed: %1").arg(hot.path())}));
    settle();
}

void tst_Loader::foldersMayBeRelativeToTheApplicationsFolder()
{
    const FolderBeside both(QStringLiteral("elsewhere"));
    FolderBeside deployed(QStringLiteral("elsewhere/deployed"));
    const FolderBeside hot(QStringLiteral("elsewhere/hot"));
    deployed.drop(QStringLiteral("plain"), QStringLiteral("libfoo.so"));
    const Host host;
    const auto journal = Journal::bind(host.emitter());
    host.wire(QJsonObject{{Deployed, QStringLiteral("elsewhere/deployed")},
                          {HotDeploy, QStringLiteral("./elsewhere/hot")},
                          {LoadList, QJsonArray{QStringLiteral("foo")}}});
    QCOMPARE(journal->take(),
             QStringList({QStringLiteral("zdefault 1: loaded: foo"),
                          QStringLiteral("zdefault 2: hot-deploy folder changed: %1").arg(hot.path())}));
}

void tst_Loader::deployedFolderIsALibraryPath()
{
    const Folder folder;
    const Host host;
    host.wire(QJsonObject{{Deployed, folder.path()}});
    QVERIFY(QCoreApplication::libraryPaths().contains(folder.path()));
}

void tst_Loader::libraryPathsAreAdded()
{
    const Folder first;
    const Folder second;
    first.write(QStringLiteral("file"), "");
    const QStringList before = QCoreApplication::libraryPaths();
    const Host host;
    const QJsonArray list{first.path(),
                          QStringLiteral("/nowhere/at/all"),
                          QString(),
                          7,
                          QJsonValue(),
                          true,
                          QJsonArray{first.path()},
                          first.filePath(QStringLiteral("file")),
                          QStringLiteral("plugins"),
                          second.path()};
    const auto journal = Journal::bind(host.emitter());
    host.wire(QJsonObject{{AddLibraryPath, list}, {Deployed, QStringLiteral("/nowhere/at/all")}});
    QStringList added = QCoreApplication::libraryPaths();
    for (const QString &path : before)
        added.removeAll(path);
    const QString relative = QDir(QCoreApplication::applicationDirPath()).canonicalPath() + QStringLiteral("/plugins");
    QCOMPARE(added, QStringList({second.path(), relative, first.path()})); // Qt puts each in front
    QVERIFY(journal->isEmpty());
}

void tst_Loader::listsOfAnotherTypeAreSkipped_data()
{
    QTest::addColumn<QString>("key");
    QTest::newRow("add-library-path") << AddLibraryPath;
    QTest::newRow("add-path") << AddPath;
    QTest::newRow("load-list") << LoadList;
}

void tst_Loader::listsOfAnotherTypeAreSkipped()
{
    QFETCH(QString, key);
    const Folder deployed;
    const Folder other;
    const QByteArray path = qgetenv("PATH");
    for (const QJsonValue &value : {QJsonValue(other.path()), QJsonValue(1), QJsonValue(true), QJsonValue(),
                                    QJsonValue(QJsonObject{{other.path(), other.path()}}), QJsonValue(QJsonArray())}) {
        const Host host;
        const auto journal = Journal::bind(host.emitter());
        const Spy *loader = host.wire<Spy>(QJsonObject{{Deployed, deployed.path()}, {key, value}});
        QVERIFY(journal->isEmpty());
        QCOMPARE(loader->asked, QStringList());
        QCOMPARE(qgetenv("PATH"), path);
        QVERIFY(!QCoreApplication::libraryPaths().contains(other.path()));
    }
}

void tst_Loader::pathsAreSearchedFirst_data()
{
    QTest::addColumn<QByteArray>("before");
    QTest::addColumn<QByteArray>("after");
    QTest::newRow("others") << QByteArray("/usr/bin:/bin") << QByteArray(":/usr/bin:/bin");
    QTest::newRow("empty") << QByteArray("") << QByteArray();
    QTest::newRow("unset") << QByteArray() << QByteArray();
}

void tst_Loader::pathsAreSearchedFirst()
{
    QFETCH(QByteArray, before);
    QFETCH(QByteArray, after);
    const Folder first;
    const Folder second;
    const Path path(before);
    const Host host;
    const QJsonArray list{second.path(), QStringLiteral("/nowhere/at/all"), 7, QString(),
                          first.path(),  QStringLiteral("plugins")};
    host.wire(QJsonObject{{AddPath, list}});
    const QString plugins = QCoreApplication::applicationDirPath() + QStringLiteral("/plugins");
    const QStringList added{second.path(), first.path(), plugins};
    QCOMPARE(qgetenv("PATH"), added.join(QLatin1Char(':')).toLocal8Bit() + after);
}

void tst_Loader::pathStaysWithoutAFolder()
{
    const QJsonArray list{QStringLiteral("/nowhere/at/all"), 7, QString()};
    {
        const Path path("/usr/bin");
        const Host host;
        host.wire(QJsonObject{{AddPath, list}});
        QCOMPARE(qgetenv("PATH"), QByteArray("/usr/bin"));
    }
    const Path path{QByteArray()};
    const Host host;
    host.wire(QJsonObject{{AddPath, list}});
    QVERIFY(!qEnvironmentVariableIsSet("PATH"));
}

void tst_Loader::pluginsAreLoadedInTheOrderOfTheList()
{
    const Folder folder;
    for (const char *file : {"libzebra.so", "libapple.so", "libmango.so"})
        folder.drop(QStringLiteral("plain"), QLatin1String(file));
    const Host host;
    const auto journal = Journal::bind(host.emitter());
    const QJsonArray list{QStringLiteral("zebra"), QString(),    7,
                          QStringLiteral("apple"), QJsonValue(), QJsonArray{QStringLiteral("kiwi")},
                          QStringLiteral("mango")};
    const Spy *loader = host.wire<Spy>(QJsonObject{{Deployed, folder.path()}, {LoadList, list}});
    const QStringList names{QStringLiteral("zebra"), QStringLiteral("apple"), QStringLiteral("mango")};
    QCOMPARE(loader->asked, names);
    QCOMPARE(journal->take(), entriesOf(QStringLiteral("zdefault 1: loaded: "), names));
}

void tst_Loader::pluginsOfTheListAreReleasedAtOnce()
{
    const Folder folder;
    folder.drop(QStringLiteral("plain"), QStringLiteral("libfoo.so"));
    folder.drop(QStringLiteral("keeper"), QStringLiteral("libkeeper.so"));
    const Host host;
    ZLoader *loader = host.wire(QJsonObject{{Deployed, folder.path()},
                                            {LoadList, QJsonArray{QStringLiteral("foo"), QStringLiteral("keeper")}}});
    settle();
    QVERIFY(!isMapped(folder.filePath(QStringLiteral("libfoo.so"))));
    QVERIFY(isMapped(folder.filePath(QStringLiteral("libkeeper.so"))));
    letGo(loader->loaded0(QStringLiteral("keeper")));
}

void tst_Loader::namesOfOnePluginShareASet()
{
    const Folder folder;
    folder.drop(QStringLiteral("plain"), QStringLiteral("libfoo.so"));
    const Host host;
    const auto journal = Journal::bind(host.emitter());
    host.wire(QJsonObject{{Deployed, folder.path()},
                          {LoadList, QJsonArray{QStringLiteral("libfoo.so"), QStringLiteral("foo")}}});
    // A set of its own would have loaded "foo" when it was made.
    QCOMPARE(journal->take(), entriesOf(QStringLiteral("zdefault 1: loaded: "),
                                        {QStringLiteral("libfoo"), QStringLiteral("libfoo.so")}));
}

void tst_Loader::withoutADeployedFolderNothingIsLoadedOrDeployed_data()
{
    QTest::addColumn<QString>("deployed");
    QTest::newRow("absolute") << "/nowhere/at/all";
    QTest::newRow("relative") << "nowhere";
}

void tst_Loader::withoutADeployedFolderNothingIsLoadedOrDeployed()
{
    QFETCH(QString, deployed);
    const Folder hot;
    const Folder searched;
    searched.drop(QStringLiteral("plain"), QStringLiteral("libfoo.so"));
    hot.drop(QStringLiteral("plain"), QStringLiteral("libbar.so"));
    const Host host;
    const auto journal = Journal::bind(host.emitter());
    const Spy *loader = host.wire<Spy>(QJsonObject{{Deployed, deployed},
                                                   {HotDeploy, hot.path()},
                                                   {AddLibraryPath, QJsonArray{searched.path()}},
                                                   {LoadList, QJsonArray{QStringLiteral("foo")}}});
    QCOMPARE(loader->asked, QStringList());
    QVERIFY(journal->isEmpty());
    QCOMPARE(hot.files(), QStringList{QStringLiteral("libbar.so")});
    QVERIFY(QCoreApplication::libraryPaths().contains(searched.path())); // that comes before
}

void tst_Loader::firstLoadLoadsEveryVersion()
{
    const Folder folder;
    for (const char *file : {"libfoo.so", "libfoo.1.so", "libfoo.2.so", "libother.1.so"})
        folder.drop(QStringLiteral("plain"), QLatin1String(file));
    const Host host;
    const auto journal = Journal::bind(host.emitter());
    ZLoader *loader = host.wire(QJsonObject{{Deployed, folder.path()}});
    loader->load0(QStringLiteral("foo"));
    const QStringList all{QStringLiteral("foo"), QStringLiteral("libfoo.1"), QStringLiteral("libfoo.2")};
    QCOMPARE(journal->take(), entriesOf(QStringLiteral("zdefault 1: loaded: "), all));
    loader->load0(QStringLiteral("foo"));
    QVERIFY(journal->isEmpty());
}

void tst_Loader::pluginThatKeepsItselfIsAnswered()
{
    const Folder folder;
    folder.drop(QStringLiteral("keeper"), QStringLiteral("libfoo.so"));
    const Host host;
    ZLoader *loader = host.wire(QJsonObject{{Deployed, folder.path()}});
    const Library library = loader->load0(QStringLiteral("foo"));
    QVERIFY(library);
    QCOMPARE(loader->load0(QStringLiteral("foo")), library);
    QCOMPARE(loader->loaded0(QStringLiteral("foo")), library);
    QVERIFY(!loader->loaded0(QStringLiteral("libfoo"))); // the same set, where it has another name
    letGo(library);
}

void tst_Loader::versionIsAnsweredToItsHolder()
{
    const Folder folder;
    folder.drop(QStringLiteral("plain"), QStringLiteral("libfoo.1.so"));
    const Host host;
    ZLoader *loader = host.wire(QJsonObject{{Deployed, folder.path()}});
    Library library = loader->load0(QStringLiteral("libfoo.1"));
    QVERIFY(library);
    QCOMPARE(loader->load0(QStringLiteral("libfoo.1")), library);
    QCOMPARE(loader->loaded0(QStringLiteral("libfoo")), library);
    library.clear();
    QVERIFY(!loader->loaded0(QStringLiteral("libfoo.1")));
    settle();
    QVERIFY(!isMapped(folder.filePath(QStringLiteral("libfoo.1.so"))));
    library = loader->load0(QStringLiteral("libfoo.1"));
    QVERIFY(library);
}

void tst_Loader::nameThatWasNeverLoadedIsNotThere()
{
    const Folder folder;
    folder.drop(QStringLiteral("plain"), QStringLiteral("libfoo.1.so"));
    const Host host;
    const auto journal = Journal::bind(host.emitter());
    ZLoader *loader = host.wire(QJsonObject{{Deployed, folder.path()}});
    QVERIFY(!loader->loaded0(QStringLiteral("libfoo.1")));
    QVERIFY(journal->isEmpty());
    QVERIFY(loader->load0(QStringLiteral("libfoo.1")));
}

void tst_Loader::unloadingGoesToTheLoadersThread()
{
    const Folder folder;
    folder.drop(QStringLiteral("plain"), QStringLiteral("libfoo.1.so"));
    const Host host;
    ZLoader *loader = host.wire(QJsonObject{{Deployed, folder.path()}});
    bool loaded = false;
    std::thread([&] { loaded = !loader->load0(QStringLiteral("libfoo.1")).isNull(); }).join();
    QVERIFY(loaded);
    QVERIFY(isMapped(folder.filePath(QStringLiteral("libfoo.1.so"))));
    settle();
    QVERIFY(!isMapped(folder.filePath(QStringLiteral("libfoo.1.so"))));
}

void tst_Loader::manyThreadsMayLoadOnePlugin()
{
    const Folder folder;
    folder.drop(QStringLiteral("keeper"), QStringLiteral("libfoo.so"));
    const Host host;
    const auto journal = Journal::bind(host.emitter());
    ZLoader *loader = host.wire(QJsonObject{{Deployed, folder.path()}});
    Library libraries[4];
    std::vector<std::thread> threads;
    for (Library &library : libraries)
        threads.emplace_back([&library, loader] { library = loader->load0(QStringLiteral("foo")); });
    for (std::thread &thread : threads)
        thread.join();
    for (const Library &library : libraries) {
        QVERIFY(library);
        QCOMPARE(library, libraries[0]);
    }
    QCOMPARE(journal->take(), QStringList{QStringLiteral("zdefault 1: loaded: foo")});
    letGo(libraries[0]);
}

void tst_Loader::pluginMayLoadAnotherWhileItIsInjected()
{
    const Folder folder;
    folder.drop(QStringLiteral("nested"), QStringLiteral("libnested.1.so"));
    folder.drop(QStringLiteral("plain"), QStringLiteral("libinner.1.so"));
    const Host host;
    ZLoader *loader = host.wire(QJsonObject{{Deployed, folder.path()}});
    Library nested = loader->load0(QStringLiteral("libnested.1"));
    QVERIFY(nested);
    QVERIFY(loader->loaded0(QStringLiteral("libinner.1")));
    settle();
    QVERIFY(isMapped(folder.filePath(QStringLiteral("libinner.1.so"))));
    nested.clear();
    settle();
    QCOMPARE(mappedPlugins(), QStringList());
}

void tst_Loader::writerMayLoadWhileAnotherThreadLoads_data()
{
    QTest::addColumn<bool>("known");
    QTest::newRow("a plugin that is new") << false;
    QTest::newRow("a version that is new") << true;
}

void tst_Loader::writerMayLoadWhileAnotherThreadLoads()
{
    QFETCH(bool, known);
    const LibraryPaths paths;
    const Folder folder;
    folder.drop(QStringLiteral("plain"), QStringLiteral("libfoo.1.so"));
    const auto emitter = QSharedPointer<Doorman>::create();
    const QJsonObject config{{QStringLiteral("loader"), QJsonObject{{Deployed, folder.path()}}}};
    emitter->install(emitter);
    emitter->zemit0(ZDefaultConfig::TypeName, Q_ARG(QJsonObject, config));
    auto *loader = qobject_cast<ZDefaultLoader *>(emitter->zemit0(ZDefaultLoader::TypeName));
    const Library first = known ? loader->load0(QStringLiteral("libfoo.1")) : Library();
    folder.drop(QStringLiteral("plain"), QStringLiteral("libfoo.2.so"));

    Library there;
    Library here;
    std::thread other;
    Errand errand;
    errand.task = [&](ZLoader *service) {
        emitter->entered.acquire(emitter->entered.available());
        other = std::thread([&] { there = loader->load0(QStringLiteral("libfoo.2")); });
        emitter->entered.tryAcquire(1, 500); // it waits for the emitter now, if it has got as far at all
        here = service->load0(QStringLiteral("libfoo.2"));
    };
    emitter->inject0(&errand);
    other.join();
    QVERIFY(here);
    QCOMPARE(there, here);

    emitter->install({});
}

void tst_Loader::pluginMayAskForItselfWhileItIsInjected_data()
{
    QTest::addColumn<QString>("name");
    QTest::addColumn<QString>("file");
    QTest::addColumn<bool>("there");
    QTest::newRow("it is not there yet") << "selfish"
                                         << "libselfish.so" << false;
    QTest::newRow("but its versions are loaded") << "libselfish.1"
                                                 << "libselfish.1.so" << true;
}

void tst_Loader::pluginMayAskForItselfWhileItIsInjected()
{
    QFETCH(QString, name);
    QFETCH(QString, file);
    const Folder folder;
    folder.drop(QStringLiteral("selfish"), file);
    const Host host;
    ZLoader *loader = host.wire(QJsonObject{{Deployed, folder.path()}});
    loader->load0(name);
    QTEST(QCoreApplication::instance()->property("selfish").toBool(), "there");
    QCoreApplication::instance()->setProperty("selfish", QVariant());
}

void tst_Loader::namesOutliveThePluginThatGaveThem()
{
    const Folder folder;
    folder.drop(QStringLiteral("nested"), QStringLiteral("libnested.1.so"));
    folder.drop(QStringLiteral("plain"), QStringLiteral("libinner.1.so"));
    const Host host;
    ZLoader *loader = host.wire(QJsonObject{{Deployed, folder.path()}});
    Library nested = loader->load0(QStringLiteral("libnested.1"));
    const Library inner = loader->loaded0(QStringLiteral("libinner.1"));
    nested.clear();
    settle();
    QVERIFY(!isMapped(folder.filePath(QStringLiteral("libnested.1.so"))));
    QVERIFY(inner);
    QCOMPARE(loader->loaded0(QStringLiteral("libinner.1")), inner);
    QCOMPARE(loader->load0(QStringLiteral("libinner.1")), inner);
}

void tst_Loader::plainNamesOutliveTheirCaller()
{
    const Folder folder;
    folder.drop(QStringLiteral("keeper"), QStringLiteral("libfoo.so"));
    const Host host;
    ZLoader *loader = host.wire(QJsonObject{{Deployed, folder.path()}});
    QChar text[] = {QLatin1Char('f'), QLatin1Char('o'), QLatin1Char('o')};
    const Library library = loader->load0(QString::fromRawData(text, 3)); // as a literal of a plugin's is
    QVERIFY(library);
    text[0] = QLatin1Char('g'); // as when that plugin has left memory
    QCOMPARE(loader->loaded0(QStringLiteral("foo")), library);
    letGo(library);
}

void tst_Loader::libraryMayOutliveItsLoader()
{
    const Folder folder;
    folder.drop(QStringLiteral("plain"), QStringLiteral("libfoo.1.so"));
    Library library;
    {
        const Host host;
        library = host.wire(QJsonObject{{Deployed, folder.path()}})->load0(QStringLiteral("libfoo.1"));
    }
    QVERIFY(library);
    QVERIFY(QSharedPointer<ZObject>(*library));
    library.clear();
    settle();
    QVERIFY(!isMapped(folder.filePath(QStringLiteral("libfoo.1.so"))));
}

void tst_Loader::twoLoadersMayLoadOneFile()
{
    const Folder folder;
    folder.drop(QStringLiteral("plain"), QStringLiteral("libfoo.1.so"));
    const Host first;
    const Host second;
    Library library = first.wire(QJsonObject{{Deployed, folder.path()}})->load0(QStringLiteral("libfoo.1"));
    Library other = second.wire(QJsonObject{{Deployed, folder.path()}})->load0(QStringLiteral("libfoo.1"));
    QVERIFY(library);
    QVERIFY(other);
    library.clear();
    settle();
    QVERIFY(QSharedPointer<ZObject>(*other));
    other.clear();
    settle();
    QVERIFY(!isMapped(folder.filePath(QStringLiteral("libfoo.1.so"))));
}

void tst_Loader::serviceOfAPluginIsReachedAndLeavesWithIt()
{
    const Folder folder;
    folder.drop(QStringLiteral("greeter"));
    const Host host;
    const auto greeter = QSharedPointer<GreeterDelegate>::create(nullptr);
    host->bind0(greeter);
    host.wire(QJsonObject{{Deployed, folder.path()}, {LoadList, QJsonArray{QStringLiteral("greeter")}}});
    settle();
    QCOMPARE(greeter->greet(QStringLiteral("Ann")), QStringLiteral("1: hello, Ann"));

    host->bind0(QSharedPointer<GreeterDelegate>::create(nullptr));
    QCOMPARE(greeter->greet(QStringLiteral("Ann")), QStringLiteral("nobody"));
    settle();
    QVERIFY(!isMapped(folder.filePath(QStringLiteral("libgreeter.so"))));
}

void tst_Loader::whatAPluginGaveKeepsItInMemory()
{
    const Folder folder;
    folder.drop(QStringLiteral("lender"));
    const Host host;
    const auto files = QSharedPointer<ZTempFileDelegate>::create(nullptr);
    host->bind0(files);
    host.wire(QJsonObject{{Deployed, folder.path()}, {LoadList, QJsonArray{QStringLiteral("lender")}}});
    QSharedPointer<QTemporaryFile> file = files->newFile0();
    QVERIFY(file);
    QVERIFY(file->open());
    const QString name = file->fileName();

    host->bind0(QSharedPointer<ZTempFileDelegate>::create(nullptr));
    settle();
    QVERIFY(isMapped(folder.filePath(QStringLiteral("liblender.so"))));
    std::thread([&] { file.clear(); }).join(); // runs code of the plugin
    QVERIFY(!QFile::exists(name));
    settle();
    QVERIFY(!isMapped(folder.filePath(QStringLiteral("liblender.so"))));
}

void tst_Loader::whatAnApplicationGaveDoesNotKeepTheComponent()
{
    const Host host;
    const auto files = QSharedPointer<ZTempFileDelegate>::create(nullptr);
    host->bind0(files);
    const QPointer<OwnFiles> component(new OwnFiles);
    host->bind0(QSharedPointer<ZTempFileDelegate>::create(component.data()));
    const QSharedPointer<QTemporaryFile> file = files->newFile0();
    QVERIFY(file);
    host->bind0(QSharedPointer<ZTempFileDelegate>::create(nullptr));
    QVERIFY(!component);
}

void tst_Loader::pluginThatServesMayBeInjectedAgain()
{
    const Folder folder;
    folder.drop(QStringLiteral("greeter"));
    const Host host;
    const Host other;
    const auto greeter = QSharedPointer<GreeterDelegate>::create(nullptr);
    const auto second = QSharedPointer<GreeterDelegate>::create(nullptr);
    host->bind0(greeter);
    other->bind0(second);
    ZLoader *loader = host.wire(QJsonObject{{Deployed, folder.path()}});
    QSharedPointer<ZObject> root = *loader->load0(QStringLiteral("greeter"));
    host->inject0(root.data());
    other->inject0(root.data());
    root.clear();
    QCOMPARE(greeter->greet(QStringLiteral("Ann")), QStringLiteral("1: hello, Ann"));

    host->bind0(QSharedPointer<GreeterDelegate>::create(nullptr));
    QCOMPARE(second->greet(QStringLiteral("Bob")), QStringLiteral("1: hello, Bob")); // one owner, shared by both
    other->bind0(QSharedPointer<GreeterDelegate>::create(nullptr));
    settle();
    QVERIFY(!isMapped(folder.filePath(QStringLiteral("libgreeter.so"))));
}

void tst_Loader::pluginWithTheFirstDelegateOfAnInterfaceStaysInMemory()
{
    // In a process of its own, since it keeps the plugin. The end of the emitter runs the plugin's code.
    const pid_t child = fork();
    if (child == 0) {
        bool isMappedStill = false;
        {
            const PluginFolder folder;
            folder.drop(QStringLiteral("founder"));
            const Host host;
            host.wire(QJsonObject())->load0(QStringLiteral("founder"));
            settle(); // nobody holds it any more
            isMappedStill = isMapped(folder.filePath(QStringLiteral("libfounder.so")));
        }
        _exit(isMappedStill ? 0 : 1);
    }
    int status = -1;
    QCOMPARE(waitpid(child, &status, 0), child);
    QCOMPARE(status, 0);
}

void tst_Loader::messagesReachTheDefaultLogger()
{
    const Folder folder;
    folder.drop(QStringLiteral("plain"), QStringLiteral("libfoo.so"));
    const Host host;
    const QJsonObject logger{{QStringLiteral("debug"), 1},
                             {QStringLiteral("log"), QJsonObject{{QStringLiteral("zdefault"), 1}}}};
    const QJsonObject loader{{Deployed, folder.path()},
                             {LoadList, QJsonArray{QStringLiteral("foo"), QStringLiteral("absent")}}};
    const QJsonObject config{{QStringLiteral("logger"), logger}, {QStringLiteral("loader"), loader}};
    host->zemit0(ZDefaultConfig::TypeName, Q_ARG(QJsonObject, config));
    host->zemit0(ZDefaultLogger::TypeName);
    host->zemit0(ZDefaultLoader::TypeName);

    const QStringList lines = messages().take(QtDebugMsg);
    QCOMPARE(lines.size(), 1);
    const QRegularExpression loaded(QStringLiteral("^\\[[^]]+\\] \\[zdefault\\] \\[1\\] loaded: foo$"));
    QVERIFY2(loaded.match(lines.first()).hasMatch(), qPrintable(lines.first()));
    const QStringList warnings = messages().take(QtWarningMsg);
    QVERIFY(!warnings.isEmpty());
    QVERIFY(warnings.first().startsWith(QLatin1String("failed to load absent: ")));
    settle();
    for (const QString &warning : messages().take(QtWarningMsg))
        QCOMPARE(warning, QStringLiteral("failed to unload: "));
}

QTEST_GUILESS_MAIN(tst_Loader)

#include "tst_loader.moc"
