// SPDX-License-Identifier: Apache-2.0
#include "runninghost.h"
#include "testcase.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QStandardPaths>

#include <csignal>
#include <cstdio>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

/// The folder from which zhost has plugins dropped.
class tst_Inbox : public TestCase
{
    Q_OBJECT

private Q_SLOTS:
    void whatIsPutInIsDropped_data();
    void whatIsPutInIsDropped();
    void theNextOneOfANameIsItsNextVersion();
    void whatIsRefusedLiesBesideItsReason_data();
    void whatIsRefusedLiesBesideItsReason();
    void laterRefusalTakesThePlaceOfTheEarlier();
    void reasonsAreNotWrittenWhereOthersWantThem();
    void reasonsThatCannotBeWrittenAreSaidToBeSo();
    void namesThatAreNoTextAreRefused_data();
    void namesThatAreNoTextAreRefused();
    void namesThatAreNoTextArePassedOver();
    void whatIsNoPluginIsLeftAlone();
    void whatIsBeingWrittenIsLeftUntilItIsClosed_data();
    void whatIsBeingWrittenIsLeftUntilItIsClosed();
    void whatIsBeingWrittenByOthersIsLeftUntilItIsClosed();
    void whatIsOfALaterTimeIsDropped();
    void whatIsClosedBeforeItCanBeReadIsDropped();
    void whatChangesMeanwhileIsDroppedAsItIsInTheEnd();
    void manyAtOnceAreAllDropped();
    void moreThanCanBeToldIsFound();
    void folderMayComeLater();
    void folderMayBeMadeAnew_data();
    void folderMayBeMadeAnew();
    void stopLeavesWhatIsBeingDropped();
    void whatCannotBeDroppedStays_data();
    void whatCannotBeDroppedStays();
    void whatCrashesZdeployIsRefused();
    void folderNeedsNoWatch_data();
    void folderNeedsNoWatch();
    void callDropsNothing();
};

