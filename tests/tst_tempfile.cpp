// SPDX-License-Identifier: Apache-2.0
#include "folder.h"
#include "testcase.h"

#include <QCoreApplication>
#include <QDir>
#include <QJsonArray>
#include <QJsonObject>
#include <QPointer>
#include <QRegularExpression>
#include <QSemaphore>
#include <QTemporaryFile>
#include <QThread>

#include <zdefaultconfig.h>
#include <zdefaultemitter.h>
#include <zdefaultfilesystem.h>

#include <memory>
#include <vector>

namespace {

/// A folder that is the system's temporary folder, for as long as it lives.
class SystemFolder : public Folder
{
public:
    SystemFolder() { qputenv("TMPDIR", QFile::encodeName(path())); }
    ~SystemFolder() { m_before.isNull() ? qunsetenv("TMPDIR") : qputenv("TMPDIR", m_before); }

private:
    Q_DISABLE_COPY(SystemFolder)
    const QByteArray m_before = qgetenv("TMPDIR");
};

/// A folder that is the current one, for as long as it lives.
class CurrentFolder : public Folder
{
public:
    CurrentFolder() { QDir::setCurrent(path()); }
    ~CurrentFolder() { QDir::setCurrent(m_before); }

private:
    Q_DISABLE_COPY(CurrentFolder)
    const QString m_before = QDir::currentPath();
};

QJsonObject section(const QJsonValue &folder, const QJsonValue &stem)
{
    return {{QStringLiteral("temporary-folder"), folder}, {QStringLiteral("temporary-fn-template"), stem}};
}

void apply(ZDefaultTempFile &service, const QJsonValue &section)
{
    ZDefaultConfig config({{QStringLiteral("filesystem"), section}});
    service.getSetZConfig(&config);
}

/// Opens `file` under a name: Qt gives it one only when it is asked for.
bool make(QTemporaryFile &file) { return file.open() && !file.fileName().isEmpty(); }

/// The folders in `path`.
QStringList folders(const QString &path) { return QDir(path).entryList(QDir::Dirs | QDir::NoDotAndDotDot); }

} // namespace

/// Uses the service as any component does.
class Writer : public QObject
{
    Q_OBJECT
    Q_PROPERTY(ZTempFile *zTempFile MEMBER m_files)

public:
    ZTempFile *m_files = nullptr;
};

class tst_TempFile : public TestCase
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase() { QCoreApplication::setApplicationName(QStringLiteral("app")); }

    void hasNoSignalsAndNoSlots();
    void readingAPropertyYieldsNull();
    void isAnnouncedConfigured();
    void announcesItselfEachTime();

    void withoutAConfigurationNamesAreQtsOwn();
    void aNullConfigurationChangesNothing();
    void aFileComesIntoBeingWhenItIsOpened();
    void aFileIsRemovedWithItsObject();
    void eachFileIsAnother();
    void threadsMayMakeFilesAtOnce();

    void theSectionGivesFolderAndStem_data();
    void theSectionGivesFolderAndStem();
    void aPlaceholderInTheStemIsReplacedInPlace();
    void percentSignsInTheNameStay();
    void aMissingFolderIsMade();
    void anExistingFolderIsUsedAsItIs();
    void aMissingRelativeFolderIsMadeWithAnotherInside();
    void aFolderThatCannotBeMadeGivesWayToTheSystems_data();
    void aFolderThatCannotBeMadeGivesWayToTheSystems();
    void anEmptyFolderTextIsTheCurrentFolder();

    void leftoversOfTheStemAreRemoved_data();
    void leftoversOfTheStemAreRemoved();
    void leftoversAreRemovedFromTheSystemsFolderByDefault();
    void foldersAreSpared();
    void eachConfigurationIsAppliedAnew();
    void filesThatWereHandedOutKeepTheirNames();
};

void tst_TempFile::hasNoSignalsAndNoSlots()
{
    QCOMPARE(ZDefaultTempFile::staticMetaObject.methodCount(), QObject::staticMetaObject.methodCount());
}

