// SPDX-License-Identifier: Apache-2.0
#include "faults.h"
#include "site.h"

#include <QDateTime>
#include <QFileInfo>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QRegularExpression>
#include <QSemaphore>

#include <zlibrary.h>
#include <zobject.h>

#include <atomic>
#include <cerrno>
#include <csignal>
#include <functional>

#include <fcntl.h>
#include <sys/file.h>
#include <sys/statvfs.h>
#include <unistd.h>

/// Two folders on two file systems: what happens to a dropped file on its way.
class tst_Deployment : public TestCase
{
    Q_OBJECT

private Q_SLOTS:
    void fileThatIsBeingWrittenIsLeftUntilItIsClosed_data();
    void fileThatIsBeingWrittenIsLeftUntilItIsClosed();
    void fileThatIsBeingWrittenIsNoReasonToLeaveOthers();
    void fileThatIsBeingWrittenMayGoAway();
    void whoComesToWriteJustThenEndsNoProcess();
    void fileSystemThatCannotTellWhoWritesWillDo_data();
    void fileSystemThatCannotTellWhoWritesWillDo();
    void onOneFileSystemAFileIsMovedAtOnce();
    void fileThatChangesDuringItsCopyIsCopiedAgain_data();
    void fileThatChangesDuringItsCopyIsCopiedAgain();
    void fileThatGoesAwayDuringItsCopyIsTold_data();
    void fileThatGoesAwayDuringItsCopyIsTold();
    void linkToAPipeIsNoFile();

    void largeFileIsCopiedWhileTheEventLoopRuns();
    void largeFilesAreCopiedOneAfterTheOther();
    void nameThatIsTakenDuringALargeCopyStaysWhereItIs();
    void largeFileThatCannotBeCopiedIsToldAndTriedAgain_data();
    void largeFileThatCannotBeCopiedIsToldAndTriedAgain();
    void loaderThatGoesGivesUpItsCopy();
    void hugeFileIsNotLostOnAFullDisk();
    void hugeFileArrivesWholeInLittleMemory();

    void copyOfAKilledProcessIsMadeAnew();
    void leftoversOfKilledProcessesAreRemoved();
};

namespace {

constexpr int LongTime = 60000;
constexpr qint64 Large = 20 << 20; // more than is copied at once

const QString Plain = QStringLiteral("plain");
const QString Goo = QStringLiteral("libgoo.so");
const QString Loaded = QStringLiteral("zdefault 1: loaded: libfoo");

/// Has the two folders of `site` lie apart. Before each call of the deployment `onCall` hears of it, on any thread, and
/// answers the error with which it fails, or 0.
class Apart
{
public:
    using OnCall = std::function<int(const QByteArray &call, const QString &path)>;

    explicit Apart(
        const Site &site, OnCall onCall = [](const QByteArray &, const QString &) { return 0; })
        : m_faults(
              [this, hot = site.hot.path(), onCall = std::move(onCall)](const QByteArray &call, const QString &path) {
                  if (call != "renameat2" || !path.startsWith(hot))
                      return onCall(call, path);
                  ++m_attempts;
                  return EXDEV;
              })
    {}

