// SPDX-License-Identifier: Apache-2.0
#include "gate.h"
#include "greeter.h"
#include "hooks.h"
#include "journal.h"
#include "pluginfolder.h"
#include "testcase.h"

#include <QCoreApplication>
#include <QFileInfo>
#include <QPluginLoader>
#include <QPointer>
#include <QRegularExpression>
#include <QSemaphore>
#include <QThread>

#include <zconfig.h>
#include <zcontext.h>
#include <zdbus.h>
#include <zdefaultdbus.h>
#include <zdefaultemitter.h>
#include <zjobpoolset.h>
#include <zlibraryset.h>
#include <zloader.h>
#include <zobject.h>
#include <zscheduler.h>
#include <ztempfile.h>
#include <zthreadpoolset.h>

#include <thread>
#include <vector>

#include <unistd.h>

using Library = QSharedPointer<ZLibrary>;

namespace {

/// A set that holds nothing yet.
class EmptySet : public ZLibrarySet
{
public:
    EmptySet() : ZLibrarySet(QStringLiteral("absent"), QString(), nullptr) { settle(); }
};

QSharedPointer<ZObject> rootOf(const Library &library) { return *library; }

/// The last library of `set` for the plain plugin under `file`, in a folder that is searched.
Library loadPlain(ZLibrarySet &set, const PluginFolder &folder, const QString &name)
{
    folder.drop(QStringLiteral("plain"), QStringLiteral("%1.so").arg(name));
    return set.loadOne(name, folder.path(), nullptr);
}

/// Fails for a type whose functions lie in a file that is no longer in memory: it crashes.
void useAllMetaTypes()
{
    for (int id = QMetaType::User; QMetaType::isRegistered(id); ++id) {
        const QVariant value(id, nullptr);
        QVariant copy(value);
        copy.clear();
        QMetaType::metaObjectForType(id);
    }
}

} // namespace

class tst_LibrarySet : public TestCase
{
    Q_OBJECT

private Q_SLOTS:
    void interfaceTypesDoNotPointIntoThePluginThatUsedThemFirst(); // must stay the first

    void rootKnowsItsLibraryButDoesNotKeepIt();
    void objectThatNoLibraryLoadedHasNone();
    void objectThatNoLibraryLoadedIsSharedAsAnyComponent();
    void loadSucceedsOnlyForARootThatIsAZObject_data();
    void loadSucceedsOnlyForARootThatIsAZObject();
    void loadInjectsTheRootWhenThereIsAnEmitter();
    void loadKnowsTheLibraryBeforeTheRootIsInjected();
    void loadWithoutALibraryFails();
    void loadFailsForAWriterThatThrows();
    void loadFailsForAnEndpointThatThrowsAsItBegins();
    void rootIsSharedAndDeletedWithItsLastHolder();
    void rootIsMadeAnewAndKnowsItsLibrary();
    void thereIsNoRootWithoutAZObject();
    void loaderPointerIsAMetaTypeThatConvertsToQObject();

    void fileIsUnloadedByTheEventLoopAndNotBefore();
    void fileIsUnloadedOnTheThreadOfItsSet();
    void libraryMayBeReleasedOnAnotherThread();
    void libraryMayOutliveItsSet();
    void libraryMayOutliveItsSetOnAnotherThread();
    void fileLeavesWhenItsSetDiesBeforeTheEventLoopRuns();
    void fileLeavesWhenItsSetDiesOnAnotherThread();
    void loaderIsDeletedOnceItsFileIsUnloaded();
    void rootThatIsHeldKeepsTheFileUntilItIsGone();
    void fileMayBeUnloadedByTheSlot();
    void whatTheApplicationHasLoadedIsUnloadedByTheSlot();
    void rootMayLiveAndEndOnAThreadWithoutAnEventLoop();
    void rootOfASetOnAThreadThatHasEndedMayGoAnywhere();
    void sharedRootKeepsItsLibraryAndGoesBeforeIt();
    void sharedRootMayBeDroppedOnAnyThread();
    void rootIsNotSharedOnceItsLibraryIsGone();
    void rootMayBeTakenAndDroppedByManyThreads();
    void fileIsNotLoadedWhileItsRootIsBeingDestroyed();
    void oneFileIsSharedByTwoSets();
    void rootThatIsHeldIsThatOfALaterLibraryToo();
    void fileUnderTwoNamesHasOneRoot_data();
    void fileUnderTwoNamesHasOneRoot();
    void loadingAndUnloadingOneFileOnManyThreadsLeavesNothingBehind();

    void constructorInjectsTheSetBeforeItLoads();
    void constructorLoadsByTheNameBeforeTheFirstDot_data();
    void constructorLoadsByTheNameBeforeTheFirstDot();
    void constructorKeepsNothingLoaded();

    void plainNameLoadsEverythingIntoAnEmptySet();
    void plainNameOfALiveLibraryIsAnsweredWithoutTheDisk();
    void plainNameLoadsNothingOnceTheSetHoldsAnyEntry();
    void plainNameThatDiedStaysDead();
    void dottedNameIsLoadedWhateverElseTheSetHolds_data();
    void dottedNameIsLoadedWhateverElseTheSetHolds();
    void dottedNameThatIsThereAnswersTheNewestOfItsBase();
    void dottedNameThatIsThereIsNotLoadedAgainWhenTheNewestDied();

    void loadAllAnswersTheLastVersionInNameOrder();
    void loadAllWithoutVersionsAnswersThePlainFile();
    void loadAllAnswersNullWhenTheLastVersionFails();
    void loadAllVisitsEveryVersionAfterAFailure();
    void loadAllLoadsNoVersionTwice();
    void loadAllTakesOnlyFilesOfThatName();
    void foldersAreListedButLibraryPathsAreSearched();

    void newestEntryComesFirst();
    void newestThatDiedHidesTheOthersUntilItIsUnloaded();
    void survivorsKeepTheirOrder();
    void fileLoadedTwiceHasTwoEntries();
    void unloadForgetsEveryEntryOfADottedName();
    void emptyLoaderIsNotUnloaded();
    void namesOutliveTheirCaller();

    void successIsToldInLinesOfKind1();
    void aPluginForOtherInterfacesIsRefusedUnrun();
    void aPluginThatDoesNotTellItsInterfacesIsLoaded();
    void failureIsToldOnce_data();
    void failureIsToldOnce();
    void failureGoesWhereTheLoggerWantsIt_data();
    void failureGoesWhereTheLoggerWantsIt();
    void linesAreWrittenOnlyForTheirKind();
    void withoutALoggerNothingIsWritten();
    void placeholdersInANameStay();
    void firstLoggerWins();
};