void tst_TempFile::readingAPropertyYieldsNull()
{
    const SystemFolder system;
    const Wiring wiring;
    wiring->zemit0(ZDefaultConfig::TypeName);
    QObject *const service = wiring->zemit0(ZDefaultTempFile::TypeName);
    QCOMPARE(service->property("config"), QVariant::fromValue<ZConfig *>(nullptr));
    QCOMPARE(service->property("zEmitter"), QVariant::fromValue<ZEmitter *>(nullptr));
}

void tst_TempFile::isAnnouncedConfigured()
{
    const Folder folder;
    const QJsonObject config{{QStringLiteral("filesystem"), section(folder.path(), QStringLiteral("stem"))}};
    const Wiring wiring;
    wiring->zemit0(ZDefaultConfig::TypeName, Q_ARG(QJsonObject, config));
    QVERIFY(wiring->zemit0(ZDefaultTempFile::TypeName));
    Writer writer;
    wiring->inject0(&writer);
    QVERIFY(dynamic_cast<ZTempFileDelegate *>(writer.m_files));
    QCOMPARE(writer.m_files->newFile0()->fileTemplate(), folder.filePath(QStringLiteral("stem")));

    wiring->bind0(QSharedPointer<ZTempFileDelegate>::create(nullptr));
    QVERIFY(!writer.m_files->newFile0());
}

void tst_TempFile::announcesItselfEachTime()
{
    const Wiring first;
    const Wiring second;
    const auto service = QSharedPointer<ZDefaultTempFile>::create();
    QCOMPARE(service->getSetZEmitter(), nullptr);
    QCOMPARE(service->getSetZEmitter(first.emitter()), first.emitter());
    QCOMPARE(service->getSetZEmitter(second.emitter()), second.emitter());
    for (const Wiring *wiring : {&first, &second}) {
        Writer writer;
        (*wiring)->inject0(&writer);
        QVERIFY(writer.m_files);
        QVERIFY(writer.m_files->newFile0());
    }
}

void tst_TempFile::withoutAConfigurationNamesAreQtsOwn()
{
    const SystemFolder system;
    ZDefaultTempFile service;
    const auto file = service.newFile0();
    QVERIFY(file);
    QVERIFY(!file->isOpen());
    QVERIFY(!file->parent());
    QCOMPARE(file->fileTemplate(), QTemporaryFile().fileTemplate());
    QCOMPARE(system.files(), QStringList());
}

void tst_TempFile::aNullConfigurationChangesNothing()
{
    const Folder folder;
    ZDefaultTempFile service;
    QCOMPARE(service.getSetZConfig(), nullptr);
    QCOMPARE(service.newFile0()->fileTemplate(), QTemporaryFile().fileTemplate());
    apply(service, section(folder.path(), QStringLiteral("stem")));
    folder.write(QStringLiteral("stem.left"), "over");
    QCOMPARE(service.getSetZConfig(nullptr), nullptr);
    QVERIFY(service.setProperty("config", QVariant::fromValue<ZConfig *>(nullptr)));
    QCOMPARE(service.newFile0()->fileTemplate(), folder.filePath(QStringLiteral("stem")));
    QCOMPARE(folder.files(), QStringList{"stem.left"});
}

void tst_TempFile::aFileComesIntoBeingWhenItIsOpened()
{
    const Folder folder;
    ZDefaultTempFile service;
    apply(service, section(folder.path(), QStringLiteral("stem")));
    const auto file = service.newFile0();
    QVERIFY(!file->isOpen());
    QVERIFY(!file->parent());
    QCOMPARE(folder.files(), QStringList());
    QVERIFY(make(*file));
    QCOMPARE(folder.files().size(), 1);
    const QString name = folder.files().first();
    QVERIFY2(QRegularExpression(QStringLiteral("^stem\\.\\w{6}$")).match(name).hasMatch(), qPrintable(name));
    QCOMPARE(file->fileName(), folder.filePath(name));
}

void tst_TempFile::aFileIsRemovedWithItsObject()
{
    const Folder folder;
    ZDefaultTempFile service;
    apply(service, section(folder.path(), QStringLiteral("stem")));
    auto file = service.newFile0();
    const QPointer<QObject> watched = file.data();
    QVERIFY(make(*file));
    QCOMPARE(folder.files().size(), 1);
    QVERIFY(watched);
    file.clear();
    QVERIFY(!watched);
    QCOMPARE(folder.files(), QStringList());
}