namespace {

const QString Plain = QStringLiteral("plain");
const QString PlainFile = QStringLiteral("libplain.so");

QByteArray contentOf(const QString &path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

/// A host's folders, and the inbox before them.
struct Place
{
    Folder inbox, hotDeploy, deployed;

    QJsonObject configuration() const
    {
        QJsonObject result = loaderOf(deployed, hotDeploy);
        QJsonObject loader = result.value(QStringLiteral("loader")).toObject();
        loader.insert(QStringLiteral("inbox"), inbox.path());
        result.insert(QStringLiteral("loader"), loader);
        return result;
    }

    QStringList refused() const
    {
        return QDir(inbox.filePath(QStringLiteral("refused"))).entryList(QDir::Files, QDir::Name);
    }
    QByteArray refused(const QString &file) const { return contentOf(inbox.filePath("refused/" + file)); }
};

QMap<QString, QString> preloading(const char *library)
{
    const QString others = qEnvironmentVariable("LD_PRELOAD");
    return {{QStringLiteral("LD_PRELOAD"), QStringLiteral("%1 %2").arg(QLatin1String(library), others)},
            {QStringLiteral("ASAN_OPTIONS"), QStringLiteral("verify_asan_link_order=0")}};
}

QMap<QString, QString> slowDisk() { return preloading(SLOW_DISK); }

/// A folder with a program zhost and, if anything, the script of a program zdeploy.
class Bin : public Folder
{
public:
    explicit Bin(const QByteArray &zdeploy)
    {
        QFile::copy(QStringLiteral(ZHOST), zhost());
        if (zdeploy.isEmpty())
            return;
        write(QStringLiteral("zdeploy"), "#!/bin/sh\n" + zdeploy + '\n');
        chmod(QFile::encodeName(filePath(QStringLiteral("zdeploy"))).constData(), 0755);
    }
    QString zhost() const { return filePath(QStringLiteral("zhost")); }
};

/// A host that is started by a command of its own.
struct AnyHost
{
    AnyHost(const QString &program, const Place &place, QStringList options = {})
    {
        config.write(QStringLiteral("config.json"), QJsonDocument(place.configuration()).toJson());
        chmod(QFile::encodeName(config.path()).constData(), 0755);
        process.setProcessChannelMode(QProcess::MergedChannels);
        process.start(program, options << config.filePath(QStringLiteral("config.json")));
    }
    ~AnyHost()
    {
        process.kill();
        process.waitForFinished();
    }

    bool hasWritten(const QString &text)
    {
        written += QString::fromUtf8(process.readAll());
        return written.contains(text);
    }

    Folder config;
    QProcess process;
    QString written;
};

/// A host that is run by another user than the test is, which must be root.
struct AnotherUser : AnyHost
{
    explicit AnotherUser(const Place &place, const QStringList &variables = {})
        : AnyHost(QStringLiteral("env"), given(place),
                  variables + QStringList{"setpriv", "--reuid=65534", "--regid=65534", "--clear-groups", ZHOST})
    {}

private:
    static const Place &given(const Place &place)
    {
        for (const Folder *folder : {&place.inbox, &place.hotDeploy, &place.deployed}) {
            if (chown(QFile::encodeName(folder->path()).constData(), 65534, 65534) != 0)
                qFatal("cannot give a folder away");
        }
        return place;
    }
};

/// Waits until the host has gone through all that was put into the inbox before.
void waitUntilAllIsDone(Running &host, const Place &place)
{
    static int number = 0;
    const QString name = QStringLiteral("last%1").arg(++number);
    QVERIFY(place.inbox.drop(Plain, QStringLiteral("lib%1.so").arg(name)));
    QTRY_VERIFY_WITH_TIMEOUT(host.hasWritten(QStringLiteral("inbox: lib%1.so: dropped as ").arg(name)), Patience);
}

/// A plugin in the inbox whose name is no text in UTF-8.
QByteArray unspeakableIn(const Place &place) { return QFile::encodeName(place.inbox.path()) + "/lib\xff\xfe.so"; }

bool dropUnspeakable(const Place &place)
{
    return place.hotDeploy.write(QStringLiteral(".part"), contentOf(pluginFile(Plain))) &&
           std::rename(QFile::encodeName(place.hotDeploy.filePath(QStringLiteral(".part"))).constData(),
                       unspeakableIn(place).constData()) == 0;
}

/// Whether somebody has begun to copy into the hot-deploy folder.
bool isCopying(const Place &place)
{
    const QFileInfoList parts = QDir(place.hotDeploy.path()).entryInfoList(QDir::Files | QDir::Hidden);
    return parts.size() == 1 && parts.first().size() > 0;
}

} // namespace

void tst_Inbox::whatIsPutInIsDropped_data()
{
    QTest::addColumn<QStringList>("command");
    QTest::addColumn<bool>("isEarly");
    for (const char *const command :
         {"cp", "cp -p", "mv", "install", "install -p", "ln", "rsync", "rsync -a --inplace"}) {
        const QStringList words = QString::fromLatin1(command).split(QLatin1Char(' '));
        if (QStandardPaths::findExecutable(words.first()).isEmpty())
            continue;
        QTest::newRow(command) << words << false;
        QTest::addRow("%s, before the start", command) << words << true;
    }
}

void tst_Inbox::whatIsPutInIsDropped()
{
    QFETCH(QStringList, command);
    QFETCH(bool, isEarly);
    const Place place;
    const Folder outside;
    QVERIFY(outside.drop(Plain));
    const auto put = [&] {
        QStringList arguments = command + QStringList{outside.filePath(PlainFile), place.inbox.path()};
        QCOMPARE(runProgram(arguments.takeFirst(), arguments).exitCode, 0);
    };
    if (isEarly)
        put();
    Running host(place.configuration());
    if (!isEarly) {
        waitUntilAllIsDone(host, place);
        put();
    }
    QTRY_VERIFY_WITH_TIMEOUT(host.hasWritten(QStringLiteral("loaded: libplain\n")), Patience);
    QTRY_VERIFY_WITH_TIMEOUT(host.hasWritten(QStringLiteral("zhost: inbox: libplain.so: dropped as libplain.so\n")),
                             Patience);
    QTRY_COMPARE_WITH_TIMEOUT(place.inbox.files(), QStringList(), Patience);
    QCOMPARE(contentOf(place.deployed.filePath(PlainFile)), contentOf(pluginFile(Plain)));
    QCOMPARE(place.refused(), QStringList());
    host.stop();
    QVERIFY2(host.hasEndedWell(), qPrintable(host.written()));
}

void tst_Inbox::theNextOneOfANameIsItsNextVersion()
{
    const Place place;
    Running host(place.configuration());
    for (int i = 1; i <= 3; ++i) {
        QVERIFY(place.inbox.drop(Plain));
        const auto dropped = [&] { return host.written().count(QStringLiteral("inbox: libplain.so: dropped as ")); };
        QTRY_VERIFY_WITH_TIMEOUT(host.hasWritten(QString()) && dropped() == i, Patience);
    }
    QTRY_COMPARE_WITH_TIMEOUT(place.deployed.files().size(), 3, Patience);
}

void tst_Inbox::whatIsRefusedLiesBesideItsReason_data()
{
    QTest::addColumn<QString>("plugin"); // that is built, unless there is
    QTest::addColumn<QByteArray>("content");
    QTest::addColumn<QString>("reason");
    QTest::newRow("ends the process") << "crasher" << QByteArray() << "loading it ends the process: ";
    QTest::newRow("exits") << "quitter" << QByteArray() << "loading it ends the process: exit status 3";
    QTest::newRow("of another kind") << "wrongiid" << QByteArray() << "it is a plugin of another kind: ";
    QTest::newRow("no plugin") << "text" << QByteArray("no plugin at all") << "it is no plugin: ";
    QTest::newRow("half a plugin") << "half" << contentOf(pluginFile(Plain)).left(9000) << "it is no plugin: ";
    QTest::newRow("no name") << "" << contentOf(pluginFile(Plain)) << "a plugin's file is called lib<name>.so";
}

void tst_Inbox::whatIsRefusedLiesBesideItsReason()
{
    QFETCH(QString, plugin);
    QFETCH(QByteArray, content);
    QFETCH(QString, reason);
    const Place place;
    if (content.isEmpty())
        content = contentOf(pluginFile(plugin));
    const QString file = QStringLiteral("lib%1.so").arg(plugin);
    Running host(place.configuration());
    place.inbox.write(file, content);
    QTRY_VERIFY_WITH_TIMEOUT(host.hasWritten(QStringLiteral("zhost: inbox: %1: refused: %2").arg(file, reason)),
                             Patience);
    waitUntilAllIsDone(host, place);
    QCOMPARE(place.refused(), (QStringList{file, file + QStringLiteral(".reason.txt")}));
    QCOMPARE(place.refused(file), content);
    const QByteArray written = place.refused(file + QStringLiteral(".reason.txt"));
    QVERIFY2(written.startsWith(reason.toUtf8()) && written.endsWith('\n'), written.constData());
    QCOMPARE(place.inbox.files(), QStringList());
    QVERIFY(!place.deployed.files().contains(file));
}

void tst_Inbox::laterRefusalTakesThePlaceOfTheEarlier()
{
    const Place place;
    Running host(place.configuration());
    for (const char *const content : {"no plugin", "no plugin either"}) {
        place.inbox.write(PlainFile, content);
        QTRY_COMPARE_WITH_TIMEOUT(place.refused(PlainFile), QByteArray(content), Patience);
    }
    QCOMPARE(place.refused(), (QStringList{PlainFile, PlainFile + QStringLiteral(".reason.txt")}));
}

void tst_Inbox::reasonsAreNotWrittenWhereOthersWantThem()
{
    const Place place;
    const Folder elsewhere;
    QVERIFY(QFile::link(elsewhere.path(), place.inbox.filePath(QStringLiteral("refused"))));
    place.inbox.write(PlainFile, "no plugin");
    Running host(place.configuration());
    const QString line = QStringLiteral("zhost: inbox: libplain.so: cannot be taken out, and is passed over from now "
                                        "on: it is no folder of this user\n");
    QTRY_VERIFY_WITH_TIMEOUT(host.hasWritten(line), Patience);
    QCOMPARE(elsewhere.files(), QStringList());
    QCOMPARE(place.inbox.files(), QStringList{PlainFile});
}

void tst_Inbox::reasonsThatCannotBeWrittenAreSaidToBeSo()
{
    const Place place;
    place.inbox.write(PlainFile, "no plugin");
    QMap<QString, QString> variables = preloading(FAILING_CALLS);
    variables.insert(QStringLiteral("FAILING"), QStringLiteral("write 28 /refused/"));
    Running host(place.configuration(), variables, {});
    const QString line = QStringLiteral("zhost: inbox: libplain.so: cannot be taken out, and is passed over from now "
                                        "on: No space left on device\n");
    QTRY_VERIFY_WITH_TIMEOUT(host.hasWritten(line), Patience);
    QCOMPARE(place.inbox.files(), QStringList{PlainFile});
    QCOMPARE(place.refused(), QStringList());
}

void tst_Inbox::namesThatAreNoTextAreRefused_data()
{
    QTest::addColumn<bool>("isEarly");
    QTest::newRow("before the start") << true;
    QTest::newRow("later") << false;
}

void tst_Inbox::namesThatAreNoTextAreRefused()
{
    QFETCH(bool, isEarly);
    const Place place;
    if (isEarly)
        QVERIFY(dropUnspeakable(place));
    Running host(place.configuration(), {{QStringLiteral("LC_ALL"), QStringLiteral("C.UTF-8")}}, {});
    if (!isEarly) {
        waitUntilAllIsDone(host, place);
        QVERIFY(dropUnspeakable(place));
    }
    QTRY_VERIFY_WITH_TIMEOUT(
        host.hasWritten(QStringLiteral("zhost: inbox: lib%FF%FE.so: refused: its name is no text\n")), Patience);
    waitUntilAllIsDone(host, place);
    QCOMPARE(place.refused(), (QStringList{"lib%FF%FE.so", "lib%FF%FE.so.reason.txt"}));
    QCOMPARE(place.refused(QStringLiteral("lib%FF%FE.so.reason.txt")), QByteArray("its name is no text\n"));
    QCOMPARE(host.written().count(QStringLiteral("refused")), 1);
}

void tst_Inbox::namesThatAreNoTextArePassedOver()
{
    const Place place;
    QVERIFY(place.inbox.write(QStringLiteral("refused"), {})); // no folder
    QVERIFY(dropUnspeakable(place));
    Running host(place.configuration(), {{QStringLiteral("LC_ALL"), QStringLiteral("C.UTF-8")}}, {});
    for (int i = 0; i < 2; ++i) {
        waitUntilAllIsDone(host, place);
        QVERIFY(dropUnspeakable(place)); // once more
    }
    waitUntilAllIsDone(host, place);
    QCOMPARE(host.written().count(QStringLiteral("lib%FF%FE.so: cannot be taken out, and is passed over")), 1);
    QCOMPARE(std::remove(unspeakableIn(place).constData()), 0); // Qt would leave it there
}

void tst_Inbox::whatIsNoPluginIsLeftAlone()
{
    const Place place;
    const QByteArray plugin = contentOf(pluginFile(Plain));
    const QStringList names{".libplain.so", ".libplain.so.AbCdEf", "libplain.so.filepart", "readme.txt"};
    for (const QString &name : names)
        place.inbox.write(name, plugin);
    QVERIFY(QFile::link(pluginFile(Plain), place.inbox.filePath(QStringLiteral("liblink.so"))));
    QVERIFY(QDir(place.inbox.path()).mkdir(QStringLiteral("libfolder.so")));
    QCOMPARE(mkfifo(QFile::encodeName(place.inbox.filePath(QStringLiteral("libpipe.so"))).constData(), 0666), 0);
    const auto everything = [&] {
        return QDir(place.inbox.path())
            .entryList(QDir::AllEntries | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot, QDir::Name);
    };
    const QStringList before = everything();
    Running host(place.configuration());
    waitUntilAllIsDone(host, place);
    for (const QString &name : names)
        place.inbox.write(name, plugin);
    waitUntilAllIsDone(host, place);
    QTRY_COMPARE_WITH_TIMEOUT(everything(), before, Patience);
}

void tst_Inbox::whatIsBeingWrittenIsLeftUntilItIsClosed_data()
{
    QTest::addColumn<bool>("isEarly");
    QTest::newRow("begun before the start") << true;
    QTest::newRow("begun later") << false;
}

void tst_Inbox::whatIsBeingWrittenIsLeftUntilItIsClosed()
{
    QFETCH(bool, isEarly);
    constexpr int Parts = 10;
    const Place place;
    const QByteArray content = contentOf(pluginFile(Plain));
    const int partSize = content.size() / Parts + 1;
    QFile writer(place.inbox.filePath(PlainFile));
    if (isEarly)
        QVERIFY(writer.open(QIODevice::WriteOnly | QIODevice::Unbuffered));
    Running host(place.configuration());
    if (!isEarly)
        QVERIFY(writer.open(QIODevice::WriteOnly | QIODevice::Unbuffered));
    for (int part = 0; part < Parts; ++part) {
        QVERIFY(writer.write(content.mid(part * partSize, partSize)) > 0);
        waitUntilAllIsDone(host, place);
        QCOMPARE(place.inbox.files(), QStringList{PlainFile});
    }
    QVERIFY(!host.written().contains(QStringLiteral("libplain")));
    writer.close();
    QTRY_VERIFY_WITH_TIMEOUT(host.hasWritten(QStringLiteral("loaded: libplain\n")), Patience);
    QVERIFY2(!host.written().contains(QStringLiteral("refused")), qPrintable(host.written()));
}

void tst_Inbox::whatIsBeingWrittenByOthersIsLeftUntilItIsClosed()
{
    if (geteuid() != 0)
        return QTest::qSkip("takes two users", __FILE__, __LINE__);
    const Place place;
    const QByteArray content = contentOf(pluginFile(Plain));
    QFile writer(place.inbox.filePath(PlainFile));
    QVERIFY(writer.open(QIODevice::WriteOnly | QIODevice::Unbuffered));
    QVERIFY(writer.write(content.left(9000)) > 0);
    AnotherUser host(place);
    QTRY_VERIFY2_WITH_TIMEOUT(host.hasWritten(QStringLiteral("hot-deploy folder changed")), qPrintable(host.written),
                              Patience);
    QVERIFY(place.inbox.drop(Plain, QStringLiteral("libother.so")));
    QTRY_VERIFY_WITH_TIMEOUT(host.hasWritten(QStringLiteral("inbox: libother.so: dropped")), Patience);
    QCOMPARE(place.inbox.files(), QStringList{PlainFile});
    QVERIFY2(!host.written.contains(PlainFile), qPrintable(host.written));
    QVERIFY(writer.write(content.mid(9000)) > 0);
    writer.close();
    QTRY_VERIFY_WITH_TIMEOUT(host.hasWritten(QStringLiteral("inbox: libplain.so: dropped")), Patience);
}

void tst_Inbox::whatIsOfALaterTimeIsDropped()
{
    if (geteuid() != 0)
        return QTest::qSkip("takes two users", __FILE__, __LINE__);
    const Place place;
    QVERIFY(place.inbox.drop(Plain));
    QStringList variables;
    const QMap<QString, QString> preload = preloading(LATE_CLOCK);
    for (auto variable = preload.begin(); variable != preload.end(); ++variable)
        variables.append(variable.key() + QLatin1Char('=') + variable.value());
    AnotherUser host(place, variables);
    QTRY_VERIFY2_WITH_TIMEOUT(host.hasWritten(QStringLiteral("inbox: libplain.so: dropped")), qPrintable(host.written),
                              Patience);
}

void tst_Inbox::whatIsClosedBeforeItCanBeReadIsDropped()
{
    if (geteuid() != 0)
        return QTest::qSkip("takes two users", __FILE__, __LINE__);
    const Place place;
    AnotherUser host(place);
    QTRY_VERIFY2_WITH_TIMEOUT(host.hasWritten(QStringLiteral("hot-deploy folder changed")), qPrintable(host.written),
                              Patience);
    const Folder outside;
    QVERIFY(outside.drop(Plain));
    const QString file = place.inbox.filePath(PlainFile);
    QCOMPARE(runProgram(QStringLiteral("install"), {"-m", "600", outside.filePath(PlainFile), file}).exitCode, 0);
    QVERIFY(place.inbox.drop(Plain, QStringLiteral("libother.so")));
    QTRY_VERIFY_WITH_TIMEOUT(host.hasWritten(QStringLiteral("inbox: libother.so: dropped")), Patience);
    QVERIFY2(!host.written.contains(PlainFile), qPrintable(host.written));
    QCOMPARE(chmod(QFile::encodeName(file).constData(), 0644), 0);
    QTRY_VERIFY_WITH_TIMEOUT(host.hasWritten(QStringLiteral("inbox: libplain.so: dropped")), Patience);
}

void tst_Inbox::whatChangesMeanwhileIsDroppedAsItIsInTheEnd()
{
    const Place place;
    const QByteArray content = contentOf(pluginFile(Plain)) + QByteArray(1 << 20, '\0'); // it takes its time
    place.inbox.write(PlainFile, content);
    Running host(place.configuration(), slowDisk(), {});
    QTRY_VERIFY_WITH_TIMEOUT(isCopying(place), Patience);
    place.inbox.write(PlainFile, content + "more");
    QTRY_VERIFY_WITH_TIMEOUT(host.hasWritten(QStringLiteral("loaded: libplain\n")), Patience);
    QCOMPARE(contentOf(place.deployed.filePath(PlainFile)), content + "more");
    QTRY_COMPARE_WITH_TIMEOUT(place.inbox.files(), QStringList(), Patience);
    QVERIFY2(!host.written().contains(QStringLiteral("refused")), qPrintable(host.written()));
}

void tst_Inbox::manyAtOnceAreAllDropped()
{
    constexpr int count = 500;
    const Place place;
    Running host(place.configuration());
    waitUntilAllIsDone(host, place);
    const int before = place.deployed.files().size();
    for (int i = 0; i < count; ++i)
        QVERIFY(QFile::copy(pluginFile(Plain), place.inbox.filePath(QStringLiteral("libmany%1.so").arg(i))));
    QTRY_COMPARE_WITH_TIMEOUT(place.deployed.files().size(), before + count, Patience + count * 500);
    waitUntilAllIsDone(host, place);
    QCOMPARE(host.written().count(QStringLiteral("inbox: libmany")), count);
    QTRY_COMPARE_WITH_TIMEOUT(place.inbox.files(), QStringList(), Patience);
    QCOMPARE(place.refused(), QStringList());
}

void tst_Inbox::moreThanCanBeToldIsFound()
{
    const Place place;
    Running host(place.configuration());
    waitUntilAllIsDone(host, place);
    host.signal(SIGSTOP);
    const int room = contentOf(QStringLiteral("/proc/sys/fs/inotify/max_queued_events")).trimmed().toInt();
    for (int i = 0; i <= room; ++i) // two names in turn: the same twice is told once
        QVERIFY(place.inbox.write(QString::number(i % 2), {}));
    QVERIFY(place.inbox.drop(Plain));
    host.signal(SIGCONT);
    QTRY_VERIFY_WITH_TIMEOUT(host.hasWritten(QStringLiteral("loaded: libplain\n")), Patience);
}

void tst_Inbox::folderMayComeLater()
{
    const Place place;
    QVERIFY(QDir().rmdir(place.inbox.path()));
    Running host(place.configuration());
    QTRY_VERIFY_WITH_TIMEOUT(host.hasWritten(QStringLiteral("hot-deploy folder changed")), Patience);
    QVERIFY(QDir().mkdir(place.inbox.path()));
    waitUntilAllIsDone(host, place);
}

void tst_Inbox::folderMayBeMadeAnew_data()
{
    QTest::addColumn<bool>("isMoved");
    QTest::newRow("moved away") << true;
    QTest::newRow("removed") << false;
}

void tst_Inbox::folderMayBeMadeAnew()
{
    QFETCH(bool, isMoved);
    const Place place;
    const Folder elsewhere;
    Running host(place.configuration());
    waitUntilAllIsDone(host, place);
    QTRY_COMPARE_WITH_TIMEOUT(place.inbox.files(), QStringList(), Patience);
    for (int i = 0; i < 3; ++i) {
        const QString away = elsewhere.filePath(QString::number(i));
        QVERIFY(isMoved ? QDir().rename(place.inbox.path(), away) : QDir().rmdir(place.inbox.path()));
        QVERIFY(QDir().mkdir(place.inbox.path()));
        waitUntilAllIsDone(host, place);
        QTRY_COMPARE_WITH_TIMEOUT(place.inbox.files(), QStringList(), Patience);
    }
}

void tst_Inbox::stopLeavesWhatIsBeingDropped()
{
    const Place place;
    place.inbox.write(PlainFile, contentOf(pluginFile(Plain)) + QByteArray(16 << 20, '\0')); // seconds on that disk
    Running host(place.configuration(), slowDisk(), {});
    QTRY_VERIFY_WITH_TIMEOUT(isCopying(place), Patience);
    host.stop();
    QVERIFY2(host.hasEndedWell(), qPrintable(host.written()));
    QCOMPARE(place.inbox.files(), QStringList{PlainFile});
    QCOMPARE(QDir(place.hotDeploy.path()).entryList(QDir::Files | QDir::Hidden), QStringList());
    QCOMPARE(place.refused(), QStringList());
}

void tst_Inbox::whatCannotBeDroppedStays_data()
{
    QTest::addColumn<QByteArray>("zdeploy");
    QTest::addColumn<QString>("reason");
    QTest::newRow("without zdeploy") << QByteArray() << "%1: ";
    QTest::newRow("zdeploy cannot be used") << QByteArray("echo no such folder >&2; exit 2") << "no such folder\n";
    QTest::newRow("the folders are at fault")
        << QByteArray("echo 'zdeploy: libplain.so cannot be dropped: no room' >&2; exit 3") << "no room\n";
    QTest::newRow("zdeploy is ended") << QByteArray("kill -TERM $$") << "zdeploy has ended: Terminated\n";
}

void tst_Inbox::whatCannotBeDroppedStays()
{
    QFETCH(QByteArray, zdeploy);
    QFETCH(QString, reason);
    const Place place;
    QVERIFY(place.inbox.drop(Plain));
    const Bin bin(zdeploy);
    AnyHost host(bin.zhost(), place);
    const QString line =
        QStringLiteral("zhost: inbox: libplain.so: cannot be dropped, and is tried again each minute: ");
    if (reason.contains(QLatin1Char('%')))
        reason = reason.arg(bin.filePath(QStringLiteral("zdeploy")));
    QTRY_VERIFY_WITH_TIMEOUT(host.hasWritten(line + reason), Patience);
    host.process.terminate();
    QCOMPARE(finish(host.process).exitCode, 0);
    QCOMPARE(place.inbox.files(), QStringList{PlainFile});
}

void tst_Inbox::whatCrashesZdeployIsRefused()
{
    const Place place;
    QVERIFY(place.inbox.drop(Plain));
    const Bin bin("kill -SEGV $$");
    AnyHost host(bin.zhost(), place);
    QTRY_COMPARE_WITH_TIMEOUT(place.refused(PlainFile + QStringLiteral(".reason.txt")),
                              QByteArray("zdeploy has ended: Segmentation fault\n"), Patience);
    QTRY_COMPARE_WITH_TIMEOUT(place.inbox.files(), QStringList(), Patience);
}

void tst_Inbox::folderNeedsNoWatch_data()
{
    QTest::addColumn<QString>("failing");
    QTest::addColumn<QString>("reason");
    QTest::newRow("no room for one more") << "inotify_add_watch 28 %1"
                                          << "No space left on device";
    QTest::newRow("no instance") << "inotify_init 24"
                                 << "Too many open files";
}

void tst_Inbox::folderNeedsNoWatch()
{
    QFETCH(QString, failing);
    QFETCH(QString, reason);
    const Place place;
    if (failing.contains(QLatin1Char('%')))
        failing = failing.arg(place.inbox.path());
    QMap<QString, QString> variables = preloading(FAILING_CALLS);
    variables.insert(QStringLiteral("FAILING"), failing);
    Running host(place.configuration(), variables, {});
    for (int i = 1; i <= 3; ++i) {
        QVERIFY(place.inbox.drop(Plain));
        const auto dropped = [&] { return host.written().count(QStringLiteral("inbox: libplain.so: dropped as ")); };
        QTRY_VERIFY_WITH_TIMEOUT(host.hasWritten(QString()) && dropped() == i, Patience);
    }
    QTRY_COMPARE_WITH_TIMEOUT(place.inbox.files(), QStringList(), Patience);
    const QString line = QStringLiteral("zhost: inbox: it cannot be watched, and is looked at each second: %1\n");
    QCOMPARE(host.written().count(line.arg(reason)), 1);
}

void tst_Inbox::callDropsNothing()
{
    const Place place;
    QVERIFY(place.inbox.drop(Plain));
    const Bin bin("trap '' TERM; touch $0.ran");
    AnyHost call(bin.zhost(), place, {QStringLiteral("--call"), QStringLiteral("//zhost/printd")});
    QCOMPARE(finish(call.process).exitCode, 0);
    QCOMPARE(bin.files(), (QStringList{QStringLiteral("zdeploy"), QStringLiteral("zhost")}));
    QCOMPARE(place.inbox.files(), QStringList{PlainFile});
}

QTEST_GUILESS_MAIN(tst_Inbox)

#include "tst_inbox.moc"