void tst_LibrarySet::interfaceTypesDoNotPointIntoThePluginThatUsedThemFirst()
{
    QCOMPARE(QMetaType::type("ZScheduler*"), int(QMetaType::UnknownType));

    const PluginFolder folder;
    folder.drop(QStringLiteral("metatypes"));
    EmptySet set;
    Library library = set.loadOne(QStringLiteral("metatypes"), folder.path(), nullptr);
    QVERIFY(library);
    library.clear();
    settle();
    QVERIFY(!isMapped(folder.filePath(QStringLiteral("libmetatypes.so"))));

    for (const char *name :
         {"ZConfig*", "ZContext*", "ZDbus*", "ZDbusAsync*", "ZDbusLayer*", "ZDbusOutcome*", "ZDbusReach*", "ZEmitter*",
          "ZJobPoolSet*", "ZLease*", "ZLoader*", "ZLogger*", "ZScheduler*", "ZTempFile*", "ZThreadPoolSet*"})
        QVERIFY2(QMetaType::type(name) != QMetaType::UnknownType, name);
    useAllMetaTypes();
}

void tst_LibrarySet::rootKnowsItsLibraryButDoesNotKeepIt()
{
    const PluginFolder folder;
    EmptySet set;
    Library library = loadPlain(set, folder, QStringLiteral("libfoo"));
    const QSharedPointer<ZObject> root = rootOf(library);
    QCOMPARE(Library(*root), library);

    const QWeakPointer<ZLibrary> weak = library;
    library.clear();
    QVERIFY(!weak);
    QVERIFY(!Library(*root));
}

void tst_LibrarySet::objectThatNoLibraryLoadedHasNone() { QVERIFY(!Library(ZObject())); }

void tst_LibrarySet::objectThatNoLibraryLoadedIsSharedAsAnyComponent()
{
    QPointer<ZObject> object = new ZObject;
    QSharedPointer<QObject> owner = object->shared();
    QCOMPARE(owner.data(), object.data());
    QCOMPARE(object->shared(), owner);
    owner.clear();
    QVERIFY(!object);
}

void tst_LibrarySet::loadSucceedsOnlyForARootThatIsAZObject_data()
{
    QTest::addColumn<QString>("plugin");
    QTest::addColumn<bool>("loaded");
    QTest::newRow("plain") << "plain" << true;
    QTest::newRow("metadata of another kind") << "wrongiid" << true;
    QTest::newRow("root of another kind") << "noroot" << false;
    QTest::newRow("undefined symbol") << "unresolved" << false;
    QTest::newRow("no such file") << "absent" << false;
}

void tst_LibrarySet::loadSucceedsOnlyForARootThatIsAZObject()
{
    QFETCH(QString, plugin);
    EmptySet set;
    const auto loader = QSharedPointer<QPluginLoader>::create(pluginFile(plugin));
    const auto library = Library::create(loader, &set);
    QTEST(ZLibrary::load(library, nullptr), "loaded");
}

void tst_LibrarySet::loadInjectsTheRootWhenThereIsAnEmitter()
{
    const PluginFolder folder;
    folder.drop(QStringLiteral("greeter"));
    Wiring wiring;
    const auto greeter = QSharedPointer<GreeterDelegate>::create(nullptr);
    wiring->bind0(greeter);
    EmptySet set;
    Library library = set.loadOne(QStringLiteral("greeter"), folder.path(), nullptr);
    QCOMPARE(greeter->greet(QStringLiteral("Ann")), QStringLiteral("nobody"));

    library = set.loadOne(QStringLiteral("libgreeter"), folder.path(), wiring.emitter());
    QCOMPARE(greeter->greet(QStringLiteral("Ann")), QStringLiteral("1: hello, Ann"));
}

void tst_LibrarySet::loadKnowsTheLibraryBeforeTheRootIsInjected()
{
    const PluginFolder folder;
    folder.drop(QStringLiteral("keeper"));
    const Wiring wiring;
    EmptySet set;
    Library library = set.loadOne(QStringLiteral("keeper"), folder.path(), wiring.emitter());
    QVERIFY(library);

    const QWeakPointer<ZLibrary> weak = library;
    library.clear();
    settle();
    QVERIFY(weak); // the root took it from itself, and holds it
    QVERIFY(isMapped(folder.filePath(QStringLiteral("libkeeper.so"))));

    library = weak;
    QMetaObject::invokeMethod(rootOf(library).data(), "letGo");
    library.clear();
    QVERIFY(!weak);
}

void tst_LibrarySet::loadWithoutALibraryFails()
{
    QVERIFY(!ZLibrary::load({}, nullptr));
    EmptySet set;
    const auto empty = Library::create(QSharedPointer<QPluginLoader>(), &set);
    QVERIFY(!ZLibrary::load(empty, nullptr));
    QVERIFY(!rootOf(empty));
    QCOMPARE(empty->name(), QString());
}

void tst_LibrarySet::loadFailsForAWriterThatThrows()
{
    Hooks hooks;
    hooks.written = [] { throw 1; };
    Wiring wiring;
    const auto journal = Journal::bind(wiring.emitter());
    EmptySet set;
    const auto library =
        Library::create(QSharedPointer<QPluginLoader>::create(pluginFile(QStringLiteral("mortal"))), &set);
    QVERIFY(!ZLibrary::load(library, wiring.emitter()));
    hooks.written = {};
    QVERIFY(ZLibrary::load(library, wiring.emitter()));
}

void tst_LibrarySet::loadFailsForAnEndpointThatThrowsAsItBegins()
{
    const QUrl url(QStringLiteral("//handed"));
    const Wiring wiring;
    const auto journal = Journal::bind(wiring.emitter());
    auto *const dbus = new ZDefaultDbus;
    wiring->inject0(dbus); // whose it is from now on
    EmptySet set;
    const auto isLoaded = [&] {
        const auto loader = QSharedPointer<QPluginLoader>::create(pluginFile(QStringLiteral("handed.2")));
        return ZLibrary::load(Library::create(loader, &set), wiring.emitter());
    };
    qApp->setProperty("begins", QStringLiteral("with an exception"));
    QVERIFY(!isLoaded());
    QVERIFY(!dbus->find0(url));
    qApp->setProperty("begins", QVariant());
    settle();
    QCOMPARE(mappedPlugins(), QStringList());
    QVERIFY(isLoaded());
    QVERIFY(dbus->find0(url));
    dbus->invoke0(QUrl(QStringLiteral("//handed/release")), nullptr, nullptr);
}

void tst_LibrarySet::rootIsSharedAndDeletedWithItsLastHolder()
{
    const PluginFolder folder;
    EmptySet set;
    const Library library = loadPlain(set, folder, QStringLiteral("libfoo"));
    QSharedPointer<ZObject> first = rootOf(library);
    QSharedPointer<ZObject> second = rootOf(library);
    QVERIFY(first);
    QCOMPARE(first, second);

    const QPointer<ZObject> root = first.data();
    first.clear();
    QVERIFY(root);
    second.clear();
    QVERIFY(!root);
}