void tst_TempFile::eachFileIsAnother()
{
    const Folder folder;
    ZDefaultTempFile service;
    apply(service, section(folder.path(), QStringLiteral("stem")));
    const auto first = service.newFile0();
    const auto second = service.newFile0();
    QVERIFY(first != second);
    QVERIFY(make(*first));
    QVERIFY(make(*second));
    QCOMPARE(folder.files().size(), 2);
}

void tst_TempFile::threadsMayMakeFilesAtOnce()
{
    constexpr int Threads = 4;
    constexpr int Files = 25;
    const Folder folder;
    ZDefaultTempFile service;
    apply(service, section(folder.path(), QStringLiteral("stem")));
    std::vector<QSharedPointer<QTemporaryFile>> files(Threads * Files);
    std::vector<std::unique_ptr<QThread>> threads;
    QSemaphore start;
    for (size_t t = 0; t < Threads; ++t) {
        threads.emplace_back(QThread::create([&, t] {
            start.acquire();
            for (size_t i = 0; i < Files; ++i) {
                files[t * Files + i] = service.newFile0();
                make(*files[t * Files + i]);
            }
        }));
        threads.back()->start();
    }
    start.release(Threads);
    for (const auto &thread : threads)
        QVERIFY(thread->wait(30000));
    QCOMPARE(folder.files().size(), Threads * Files);
}

void tst_TempFile::theSectionGivesFolderAndStem_data()
{
    QTest::addColumn<QJsonObject>("config");
    QTest::addColumn<QString>("name"); // below the current folder; one that starts with "system" is in the system's
    const auto rows = [](const char *what, const QJsonValue &wrong) {
        QTest::addRow("section is %s", what) << QJsonObject{{"filesystem", wrong}} << "system/app";
        QTest::addRow("folder is %s", what) << QJsonObject{{"filesystem", section(wrong, "stem")}} << "system/stem";
        QTest::addRow("stem is %s", what) << QJsonObject{{"filesystem", section("folder", wrong)}} << "folder/app";
    };
    rows("absent", QJsonValue::Undefined);
    rows("null", QJsonValue::Null);
    rows("a number", 1);
    rows("a truth", true);
    rows("a list", QJsonArray{"folder"});
    QTest::newRow("section is a text") << QJsonObject{{"filesystem", "folder"}} << "system/app";
    QTest::newRow("section is empty") << QJsonObject{{"filesystem", QJsonObject()}} << "system/app";
    QTest::newRow("folder is a section") << QJsonObject{{"filesystem", section(QJsonObject(), "stem")}}
                                         << "system/stem";
    QTest::newRow("stem is a section") << QJsonObject{{"filesystem", section("folder", QJsonObject())}} << "folder/app";
    QTest::newRow("both") << QJsonObject{{"filesystem", section("folder", "stem")}} << "folder/stem";
    QTest::newRow("stem is empty") << QJsonObject{{"filesystem", section("folder", "")}} << "folder/";
    QTest::newRow("keys outside the section") << section("folder", "stem") << "system/app";
}

void tst_TempFile::theSectionGivesFolderAndStem()
{
    QFETCH(QJsonObject, config);
    QFETCH(QString, name);
    const CurrentFolder current;
    const SystemFolder system;
    QVERIFY(QDir().mkdir(QStringLiteral("folder")));
    if (name.startsWith(QLatin1String("system")))
        name.replace(QLatin1String("system"), QDir::tempPath());
    ZDefaultConfig given(config);
    ZDefaultTempFile service;
    QCOMPARE(service.getSetZConfig(&given), &given);
    QCOMPARE(service.newFile0()->fileTemplate(), name);
}

