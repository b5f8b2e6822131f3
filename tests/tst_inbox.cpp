// SPDX-License-Identifier: Apache-2.0
#include "runninghost.h"
#include "testcase.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QStandardPaths>

#include <csignal>

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
    void whatIsNoPluginIsLeftAlone();
    void whatIsBeingWrittenIsLeftUntilItIsClosed_data();
    void whatIsBeingWrittenIsLeftUntilItIsClosed();
    void whatIsBeingWrittenByOthersIsLeftUntilItIsClosed();
    void whatChangesMeanwhileIsDroppedAsItIsInTheEnd();
    void manyAtOnceAreAllDropped();
    void moreThanCanBeToldIsFound();
    void folderMayComeLater();
    void folderMayBeMadeAnew_data();
    void folderMayBeMadeAnew();
    void stopLeavesWhatIsBeingDropped();
    void whatCannotBeDroppedStays();
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

QMap<QString, QString> slowDisk()
{
    const QString others = qEnvironmentVariable("LD_PRELOAD");
    return {{QStringLiteral("LD_PRELOAD"), QStringLiteral(SLOW_DISK " ") + others},
            {QStringLiteral("ASAN_OPTIONS"), QStringLiteral("verify_asan_link_order=0")}};
}

/// Waits until the host has gone through all that was put into the inbox before.
void waitUntilAllIsDone(Running &host, const Place &place)
{
    static int number = 0;
    const QString name = QStringLiteral("last%1").arg(++number);
    QVERIFY(place.inbox.drop(Plain, QStringLiteral("lib%1.so").arg(name)));
    QTRY_VERIFY_WITH_TIMEOUT(host.hasWritten(QStringLiteral("inbox: lib%1.so: dropped as ").arg(name)), Patience);
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
        QSKIP("takes two users");
    const Place place;
    const Folder config;
    for (const Folder *folder : {&place.inbox, &place.hotDeploy, &place.deployed, &config})
        QCOMPARE(chown(QFile::encodeName(folder->path()).constData(), 65534, 65534), 0);
    config.write(QStringLiteral("config.json"), QJsonDocument(place.configuration()).toJson());
    const QByteArray content = contentOf(pluginFile(Plain));
    QFile writer(place.inbox.filePath(PlainFile));
    QVERIFY(writer.open(QIODevice::WriteOnly | QIODevice::Unbuffered));
    QVERIFY(writer.write(content.left(9000)) > 0);

    QProcess host;
    host.setProcessChannelMode(QProcess::MergedChannels);
    host.start(QStringLiteral("setpriv"),
               {QStringLiteral("--reuid=65534"), QStringLiteral("--regid=65534"), QStringLiteral("--clear-groups"),
                QStringLiteral(ZHOST), config.filePath(QStringLiteral("config.json"))});
    QString written;
    const auto hasWritten = [&](const char *text) {
        written += QString::fromUtf8(host.readAll());
        return written.contains(QLatin1String(text));
    };
    QTRY_VERIFY2_WITH_TIMEOUT(hasWritten("hot-deploy folder changed"), qPrintable(written), Patience);
    QVERIFY(place.inbox.drop(Plain, QStringLiteral("libother.so")));
    QTRY_VERIFY_WITH_TIMEOUT(hasWritten("inbox: libother.so: dropped"), Patience);
    QCOMPARE(place.inbox.files(), QStringList{PlainFile});
    QVERIFY2(!written.contains(PlainFile), qPrintable(written));
    QVERIFY(writer.write(content.mid(9000)) > 0);
    writer.close();
    QTRY_VERIFY_WITH_TIMEOUT(hasWritten("inbox: libplain.so: dropped"), Patience);
    host.terminate();
    QCOMPARE(finish(host).exitCode, 0);
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

void tst_Inbox::whatCannotBeDroppedStays()
{
    const Place place;
    QVERIFY(place.inbox.drop(Plain));
    const Folder config, bin;
    config.write(QStringLiteral("config.json"), QJsonDocument(place.configuration()).toJson());
    const QString lonely = bin.filePath(QStringLiteral("zhost"));
    QVERIFY(QFile::copy(QStringLiteral(ZHOST), lonely));
    QProcess host;
    host.setProcessChannelMode(QProcess::MergedChannels);
    host.start(lonely, {config.filePath(QStringLiteral("config.json"))});
    QString written;
    const auto hasWritten = [&](const QString &text) {
        written += QString::fromUtf8(host.readAll());
        return written.contains(text);
    };
    const QString line = QStringLiteral("zhost: inbox: libplain.so: cannot be dropped, and is tried again each minute: "
                                        "%1/zdeploy: ");
    QTRY_VERIFY_WITH_TIMEOUT(hasWritten(line.arg(bin.path())), Patience);
    host.terminate();
    QCOMPARE(finish(host).exitCode, 0);
    QCOMPARE(place.inbox.files(), QStringList{PlainFile});
}

void tst_Inbox::callDropsNothing()
{
    const Place place;
    QVERIFY(place.inbox.drop(Plain));
    Running call(
        place.configuration(), {},
        {QStringLiteral("--call"), QStringLiteral("//zhost/printd"), QStringLiteral("--in"), QStringLiteral("{}")});
    QVERIFY(call.process().waitForFinished(Patience));
    QCOMPARE(call.exitCode(), 0);
    QCOMPARE(place.inbox.files(), QStringList{PlainFile});
}

QTEST_GUILESS_MAIN(tst_Inbox)

#include "tst_inbox.moc"