void tst_LibrarySet::rootIsMadeAnewAndKnowsItsLibrary()
{
    const PluginFolder folder;
    EmptySet set;
    const Library library = loadPlain(set, folder, QStringLiteral("libfoo"));
    rootOf(library).clear();
    const QSharedPointer<ZObject> again = rootOf(library);
    QVERIFY(again);
    QCOMPARE(Library(*again), library);
}

void tst_LibrarySet::thereIsNoRootWithoutAZObject()
{
    EmptySet set;
    const auto loader = QSharedPointer<QPluginLoader>::create(pluginFile(QStringLiteral("noroot")));
    const auto library = Library::create(loader, &set);
    QVERIFY(!rootOf(library));
}

void tst_LibrarySet::loaderPointerIsAMetaTypeThatConvertsToQObject()
{
    const Library library = Library::create(QSharedPointer<QPluginLoader>::create(), nullptr);
    const int id = QMetaType::type("QSharedPointer<QPluginLoader>");
    QVERIFY(id != QMetaType::UnknownType);
    QVERIFY(QMetaType::hasRegisteredConverterFunction(id, QMetaType::QObjectStar));
}

void tst_LibrarySet::fileIsUnloadedByTheEventLoopAndNotBefore()
{
    const PluginFolder folder;
    EmptySet set;
    Library library = loadPlain(set, folder, QStringLiteral("libfoo"));
    const QString file = folder.filePath(QStringLiteral("libfoo.so"));
    QVERIFY(isMapped(file));
    settle();
    QVERIFY(isMapped(file));
    library.clear();
    QVERIFY(isMapped(file));
    settle();
    QVERIFY(!isMapped(file));
}

void tst_LibrarySet::fileIsUnloadedOnTheThreadOfItsSet()
{
    const PluginFolder folder;
    QThread thread;
    EmptySet set;
    set.moveToThread(&thread);
    Library library = loadPlain(set, folder, QStringLiteral("libfoo"));
    const QString file = folder.filePath(QStringLiteral("libfoo.so"));
    library.clear();
    settle();
    QVERIFY(isMapped(file)); // that thread has no event loop yet
    thread.start();
    QTRY_VERIFY(!isMapped(file));
    thread.quit();
    QVERIFY(thread.wait(10000));
}

void tst_LibrarySet::libraryMayBeReleasedOnAnotherThread()
{
    const PluginFolder folder;
    EmptySet set;
    Library library = loadPlain(set, folder, QStringLiteral("libfoo"));
    std::thread([&] { library.clear(); }).join();
    QVERIFY(isMapped(folder.filePath(QStringLiteral("libfoo.so"))));
    settle();
    QVERIFY(!isMapped(folder.filePath(QStringLiteral("libfoo.so"))));
}

void tst_LibrarySet::libraryMayOutliveItsSet()
{
    const PluginFolder folder;
    QScopedPointer<EmptySet> set(new EmptySet);
    Library library = loadPlain(*set, folder, QStringLiteral("libfoo"));
    set.reset();
    QVERIFY(rootOf(library)->metaObject()->className());
    library.clear();
    settle();
    QVERIFY(!isMapped(folder.filePath(QStringLiteral("libfoo.so"))));
}

void tst_LibrarySet::libraryMayOutliveItsSetOnAnotherThread()
{
    const PluginFolder folder;
    for (int i = 0; i < 50; ++i) { // either may be first
        QScopedPointer<EmptySet> set(new EmptySet);
        Library library = loadPlain(*set, folder, QStringLiteral("libfoo"));
        QSemaphore ready;
        std::thread other([&] {
            ready.release();
            library.clear();
        });
        ready.acquire();
        set.reset();
        other.join();
        settle();
        QVERIFY(!isMapped(folder.filePath(QStringLiteral("libfoo.so"))));
    }
}

void tst_LibrarySet::fileLeavesWhenItsSetDiesBeforeTheEventLoopRuns()
{
    const PluginFolder folder;
    QScopedPointer<EmptySet> set(new EmptySet);
    loadPlain(*set, folder, QStringLiteral("libfoo")).clear();
    const QPointer<QObject> root = QPluginLoader(folder.filePath(QStringLiteral("libfoo.so"))).instance();
    QVERIFY(root);
    set.reset();
    QVERIFY(!root); // its file stays for what it may have posted for deletion
    settle();
    QVERIFY(!isMapped(folder.filePath(QStringLiteral("libfoo.so"))));
}

void tst_LibrarySet::fileLeavesWhenItsSetDiesOnAnotherThread()
{
    const PluginFolder folder;
    QScopedPointer<EmptySet> set(new EmptySet);
    loadPlain(*set, folder, QStringLiteral("libfoo")).clear();
    std::thread([&] { set.reset(); }).join();
    settle();
    QVERIFY(!isMapped(folder.filePath(QStringLiteral("libfoo.so"))));
}

void tst_LibrarySet::loaderIsDeletedOnceItsFileIsUnloaded()
{
    EmptySet set;
    auto loader = QSharedPointer<QPluginLoader>::create(pluginFile(QStringLiteral("plain")));
    const QPointer<QPluginLoader> watched = loader.data();
    auto library = Library::create(loader, &set);
    loader.clear();
    QVERIFY(ZLibrary::load(library, nullptr));
    library.clear();
    QVERIFY(watched);
    settle();
    QVERIFY(!watched);
}

void tst_LibrarySet::rootThatIsHeldKeepsTheFileUntilItIsGone()
{
    const PluginFolder folder;
    EmptySet set;
    Library library = loadPlain(set, folder, QStringLiteral("libfoo"));
    QSharedPointer<ZObject> root = rootOf(library);
    library.clear();
    settle();
    QVERIFY(isMapped(folder.filePath(QStringLiteral("libfoo.so"))));
    QCOMPARE(root->metaObject()->className(), "Plain");

    root.clear();
    settle();
    QVERIFY(!isMapped(folder.filePath(QStringLiteral("libfoo.so"))));
}

void tst_LibrarySet::fileMayBeUnloadedByTheSlot()
{
    EmptySet set;
    const auto loader = QSharedPointer<QPluginLoader>::create(pluginFile(QStringLiteral("plain")));
    Library library = Library::create(loader, &set);
    QVERIFY(ZLibrary::load(library, nullptr));
    const QPointer<QObject> root = loader->instance();
    library.clear();
    set.unloadSlot(loader);
    QVERIFY(!root); // its file waits for what it may have posted for deletion
    settle();
    QVERIFY(!isMapped(pluginFile(QStringLiteral("plain"))));
}

void tst_LibrarySet::whatTheApplicationHasLoadedIsUnloadedByTheSlot()
{
    Journal journal;
    EmptySet set;
    set.getSetZLogger(&journal);
    const auto loader = QSharedPointer<QPluginLoader>::create(pluginFile(QStringLiteral("plain")));
    loader->setLoadHints({});
    QVERIFY(loader->load());
    set.unloadSlot(loader);
    QCOMPARE(journal.take(), QStringList{QStringLiteral("zdefault 1: unloaded: libplain")});
    QVERIFY(!isMapped(pluginFile(QStringLiteral("plain"))));
}