void tst_TempFile::aPlaceholderInTheStemIsReplacedInPlace()
{
    const Folder folder;
    ZDefaultTempFile service;
    apply(service, section(folder.path(), QStringLiteral("a-XXXXXX.txt")));
    const auto file = service.newFile0();
    QVERIFY(make(*file));
    const QString name = folder.files().join(QLatin1Char(' '));
    QVERIFY2(QRegularExpression(QStringLiteral("^a-\\w{6}\\.txt$")).match(name).hasMatch(), qPrintable(name));
    QVERIFY(!name.contains(QLatin1String("XXXXXX")));
}

void tst_TempFile::percentSignsInTheNameStay()
{
    const Folder folder;
    const QString path = folder.filePath(QStringLiteral("%2 of %1"));
    ZDefaultTempFile service;
    apply(service, section(path, QStringLiteral("%1%2")));
    QCOMPARE(service.newFile0()->fileTemplate(), path + QStringLiteral("/%1%2"));
}

void tst_TempFile::aMissingFolderIsMade()
{
    const Folder folder;
    const QString path = folder.filePath(QStringLiteral("a/b"));
    ZDefaultTempFile service;
    apply(service, section(path, QStringLiteral("stem")));
    QVERIFY(QFileInfo(path).isDir());
    QCOMPARE(folders(path), QStringList());
    QCOMPARE(service.newFile0()->fileTemplate(), path + QStringLiteral("/stem"));
    QVERIFY(service.newFile0()->open());
}

void tst_TempFile::anExistingFolderIsUsedAsItIs()
{
    const CurrentFolder current;
    QVERIFY(QDir().mkdir(QStringLiteral("folder")));
    ZDefaultTempFile service;
    apply(service, section(QStringLiteral("folder"), QStringLiteral("stem")));
    QCOMPARE(folders(current.path()), QStringList{"folder"});
    QCOMPARE(folders(current.filePath(QStringLiteral("folder"))), QStringList());
}

void tst_TempFile::aMissingRelativeFolderIsMadeWithAnotherInside()
{
    const CurrentFolder current;
    ZDefaultTempFile service;
    apply(service, section(QStringLiteral("a/b"), QStringLiteral("stem")));
    QVERIFY(QFileInfo(current.filePath(QStringLiteral("a/b/a/b"))).isDir());
    QCOMPARE(service.newFile0()->fileTemplate(), QStringLiteral("a/b/stem"));
    const auto file = service.newFile0();
    QVERIFY(make(*file));
    QCOMPARE(QFileInfo(file->fileName()).canonicalPath(),
             QFileInfo(current.filePath(QStringLiteral("a/b"))).canonicalFilePath());
}

void tst_TempFile::aFolderThatCannotBeMadeGivesWayToTheSystems_data()
{
    QTest::addColumn<QString>("path");
    QTest::newRow("beneath a file") << "plain/folder";
    QTest::newRow("a file") << "plain";
}

void tst_TempFile::aFolderThatCannotBeMadeGivesWayToTheSystems()
{
    QFETCH(QString, path);
    const SystemFolder system;
    const Folder folder;
    system.write(QStringLiteral("stem.left"), "over");
    folder.write(QStringLiteral("plain"), "a file");
    folder.write(QStringLiteral("stem.left"), "over");
    ZDefaultTempFile service;
    apply(service, section(folder.filePath(path), QStringLiteral("stem")));
    QCOMPARE(service.newFile0()->fileTemplate(), QDir::tempPath() + QStringLiteral("/stem"));
    QCOMPARE(system.files(), QStringList());
    QCOMPARE(folder.files(), QStringList({"plain", "stem.left"}));
}

void tst_TempFile::anEmptyFolderTextIsTheCurrentFolder()
{
    const CurrentFolder current;
    const SystemFolder system;
    for (const Folder *folder : {static_cast<const Folder *>(&current), static_cast<const Folder *>(&system)})
        folder->write(QStringLiteral("stem.left"), "over");
    ZDefaultTempFile service;
    apply(service, section(QString(), QStringLiteral("stem")));
    QCOMPARE(current.files(), QStringList());
    QCOMPARE(system.files(), QStringList{"stem.left"});
    QCOMPARE(service.newFile0()->fileTemplate(), QStringLiteral("/stem")); // although the clean-up was not there
}

