// SPDX-License-Identifier: Apache-2.0
#include "runninghost.h"
#include "testcase.h"

#include <QDir>
#include <QFile>

#include <algorithm>

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

/// Whose folders are whose.
class tst_ZHostFolders : public TestCase
{
    Q_OBJECT

private Q_SLOTS:
    void secondHostSaysWhoRunsOnItsFolder_data();
    void secondHostSaysWhoRunsOnItsFolder();
    void secondHostSaysWhoTakesItsDropsToo_data();
    void secondHostSaysWhoTakesItsDropsToo();
    void folderIsFreeWhenItsHostHasEnded_data();
    void folderIsFreeWhenItsHostHasEnded();
    void anyProcessMayHaveTheFolder();
    void startsWhereSomebodyHasTheFolderForAMoment();
    void saysThatADropIsGoneAfterARestart_data();
    void saysThatADropIsGoneAfterARestart();
    void saysNothingOfWhatIsLoadedAtTheNextStart_data();
    void saysNothingOfWhatIsLoadedAtTheNextStart();
    void remembersWhatWasDropped_data();
    void remembersWhatWasDropped();
    void forgetsWhatWasRemoved();
    void saysWhyItCannotRemember_data();
    void saysWhyItCannotRemember();
    void namesMayBeNoPatterns();
    void saysThatADropIsHalfWritten();
    void saysThatADropIsTakenForWhatIsInMemory_data();
    void saysThatADropIsTakenForWhatIsInMemory();
};

namespace {

const QString IsWatching = QStringLiteral("hot-deploy folder changed: ");
const QString IsNew = QStringLiteral(" is new, but \"load-list\" has no ");
const QString IsHalf = QStringLiteral(" is still being written");
const QString IsNotLoaded = QStringLiteral(" is not loaded: ");

QJsonObject remembering(const Folder &deployed, const Folder &hotDeploy)
{
    QJsonObject configuration = loaderOf(deployed, hotDeploy);
    QJsonObject loader = configuration.value(QStringLiteral("loader")).toObject();
    loader.insert(QStringLiteral("remember"), true);
    configuration.insert(QStringLiteral("loader"), loader);
    return configuration;
}

void beforeOrAfterTheStart()
{
    QTest::addColumn<bool>("isRunning");
    QTest::newRow("before the start") << false;
    QTest::newRow("while it runs") << true;
}

} // namespace

void tst_ZHostFolders::secondHostSaysWhoRunsOnItsFolder_data()
{
    QTest::addColumn<QStringList>("options");
    QTest::newRow("another host") << QStringList();
    QTest::newRow("a call") << QStringList{"--call", "//zhost/printd"};
}

void tst_ZHostFolders::secondHostSaysWhoRunsOnItsFolder()
{
    QFETCH(QStringList, options);
    const Folder deployed, hotDeploy, temporary;
    QJsonObject configuration = loaderOf(deployed, hotDeploy);
    configuration.insert(QStringLiteral("filesystem"),
                         QJsonObject{{QStringLiteral("temporary-folder"), temporary.path()}});
    Running first(configuration);
    QTRY_VERIFY_WITH_TIMEOUT(first.hasWritten(IsWatching), Patience);
    temporary.write(QStringLiteral("zhost.AbCdEf"), "in use");
    Running second(configuration, {}, options);
    QTRY_COMPARE_WITH_TIMEOUT(second.process().state(), QProcess::NotRunning, Patience);
    second.hasWritten(QString());
    QCOMPARE(second.written(), QStringLiteral("zhost: %1 is in use by process %2 (zhost)\n")
                                   .arg(deployed.path(), QString::number(first.process().processId())));
    QCOMPARE(second.exitCode(), 2);
    QCOMPARE(temporary.files(), QStringList{QStringLiteral("zhost.AbCdEf")});
    QCOMPARE(first.process().state(), QProcess::Running);
}

void tst_ZHostFolders::secondHostSaysWhoTakesItsDropsToo_data()
{
    QTest::addColumn<QString>("shared");
    QTest::newRow("nothing in common") << QString();
    QTest::newRow("hot-deploy") << "hot-deploy";
    QTest::newRow("inbox") << "inbox";
}