void tst_LibrarySet::rootMayLiveAndEndOnAThreadWithoutAnEventLoop()
{
    const PluginFolder folder;
    Library library;
    std::thread([&] {
        EmptySet set;
        library = loadPlain(set, folder, QStringLiteral("libfoo"));
        rootOf(library).clear();
    }).join();
    library.clear();
    settle(); // there is nobody who would delete anything on that thread
    QVERIFY(!isMapped(folder.filePath(QStringLiteral("libfoo.so"))));
}

void tst_LibrarySet::rootOfASetOnAThreadThatHasEndedMayGoAnywhere()
{
    const PluginFolder folder;
    QScopedPointer<EmptySet> set;
    Library library;
    std::thread([&] {
        set.reset(new EmptySet);
        library = loadPlain(*set, folder, QStringLiteral("libfoo"));
    }).join();
    QSharedPointer<ZObject> root = rootOf(library);
    QVERIFY(root->thread() != thread());
    root.clear();
    library.clear();
    settle(); // by the application, since nobody runs that thread's events
    QVERIFY(!isMapped(folder.filePath(QStringLiteral("libfoo.so"))));
}

void tst_LibrarySet::sharedRootKeepsItsLibraryAndGoesBeforeIt()
{
    const PluginFolder folder;
    EmptySet set;
    Library library = loadPlain(set, folder, QStringLiteral("libfoo"));
    const QWeakPointer<ZLibrary> weak = library;
    QSharedPointer<QObject> shared = rootOf(library)->shared();
    QVERIFY(shared);
    library.clear();
    QVERIFY(weak);

    bool libraryWasThere = false;
    connect(shared.data(), &QObject::destroyed, this, [&] { libraryWasThere = !weak.isNull(); });
    shared.clear();
    QVERIFY(libraryWasThere);
    QVERIFY(!weak);
    settle();
    QVERIFY(!isMapped(folder.filePath(QStringLiteral("libfoo.so"))));
}

void tst_LibrarySet::rootIsNotSharedOnceItsLibraryIsGone()
{
    const PluginFolder folder;
    EmptySet set;
    Library library = loadPlain(set, folder, QStringLiteral("libfoo"));
    const QSharedPointer<ZObject> root = rootOf(library);
    library.clear();
    QVERIFY(!root->shared());
    settle();
    QVERIFY(!root->shared());
}

void tst_LibrarySet::sharedRootMayBeDroppedOnAnyThread()
{
    const PluginFolder folder;
    for (int i = 0; i < 50; ++i) {
        EmptySet set;
        QSharedPointer<QObject> shared = rootOf(loadPlain(set, folder, QStringLiteral("libfoo")))->shared();
        std::thread([&] { shared.clear(); }).join();
        settle();
        QVERIFY(!isMapped(folder.filePath(QStringLiteral("libfoo.so"))));
    }
}

void tst_LibrarySet::rootMayBeTakenAndDroppedByManyThreads()
{
    const PluginFolder folder;
    EmptySet set;
    Library library = loadPlain(set, folder, QStringLiteral("libfoo"));
    QAtomicInt strangers = 0;
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i) {
        threads.emplace_back([&strangers, library] {
            for (int round = 0; round < 5000; ++round) {
                const QSharedPointer<ZObject> root = rootOf(library); // null while it is being destroyed
                if (root && Library(*root) != library)
                    strangers.ref();
            }
        });
    }
    for (std::thread &thread : threads)
        thread.join();
    QCOMPARE(strangers.loadAcquire(), 0);
    QVERIFY(rootOf(library));
    library.clear();
    settle();
    QVERIFY(!isMapped(folder.filePath(QStringLiteral("libfoo.so"))));
}

void tst_LibrarySet::fileIsNotLoadedWhileItsRootIsBeingDestroyed()
{
    const PluginFolder folder;
    folder.drop(QStringLiteral("slow"));
    Gate gate;
    Journal journal;
    EmptySet set;
    set.getSetZLogger(&journal);
    QSharedPointer<ZObject> root = rootOf(set.loadOne(QStringLiteral("slow"), folder.path(), nullptr));
    gate.setOn(root.data());
    std::thread dropper([&] { root.clear(); });
    gate.entered.acquire();
    const bool loaded = !set.loadOne(QStringLiteral("slow"), folder.path(), nullptr).isNull();
    settle(); // which unloads neither the file nor what has not loaded
    journal.take();
    gate.leave.release();
    dropper.join();
    QVERIFY(!loaded); // Qt would hand out the dying one
    settle();
    QVERIFY(!isMapped(folder.filePath(QStringLiteral("libslow.so"))));
    QCOMPARE(journal.take(), QStringList{QStringLiteral("zdefault 1: unloaded: libslow")});
    QVERIFY(set.loadOne(QStringLiteral("slow"), folder.path(), nullptr));
}

void tst_LibrarySet::fileUnderTwoNamesHasOneRoot_data()
{
    QTest::addColumn<bool>("isHard");
    QTest::newRow("symbolic link") << false;
    QTest::newRow("hard link") << true;
}

void tst_LibrarySet::fileUnderTwoNamesHasOneRoot()
{
    QFETCH(bool, isHard);
    const PluginFolder folder;
    folder.drop(QStringLiteral("plain"), QStringLiteral("libfoo.1.so"));
    const QByteArray from = folder.filePath(QStringLiteral("libfoo.1.so")).toLocal8Bit();
    const QByteArray to = folder.filePath(QStringLiteral("libfoo.2.so")).toLocal8Bit();
    QCOMPARE((isHard ? ::link : ::symlink)(from.constData(), to.constData()), 0);
    EmptySet set;
    Library first = set.loadOne(QStringLiteral("libfoo.1"), folder.path(), nullptr);
    Library second = set.loadOne(QStringLiteral("libfoo.2"), folder.path(), nullptr);
    QVERIFY(first);
    QVERIFY(second);
    const QPointer<QObject> unowned = QPluginLoader(folder.filePath(QStringLiteral("libfoo.2.so"))).instance();
    QVERIFY(unowned);
    second.clear();
    settle();
    QVERIFY(unowned); // the first library's, too

    second = set.loadOne(QStringLiteral("libfoo.2"), folder.path(), nullptr);
    QSharedPointer<ZObject> root = rootOf(first);
    QCOMPARE(rootOf(second), root);
    first.clear();
    second.clear();
    settle();
    QCOMPARE(root->metaObject()->className(), "Plain");
    root.clear();
    settle();
    QCOMPARE(mappedPlugins(), QStringList());

    first = set.loadOne(QStringLiteral("libfoo.1"), folder.path(), nullptr);
    second = set.loadOne(QStringLiteral("libfoo.2"), folder.path(), nullptr);
    first.clear();
    settle(); // it waits for the second
    second.clear();
    settle();
    QCOMPARE(mappedPlugins(), QStringList());
}

