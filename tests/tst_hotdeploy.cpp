// SPDX-License-Identifier: Apache-2.0
#include "gate.h"
#include "greeter.h"
#include "host.h"
#include "journal.h"

#include <QDateTime>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonObject>
#include <QRegularExpression>
#include <QThread>

#include <zlibrary.h>
#include <zobject.h>

#include <thread>

using Library = QSharedPointer<ZLibrary>;

namespace {

const QString Plain = QStringLiteral("plain");
const QString Foo = QStringLiteral("libfoo.so");

/// A loader with a journal and its two folders.
class Site
{
public:
    explicit Site(int mask = 0xff, bool warnings = true) : journal(Journal::bind(host.emitter(), mask, warnings)) {}

    /// Configures the loader, and forgets the messages of that.
    void start()
    {
        loader = host.wire<Spy>(section());
        journal->take();
    }
    QJsonObject section() const
    {
        return {{QStringLiteral("hot-deploy"), hot.path()}, {QStringLiteral("deployed"), deployed.path()}};
    }
    QString changed() const { return QStringLiteral("zdefault 2: hot-deploy folder changed: %1").arg(hot.path()); }
    /// The messages of one call of the slot, after the first.
    QStringList change()
    {
        journal->take();
        loader->directoryChangedSlot(hot.path());
        QStringList entries = journal->take();
        return entries.value(0) == changed() ? entries.mid(1) : entries;
    }

    Folder hot;
    Folder deployed;
    Host host;
    QSharedPointer<Journal> journal;
    Spy *loader = nullptr;
};

/// The working directory, while it lives.
class Working
{
public:
    explicit Working(const QString &folder) { QDir::setCurrent(folder); }
    ~Working() { QDir::setCurrent(m_before); }

private:
    Q_DISABLE_COPY(Working)
    const QString m_before = QDir::currentPath();
};

QString stamp(const QDateTime &time) { return time.toString(QStringLiteral("yyyyMMdd-hhmmsszzz")); }

} // namespace

class tst_HotDeploy : public TestCase
{
    Q_OBJECT

private Q_SLOTS:
    void emptyFolderOnlyTellsThatItChanged();
    void changeIsToldInALineOfKind2();
    void fileIsMovedAndLoadedByItsBaseName_data();
    void fileIsMovedAndLoadedByItsBaseName();
    void otherFilesAreLeft_data();
    void otherFilesAreLeft();
    void foldersAreLeft();
    void filesAreTakenByNameIgnoringCase();
    void fileDroppedWhileTheApplicationRunsIsDeployed();
    void filesThatWaitAtTheStartAreDeployedAfterTheList();
    void filesDroppedDuringTheStartAreDeployedToo();
    void withoutAHotDeployFolderPluginsAreLoadedAllTheSame();
    void withoutADeployedFolderNothingIsMoved();

    void linkInTheWorkingDirectoryHoldsAPluginBack();
    void fileInTheWorkingDirectoryHoldsNothingBack();
    void linkInTheHotDeployFolderIsDeployed();
    void linkToAFolderIsALinkLikeAnyOther();

    void takenNameStaysWhereItIs_data();
    void takenNameStaysWhereItIs();
    void nameThatAFolderHasIsTakenToo();
    void droppedTwiceStaysTheSecondTime();
    void stampedNameOfATakenOneIsDeployedWhenItIsThere();
    void failureDoesNotHinderTheOthers();
    void renameThatFailsIsTriedAgainAtTheNextChange();
    void renameThatFailsIsToldWhereTheLoggerWantsIt_data();
    void renameThatFailsIsToldWhereTheLoggerWantsIt();
    void placeholdersInAPathStay();
    void loadThatFailsLeavesTheFileDeployed();

    void fileIsReleasedAtOnce();
    void versionsThatAreHeldStay();
    void serviceIsExchangedUnderItsCallers();
    void oldVersionStaysUntilItsLastCallHasReturned();
};

void tst_HotDeploy::emptyFolderOnlyTellsThatItChanged()
{
    Site site;
    site.start();
    site.loader->directoryChangedSlot(site.hot.path());
    QCOMPARE(site.journal->take(), QStringList{site.changed()});
    QCOMPARE(site.loader->asked, QStringList());
}