void tst_ZHostFolders::secondHostSaysWhoTakesItsDropsToo()
{
    QFETCH(QString, shared);
    const Folder deployed[2], hotDeploy[2], inbox[2], common;
    const auto configuration = [&](int host) {
        QJsonObject loader{{QStringLiteral("deployed"), deployed[host].path()},
                           {QStringLiteral("hot-deploy"), hotDeploy[host].path()},
                           {QStringLiteral("inbox"), inbox[host].path()}};
        if (!shared.isEmpty())
            loader.insert(shared, common.path());
        QJsonObject result = loaderOf(deployed[host], hotDeploy[host]);
        result.insert(QStringLiteral("loader"), loader);
        return result;
    };
    Running first(configuration(0));
    QTRY_VERIFY_WITH_TIMEOUT(first.hasWritten(IsWatching), Patience);
    Running second(configuration(1));
    QTRY_VERIFY_WITH_TIMEOUT(second.hasWritten(IsWatching), Patience);
    const QString line = QStringLiteral("zhost: process %1 takes what is put into %2, too: each gets a part of it\n");
    QCOMPARE(second.written().contains(line.arg(QString::number(first.process().processId()), common.path())),
             !shared.isEmpty());
    QCOMPARE(second.written().count(QStringLiteral("takes what is put into")), shared.isEmpty() ? 0 : 1);
    QVERIFY2(!first.written().contains(QStringLiteral("takes what is put into")), qPrintable(first.written()));
}

void tst_ZHostFolders::folderIsFreeWhenItsHostHasEnded_data()
{
    QTest::addColumn<int>("number");
    QTest::newRow("as it was told") << SIGTERM;
    QTest::newRow("by force") << SIGKILL;
}

void tst_ZHostFolders::folderIsFreeWhenItsHostHasEnded()
{
    QFETCH(int, number);
    const Folder deployed, hotDeploy;
    Running first(loaderOf(deployed, hotDeploy));
    QTRY_VERIFY_WITH_TIMEOUT(first.hasWritten(IsWatching), Patience);
    first.signal(number);
    QTRY_COMPARE_WITH_TIMEOUT(first.process().state(), QProcess::NotRunning, Patience);
    Running second(loaderOf(deployed, hotDeploy));
    QTRY_VERIFY_WITH_TIMEOUT(second.hasWritten(IsWatching), Patience);
}

void tst_ZHostFolders::anyProcessMayHaveTheFolder()
{
    const Folder deployed, hotDeploy;
    const int descriptor = open(QFile::encodeName(deployed.path()).constData(), O_RDONLY | O_CLOEXEC);
    QCOMPARE(flock(descriptor, LOCK_SH), 0);
    Running host(loaderOf(deployed, hotDeploy));
    QTRY_COMPARE_WITH_TIMEOUT(host.process().state(), QProcess::NotRunning, Patience);
    const QString process = QString::number(getpid());
    QVERIFY2(host.hasWritten(QStringLiteral("%1 is in use by process %2 (tst_").arg(deployed.path(), process)),
             qPrintable(host.written()));
    QCOMPARE(host.exitCode(), 2);
    close(descriptor);
}

void tst_ZHostFolders::startsWhereSomebodyHasTheFolderForAMoment()
{
    const Folder deployed, hotDeploy;
    const int descriptor = open(QFile::encodeName(deployed.path()).constData(), O_RDONLY | O_CLOEXEC);
    QCOMPARE(flock(descriptor, LOCK_SH), 0);
    Running host(loaderOf(deployed, hotDeploy));
    const auto hasItOpen = [&] {
        const QDir open(QStringLiteral("/proc/%1/fd").arg(host.process().processId()));
        const QFileInfoList files = open.entryInfoList(QDir::AllEntries | QDir::System);
        return std::any_of(files.begin(), files.end(),
                           [&](const QFileInfo &file) { return file.symLinkTarget() == deployed.path(); });
    };
    for (int looks = 0; looks < 3; looks = hasItOpen() ? looks + 1 : 0) // in a row: it looks into the folder, too
        QVERIFY2(!host.process().waitForFinished(10), qPrintable(host.written()));
    close(descriptor);
    QTRY_VERIFY_WITH_TIMEOUT(host.hasWritten(IsWatching), Patience);
}

void tst_ZHostFolders::saysThatADropIsGoneAfterARestart_data() { beforeOrAfterTheStart(); }

void tst_ZHostFolders::saysThatADropIsGoneAfterARestart()
{
    QFETCH(bool, isRunning);
    const Folder deployed, hotDeploy;
    if (!isRunning)
        QVERIFY(hotDeploy.drop(QStringLiteral("greeter.2")));
    Running host(loaderOf(deployed, hotDeploy));
    QTRY_VERIFY_WITH_TIMEOUT(host.hasWritten(IsWatching), Patience);
    if (isRunning)
        QVERIFY(hotDeploy.drop(QStringLiteral("greeter.2")));
    QTRY_VERIFY_WITH_TIMEOUT(host.hasWritten(QStringLiteral("zhost: libgreeter.2.so is new, but \"load-list\" has no "
                                                            "\"greeter\": the next start does not load it\n")),
                             Patience);
    host.stop();
    QCOMPARE(host.written().count(IsNew), 1);
    QVERIFY2(!host.written().contains(IsNotLoaded), qPrintable(host.written()));
    Running next(loaderOf(deployed, hotDeploy));
    QTRY_VERIFY_WITH_TIMEOUT(next.hasWritten(IsWatching), Patience);
    next.stop();
    QVERIFY2(!next.written().contains(IsNew), qPrintable(next.written()));
    QVERIFY2(!next.written().contains(QStringLiteral("loaded: ")), qPrintable(next.written()));
}