void tst_LibrarySet::oneFileIsSharedByTwoSets()
{
    const PluginFolder folder;
    EmptySet set;
    EmptySet other;
    Library library = loadPlain(set, folder, QStringLiteral("libfoo"));
    Library second = other.loadOne(QStringLiteral("libfoo"), folder.path(), nullptr);
    QVERIFY(second);
    QVERIFY(library != second);
    QCOMPARE(rootOf(library), rootOf(second));

    library.clear();
    settle();
    QVERIFY(isMapped(folder.filePath(QStringLiteral("libfoo.so"))));
    QVERIFY(rootOf(second));
    second.clear();
    settle();
    QVERIFY(!isMapped(folder.filePath(QStringLiteral("libfoo.so"))));
}

void tst_LibrarySet::rootThatIsHeldIsThatOfALaterLibraryToo()
{
    const PluginFolder folder;
    EmptySet set;
    EmptySet other;
    const QSharedPointer<ZObject> root = rootOf(loadPlain(set, folder, QStringLiteral("libfoo")));
    const Library second = other.loadOne(QStringLiteral("libfoo"), folder.path(), nullptr);
    QVERIFY(second);
    QCOMPARE(rootOf(second), root);
}

void tst_LibrarySet::loadingAndUnloadingOneFileOnManyThreadsLeavesNothingBehind()
{
    const PluginFolder folder;
    EmptySet set;
    EmptySet other;
    folder.drop(QStringLiteral("plain"), QStringLiteral("libfoo.so"));
    constexpr int Threads = 4;
    QAtomicInt running = Threads;
    QAtomicInt failures = 0;
    std::vector<std::thread> threads;
    for (int i = 0; i < Threads; ++i) {
        threads.emplace_back([&, i] {
            for (int round = 0; round < 10000; ++round) {
                if (!(i % 2 ? set : other).loadOne(QStringLiteral("libfoo"), folder.path(), nullptr))
                    failures.ref();
            }
            running.deref();
        });
    }
    while (running.loadAcquire() > 0) // unloading meanwhile
        settle();
    for (std::thread &thread : threads)
        thread.join();
    settle();
    QCOMPARE(failures.loadAcquire(), 0);
    QVERIFY(!isMapped(folder.filePath(QStringLiteral("libfoo.so"))));
}

void tst_LibrarySet::constructorInjectsTheSetBeforeItLoads()
{
    const PluginFolder folder;
    folder.drop(QStringLiteral("plain"), QStringLiteral("libfoo.so"));
    Wiring wiring;
    const auto journal = Journal::bind(wiring.emitter());
    ZLibrarySet set(QStringLiteral("foo"), folder.path(), wiring.emitter());
    QCOMPARE(journal->take(), QStringList{QStringLiteral("zdefault 1: loaded: foo")});
    QVERIFY(set.getSetZLogger());
}

void tst_LibrarySet::constructorLoadsByTheNameBeforeTheFirstDot_data()
{
    QTest::addColumn<QString>("name");
    QTest::addColumn<QStringList>("loaded");
    const QStringList all{"zdefault 1: loaded: foo", "zdefault 1: loaded: libfoo.1"};
    QTest::newRow("plain") << "foo" << all;
    QTest::newRow("version") << "foo.1" << all;
    QTest::newRow("version that is not there") << "foo.3.2" << all;
    QTest::newRow("dot at the start") << ".bar" << QStringList{"zdefault 1: loaded: .bar"};
    QTest::newRow("dots at the start and later") << ".bar.1" << QStringList{"zdefault 1: loaded: .bar.1"};
}

void tst_LibrarySet::constructorLoadsByTheNameBeforeTheFirstDot()
{
    QFETCH(QString, name);
    const PluginFolder folder;
    for (const char *file : {"libfoo.so", "libfoo.1.so", "lib.bar.so", "lib.bar.1.so"})
        folder.drop(QStringLiteral("plain"), QLatin1String(file));
    Wiring wiring;
    const auto journal = Journal::bind(wiring.emitter());
    const ZLibrarySet set(name, folder.path(), wiring.emitter());
    QStringList entries = journal->take();
    if (name == QLatin1String(".bar")) // a plugin of that name has versions like any other
        QCOMPARE(entries.takeLast(), QStringLiteral("zdefault 1: loaded: lib.bar.1"));
    QTEST(entries, "loaded");
}

void tst_LibrarySet::constructorKeepsNothingLoaded()
{
    const PluginFolder folder;
    folder.drop(QStringLiteral("plain"), QStringLiteral("libfoo.so"));
    folder.drop(QStringLiteral("plain"), QStringLiteral("libfoo.1.so"));
    Wiring wiring;
    const auto journal = Journal::bind(wiring.emitter());
    ZLibrarySet set(QStringLiteral("foo"), folder.path(), wiring.emitter());
    QVERIFY(!set.loaded(QStringLiteral("foo")));
    QCOMPARE(mappedPlugins().size(), 2);
    journal->take();
    settle();
    QCOMPARE(mappedPlugins(), QStringList());
    QCOMPARE(journal->take(), QStringList({QStringLiteral("zdefault 1: unloaded: libfoo"),
                                           QStringLiteral("zdefault 1: unloaded: libfoo.1")}));
}

void tst_LibrarySet::plainNameLoadsEverythingIntoAnEmptySet()
{
    const PluginFolder folder;
    folder.drop(QStringLiteral("plain"), QStringLiteral("libfoo.so"));
    folder.drop(QStringLiteral("plain"), QStringLiteral("libfoo.1.so"));
    EmptySet set;
    const Library library = set.load(QStringLiteral("foo"), folder.path(), nullptr);
    QVERIFY(library);
    QCOMPARE(set.loaded(QStringLiteral("libfoo.1")), library);
    QCOMPARE(set.loaded(QStringLiteral("libfoo")), library);
    QVERIFY(isMapped(folder.filePath(QStringLiteral("libfoo.so"))));
}

void tst_LibrarySet::plainNameOfALiveLibraryIsAnsweredWithoutTheDisk()
{
    const PluginFolder folder;
    Journal journal;
    EmptySet set;
    const Library library = loadPlain(set, folder, QStringLiteral("libfoo"));
    set.getSetZLogger(&journal);
    QVERIFY(QFile::remove(folder.filePath(QStringLiteral("libfoo.so"))));
    QCOMPARE(set.load(QStringLiteral("libfoo"), folder.path(), nullptr), library);
    QVERIFY(journal.isEmpty());
}