void tst_HotDeploy::changeIsToldInALineOfKind2()
{
    Site told(2);
    told.start();
    told.loader->directoryChangedSlot(told.hot.path());
    QCOMPARE(told.journal->take(), QStringList{told.changed()});
    Site silent(0xff ^ 2);
    silent.start();
    silent.loader->directoryChangedSlot(silent.hot.path());
    QVERIFY(silent.journal->isEmpty());
}

void tst_HotDeploy::fileIsMovedAndLoadedByItsBaseName_data()
{
    QTest::addColumn<QString>("file");
    QTest::addColumn<QString>("name");
    QTest::newRow("plain") << Foo << QStringLiteral("libfoo");
    QTest::newRow("version") << QStringLiteral("libfoo.1.2.so") << QStringLiteral("libfoo.1.2");
    QTest::newRow("nothing between") << QStringLiteral("lib.so") << QStringLiteral("lib");
}

void tst_HotDeploy::fileIsMovedAndLoadedByItsBaseName()
{
    QFETCH(QString, file);
    QFETCH(QString, name);
    Site site;
    site.start();
    site.hot.drop(Plain, file);
    QVERIFY(site.change().contains(QStringLiteral("zdefault 1: loaded: %1").arg(name)));
    QCOMPARE(site.loader->asked, QStringList{name});
    QCOMPARE(site.hot.files(), QStringList());
    QCOMPARE(site.deployed.files(), QStringList{file});
}

void tst_HotDeploy::otherFilesAreLeft_data()
{
    QTest::addColumn<QString>("file");
    QTest::newRow("version after the suffix") << QStringLiteral("libfoo.so.1");
    QTest::newRow("no prefix") << QStringLiteral("foo.so");
    QTest::newRow("no suffix") << QStringLiteral("libfoo");
    QTest::newRow("being copied") << QStringLiteral("libfoo.so.part");
    QTest::newRow("hidden") << QStringLiteral(".libfoo.so");
}

void tst_HotDeploy::otherFilesAreLeft()
{
    QFETCH(QString, file);
    Site site;
    site.start();
    site.hot.drop(Plain, file);
    QCOMPARE(site.change(), QStringList());
    QVERIFY(QFile::exists(site.hot.filePath(file)));
    QCOMPARE(site.deployed.files(), QStringList());
}

void tst_HotDeploy::foldersAreLeft()
{
    Site site;
    site.start();
    QVERIFY(QDir(site.hot.path()).mkdir(Foo));
    QCOMPARE(site.change(), QStringList());
    QVERIFY(QFileInfo(site.hot.filePath(Foo)).isDir());
    QVERIFY(!QFileInfo::exists(site.deployed.filePath(Foo)));
}

void tst_HotDeploy::filesAreTakenByNameIgnoringCase()
{
    Site site;
    site.start();
    for (const char *file : {"libbanana.so", "libCherry.so", "libApple.so", "libdate.so"})
        site.hot.drop(Plain, QLatin1String(file));
    site.change();
    QCOMPARE(site.loader->asked, QStringList({QStringLiteral("libApple"), QStringLiteral("libbanana"),
                                              QStringLiteral("libCherry"), QStringLiteral("libdate")}));
}

void tst_HotDeploy::fileDroppedWhileTheApplicationRunsIsDeployed()
{
    Site site;
    site.start();
    site.hot.drop(Plain, Foo);
    QTRY_COMPARE(site.deployed.files(), QStringList{Foo});
    QCOMPARE(site.loader->asked, QStringList{QStringLiteral("libfoo")});
    QVERIFY(site.journal->entries().contains(site.changed()));

    site.hot.drop(Plain, QStringLiteral("libfoo.2.so")); // it goes on watching
    QTRY_COMPARE(site.deployed.files(), QStringList({QStringLiteral("libfoo.2.so"), Foo}));
    QCOMPARE(site.hot.files(), QStringList());
}

void tst_HotDeploy::filesThatWaitAtTheStartAreDeployedAfterTheList()
{
    Site site;
    site.hot.drop(Plain, Foo);
    site.deployed.drop(Plain, QStringLiteral("liblisted.so"));
    QJsonObject section = site.section();
    section.insert(QStringLiteral("load-list"), QJsonArray{QStringLiteral("listed")});
    site.host.wire<Spy>(section);
    QCOMPARE(site.journal->take(), QStringList({QStringLiteral("zdefault 1: loaded: listed"), site.changed(),
                                                QStringLiteral("zdefault 1: loaded: libfoo")}));
    QCOMPARE(site.hot.files(), QStringList());
    QCOMPARE(site.deployed.files(), QStringList({Foo, QStringLiteral("liblisted.so")}));
}