void tst_ZHostFolders::saysNothingOfWhatIsLoadedAtTheNextStart_data()
{
    QTest::addColumn<QString>("file");
    QTest::addColumn<QString>("name");
    QTest::newRow("by name") << "libgreeter.so"
                             << "greeter";
    QTest::newRow("by another version") << "libgreeter.2.so"
                                        << "libgreeter.1.so";
    QTest::newRow("in other letters") << "libGreeter.2.so"
                                      << "greeter";
}

void tst_ZHostFolders::saysNothingOfWhatIsLoadedAtTheNextStart()
{
    QFETCH(QString, file);
    QFETCH(QString, name);
    const Folder deployed, hotDeploy;
    Running host(loaderOf(deployed, hotDeploy, {name}));
    QTRY_VERIFY_WITH_TIMEOUT(host.hasWritten(IsWatching), Patience);
    QVERIFY(hotDeploy.drop(QStringLiteral("greeter"), file));
    QTRY_COMPARE_WITH_TIMEOUT(deployed.files().count(file), 1, Patience);
    QVERIFY(hotDeploy.drop(QStringLiteral("keeper"))); // which is told of after it
    QTRY_VERIFY_WITH_TIMEOUT(host.hasWritten(QStringLiteral("libkeeper.so") + IsNew), Patience);
    QCOMPARE(host.written().count(IsNew), 1);
}

void tst_ZHostFolders::remembersWhatWasDropped_data() { beforeOrAfterTheStart(); }

void tst_ZHostFolders::remembersWhatWasDropped()
{
    QFETCH(bool, isRunning);
    const Folder deployed, hotDeploy;
    if (!isRunning)
        QVERIFY(hotDeploy.drop(QStringLiteral("greeter.2")));
    Running host(remembering(deployed, hotDeploy));
    QTRY_VERIFY_WITH_TIMEOUT(host.hasWritten(IsWatching), Patience);
    if (isRunning)
        QVERIFY(hotDeploy.drop(QStringLiteral("greeter.2")));
    QTRY_VERIFY_WITH_TIMEOUT(QFile::exists(deployed.filePath(QStringLiteral(".zhost-remembered.json"))), Patience);
    host.stop();
    QVERIFY2(!host.written().contains(IsNew), qPrintable(host.written()));
    for (int i = 0; i < 2; ++i) {
        Running next(remembering(deployed, hotDeploy));
        QTRY_VERIFY_WITH_TIMEOUT(next.hasWritten(IsWatching), Patience);
        QVERIFY2(next.written().contains(QStringLiteral("loaded: libgreeter.2\n")), qPrintable(next.written()));
    }
}

void tst_ZHostFolders::forgetsWhatWasRemoved()
{
    const Folder deployed, hotDeploy;
    QVERIFY(deployed.write(QStringLiteral(".zhost-remembered.json"), R"(["keeper", "gone", 3])"));
    QVERIFY(deployed.drop(QStringLiteral("keeper")));
    Running host(remembering(deployed, hotDeploy));
    QTRY_VERIFY_WITH_TIMEOUT(host.hasWritten(IsWatching), Patience);
    QVERIFY2(host.written().contains(QStringLiteral("loaded: keeper\n")), qPrintable(host.written()));
    QVERIFY2(!host.written().contains(QStringLiteral("failed to load")), qPrintable(host.written()));
}

void tst_ZHostFolders::saysWhyItCannotRemember_data()
{
    QTest::addColumn<bool>("isFull");
    QTest::addColumn<QString>("reason");
    QTest::newRow("a folder in its place") << false << "Is a directory";
    QTest::newRow("no room") << true << "No space left on device";
}

void tst_ZHostFolders::saysWhyItCannotRemember()
{
    QFETCH(bool, isFull);
    QFETCH(QString, reason);
    const Folder deployed, hotDeploy;
    QMap<QString, QString> variables;
    if (isFull)
        variables = {{QStringLiteral("LD_PRELOAD"), QStringLiteral(FAILING " ") + qEnvironmentVariable("LD_PRELOAD")},
                     {QStringLiteral("ASAN_OPTIONS"), QStringLiteral("verify_asan_link_order=0")},
                     {QStringLiteral("FAILING"), QStringLiteral("write 28 /#")}}; // a file that has no name yet
    else
        QVERIFY(QDir().mkdir(deployed.filePath(QStringLiteral(".zhost-remembered.json"))));
    QVERIFY(hotDeploy.drop(QStringLiteral("greeter")));
    Running host(remembering(deployed, hotDeploy), variables, {});
    const QString line = QStringLiteral("zhost: cannot remember greeter: %1\n").arg(reason);
    QTRY_VERIFY2_WITH_TIMEOUT(host.hasWritten(line), qPrintable(host.written()), Patience);
    host.stop();
    QVERIFY(host.hasEndedWell());
}