void tst_LibrarySet::plainNameLoadsNothingOnceTheSetHoldsAnyEntry()
{
    const PluginFolder folder;
    folder.drop(QStringLiteral("plain"), QStringLiteral("libfoo.so"));
    Journal journal;
    EmptySet set;
    Library other = loadPlain(set, folder, QStringLiteral("libother"));
    set.getSetZLogger(&journal);
    QVERIFY(!set.load(QStringLiteral("foo"), folder.path(), nullptr));
    other.clear();
    QVERIFY(!set.load(QStringLiteral("foo"), folder.path(), nullptr)); // a dead entry is one too
    QVERIFY(journal.isEmpty());
    QVERIFY(!isMapped(folder.filePath(QStringLiteral("libfoo.so"))));

    settle(); // now it is forgotten, and the set empty again
    QVERIFY(set.load(QStringLiteral("foo"), folder.path(), nullptr));
}

void tst_LibrarySet::plainNameThatDiedStaysDead()
{
    const PluginFolder folder;
    folder.drop(QStringLiteral("plain"), QStringLiteral("libfoo.so"));
    EmptySet set;
    QVERIFY(set.load(QStringLiteral("foo"), folder.path(), nullptr));
    settle(); // forgets entries of "libfoo", the file's name, while this one is of "foo"
    QVERIFY(!set.load(QStringLiteral("foo"), folder.path(), nullptr));
}

void tst_LibrarySet::dottedNameIsLoadedWhateverElseTheSetHolds_data()
{
    QTest::addColumn<QString>("name");
    QTest::addColumn<QString>("base");
    QTest::newRow("version") << "foo.1"
                             << "foo";
    QTest::newRow("decorated") << "libfoo.1"
                               << "libfoo";
    QTest::newRow("file") << "libfoo.1.so"
                          << "libfoo";
    QTest::newRow("dot at the start") << ".foo"
                                      << "";
}

void tst_LibrarySet::dottedNameIsLoadedWhateverElseTheSetHolds()
{
    QFETCH(QString, name);
    QFETCH(QString, base);
    const PluginFolder folder;
    folder.drop(QStringLiteral("plain"), QStringLiteral("libfoo.1.so"));
    folder.drop(QStringLiteral("plain"), QStringLiteral("lib.foo.so"));
    EmptySet set;
    const Library other = loadPlain(set, folder, QStringLiteral("libother"));
    const Library library = set.load(name, folder.path(), nullptr);
    QVERIFY(library);
    QCOMPARE(set.loaded(name), library);
    QCOMPARE(set.loaded(base), library);
}

void tst_LibrarySet::dottedNameThatIsThereAnswersTheNewestOfItsBase()
{
    const PluginFolder folder;
    EmptySet set;
    const Library first = loadPlain(set, folder, QStringLiteral("foo.1"));
    const Library second = loadPlain(set, folder, QStringLiteral("foo.2"));
    QVERIFY(first != second);
    QCOMPARE(set.load(QStringLiteral("foo.1"), folder.path(), nullptr), second);
    QCOMPARE(set.loaded(QStringLiteral("foo.1")), first);
}

void tst_LibrarySet::dottedNameThatIsThereIsNotLoadedAgainWhenTheNewestDied()
{
    const PluginFolder folder;
    Journal journal;
    EmptySet set;
    const Library first = loadPlain(set, folder, QStringLiteral("foo.1"));
    loadPlain(set, folder, QStringLiteral("foo.2")).clear();
    set.getSetZLogger(&journal);
    QVERIFY(!set.load(QStringLiteral("foo.1"), folder.path(), nullptr));
    QVERIFY(!set.load(QStringLiteral("foo.2"), folder.path(), nullptr));
    QVERIFY(journal.isEmpty());
}

void tst_LibrarySet::loadAllAnswersTheLastVersionInNameOrder()
{
    const PluginFolder folder;
    for (const char *file :
         {"libfoo.so", "libfoo.1.2.so", "libfoo.1.10.so", "libfoo.1.9.so", "libfoo.a.so", "libfoo.B.so"})
        folder.drop(QStringLiteral("plain"), QLatin1String(file));
    Journal journal;
    EmptySet set;
    set.getSetZLogger(&journal);
    const Library library = set.loadAll(QStringLiteral("foo"), folder.path(), nullptr);
    QVERIFY(library);
    QCOMPARE(
        journal.take(),
        QStringList({QStringLiteral("zdefault 1: loaded: foo"), QStringLiteral("zdefault 1: loaded: libfoo.1.10"),
                     QStringLiteral("zdefault 1: loaded: libfoo.1.2"), QStringLiteral("zdefault 1: loaded: libfoo.1.9"),
                     QStringLiteral("zdefault 1: loaded: libfoo.B"), QStringLiteral("zdefault 1: loaded: libfoo.a")}));
    QCOMPARE(set.loaded(QStringLiteral("libfoo.a")), library);
    QCOMPARE(set.loaded(QStringLiteral("libfoo")), library);
}

void tst_LibrarySet::loadAllWithoutVersionsAnswersThePlainFile()
{
    const PluginFolder folder;
    EmptySet set;
    const Library library = loadPlain(set, folder, QStringLiteral("libfoo"));
    QCOMPARE(set.loadAll(QStringLiteral("libfoo"), folder.path(), nullptr), library); // it is there already
    const Library again = set.loadAll(QStringLiteral("foo"), folder.path(), nullptr);
    QVERIFY(again);
    QVERIFY(again != library); // another name, so loaded anew
}

void tst_LibrarySet::loadAllAnswersNullWhenTheLastVersionFails()
{
    const PluginFolder folder;
    folder.drop(QStringLiteral("plain"), QStringLiteral("libfoo.so"));
    folder.drop(QStringLiteral("plain"), QStringLiteral("libfoo.1.so"));
    folder.drop(QStringLiteral("noroot"), QStringLiteral("libfoo.2.so"));
    Journal journal;
    EmptySet set;
    set.getSetZLogger(&journal);
    QVERIFY(!set.loadAll(QStringLiteral("foo"), folder.path(), nullptr));
    QVERIFY(journal.entries().contains(QStringLiteral("zdefault 1: loaded: foo")));
    QVERIFY(journal.entries().contains(QStringLiteral("zdefault 1: loaded: libfoo.1")));
}

void tst_LibrarySet::loadAllVisitsEveryVersionAfterAFailure()
{
    const PluginFolder folder;
    folder.drop(QStringLiteral("noroot"), QStringLiteral("libfoo.1.so"));
    folder.write(QStringLiteral("libfoo.2.so"), "no plugin at all");
    folder.drop(QStringLiteral("plain"), QStringLiteral("libfoo.3.so"));
    EmptySet set;
    const Library library = set.loadAll(QStringLiteral("foo"), folder.path(), nullptr);
    QVERIFY(library);
    QCOMPARE(set.loaded(QStringLiteral("libfoo.3")), library);
}