void tst_HotDeploy::filesDroppedDuringTheStartAreDeployedToo()
{
    class Dropping : public ZDefaultLoader
    {
    public:
        const Folder *hot = nullptr;

        QSharedPointer<ZLibrary> load0(QString name) override
        {
            if (name == QLatin1String("libfoo")) // it is not watched yet
                hot->drop(Plain, QStringLiteral("libgoo.so"));
            return ZDefaultLoader::load0(name);
        }
    };

    Site site;
    site.hot.drop(Plain, Foo);
    auto *const loader = new Dropping;
    loader->hot = &site.hot;
    site.host.wire(site.section(), loader);
    QCOMPARE(site.deployed.files(), QStringList({Foo, QStringLiteral("libgoo.so")}));
}

void tst_HotDeploy::withoutAHotDeployFolderPluginsAreLoadedAllTheSame()
{
    Site site;
    site.deployed.drop(Plain, Foo);
    QJsonObject section = site.section();
    section.insert(QStringLiteral("hot-deploy"), QStringLiteral("/nowhere/at/all"));
    section.insert(QStringLiteral("load-list"), QJsonArray{QStringLiteral("foo")});
    site.host.wire<Spy>(section);
    QCOMPARE(site.journal->take(), QStringList{QStringLiteral("zdefault 1: loaded: foo")});
    QVERIFY(!QFileInfo::exists(QStringLiteral("/nowhere")));
}

void tst_HotDeploy::withoutADeployedFolderNothingIsMoved()
{
    Site site;
    site.hot.drop(Plain, Foo);
    site.loader = new Spy;
    site.host->inject0(site.loader);
    const Folder working;
    const Working there(working.path());
    QCOMPARE(site.change(), QStringList());
    QCOMPARE(site.hot.files(), QStringList{Foo});
    QCOMPARE(working.files(), QStringList());
}

void tst_HotDeploy::linkInTheWorkingDirectoryHoldsAPluginBack()
{
    Site site;
    site.start();
    site.hot.drop(Plain, Foo);
    site.hot.drop(Plain, QStringLiteral("libgoo.so"));
    const Folder working;
    QVERIFY(QFile::link(QStringLiteral("/nowhere/at/all"), working.filePath(Foo)));
    {
        const Working there(working.path());
        site.change();
    }
    QCOMPARE(site.loader->asked, QStringList{QStringLiteral("libgoo")});
    QCOMPARE(site.hot.files(), QStringList{Foo});
    QCOMPARE(site.change(), QStringList{QStringLiteral("zdefault 1: loaded: libfoo")}); // elsewhere it is not held
}

void tst_HotDeploy::fileInTheWorkingDirectoryHoldsNothingBack()
{
    Site site;
    site.start();
    site.hot.drop(Plain, Foo);
    const Folder working;
    working.write(Foo, "");
    const Working there(working.path());
    site.change();
    QCOMPARE(site.loader->asked, QStringList{QStringLiteral("libfoo")});
    QCOMPARE(working.files(), QStringList{Foo});
}

void tst_HotDeploy::linkInTheHotDeployFolderIsDeployed()
{
    Site site;
    site.start();
    const Folder elsewhere;
    elsewhere.drop(Plain, QStringLiteral("libreal.so"));
    QVERIFY(QFile::link(elsewhere.filePath(QStringLiteral("libreal.so")), site.hot.filePath(Foo)));
    QCOMPARE(site.change(), QStringList{QStringLiteral("zdefault 1: loaded: libfoo")});
    QVERIFY(QFileInfo(site.deployed.filePath(Foo)).isSymLink());
    QCOMPARE(site.hot.files(), QStringList());
    QCOMPARE(elsewhere.files(), QStringList{QStringLiteral("libreal.so")});
}

void tst_HotDeploy::takenNameStaysWhereItIs_data()
{
    QTest::addColumn<QString>("file");
    QTest::addColumn<QString>("base");
    QTest::newRow("plain") << Foo << QStringLiteral("libfoo");
    QTest::newRow("version") << QStringLiteral("libfoo.1.so") << QStringLiteral("libfoo.1");
}