void tst_TempFile::leftoversOfTheStemAreRemoved_data()
{
    QTest::addColumn<QString>("stem");
    QTest::addColumn<QStringList>("removed");
    QTest::addColumn<QStringList>("kept");
    QTest::newRow("application") << "app" << QStringList({"app.ABC123", "app.x", "app.x.y", "app."})
                                 << QStringList({"app", "app-x", "application.x", "my.app.x", "myapp.x"});
    QTest::newRow("stem with a dot") << "app.x" << QStringList({"app.x.ABC123"})
                                     << QStringList({"app.ABC123", "app.x", "appxx.ABC123"});
    QTest::newRow("stem with a space") << "app x" << QStringList({"app x.ABC123"})
                                       << QStringList({"app.ABC123", "x.ABC123"});
    QTest::newRow("stem with a semicolon")
        << "app;x" << QStringList({"app;x.ABC123"}) << QStringList({"app.ABC123", "x.ABC123"});
}

void tst_TempFile::leftoversOfTheStemAreRemoved()
{
    QFETCH(QString, stem);
    QFETCH(QStringList, removed);
    QFETCH(QStringList, kept);
    const Folder folder;
    for (const QString &file : removed + kept)
        QVERIFY(folder.write(file, "left over"));
    kept.sort();
    ZDefaultTempFile service;
    apply(service, section(folder.path(), stem));
    QCOMPARE(folder.files(), kept);
}

void tst_TempFile::leftoversAreRemovedFromTheSystemsFolderByDefault()
{
    const SystemFolder system;
    for (const char *file : {"app", "app.ABC123", "app.x", "application.x"})
        QVERIFY(system.write(QLatin1String(file), "left over"));
    ZDefaultConfig config;
    ZDefaultTempFile service;
    service.getSetZConfig(&config);
    QCOMPARE(system.files(), QStringList({"app", "application.x"}));
}

void tst_TempFile::foldersAreSpared()
{
    const Folder folder;
    QVERIFY(QDir(folder.path()).mkdir(QStringLiteral("app.empty")));
    QVERIFY(QDir(folder.path()).mkdir(QStringLiteral("app.full")));
    QVERIFY(folder.write(QStringLiteral("app.full/app.x"), "not in the folder itself"));
    QVERIFY(folder.write(QStringLiteral("app.x"), "left over"));
    ZDefaultTempFile service;
    apply(service, section(folder.path(), QStringLiteral("app")));
    QCOMPARE(folder.files(), QStringList()); // whatever could not be removed before it
    QCOMPARE(folders(folder.path()), QStringList({"app.empty", "app.full"}));
    QVERIFY(QFile::exists(folder.filePath(QStringLiteral("app.full/app.x"))));
}

void tst_TempFile::eachConfigurationIsAppliedAnew()
{
    const Folder first;
    const Folder second;
    ZDefaultTempFile service;
    for (const Folder *folder : {&first, &second, &first, &first}) {
        QVERIFY(folder->write(QStringLiteral("stem.left"), "over"));
        apply(service, section(folder->path(), QStringLiteral("stem")));
        QCOMPARE(folder->files(), QStringList());
        QCOMPARE(service.newFile0()->fileTemplate(), folder->filePath(QStringLiteral("stem")));
    }
    const SystemFolder system;
    ZDefaultConfig none;
    service.getSetZConfig(&none);
    QCOMPARE(service.newFile0()->fileTemplate(), QDir::tempPath() + QStringLiteral("/app"));
}

void tst_TempFile::filesThatWereHandedOutKeepTheirNames()
{
    const Folder first;
    const Folder second;
    ZDefaultTempFile service;
    apply(service, section(first.path(), QStringLiteral("stem")));
    const auto open = service.newFile0();
    const auto unopened = service.newFile0();
    QVERIFY(make(*open));
    const QString name = open->fileName();
    apply(service, section(second.path(), QStringLiteral("stem")));
    QCOMPARE(open->fileName(), name);
    QVERIFY(QFile::exists(name));
    QVERIFY(make(*unopened));
    QCOMPARE(QFileInfo(unopened->fileName()).path(), first.path());
}

QTEST_GUILESS_MAIN(tst_TempFile)

#include "tst_tempfile.moc"