void tst_LibrarySet::loadAllLoadsNoVersionTwice()
{
    const PluginFolder folder;
    Journal journal;
    EmptySet set;
    const Library first = loadPlain(set, folder, QStringLiteral("libfoo.1"));
    const Library second = loadPlain(set, folder, QStringLiteral("libfoo.2"));
    set.getSetZLogger(&journal);
    QCOMPARE(set.loadAll(QStringLiteral("foo"), folder.path(), nullptr), second);
    const QStringList entries = journal.take();
    QCOMPARE(entries.size(), 1); // of the plain file, which is not there
    QVERIFY(entries.first().startsWith(QLatin1String("warning: failed to load foo: ")));
}

void tst_LibrarySet::loadAllTakesOnlyFilesOfThatName()
{
    const PluginFolder folder;
    for (const char *file : {"libfoo.1.so.2", "libfoobar.1.so", "foo.1.so", "libfoo-1.so", "libfoo.1.dll"})
        folder.drop(QStringLiteral("plain"), QLatin1String(file));
    QVERIFY(QDir(folder.path()).mkdir(QStringLiteral("libfoo.2.so")));
    QVERIFY(QFile::link(QStringLiteral("/nowhere/at/all"), folder.filePath(QStringLiteral("libfoo.3.so"))));
    Journal journal;
    EmptySet set;
    set.getSetZLogger(&journal);
    QVERIFY(!set.loadAll(QStringLiteral("foo"), folder.path(), nullptr));
    QCOMPARE(journal.take().size(), 1); // of the plain file
    QCOMPARE(mappedPlugins(), QStringList());
}

void tst_LibrarySet::foldersAreListedButLibraryPathsAreSearched()
{
    const Folder listed;
    listed.drop(QStringLiteral("plain"), QStringLiteral("libfoo.1.so"));
    listed.drop(QStringLiteral("plain"), QStringLiteral("libfoo.2.so"));
    const PluginFolder searched;
    searched.drop(QStringLiteral("plain"), QStringLiteral("libfoo.1.so"));
    searched.drop(QStringLiteral("plain"), QStringLiteral("libfoo.3.so"));
    EmptySet set;
    QVERIFY(!set.loadAll(QStringLiteral("foo"), listed.path(), nullptr)); // the last, libfoo.2, is not found
    QVERIFY(!set.loadOne(QStringLiteral("libfoo.2"), listed.path(), nullptr));
    const Library library = set.loadOne(QStringLiteral("libfoo.1"), listed.path(), nullptr);
    QVERIFY(library);
    QCOMPARE(mappedPlugins(),
             QStringList{QFileInfo(searched.filePath(QStringLiteral("libfoo.1.so"))).canonicalFilePath()});
}

void tst_LibrarySet::newestEntryComesFirst()
{
    const PluginFolder folder;
    EmptySet set;
    const Library newer = loadPlain(set, folder, QStringLiteral("libfoo.2"));
    const Library older = loadPlain(set, folder, QStringLiteral("libfoo.1"));
    QCOMPARE(set.loaded(QStringLiteral("libfoo")), older); // newest is what was loaded last, whatever its name
    QCOMPARE(set.loaded(QStringLiteral("libfoo.2")), newer);
    QVERIFY(!set.loaded(QStringLiteral("foo")));
    QVERIFY(!set.loaded(QStringLiteral("LIBFOO")));
}

void tst_LibrarySet::newestThatDiedHidesTheOthersUntilItIsUnloaded()
{
    const PluginFolder folder;
    EmptySet set;
    const Library first = loadPlain(set, folder, QStringLiteral("libfoo.1"));
    loadPlain(set, folder, QStringLiteral("libfoo.2")).clear();
    QVERIFY(!set.loaded(QStringLiteral("libfoo")));
    settle();
    QCOMPARE(set.loaded(QStringLiteral("libfoo")), first);
}

void tst_LibrarySet::survivorsKeepTheirOrder()
{
    const PluginFolder folder;
    EmptySet set;
    Library first = loadPlain(set, folder, QStringLiteral("libfoo.1"));
    Library second = loadPlain(set, folder, QStringLiteral("libfoo.2"));
    Library third = loadPlain(set, folder, QStringLiteral("libfoo.3"));
    Library fourth = loadPlain(set, folder, QStringLiteral("libfoo.4"));
    second.clear();
    settle();
    QVERIFY(!set.loaded(QStringLiteral("libfoo.2")));
    QCOMPARE(set.loaded(QStringLiteral("libfoo")), fourth);
    fourth.clear();
    settle();
    QCOMPARE(set.loaded(QStringLiteral("libfoo")), third);
    third.clear();
    settle();
    QCOMPARE(set.loaded(QStringLiteral("libfoo")), first);
    first.clear();
    settle();
    QVERIFY(!set.loaded(QStringLiteral("libfoo")));
}

void tst_LibrarySet::fileLoadedTwiceHasTwoEntries()
{
    const PluginFolder folder;
    Journal journal;
    EmptySet set;
    Library first = loadPlain(set, folder, QStringLiteral("libfoo"));
    Library second = loadPlain(set, folder, QStringLiteral("libfoo"));
    QVERIFY(first != second);
    QCOMPARE(set.loaded(QStringLiteral("libfoo")), second);
    set.getSetZLogger(&journal);

    second.clear();
    settle();
    QCOMPARE(journal.take(), QStringList{QStringLiteral("warning: failed to unload: libfoo")}); // the first is there
    QCOMPARE(set.loaded(QStringLiteral("libfoo")), first);
    first.clear();
    settle();
    QCOMPARE(journal.take(), QStringList{QStringLiteral("zdefault 1: unloaded: libfoo")});
    QVERIFY(!set.loaded(QStringLiteral("libfoo")));
}

void tst_LibrarySet::unloadForgetsEveryEntryOfADottedName()
{
    const PluginFolder folder;
    EmptySet set;
    Library first = loadPlain(set, folder, QStringLiteral("libfoo.1"));
    const Library second = loadPlain(set, folder, QStringLiteral("libfoo.1"));
    first.clear();
    settle();
    QVERIFY(!set.loaded(QStringLiteral("libfoo.1")));       // although the second lives
    QCOMPARE(set.loaded(QStringLiteral("libfoo")), second); // where only the dead go
}

void tst_LibrarySet::emptyLoaderIsNotUnloaded()
{
    Journal journal;
    EmptySet set;
    set.getSetZLogger(&journal);
    set.unloadSlot({});
    QVERIFY(journal.isEmpty());
}

void tst_LibrarySet::namesOutliveTheirCaller()
{
    const PluginFolder folder;
    EmptySet set;
    const Library other = loadPlain(set, folder, QStringLiteral("libother"));
    QVector<QChar> text;
    for (const char *c = "libfoo.1"; *c; ++c)
        text.append(QLatin1Char(*c));
    const QString name = QString::fromRawData(text.constData(), text.size()); // as a literal of a plugin's is
    const Library library = loadPlain(set, folder, name);
    QVERIFY(library);
    text.fill(QLatin1Char('x')); // as when that plugin has left memory
    QCOMPARE(set.loaded(QStringLiteral("libfoo.1")), library);
    QCOMPARE(set.loaded(QStringLiteral("libfoo")), library);
}