void tst_HotDeploy::takenNameStaysWhereItIs()
{
    QFETCH(QString, file);
    QFETCH(QString, base);
    Site site;
    site.start();
    site.deployed.write(file, "the old one");
    site.hot.write(file, "the new one");
    const QString before = stamp(QDateTime::currentDateTime());
    const QStringList entries = site.change();
    const QString after = stamp(QDateTime::currentDateTime());

    QCOMPARE(entries.size(), 1);
    const QRegularExpression failed(
        QStringLiteral("^warning: failed to rename %1\\.(\\d{8}-\\d{9})\\.so to %2\\.(\\d{8}-\\d{9})\\.so$")
            .arg(QRegularExpression::escape(site.hot.filePath(base)),
                 QRegularExpression::escape(site.deployed.filePath(base))));
    const QRegularExpressionMatch match = failed.match(entries.first());
    QVERIFY2(match.hasMatch(), qPrintable(entries.first()));
    QCOMPARE(match.captured(1), match.captured(2));
    QVERIFY(before <= match.captured(1) && match.captured(1) <= after);
    QCOMPARE(site.loader->asked, QStringList());
    QCOMPARE(site.hot.files(), QStringList{file});
    QCOMPARE(site.deployed.files(), QStringList{file});
}

void tst_HotDeploy::nameThatAFolderHasIsTakenToo()
{
    Site site;
    site.start();
    QVERIFY(QDir(site.deployed.path()).mkdir(Foo));
    site.hot.drop(Plain, Foo);
    const QStringList entries = site.change();
    QCOMPARE(entries.size(), 1);
    QVERIFY2(entries.first().contains(QRegularExpression(QStringLiteral("libfoo\\.\\d{8}-\\d{9}\\.so to "))),
             qPrintable(entries.first()));
    QCOMPARE(site.hot.files(), QStringList{Foo});
}

void tst_HotDeploy::linkToAFolderIsALinkLikeAnyOther()
{
    Site site;
    site.start();
    const Folder elsewhere;
    QVERIFY(QFile::link(elsewhere.path(), site.hot.filePath(Foo)));
    const QStringList entries = site.change();
    QVERIFY(entries.value(0).startsWith(QLatin1String("warning: failed to load libfoo: ")));
    QVERIFY(QFileInfo(site.deployed.filePath(Foo)).isSymLink());
}

void tst_HotDeploy::droppedTwiceStaysTheSecondTime()
{
    Site site;
    site.start();
    site.hot.drop(Plain, Foo);
    QTRY_COMPARE(site.deployed.files(), QStringList{Foo});
    site.journal->take();
    site.hot.drop(Plain, Foo);
    QTRY_VERIFY(!site.journal->entries().filter(QStringLiteral("warning: failed to rename ")).isEmpty());
    QCOMPARE(site.loader->asked, QStringList{QStringLiteral("libfoo")});
    QCOMPARE(site.hot.files(), QStringList{Foo});
    QCOMPARE(site.deployed.files(), QStringList{Foo});
}

void tst_HotDeploy::stampedNameOfATakenOneIsDeployedWhenItIsThere()
{
    Site site;
    site.start();
    site.deployed.write(Foo, "");
    site.hot.write(Foo, "");
    // One for each millisecond of a second to come. They would be deployed for themselves, so they are links, which the
    // working directory holds back.
    const Working there(site.hot.path());
    for (int lead = 1000; site.loader->asked.isEmpty() && lead <= 32000; lead *= 2) { // making them may take longer
        const QDateTime from = QDateTime::currentDateTime().addMSecs(lead);
        for (int i = 0; i < 1000; ++i)
            QFile::link(pluginFile(Plain), QStringLiteral("libfoo.%1.so").arg(stamp(from.addMSecs(i))));
        while (site.loader->asked.isEmpty() && QDateTime::currentDateTime() < from.addMSecs(1000))
            site.change();
    }
    QCOMPARE(site.loader->asked.size(), 1);
    const QString name = site.loader->asked.first();
    QVERIFY(QRegularExpression(QStringLiteral("^libfoo\\.\\d{8}-\\d{9}$")).match(name).hasMatch());
    QCOMPARE(site.deployed.files(), QStringList({name + QStringLiteral(".so"), Foo}));
    QVERIFY(site.hot.files().contains(Foo));
}