void tst_ZHostFolders::namesMayBeNoPatterns()
{
    const Folder deployed, hotDeploy;
    QVERIFY(deployed.drop(QStringLiteral("greeter.2")));
    Running host(loaderOf(deployed, hotDeploy, {QStringLiteral("greeter["), QStringLiteral("greeter")}));
    QTRY_VERIFY_WITH_TIMEOUT(host.hasWritten(IsWatching), Patience);
    QVERIFY(host.written().contains(QStringLiteral("failed to load greeter[: ")));
    QVERIFY(host.written().contains(QStringLiteral("loaded: libgreeter.2\n")));
    QVERIFY2(!host.written().contains(QStringLiteral("QRegularExpression")), qPrintable(host.written()));
    host.stop();
    QVERIFY(host.hasEndedWell());
}

void tst_ZHostFolders::saysThatADropIsHalfWritten()
{
    const Folder deployed, hotDeploy;
    Running host(loaderOf(deployed, hotDeploy));
    QTRY_VERIFY_WITH_TIMEOUT(host.hasWritten(IsWatching), Patience);
    QFile plugin(pluginFile(QStringLiteral("greeter")));
    QVERIFY(plugin.open(QIODevice::ReadOnly));
    QFile drop(hotDeploy.filePath(QStringLiteral("libgreeter.so")));
    QVERIFY(drop.open(QIODevice::WriteOnly | QIODevice::Unbuffered) && drop.write(plugin.read(9000)) > 0);
    const QString line = QStringLiteral("zhost: libgreeter.so is still being written, and was taken as it is: ");
    QTRY_VERIFY_WITH_TIMEOUT(host.hasWritten(line), Patience);
    QVERIFY2(host.written().contains(QStringLiteral("failed to load libgreeter: ")), qPrintable(host.written()));
    QVERIFY(hotDeploy.drop(QStringLiteral("keeper")));
    QTRY_VERIFY_WITH_TIMEOUT(host.hasWritten(QStringLiteral("libkeeper.so") + IsNew), Patience);
    QCOMPARE(host.written().count(IsHalf), 1);
}

void tst_ZHostFolders::saysThatADropIsTakenForWhatIsInMemory_data()
{
    QTest::addColumn<bool>("isListed");
    QTest::addColumn<QString>("renamed"); // none: removed
    QTest::newRow("of one that was removed") << false << QString();
    QTest::newRow("of one that is in \"load-list\"") << true << QString();
    QTest::newRow("of one that is in quarantine") << false << "libkeeper.so.quarantined";
    QTest::newRow("in a folder that was made anew") << false << "away";
}

void tst_ZHostFolders::saysThatADropIsTakenForWhatIsInMemory()
{
    QFETCH(bool, isListed);
    QFETCH(QString, renamed);
    const QString file = QStringLiteral("libkeeper.so");
    const Folder site, hotDeploy;
    QVERIFY(QDir(site.path()).mkdir(QStringLiteral("deployed")));
    const QString deployed = site.filePath(QStringLiteral("deployed"));
    const QStringList names = isListed ? QStringList{QStringLiteral("keeper")} : QStringList();
    Running host(loaderOf(deployed, hotDeploy.path(), names));
    QTRY_VERIFY_WITH_TIMEOUT(host.hasWritten(IsWatching), Patience);
    QVERIFY(hotDeploy.drop(QStringLiteral("keeper")));
    QTRY_VERIFY_WITH_TIMEOUT(host.hasWritten(QStringLiteral("loaded: libkeeper\n")), Patience);
    if (renamed.isNull())
        QVERIFY(QDir(deployed).remove(file));
    else if (renamed.endsWith(QStringLiteral(".quarantined")))
        QVERIFY(QDir(deployed).rename(file, renamed));
    else
        QVERIFY(QDir(site.path()).rename(QStringLiteral("deployed"), renamed) && QDir().mkdir(deployed));
    QVERIFY(hotDeploy.drop(QStringLiteral("keeper")));
    QTRY_VERIFY_WITH_TIMEOUT(host.hasWritten(QStringLiteral("zhost: libkeeper.so") + IsNotLoaded), Patience);
    QCOMPARE(host.written().count(IsNotLoaded), 1);
    QCOMPARE(host.written().count(QStringLiteral("] loaded: ")), 1);
}

QTEST_GUILESS_MAIN(tst_ZHostFolders)

#include "tst_zhostfolders.moc"