void tst_LibrarySet::successIsToldInLinesOfKind1()
{
    const PluginFolder folder;
    Journal journal(1);
    EmptySet set;
    set.getSetZLogger(&journal);
    loadPlain(set, folder, QStringLiteral("libfoo.1")).clear();
    QCOMPARE(journal.take(), QStringList{QStringLiteral("zdefault 1: loaded: libfoo.1")});
    settle();
    QCOMPARE(journal.take(), QStringList{QStringLiteral("zdefault 1: unloaded: libfoo.1")});
}

void tst_LibrarySet::aPluginForOtherInterfacesIsRefusedUnrun()
{
    const PluginFolder folder;
    QVERIFY(folder.drop(QStringLiteral("otherversion")));
    const Wiring wiring;
    const auto journal = Journal::bind(wiring.emitter());
    ZLibrarySet set(QStringLiteral("otherversion"), folder.path(), wiring.emitter());
    journal->take();
    QVERIFY(!set.loadOne(QStringLiteral("libotherversion"), folder.path(), wiring.emitter()));
    QCOMPARE(journal->take(), QStringList{"warning: failed to load libotherversion: it was built for version 2 of the "
                                          "interfaces, and this is version 1"});
    QVERIFY(!isMapped(folder.filePath(QStringLiteral("libotherversion.so"))));
    settle();
}

void tst_LibrarySet::aPluginThatDoesNotTellItsInterfacesIsLoaded()
{
    const PluginFolder folder;
    QVERIFY(folder.drop(QStringLiteral("unversioned")));
    ZLibrarySet set(QStringLiteral("absent"), folder.path(), nullptr);
    QVERIFY(set.loadOne(QStringLiteral("libunversioned"), folder.path(), nullptr));
}

void tst_LibrarySet::failureIsToldOnce_data()
{
    QTest::addColumn<QString>("plugin");
    QTest::addColumn<QString>("afterwards");
    QTest::newRow("root of another kind") << "noroot"
                                          << "zdefault 1: unloaded: libnoroot";
    QTest::newRow("undefined symbol") << "unresolved"
                                      << "warning: failed to unload: libunresolved";
    QTest::newRow("no such file") << "absent"
                                  << "warning: failed to unload: ";
}

void tst_LibrarySet::failureIsToldOnce()
{
    QFETCH(QString, plugin);
    const PluginFolder folder;
    folder.drop(plugin);
    Journal journal;
    EmptySet set;
    set.getSetZLogger(&journal);
    QVERIFY(!set.loadOne(plugin, folder.path(), nullptr));
    const QStringList entries = journal.take();
    QCOMPARE(entries.size(), 1);
    const QRegularExpression failed(QStringLiteral("^warning: failed to load %1: .+").arg(plugin));
    QVERIFY2(failed.match(entries.first()).hasMatch(), qPrintable(entries.first()));
    settle();
    QCOMPARE(journal.take().size(), 1);
    QVERIFY(!set.loadOne(plugin, folder.path(), nullptr)); // it may be tried again
    journal.take();
    settle();
    QTEST(journal.take().join(QLatin1Char('\n')), "afterwards");
}

void tst_LibrarySet::failureGoesWhereTheLoggerWantsIt_data()
{
    QTest::addColumn<int>("mask");
    QTest::addColumn<bool>("warnings");
    QTest::addColumn<QString>("category");
    QTest::addColumn<QString>("prefix");
    QTest::newRow("warnings on") << 1 << true << "zdefault"
                                 << "warning: ";
    QTest::newRow("warnings on, lines off") << 0 << true << "zdefault"
                                            << "warning: ";
    QTest::newRow("warnings off") << 1 << false << "zdefault"
                                  << "zdefault 1: ";
    QTest::newRow("warnings off, other lines on") << 2 << false << "zdefault"
                                                  << "";
    QTest::newRow("warnings off, another category") << 1 << false << "other"
                                                    << "";
}

void tst_LibrarySet::failureGoesWhereTheLoggerWantsIt()
{
    QFETCH(int, mask);
    QFETCH(bool, warnings);
    QFETCH(QString, category);
    QFETCH(QString, prefix);
    Journal journal(mask, warnings, category);
    EmptySet set;
    set.getSetZLogger(&journal);
    QVERIFY(!set.loadOne(QStringLiteral("absent"), QString(), nullptr));
    settle();
    const QStringList entries = journal.take();
    if (prefix.isEmpty()) {
        QCOMPARE(entries, QStringList());
        return;
    }
    QCOMPARE(entries.size(), 2);
    QVERIFY(entries.first().startsWith(prefix + QStringLiteral("failed to load absent: ")));
    QCOMPARE(entries.last(), prefix + QStringLiteral("failed to unload: "));
}

void tst_LibrarySet::linesAreWrittenOnlyForTheirKind()
{
    const PluginFolder folder;
    Journal journal(0xff ^ 1);
    EmptySet set;
    set.getSetZLogger(&journal);
    loadPlain(set, folder, QStringLiteral("libfoo")).clear();
    settle();
    QVERIFY(journal.isEmpty());
}

void tst_LibrarySet::withoutALoggerNothingIsWritten()
{
    const PluginFolder folder;
    EmptySet set;
    loadPlain(set, folder, QStringLiteral("libfoo")).clear();
    QVERIFY(!set.loadOne(QStringLiteral("absent"), folder.path(), nullptr));
    settle();
    QVERIFY(messages().takeAll().isEmpty());
}

void tst_LibrarySet::placeholdersInANameStay()
{
    Journal journal;
    EmptySet set;
    set.getSetZLogger(&journal);
    QVERIFY(!set.loadOne(QStringLiteral("50%2 off %1"), QString(), nullptr));
    QVERIFY(journal.take().first().startsWith(QLatin1String("warning: failed to load 50%2 off %1: ")));
}

void tst_LibrarySet::firstLoggerWins()
{
    Journal first;
    Journal second;
    EmptySet set;
    QCOMPARE(set.getSetZLogger(), nullptr);
    QCOMPARE(set.getSetZLogger(&first), &first);
    QCOMPARE(set.getSetZLogger(&second), &first);
    QCOMPARE(set.getSetZLogger(nullptr), &first);
    QCOMPARE(set.property("zLogger").value<ZLogger *>(), &first);
    set.loadOne(QStringLiteral("absent"), QString(), nullptr);
    settle();
    QVERIFY(!first.isEmpty());
    QVERIFY(second.isEmpty());
}

QTEST_GUILESS_MAIN(tst_LibrarySet)

#include "tst_libraryset.moc"