void tst_HotDeploy::failureDoesNotHinderTheOthers()
{
    Site site;
    site.start();
    site.deployed.write(Foo, "");
    site.hot.drop(Plain, Foo);
    site.hot.write(QStringLiteral("libgoo.so"), "no plugin at all");
    site.hot.drop(Plain, QStringLiteral("libhoo.so"));
    site.change();
    QCOMPARE(site.loader->asked, QStringList({QStringLiteral("libgoo"), QStringLiteral("libhoo")}));
    QCOMPARE(site.hot.files(), QStringList{Foo});
}

void tst_HotDeploy::renameThatFailsIsTriedAgainAtTheNextChange()
{
    Site site;
    site.start();
    QVERIFY(QDir(site.deployed.path()).removeRecursively());
    site.hot.drop(Plain, Foo);
    const QString failed =
        QStringLiteral("warning: failed to rename %1 to %2").arg(site.hot.filePath(Foo), site.deployed.filePath(Foo));
    QCOMPARE(site.change(), QStringList{failed});
    QCOMPARE(site.change(), QStringList{failed});
    QCOMPARE(site.loader->asked, QStringList());
    QCOMPARE(site.hot.files(), QStringList{Foo});

    QVERIFY(QDir().mkdir(site.deployed.path()));
    QCOMPARE(site.change(), QStringList{QStringLiteral("zdefault 1: loaded: libfoo")});
    QCOMPARE(site.deployed.files(), QStringList{Foo});
}

void tst_HotDeploy::renameThatFailsIsToldWhereTheLoggerWantsIt_data()
{
    QTest::addColumn<int>("mask");
    QTest::addColumn<bool>("warnings");
    QTest::addColumn<bool>("taken");
    QTest::addColumn<QString>("prefix");
    for (const bool taken : {false, true}) {
        const char *name = taken ? "taken name" : "no folder";
        QTest::addRow("%s, warnings on", name) << 2 << true << taken << QStringLiteral("warning: ");
        QTest::addRow("%s, warnings on, lines off", name) << 0 << true << taken << QStringLiteral("warning: ");
        QTest::addRow("%s, warnings off", name) << 2 << false << taken << QStringLiteral("zdefault 2: ");
        QTest::addRow("%s, warnings off, other lines on", name) << (0xff ^ 2) << false << taken << QString();
    }
}

void tst_HotDeploy::renameThatFailsIsToldWhereTheLoggerWantsIt()
{
    QFETCH(int, mask);
    QFETCH(bool, warnings);
    QFETCH(bool, taken);
    QFETCH(QString, prefix);
    Site site(mask, warnings);
    site.start();
    if (taken)
        site.deployed.write(Foo, "");
    else
        QVERIFY(QDir(site.deployed.path()).removeRecursively());
    site.hot.drop(Plain, Foo);
    const QStringList entries = site.change();
    QCOMPARE(entries.size(), prefix.isEmpty() ? 0 : 1);
    QVERIFY(entries.value(0).startsWith(prefix));
}

void tst_HotDeploy::placeholdersInAPathStay()
{
    Site site;
    site.start();
    QVERIFY(QDir(site.hot.path()).mkdir(QStringLiteral("%2")));
    const QString odd = site.hot.filePath(QStringLiteral("%2"));
    site.hot.drop(Plain, QStringLiteral("%2/libfoo.so"));
    QVERIFY(QDir(site.deployed.path()).removeRecursively());
    site.loader->directoryChangedSlot(odd);
    QCOMPARE(site.journal->take(), QStringList({QStringLiteral("zdefault 2: hot-deploy folder changed: ") + odd,
                                                QStringLiteral("warning: failed to rename ") + odd +
                                                    QStringLiteral("/libfoo.so to ") + site.deployed.filePath(Foo)}));
}

void tst_HotDeploy::loadThatFailsLeavesTheFileDeployed()
{
    Site site;
    site.start();
    site.hot.write(Foo, "no plugin at all");
    const QStringList entries = site.change();
    QVERIFY(!entries.isEmpty());
    QVERIFY(entries.first().startsWith(QLatin1String("warning: failed to load libfoo: ")));
    QCOMPARE(site.hot.files(), QStringList());
    QCOMPARE(site.deployed.files(), QStringList{Foo});
}