    /// How often it was tried to move a file.
    int attempts() const { return m_attempts; }

private:
    std::atomic_int m_attempts{0};
    const Faults m_faults;
};

/// Tells of the first time that a copy is written to in the deployed folder of `site`.
auto atFirstWrite(const Site &site, const std::function<void()> &deed)
{
    return [path = site.deployedPath, deed, isOver = false](const QByteArray &call, const QString &written) mutable {
        if (call == "write" && written.startsWith(path) && !std::exchange(isOver, true))
            deed();
        return 0;
    };
}

QByteArray contentOf(const QString &path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

/// The content of a plugin that is as large as that.
QByteArray grown(qint64 size) { return contentOf(pluginFile(Plain)).leftJustified(int(size), '\0'); }

/// Makes a plugin as large as that under `name`, without taking the room.
void dropGrown(const Folder &folder, qint64 size, const QString &name = Foo)
{
    const QString beside = folder.filePath(name + QStringLiteral(".part"));
    QVERIFY(QFile::copy(pluginFile(Plain), beside));
    QVERIFY(QFile::resize(beside, size));
    QVERIFY(QFile::rename(beside, folder.filePath(name)));
}

bool isFailure(const QString &entry) { return entry.startsWith(QLatin1String("warning: ")); }

bool hasFailures(const QStringList &entries) { return std::any_of(entries.begin(), entries.end(), isFailure); }

void inPlaceAndAside()
{
    QTest::addColumn<qint64>("size");
    QTest::newRow("small") << qint64(4 << 20);
    QTest::newRow("large") << Large;
}

/// zhost, with these folders.
class RunningHost
{
public:
    RunningHost(const Folder &folder, const QString &hotDeploy, const QString &deployed, bool isSlow = false)
    {
        const QJsonObject configuration{
            {QStringLiteral("logger"),
             QJsonObject{{QStringLiteral("log"), QJsonObject{{QStringLiteral("zdefault"), 3}}}}},
            {QStringLiteral("loader"),
             QJsonObject{{QStringLiteral("deployed"), deployed}, {QStringLiteral("hot-deploy"), hotDeploy}}}};
        folder.write(QStringLiteral("config.json"), QJsonDocument(configuration).toJson());
        QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
        if (isSlow) {
            const QString others = environment.value(QStringLiteral("LD_PRELOAD"));
            environment.insert(QStringLiteral("LD_PRELOAD"), QStringLiteral(SLOW_DISK " ") + others);
            environment.insert(QStringLiteral("ASAN_OPTIONS"), QStringLiteral("verify_asan_link_order=0"));
        }
        m_process.setProcessEnvironment(environment);
        m_process.setProcessChannelMode(QProcess::MergedChannels);
        m_process.start(QStringLiteral(ZHOST), {folder.filePath(QStringLiteral("config.json"))});
    }
    ~RunningHost()
    {
        m_process.kill();
        m_process.waitForFinished();
    }
    bool hasWritten(const QString &text)
    {
        m_written += QString::fromUtf8(m_process.readAll());
        return m_written.contains(text);
    }
    /// How much of the file that it is copying to `folder` is written.
    qint64 copied(const QString &folder) const
    {
        const QDir descriptors(QStringLiteral("/proc/%1/fd").arg(m_process.processId()));
        qint64 size = 0;
        for (const QString &name : descriptors.entryList(QDir::System | QDir::Files)) {
            const QString path = descriptors.filePath(name);
            struct stat status;
            if (QFile::symLinkTarget(path).startsWith(folder) &&
                stat(QFile::encodeName(path).constData(), &status) == 0)
                size = std::max<qint64>(size, status.st_size);
        }
        return size;
    }

private:
    QProcess m_process;
    QString m_written;
};

/// The most memory that the process has had since it was last asked, in kB.
qint64 takePeak()
{
    QFile status(QStringLiteral("/proc/self/status"));
    status.open(QIODevice::ReadOnly);
    const QRegularExpression peak(QStringLiteral("VmHWM:\\s*(\\d+)"));
    const qint64 result = peak.match(QString::fromLatin1(status.readAll())).captured(1).toLongLong();
    QFile reset(QStringLiteral("/proc/self/clear_refs"));
    reset.open(QIODevice::WriteOnly);
    reset.write("5");
    return result;
}

} // namespace

void tst_Deployment::fileThatIsBeingWrittenIsLeftUntilItIsClosed_data() { inPlaceAndAside(); }

void tst_Deployment::fileThatIsBeingWrittenIsLeftUntilItIsClosed()
{
    QFETCH(qint64, size);
    Site site;
    site.start();
    const Apart apart(site);
    const QByteArray content = grown(size);
    QFile writer(site.hotFile());
    QVERIFY(writer.open(QIODevice::WriteOnly | QIODevice::Unbuffered));
    for (const int part : {0, int(size) / 2, int(size) - 1}) {
        writer.write(content.mid(int(writer.pos()), part - int(writer.pos())));
        const int attempts = apart.attempts();
        QCOMPARE(site.change(), QStringList());
        QTRY_VERIFY_WITH_TIMEOUT(apart.attempts() > attempts + 1, LongTime); // it is looked at again
        QCOMPARE(site.hot.files(), QStringList{Foo});
        QCOMPARE(site.deployedFiles(), QStringList());
    }
    QCOMPARE(site.loader->asked, QStringList());
    writer.write(content.right(1));
    site.journal->take();
    writer.close(); // of which nobody tells
    QTRY_COMPARE_WITH_TIMEOUT(site.loader->asked, QStringList{QStringLiteral("libfoo")}, LongTime);
    QCOMPARE(contentOf(site.deployedFile()), content);
    QCOMPARE(site.hot.files(), QStringList());
    QVERIFY(site.journal->entries().contains(Loaded));
    QVERIFY(!hasFailures(site.journal->entries()));
}

void tst_Deployment::fileThatIsBeingWrittenIsNoReasonToLeaveOthers()
{
    Site site;
    site.start();
    const Apart apart(site);
    QFile writer(site.hotFile());
    QVERIFY(writer.open(QIODevice::WriteOnly));
    site.hot.drop(Plain, Goo);
    QCOMPARE(site.change(), QStringList{QStringLiteral("zdefault 1: loaded: libgoo")});
    QCOMPARE(site.hot.files(), QStringList{Foo});
}

void tst_Deployment::fileThatIsBeingWrittenMayGoAway()
{
    Site site;
    site.start();
    const Apart apart(site);
    QFile foo(site.hotFile()), goo(site.hotFile(Goo));
    QVERIFY(foo.open(QIODevice::WriteOnly));
    QVERIFY(goo.open(QIODevice::WriteOnly));
    QCOMPARE(site.change(), QStringList());
    QVERIFY(foo.remove());
    const int attempts = apart.attempts();
    QTRY_VERIFY_WITH_TIMEOUT(apart.attempts() > attempts + 1, LongTime); // to move the other one
    QVERIFY(!hasFailures(site.journal->entries()));
}

/// The system tells the process that looks whether somebody writes, by a signal.
void tst_Deployment::whoComesToWriteJustThenEndsNoProcess()
{
    Site site;
    site.start();
    site.hot.drop(Plain, Foo);
    const Apart apart(site, [&](const QByteArray &call, const QString &path) {
        if (call == "fcntl" && path == site.hotFile())
            close(open(QFile::encodeName(path).constData(), O_WRONLY | O_NONBLOCK)); // does not wait to be let in
        return 0;
    });
    QCOMPARE(site.change(), QStringList{Loaded});
}

void tst_Deployment::fileSystemThatCannotTellWhoWritesWillDo_data()
{
    QTest::addColumn<int>("error");
    QTest::newRow("it does not know how") << EINVAL;
    QTest::newRow("it is somebody else's file") << EACCES;
}

void tst_Deployment::fileSystemThatCannotTellWhoWritesWillDo()
{
    QFETCH(int, error);
    Site site;
    site.start();
    site.hot.drop(Plain, Foo);
    QFile writer(site.hotFile());
    QVERIFY(writer.open(QIODevice::Append));
    const Apart apart(site, [&](const QByteArray &call, const QString &) { return call == "fcntl" ? error : 0; });
    QCOMPARE(site.change(), QStringList{Loaded});
}

void tst_Deployment::onOneFileSystemAFileIsMovedAtOnce()
{
    Site site;
    site.start();
    QFile writer(site.hotFile());
    QVERIFY(writer.open(QIODevice::WriteOnly));
    site.change();
    QCOMPARE(site.loader->asked, QStringList{QStringLiteral("libfoo")});
    writer.write(contentOf(pluginFile(Plain)));
    writer.close(); // which has lost nothing
    QCOMPARE(contentOf(site.deployedFile()), contentOf(pluginFile(Plain)));
}

void tst_Deployment::fileThatChangesDuringItsCopyIsCopiedAgain_data()
{
    QTest::addColumn<qint64>("size");
    QTest::addColumn<bool>("isReplaced");
    QTest::addColumn<qint64>("sizeAfter");
    for (const bool isReplaced : {false, true}) {
        for (const qint64 size : {qint64(4 << 20), Large}) {
            const char *const name = isReplaced ? "replaced" : "rewritten";
            QTest::addRow("%s, %lld, longer", name, size) << size << isReplaced << size + 1;
            QTest::addRow("%s, %lld, shorter", name, size) << size << isReplaced << size / 2;
            QTest::addRow("%s, %lld, as long", name, size) << size << isReplaced << size;
        }
    }
}

void tst_Deployment::fileThatChangesDuringItsCopyIsCopiedAgain()
{
    QFETCH(qint64, size);
    QFETCH(bool, isReplaced);
    QFETCH(qint64, sizeAfter);
    Site site;
    site.start();
    const QByteArray after = contentOf(pluginFile(Plain)).leftJustified(int(sizeAfter), '2');
    QVERIFY(site.hot.write(Foo, grown(size)));
    QFile old(site.hotFile());
    QVERIFY(old.open(QIODevice::ReadWrite));
    QVERIFY(old.setFileTime(QDateTime::currentDateTime().addSecs(-10), QFile::FileModificationTime));
    old.close();
    const Apart apart(site, atFirstWrite(site, [&] {
                          if (isReplaced)
                              QFile::remove(site.hotFile());
                          site.hot.write(Foo, after);
                      }));
    QVERIFY(!hasFailures(site.change()));
    QTRY_COMPARE_WITH_TIMEOUT(site.loader->asked, QStringList{QStringLiteral("libfoo")}, LongTime);
    QVERIFY(contentOf(site.deployedFile()) == after);
    QCOMPARE(site.hot.files(), QStringList());
    QCOMPARE(site.deployedFiles(), QStringList{Foo});
    QVERIFY(!hasFailures(site.journal->entries()));
}

void tst_Deployment::fileThatGoesAwayDuringItsCopyIsTold_data() { inPlaceAndAside(); }

/// Who takes it away does not want it loaded.
void tst_Deployment::fileThatGoesAwayDuringItsCopyIsTold()
{
    QFETCH(qint64, size);
    Site site;
    site.start();
    dropGrown(site.hot, size);
    QSemaphore removed;
    const Apart apart(site, atFirstWrite(site, [&] {
                          QFile::remove(site.hotFile());
                          removed.release();
                      }));
    QStringList entries = site.change();
    QVERIFY(removed.tryAcquire(1, LongTime));
    settle();
    entries += site.journal->take();
    if (size < Large) // otherwise it is not there any more when its turn comes
        QVERIFY(entries.contains(site.failed()));
    QCOMPARE(site.hot.files(), QStringList());
    QCOMPARE(site.deployedFiles(), QStringList());
    QCOMPARE(site.loader->asked, QStringList());
}

void tst_Deployment::linkToAPipeIsNoFile()
{
    Site site;
    site.start();
    const Folder elsewhere;
    const QString pipe = elsewhere.filePath(QStringLiteral("pipe"));
    QCOMPARE(mkfifo(QFile::encodeName(pipe).constData(), 0600), 0);
    QVERIFY(QFile::link(pipe, site.hotFile()));
    const Apart apart(site);
    QCOMPARE(site.change(), QStringList{site.failed()}); // at once, and not when somebody writes to it
}

void tst_Deployment::largeFileIsCopiedWhileTheEventLoopRuns()
{
    Site site;
    site.start();
    dropGrown(site.hot, Large);
    QSemaphore isCopying, mayGoOn;
    const Apart apart(site, atFirstWrite(site, [&] {
                          isCopying.release();
                          mayGoOn.acquire();
                      }));
    QCOMPARE(site.change(), QStringList());
    QVERIFY(isCopying.tryAcquire(1, LongTime));

    site.hot.drop(Plain, Goo); // overtakes it
    QTRY_COMPARE_WITH_TIMEOUT(site.loader->asked, QStringList{QStringLiteral("libgoo")}, LongTime);
    QCOMPARE(site.change(), QStringList()); // it is under way
    QVERIFY(QFileInfo::exists(site.hotFile()));
    QCOMPARE(site.deployedFiles(), QStringList{Goo});

    mayGoOn.release();
    QTRY_COMPARE_WITH_TIMEOUT(site.loader->asked.size(), 2, LongTime);
    QCOMPARE(site.loader->asked.last(), QStringLiteral("libfoo"));
    QCOMPARE(site.hot.files(), QStringList());
    QVERIFY(contentOf(site.deployedFile()) == grown(Large));
    QVERIFY(site.journal->entries().contains(Loaded));
}

void tst_Deployment::largeFilesAreCopiedOneAfterTheOther()
{
    Site site;
    site.start();
    const QStringList names{Foo, Goo, QStringLiteral("libhoo.so")};
    for (const QString &name : names)
        dropGrown(site.hot, Large, name);
    const Apart apart(site);
    QCOMPARE(site.change(), QStringList());
    QTRY_COMPARE_WITH_TIMEOUT(site.deployedFiles(), names, LongTime);
    QCOMPARE(site.hot.files(), QStringList());
    QVERIFY(!hasFailures(site.journal->entries()));
}

void tst_Deployment::nameThatIsTakenDuringALargeCopyStaysWhereItIs()
{
    Site site;
    site.start();
    dropGrown(site.hot, Large);
    const Apart apart(site, atFirstWrite(site, [&] { site.deployed.write(Foo, "somebody else's"); }));
    QCOMPARE(site.change(), QStringList());
    QTRY_VERIFY_WITH_TIMEOUT(hasFailures(site.journal->entries()), LongTime);
    QCOMPARE(site.hot.files(), QStringList{Foo});
    QCOMPARE(contentOf(site.deployedFile()), QByteArray("somebody else's"));
    QCOMPARE(site.deployedFiles(), QStringList{Foo});
    QCOMPARE(site.loader->asked, QStringList());
}

void tst_Deployment::largeFileThatCannotBeCopiedIsToldAndTriedAgain_data()
{
    QTest::addColumn<QString>("call");
    QTest::addColumn<int>("error");
    QTest::addColumn<bool>("isDeployed"); // the folder that the call is about
    QTest::newRow("full disk") << QStringLiteral("write") << ENOSPC << true;
    QTest::newRow("bad disk") << QStringLiteral("read") << EIO << false;
    QTest::newRow("disk that does not keep it") << QStringLiteral("fsync") << EIO << true;
    QTest::newRow("no more files") << QStringLiteral("open") << EMFILE << true;
    QTest::newRow("source that cannot be removed") << QStringLiteral("unlink") << EROFS << false;
    QTest::newRow("no thread") << QStringLiteral("pthread_create") << EAGAIN << false;
}

void tst_Deployment::largeFileThatCannotBeCopiedIsToldAndTriedAgain()
{
    QFETCH(QString, call);
    QFETCH(int, error);
    QFETCH(bool, isDeployed);
    Site site;
    site.start();
    dropGrown(site.hot, Large);
    const QString part = isDeployed ? site.deployedPath : site.hot.path();
    std::atomic_bool isOver{false};
    const Apart apart(site, [&](const QByteArray &made, const QString &path) {
        return !isOver && made == call.toLatin1() && (path.isEmpty() || path.startsWith(part)) ? error : 0;
    });
    QStringList entries = site.change();
    QTRY_VERIFY_WITH_TIMEOUT((entries += site.journal->take()).contains(site.failed()), LongTime);
    QCOMPARE(site.hot.files(), QStringList{Foo});
    QCOMPARE(site.deployed.files(), QStringList());
    QCOMPARE(site.loader->asked, QStringList());

    isOver = true;
    const auto isLoaded = [&] {
        site.change(); // a second attempt may be under way, and fail as well
        return site.loader->asked == QStringList{QStringLiteral("libfoo")};
    };
    QTRY_VERIFY_WITH_TIMEOUT(isLoaded(), LongTime);
    QCOMPARE(site.hot.files(), QStringList());
    QCOMPARE(site.deployedFiles(), QStringList{Foo});
    QVERIFY(contentOf(site.deployedFile()) == grown(Large));
}

void tst_Deployment::loaderThatGoesGivesUpItsCopy()
{
    constexpr qint64 Size = 1 << 30;
    Site site;
    site.start();
    dropGrown(site.hot, Size);
    QSemaphore isCopying;
    std::atomic_int writes{0};
    {
        const Apart apart(site, [&](const QByteArray &call, const QString &path) {
            if (call == "write" && path.startsWith(site.deployedPath) && ++writes == 1)
                isCopying.release();
            return 0;
        });
        const Host host; // with a loader of its own
        host.wire<Spy>(QJsonObject{{QStringLiteral("hot-deploy"), site.hot.path()},
                                   {QStringLiteral("deployed"), site.deployedPath}});
        QVERIFY(isCopying.tryAcquire(1, LongTime));
    }
    QVERIFY2(writes < 1000, "it has been copied to the end");
    QCOMPARE(QFileInfo(site.hotFile()).size(), Size);
    QCOMPARE(site.hot.files(), QStringList{Foo});
    QCOMPARE(site.deployedFiles(), QStringList());
}

void tst_Deployment::hugeFileIsNotLostOnAFullDisk()
{
    constexpr qint64 Size = qint64(3) << 30;
    Site site;
    site.hot.write(Foo, "no plugin at all");
    QVERIFY(QFile::resize(site.hotFile(), Size));
    std::atomic_int writes{0};
    const Apart apart(site, [&](const QByteArray &call, const QString &path) {
        return call == "write" && path.startsWith(site.deployedPath) && ++writes > 3 ? ENOSPC : 0;
    });
    site.start();
    QTRY_COMPARE_WITH_TIMEOUT(site.journal->entries(), QStringList{site.failed()}, LongTime);
    QCOMPARE(site.hot.files(), QStringList{Foo});
    QCOMPARE(QFileInfo(site.hotFile()).size(), Size);
    QCOMPARE(site.deployedFiles(), QStringList());
}

void tst_Deployment::hugeFileArrivesWholeInLittleMemory()
{
    constexpr qint64 Size = (qint64(2) << 30) + 4096;
    const std::unique_ptr<QTemporaryDir> elsewhere = folderElsewhere();
    struct statvfs room = {};
    if (!elsewhere || statvfs(QFile::encodeName(elsewhere->path()).constData(), &room) != 0 ||
        qint64(room.f_bavail * room.f_frsize) < 2 * Size)
        return QTest::qSkip("there is no other file system that has the room", __FILE__, __LINE__);
    Site site(elsewhere->path());
    site.start();
    dropGrown(site.hot, Size);
    takePeak();
    const qint64 before = takePeak();
    QCOMPARE(site.change(), QStringList());
    // Loading it would map it, which counts as memory.
    QTRY_VERIFY_WITH_TIMEOUT(QFileInfo::exists(site.deployedFile()) || takePeak() > before + 65536, LongTime);
    QCOMPARE(site.hot.files(), QStringList());
    QCOMPARE(QFileInfo(site.deployedFile()).size(), Size);
    QFile copy(site.deployedFile()), original(pluginFile(Plain));
    QVERIFY(copy.open(QIODevice::ReadOnly) && original.open(QIODevice::ReadOnly));
    const QByteArray content = original.readAll();
    QVERIFY(copy.read(content.size()) == content);
}

void tst_Deployment::copyOfAKilledProcessIsMadeAnew()
{
    const std::unique_ptr<QTemporaryDir> hotDeploy = folderElsewhere();
    if (!hotDeploy)
        return QTest::qSkip("there is no other file system", __FILE__, __LINE__);
    const Folder folder, deployed;
    const QString source = hotDeploy->filePath(Foo);
    const QByteArray content = grown(Large);
    const auto everything = [&] {
        const QStringList plugins{QStringLiteral("*.so"), QStringLiteral("*.part")};
        return QDir(deployed.path()).entryList(plugins, QDir::Files | QDir::System | QDir::Hidden);
    };
    QFile out(source);
    QVERIFY(out.open(QIODevice::WriteOnly) && out.write(content) == content.size());
    out.close();
    {
        const RunningHost host(folder, hotDeploy->path(), deployed.path(), true);
        QTRY_VERIFY_WITH_TIMEOUT(host.copied(deployed.path()) > 100000, LongTime);
    } // it is killed here
    QVERIFY(contentOf(source) == content);
    QCOMPARE(deployed.files(), QStringList());

    RunningHost next(folder, hotDeploy->path(), deployed.path());
    QTRY_VERIFY_WITH_TIMEOUT(next.hasWritten(QStringLiteral("loaded: libfoo")), LongTime);
    QVERIFY(!QFileInfo::exists(source));
    QVERIFY(contentOf(deployed.filePath(Foo)) == content);
    QCOMPARE(everything(), QStringList{Foo});
}

void tst_Deployment::leftoversOfKilledProcessesAreRemoved()
{
    const QString used = QStringLiteral(".zdefault-used00.part");
    const QString foreign = QStringLiteral(".other.part");
    Site site;
    site.start();
    site.deployed.write(QStringLiteral(".zdefault-left00.part"), "half a plugin");
    site.deployed.write(foreign, "not ours");
    QFile other(site.deployedFile(used)); // another process is copying
    QVERIFY(other.open(QIODevice::WriteOnly));
    QCOMPARE(flock(other.handle(), LOCK_EX), 0);
    site.hot.drop(Plain, Foo);
    const Apart apart(site);
    QCOMPARE(site.change(), QStringList{Loaded});
    QCOMPARE(site.deployedFiles(), QStringList({foreign, used, Foo}));
}

QTEST_GUILESS_MAIN(tst_Deployment)

#include "tst_deployment.moc"