void tst_HotDeploy::fileIsReleasedAtOnce()
{
    Site site;
    site.start();
    site.hot.drop(Plain, QStringLiteral("libfoo.1.so"));
    site.change();
    settle();
    QCOMPARE(site.journal->take().last(), QStringLiteral("zdefault 1: unloaded: libfoo.1"));
    QVERIFY(!isMapped(site.deployed.filePath(QStringLiteral("libfoo.1.so"))));
}

void tst_HotDeploy::versionsThatAreHeldStay()
{
    Site site;
    site.start();
    site.hot.drop(QStringLiteral("keeper"), QStringLiteral("libfoo.1.so"));
    site.change();
    const Library first = site.loader->loaded0(QStringLiteral("libfoo"));
    QVERIFY(first);
    site.hot.drop(QStringLiteral("keeper"), QStringLiteral("libfoo.2.so"));
    site.change();
    settle();
    QVERIFY(isMapped(site.deployed.filePath(QStringLiteral("libfoo.1.so"))));
    const Library second = site.loader->loaded0(QStringLiteral("libfoo"));
    QVERIFY(second);
    QVERIFY(second != first);
    QCOMPARE(site.loader->load0(QStringLiteral("libfoo")), second); // the newest is what is asked for from now on
    QCOMPARE(site.loader->loaded0(QStringLiteral("libfoo.1")), first);
    for (const Library &library : {first, second})
        QMetaObject::invokeMethod(QSharedPointer<ZObject>(*library).data(), "letGo");
}

void tst_HotDeploy::serviceIsExchangedUnderItsCallers()
{
    const auto delegate = QSharedPointer<GreeterDelegate>::create(nullptr);
    Greeter *const greeter = delegate.data(); // what a caller holds
    Site site;
    site.host->bind0(delegate);
    site.start();

    site.hot.drop(QStringLiteral("greeter"));
    QTRY_COMPARE(greeter->greet(QStringLiteral("Ann")), QStringLiteral("1: hello, Ann"));
    site.hot.drop(QStringLiteral("greeter.2"));
    QTRY_COMPARE(greeter->greet(QStringLiteral("Ann")), QStringLiteral("2: hello, Ann"));
    QTRY_VERIFY(!isMapped(site.deployed.filePath(QStringLiteral("libgreeter.so"))));

    const Library newest = site.loader->load0(QStringLiteral("libgreeter"));
    QVERIFY(newest);
    QCOMPARE(newest, site.loader->loaded0(QStringLiteral("libgreeter.2")));
    const QSharedPointer<ZObject> root = *newest;
    auto *const part = static_cast<Greeter *>(root->qt_metacast(qobject_interface_iid<Greeter *>()));
    QVERIFY(part);
    QCOMPARE(part->greet(QStringLiteral("Ann")), QStringLiteral("2: hello, Ann"));
}

void tst_HotDeploy::oldVersionStaysUntilItsLastCallHasReturned()
{
    const auto greeter = QSharedPointer<GreeterDelegate>::create(nullptr);
    Gate gate;
    Site site;
    site.host->bind0(greeter);
    site.start();
    site.hot.drop(QStringLiteral("greeter"));
    site.change();
    const QString old = site.deployed.filePath(QStringLiteral("libgreeter.so"));
    gate.setOn(QSharedPointer<ZObject>(*site.loader->loaded0(QStringLiteral("libgreeter"))).data());

    QString answer;
    std::thread caller([&] { answer = greeter->greet(QStringLiteral("Bob")); });
    gate.entered.acquire();
    site.hot.drop(QStringLiteral("greeter.2"));
    site.change();
    settle();
    const QString meanwhile = greeter->greet(QStringLiteral("Ann"));
    const bool wasMapped = isMapped(old);
    gate.leave.release();
    caller.join();

    QCOMPARE(meanwhile, QStringLiteral("2: hello, Ann"));
    QVERIFY(wasMapped);
    QCOMPARE(answer, QStringLiteral("1: hello, Bob"));
    QTRY_VERIFY(!isMapped(old));
    QCOMPARE(greeter->greet(QStringLiteral("Ann")), QStringLiteral("2: hello, Ann"));
}

QTEST_GUILESS_MAIN(tst_HotDeploy)

#include "tst_hotdeploy.moc"
