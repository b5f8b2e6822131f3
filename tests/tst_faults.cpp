// SPDX-License-Identifier: Apache-2.0
#include "faults.h"
#include "host.h"
#include "journal.h"
#include "program.h"
#include "site.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QPointer>
#include <QProcessEnvironment>
#include <QRegularExpression>
#include <QScopeGuard>
#include <QSemaphore>
#include <QTemporaryFile>
#include <QThread>

#include <zdefaultfilesystem.h>
#include <zdefaultpoolset.h>
#include <zdefaultscheduler.h>
#include <zjobpool.h>
#include <zlibrary.h>
#include <zobject.h>
#include <zthreadpool.h>

#include <cerrno>
#include <csignal>
#include <future>
#include <memory>
#include <vector>

#include <elf.h>
#include <sys/mount.h>
#include <sys/resource.h>

using Library = QSharedPointer<ZLibrary>;

/// What the system refuses, on every road that leads out of the process.
class tst_Faults : public TestCase
{
    Q_OBJECT

private Q_SLOTS:
    void refusedRenameIsToldAndTriedAgain_data();
    void refusedRenameIsToldAndTriedAgain();
    void laterDropTriesARefusedRenameAgain();
    void fileThatGoesAwayMeanwhileIsTold();
    void fileSystemThatCannotTellWhetherItReplacesWillDo_data();
    void fileSystemThatCannotTellWhetherItReplacesWillDo();
    void nameThatIsTakenMeanwhileIsNotReplaced_data();
    void nameThatIsTakenMeanwhileIsNotReplaced();
    void eachCallOfADeploymentMayFail_data();
    void eachCallOfADeploymentMayFail();
    void smallFileIsNotLostOnAFullDisk();
    void droppedFileIsAlwaysInOneOfTheFolders_data();
    void droppedFileIsAlwaysInOneOfTheFolders();
    void permissionsGoAlongToAnotherFileSystem();
    void linkToAnotherFileSystemBecomesAFile();

    void folderThatCannotBeWatchedIsTold();
    void folderIsLookedAtWhereNothingCanBeWatched();
    void folderThatCannotBeReadIsReadAtTheNextChange();
    void folderThatIsRemovedAndMadeAnewIsWatchedAgain();
    void folderThatIsMountedOverIsWatched();
    void folderThatIsMovedAwayAndBackIsStillWatched();

    void loadThatFailsIsToldAndTriedAgain_data();
    void loadThatFailsIsToldAndTriedAgain();
    void fileMayGoBeforeTheLinkerTakesIt();
    void pluginLoadsWhereItCannotBeMappedToBeLookedAt();
    void damageIsFoundWhereTheFileCannotBeMapped();
    void unloadThatFailsIsToldAndThePluginLoadsAgain();

    void temporaryFolderThatCannotBeMadeGivesWay();
    void leftoverThatCannotBeRemovedHindersNothing();
    void temporaryFolderThatCannotBeReadKeepsItsLeftovers();
    void temporaryFileThatCannotBeMadeTellsAtOpen_data();
    void temporaryFileThatCannotBeMadeTellsAtOpen();
    void temporaryFolderMayGoAndComeBack();

    void threadForWhichThereIsNoRoomStaysItsCallers_data();
    void threadForWhichThereIsNoRoomStaysItsCallers();
    void threadWithoutItsPriorityIsStartedAllTheSame();
    void threadForWhichThereIsNoRoomDisturbsNoOther();
    void activityForWhichThereIsNoRoomIsRefused();
    void activityMayBeRefusedByAnActivity();
    void refusedActivitiesTakeNothingFromOthers();
    void jobForWhichThereIsNoRoomDisturbsNoOther_data();
    void jobForWhichThereIsNoRoomDisturbsNoOther();

    void hostTellsWhyItsFileCannotBeRead_data();
    void hostTellsWhyItsFileCannotBeRead();
    void hostTellsThatItCannotHearSignals();
    void hostRunsOn_data();
    void hostRunsOn();
    void hostDoesWithoutWatching();
    void hostRunsOnWithoutItsFilesAndFolders();
};

namespace {

constexpr int LongTime = 60000;

const QString Plain = QStringLiteral("plain");
const QString Loaded = QStringLiteral("zdefault 1: loaded: libfoo");
const QString Unloaded = QStringLiteral("zdefault 1: unloaded: libfoo");

QString reason(int error) { return qt_error_string(error); }

/// A set with a journal, and a folder in which it finds "libfoo".
class Shelf
{
public:
    Shelf() : journal(Journal::bind(m_wiring.emitter())), m_set(QStringLiteral("nothing"), {}, m_wiring.emitter())
    {
        settle();
        journal->take();
    }

    Library load() { return m_set.loadOne(QStringLiteral("libfoo"), folder.path(), m_wiring.emitter()); }
    Library loaded() { return m_set.loaded(QStringLiteral("libfoo")); }
    QString file() const { return folder.filePath(Foo); }

    const PluginFolder folder;

private:
    const Wiring m_wiring;

public:
    const QSharedPointer<Journal> journal;

private:
    ZLibrarySet m_set;
};

bool isComplete(const QString &file, qint64 size) { return QFileInfo(file).size() == size; }

void oneFileSystemAndTwo()
{
    QTest::addColumn<bool>("apart");
    QTest::newRow("one file system") << false;
    QTest::newRow("two file systems") << true;
}

/// As long as it lives, no more than so many descriptors may be open.
class FewDescriptors
{
public:
    explicit FewDescriptors(rlim_t count)
    {
        getrlimit(RLIMIT_NOFILE, &m_before);
        const rlimit few{count, m_before.rlim_max};
        setrlimit(RLIMIT_NOFILE, &few);
    }
    ~FewDescriptors() { setrlimit(RLIMIT_NOFILE, &m_before); }

private:
    Q_DISABLE_COPY(FewDescriptors)
    rlimit m_before;
};

/// The system's temporary folder, as long as it lives.
class SystemFolder : public Folder
{
public:
    SystemFolder() { qputenv("TMPDIR", QFile::encodeName(path())); }
    ~SystemFolder() { m_before.isNull() ? qunsetenv("TMPDIR") : qputenv("TMPDIR", m_before); }

private:
    Q_DISABLE_COPY(SystemFolder)
    const QByteArray m_before = qgetenv("TMPDIR");
};

const QString Stem = QStringLiteral("stem");

void apply(ZDefaultTempFile &service, const QString &folder)
{
    ZDefaultConfig config(
        {{QStringLiteral("filesystem"),
          QJsonObject{{QStringLiteral("temporary-folder"), folder}, {QStringLiteral("temporary-fn-template"), Stem}}}});
    service.getSetZConfig(&config);
}

/// Runs until it is told to stop.
class Runner : public QThread
{
public:
    ~Runner() override { m_stop.release(); }
    void letGo() { m_stop.release(); }

protected:
    void run() override { m_stop.acquire(); }

private:
    QSemaphore m_stop;
};

class Activity : public ZScheduledActivity
{
public:
    explicit Activity(std::function<void()> deed = [] {})
        : ZScheduledActivity(QSharedPointer<ZPeriodicSchedule>::create(1)), m_deed(std::move(deed))
    {}

    bool run() override
    {
        m_deed();
        m_ran.release();
        return false;
    }
    bool hasRun() { return m_ran.tryAcquire(1, LongTime); }
    bool isUntouched() const { return m_ran.available() == 0; }

private:
    const std::function<void()> m_deed;
    QSemaphore m_ran;
};

/// A scheduler and the threads of what it has scheduled.
struct Scheduler
{
    ZDefaultThreadPoolSet pools;
    ZDefaultScheduler service;

    Scheduler() { service.getSetZPoolSet(&pools); }
    ~Scheduler()
    {
        pool()->waitAll(LongTime);
        settle();
    }
    QSharedPointer<ZThreadPool> pool() { return pools.find0(QStringLiteral("Pool-ZSchedulerThread")); }
};

/// A job that tells when it runs. With `leave` it stays until that is released.
class Job : public ZJob
{
public:
    explicit Job(QSemaphore *leave = nullptr) : ZJob({}, {}), m_leave(leave) { setAutoDelete(false); }
    void run() override
    {
        m_ran.release();
        if (m_leave)
            m_leave->acquire();
    }
    bool hasRun() { return m_ran.tryAcquire(1, LongTime); }
    bool isUntouched() const { return m_ran.available() == 0; }

private:
    QSemaphore *const m_leave;
    QSemaphore m_ran;
};

/// A host in whose process calls fail: "CALL ERROR PART", as support/failing.cpp has it.
class FailingHost
{
public:
    explicit FailingHost(const QJsonObject &configuration, const QString &failing = QString())
    {
        QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
        const QString others = environment.value(QStringLiteral("LD_PRELOAD"));
        environment.insert(QStringLiteral("LD_PRELOAD"), QStringLiteral(FAILING " ") + others);
        environment.insert(QStringLiteral("ASAN_OPTIONS"), QStringLiteral("verify_asan_link_order=0"));
        environment.insert(QStringLiteral("FAILING"), failing);
        m_process.setProcessEnvironment(environment);
        folder.write(QStringLiteral("config.json"), QJsonDocument(configuration).toJson());
    }
    ~FailingHost()
    {
        m_process.kill();
        m_process.waitForFinished();
    }

    QString file() const { return folder.filePath(QStringLiteral("config.json")); }
    void start(const QStringList &options = {})
    {
        m_process.setProcessChannelMode(QProcess::MergedChannels);
        m_process.start(QStringLiteral(ZHOST), options + QStringList{file()});
    }
    bool hasWritten(const QString &text)
    {
        m_written += QString::fromUtf8(m_process.readAll());
        return m_written.contains(text);
    }
    /// Its exit status; -1 if it crashed, or does not end.
    int stop()
    {
        ::kill(static_cast<pid_t>(m_process.processId()), SIGTERM);
        return end();
    }
    int end()
    {
        const bool hasEnded = m_process.state() == QProcess::NotRunning || m_process.waitForFinished(LongTime);
        hasWritten(QString());
        return hasEnded && m_process.exitStatus() == QProcess::NormalExit ? m_process.exitCode() : -1;
    }
    QString written() const { return m_written; }

    const Folder folder;

private:
    QProcess m_process;
    QString m_written;
};

QJsonObject watching(const QString &deployed, const QString &hotDeploy)
{
    return {
        {QStringLiteral("logger"), QJsonObject{{QStringLiteral("log"), QJsonObject{{QStringLiteral("zdefault"), 3}}}}},
        {QStringLiteral("loader"),
         QJsonObject{{QStringLiteral("deployed"), deployed}, {QStringLiteral("hot-deploy"), hotDeploy}}}};
}

} // namespace

void tst_Faults::refusedRenameIsToldAndTriedAgain_data()
{
    QTest::addColumn<int>("error");
    for (const int error : {EACCES, EPERM, EROFS, ENOSPC, EDQUOT, EIO, ENOENT, EEXIST, ESTALE})
        QTest::newRow(qPrintable(reason(error))) << error;
}

void tst_Faults::refusedRenameIsToldAndTriedAgain()
{
    QFETCH(int, error);
    Site site;
    site.start();
    site.hot.drop(Plain, Foo);
    {
        const Faults faults("renameat2", error, site.hot.path());
        QCOMPARE(site.change(), QStringList{site.failed()});
        QCOMPARE(site.change(), QStringList{site.failed()});
        QCOMPARE(faults.hits(), 2);
    }
    QCOMPARE(site.loader->asked, QStringList());
    QCOMPARE(site.hot.files(), QStringList{Foo});
    QCOMPARE(site.deployedFiles(), QStringList());

    QCOMPARE(site.change(), QStringList{Loaded});
    QCOMPARE(site.hot.files(), QStringList());
    QCOMPARE(site.deployedFiles(), QStringList{Foo});
}

void tst_Faults::laterDropTriesARefusedRenameAgain()
{
    Site site;
    site.start();
    {
        const Faults faults("renameat2", EROFS, site.hotFile()); // not of the copy beside it
        site.hot.drop(Plain, Foo);
        QTRY_VERIFY_WITH_TIMEOUT(site.journal->entries().contains(site.failed()), LongTime);
    }
    QCOMPARE(site.hot.files(), QStringList{Foo});
    site.hot.drop(Plain, QStringLiteral("libgoo.so"));
    QTRY_COMPARE_WITH_TIMEOUT(site.deployedFiles(), QStringList({Foo, QStringLiteral("libgoo.so")}), LongTime);
    QCOMPARE(site.hot.files(), QStringList());
}

void tst_Faults::fileThatGoesAwayMeanwhileIsTold()
{
    Site site;
    site.start();
    site.hot.drop(Plain, Foo);
    site.hot.drop(Plain, QStringLiteral("libgoo.so"));
    {
        const Faults faults([&](const QByteArray &call, const QString &path) {
            if (call == "renameat2" && path == site.hotFile())
                QFile::remove(path);
            return 0;
        });
        QCOMPARE(site.change(), QStringList({site.failed(), QStringLiteral("zdefault 1: loaded: libgoo")}));
    }
    QCOMPARE(site.hot.files(), QStringList());
    QCOMPARE(site.deployedFiles(), QStringList{QStringLiteral("libgoo.so")});
}

void tst_Faults::fileSystemThatCannotTellWhetherItReplacesWillDo_data()
{
    QTest::addColumn<int>("error");
    for (const int error : {EINVAL, ENOSYS})
        QTest::newRow(qPrintable(reason(error))) << error;
}

void tst_Faults::fileSystemThatCannotTellWhetherItReplacesWillDo()
{
    QFETCH(int, error);
    Site site;
    site.start();
    site.hot.drop(Plain, Foo);
    const Faults faults("renameat2", error, site.hot.path());
    QCOMPARE(site.change(), QStringList{Loaded});
    QCOMPARE(site.hot.files(), QStringList());
    QCOMPARE(site.deployedFiles(), QStringList{Foo});
}

void tst_Faults::nameThatIsTakenMeanwhileIsNotReplaced_data() { oneFileSystemAndTwo(); }

void tst_Faults::nameThatIsTakenMeanwhileIsNotReplaced()
{
    QFETCH(bool, apart);
    Site site;
    site.start();
    site.hot.drop(Plain, Foo);
    const QByteArray other("somebody else's");
    {
        const Faults faults([&](const QByteArray &call, const QString &path) {
            if (call != "renameat2")
                return 0;
            if (apart && path == site.hotFile())
                return EXDEV;
            QFile file(site.deployedFile());
            return file.open(QIODevice::WriteOnly) && file.write(other) == other.size() ? 0 : EIO;
        });
        QCOMPARE(site.change(), QStringList{site.failed()});
    }
    QCOMPARE(site.hot.files(), QStringList{Foo});
    QCOMPARE(site.deployedFiles(), QStringList{Foo});
    QVERIFY(isComplete(site.deployedFile(), other.size()));
}

void tst_Faults::eachCallOfADeploymentMayFail_data() { oneFileSystemAndTwo(); }

void tst_Faults::eachCallOfADeploymentMayFail()
{
    QFETCH(bool, apart);
    const qint64 size = QFileInfo(pluginFile(Plain)).size();
    QVERIFY(size > 0);
    int spared = 0;
    for (QByteArray failing = "none yet"; !failing.isEmpty(); ++spared) {
        Site site;
        site.start();
        site.hot.drop(Plain, Foo);
        failing.clear();
        QStringList seen;
        int calls = 0;
        QStringList entries;
        {
            const Faults faults([&](const QByteArray &call, const QString &path) {
                if (!path.startsWith(site.hot.path()) && !path.startsWith(site.deployedPath))
                    return 0;
                const bool isHot = QFileInfo::exists(site.hotFile());
                const bool isDeployed = QFileInfo::exists(site.deployedFile());
                if ((!isHot && !isDeployed) || (isHot && isDeployed && !apart) ||
                    (isHot && !isComplete(site.hotFile(), size)) ||
                    (isDeployed && !isComplete(site.deployedFile(), size)))
                    seen.append(QString::fromLatin1(call));
                if (calls++ == spared) {
                    failing = call + ' ' + QFile::encodeName(path);
                    return call == "write" ? ENOSPC : EIO;
                }
                return apart && call == "renameat2" && path.startsWith(site.hot.path()) ? EXDEV : 0;
            });
            entries = site.change();
        }
        settle();
        site.journal->take();
        QVERIFY2(seen.isEmpty(), qPrintable(seen.join(QLatin1Char(' ')) + QLatin1String(failing)));
        if (site.hot.files() == QStringList{Foo}) {
            QVERIFY2(site.deployedFiles().isEmpty(), failing);
            QVERIFY(isComplete(site.hotFile(), size));
            if (failing.startsWith("opendir"))
                QCOMPARE(entries, QStringList());
            else
                QCOMPARE(entries, QStringList{site.failed()});
            QCOMPARE(site.loader->asked, QStringList());
            QCOMPARE(site.change(), QStringList{Loaded});
        } else {
            QVERIFY2(site.hot.files().isEmpty() && !failing.startsWith("fsync"), failing);
            QVERIFY(!entries.isEmpty());
            for (const QString &entry : qAsConst(entries))
                QVERIFY2(entry == Loaded || entry.startsWith(QLatin1String("warning: failed to load libfoo: ")),
                         qPrintable(entry));
            QVERIFY(site.loader->load0(QStringLiteral("libfoo")));
        }
        QCOMPARE(site.hot.files(), QStringList());
        QCOMPARE(site.deployedFiles(), QStringList{Foo});
        QVERIFY(isComplete(site.deployedFile(), size));
    }
    QVERIFY2(spared > (apart ? 8 : 4), "less can fail than is done");
}

void tst_Faults::smallFileIsNotLostOnAFullDisk()
{
    Site site;
    site.start();
    site.hot.write(Foo, "less than is buffered");
    {
        const Faults faults([&](const QByteArray &call, const QString &path) {
            if (call == "renameat2" && path == site.hotFile())
                return EXDEV;
            return call == "write" && path.startsWith(site.deployedPath) ? ENOSPC : 0;
        });
        QCOMPARE(site.change(), QStringList{site.failed()});
        QVERIFY(faults.hits() > 1);
    }
    QCOMPARE(site.hot.files(), QStringList{Foo});
    QCOMPARE(site.deployedFiles(), QStringList());
}

void tst_Faults::droppedFileIsAlwaysInOneOfTheFolders_data()
{
    QTest::addColumn<bool>("apart");
    QTest::newRow("one file system") << false;
    if (folderElsewhere())
        QTest::newRow("two file systems") << true;
}

void tst_Faults::droppedFileIsAlwaysInOneOfTheFolders()
{
    QFETCH(bool, apart);
    const std::unique_ptr<QTemporaryDir> elsewhere = folderElsewhere();
    Site site(apart ? elsewhere->path() : QString());
    site.start();
    const QByteArray content(1 << 20, 'x'); // of many blocks, and no plugin
    for (int i = 0; i < 40; ++i) {
        site.hot.write(Foo, content);
        QSemaphore looks;
        std::atomic_bool isOver{false};
        auto looking = std::async(std::launch::async, [&] {
            bool isAlwaysThere = true;
            do {
                // It only ever goes from the one to the other: looked at in this order, it is not missed.
                isAlwaysThere &=
                    isComplete(site.hotFile(), content.size()) || isComplete(site.deployedFile(), content.size());
                isAlwaysThere &=
                    !QFileInfo::exists(site.deployedFile()) || isComplete(site.deployedFile(), content.size());
                looks.release();
            } while (!isOver);
            return isAlwaysThere;
        });
        looks.acquire();
        site.change();
        isOver = true;
        QVERIFY(looking.get());
        QCOMPARE(site.hot.files(), QStringList());
        QCOMPARE(site.deployedFiles(), QStringList{Foo});
        QVERIFY(QFile::remove(site.deployedFile()));
        settle();
    }
}

void tst_Faults::permissionsGoAlongToAnotherFileSystem()
{
    Site site;
    site.start();
    const Faults faults("renameat2", EXDEV, site.hot.path());
    site.hot.drop(Plain, Foo);
    QVERIFY(QFile::setPermissions(site.hotFile(),
                                  QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner | QFile::ReadGroup));
    const QFile::Permissions before = QFile::permissions(site.hotFile());
    QCOMPARE(site.change(), QStringList{Loaded});
    QCOMPARE(QFile::permissions(site.deployedFile()), before);
    QCOMPARE(site.hot.files(), QStringList());
    QCOMPARE(site.deployedFiles(), QStringList{Foo});
}

void tst_Faults::linkToAnotherFileSystemBecomesAFile()
{
    Site site;
    site.start();
    const Faults faults("renameat2", EXDEV, site.hot.path());
    const Folder original;
    original.drop(Plain, QStringLiteral("libreal.so"));
    QVERIFY(QFile::link(original.filePath(QStringLiteral("libreal.so")), site.hotFile()));
    QCOMPARE(site.change(), QStringList{Loaded});
    QVERIFY(!QFileInfo(site.deployedFile()).isSymLink());
    QCOMPARE(site.hot.files(), QStringList());
    QCOMPARE(original.files(), QStringList{QStringLiteral("libreal.so")});
}

void tst_Faults::folderThatCannotBeWatchedIsTold()
{
    Site site;
    site.hot.drop(Plain, Foo);
    {
        const Faults faults("inotify_add_watch", ENOSPC, site.hot.path());
        site.start();
        QCOMPARE(faults.hits(), 1);
    }
    const QStringList told = messages().take(QtWarningMsg) + messages().take(QtCriticalMsg); // by Qt
    QCOMPARE(told.size(), 1);
    QVERIFY2(told.first().contains(site.hot.path()) && told.first().contains(reason(ENOSPC)), qPrintable(told.first()));
    QCOMPARE(site.deployedFiles(), QStringList{Foo});  // what waited is deployed
    site.hot.drop(Plain, QStringLiteral("libgoo.so")); // which is seen all the same
    QTRY_COMPARE_WITH_TIMEOUT(site.deployedFiles(), QStringList({Foo, QStringLiteral("libgoo.so")}), LongTime);
}

void tst_Faults::folderIsLookedAtWhereNothingCanBeWatched()
{
    std::unique_ptr<Site> site;
    {
        const Faults faults("inotify_init", EMFILE);
        site = std::make_unique<Site>();
        site->start();
        QCOMPARE(faults.hits(), 2); // Qt asks in an older way, too
    }
    site->hot.drop(Plain, Foo);
    QTRY_COMPARE_WITH_TIMEOUT(site->deployedFiles(), QStringList{Foo}, LongTime);
}

void tst_Faults::folderThatCannotBeReadIsReadAtTheNextChange()
{
    Site site;
    site.start();
    site.hot.drop(Plain, Foo);
    {
        const Faults faults("opendir", EACCES, site.hot.path());
        QCOMPARE(site.change(), QStringList());
    }
    QCOMPARE(site.hot.files(), QStringList{Foo});
    QCOMPARE(site.change(), QStringList{Loaded});
}

void tst_Faults::folderThatIsRemovedAndMadeAnewIsWatchedAgain()
{
    Site site;
    site.start();
    QVERIFY(QDir().rmdir(site.hot.path()));
    QTRY_COMPARE_WITH_TIMEOUT(site.journal->entries(), QStringList{site.changed()}, LongTime);
    QCOMPARE(site.change(), QStringList());
    QVERIFY(QDir().mkdir(site.hot.path()));
    site.hot.drop(Plain, Foo);
    QTRY_COMPARE_WITH_TIMEOUT(site.deployedFiles(), QStringList{Foo}, LongTime);
    site.hot.drop(Plain, QStringLiteral("libgoo.so"));
    QTRY_COMPARE_WITH_TIMEOUT(site.deployedFiles(), QStringList({Foo, QStringLiteral("libgoo.so")}), LongTime);
}

void tst_Faults::folderThatIsMountedOverIsWatched()
{
    const Folder other; // in its place, and nothing tells so
    Site site;
    site.start();
    QVERIFY(other.drop(Plain, Foo));
    if (mount(QFile::encodeName(other.path()).constData(), QFile::encodeName(site.hot.path()).constData(), nullptr,
              MS_BIND, nullptr) != 0) {
        QTest::qSkip("needs the right to mount", __FILE__, __LINE__); // the macro is none of the standard's
        return;
    }
    const auto unmount = qScopeGuard([&] { umount2(QFile::encodeName(site.hot.path()).constData(), MNT_DETACH); });
    QTRY_COMPARE_WITH_TIMEOUT(site.deployedFiles(), QStringList{Foo}, LongTime);
    QVERIFY(other.drop(Plain, QStringLiteral("libgoo.so")));
    QTRY_COMPARE_WITH_TIMEOUT(site.deployedFiles(), QStringList({Foo, QStringLiteral("libgoo.so")}), LongTime);
}

void tst_Faults::folderThatIsMovedAwayAndBackIsStillWatched()
{
    Site site;
    site.start();
    const QString away = site.hot.path() + QStringLiteral("-away");
    QVERIFY(QDir().rename(site.hot.path(), away));
    QVERIFY(QFile::copy(pluginFile(Plain), away + QLatin1Char('/') + Foo));
    QTRY_VERIFY_WITH_TIMEOUT(site.journal->entries().contains(site.changed()), LongTime);
    QCOMPARE(site.deployedFiles(), QStringList());
    QVERIFY(QDir().rename(away, site.hot.path()));
    site.hot.drop(Plain, QStringLiteral("libgoo.so"));
    QTRY_COMPARE_WITH_TIMEOUT(site.deployedFiles(), QStringList({Foo, QStringLiteral("libgoo.so")}), LongTime);
    QCOMPARE(site.hot.files(), QStringList());
}

void tst_Faults::loadThatFailsIsToldAndTriedAgain_data()
{
    QTest::addColumn<QByteArray>("call");
    QTest::addColumn<int>("error");
    QTest::addColumn<QString>("words"); // Qt's; FILE is the file
    const QString linker = QStringLiteral("Cannot load library FILE: \\(FILE: %1\\)");
    QTest::newRow("the linker has no descriptor")
        << QByteArray("dlopen") << EMFILE
        << linker.arg(QStringLiteral("cannot open shared object file: (Error 24|Too many open files)"));
#ifndef __SANITIZE_THREAD__ // which needs memory itself
    QTest::newRow("the linker has no memory")
        << QByteArray("dlopen") << ENOMEM << linker.arg(QStringLiteral(".*(allocate memory|map segment).*"));
#endif
    for (const int error : {EMFILE, ENFILE, EACCES, EIO, ENOMEM})
        QTest::newRow(qPrintable(reason(error))) << QByteArray("open") << error << reason(error);
}

void tst_Faults::loadThatFailsIsToldAndTriedAgain()
{
    QFETCH(QByteArray, call);
    QFETCH(int, error);
    QFETCH(QString, words);
    Shelf shelf;
    shelf.folder.drop(Plain, Foo);
    {
        const Faults faults(call, error, shelf.file());
        QVERIFY(!shelf.load());
    }
    const QString told = shelf.journal->take().join(QLatin1Char('\n'));
    words.replace(QLatin1String("FILE"), QRegularExpression::escape(shelf.file()));
    const QRegularExpression pattern(QStringLiteral("^warning: failed to load libfoo: %1$").arg(words));
    QVERIFY2(pattern.match(told).hasMatch(), qPrintable(told));
    settle();
    QCOMPARE(shelf.journal->take(), QStringList{QStringLiteral("warning: failed to unload: libfoo")});

    QVERIFY(shelf.load());
    QVERIFY(isMapped(shelf.file()));
    settle();
    QCOMPARE(shelf.journal->take(), QStringList({Loaded, Unloaded}));
}

void tst_Faults::fileMayGoBeforeTheLinkerTakesIt()
{
    Shelf shelf;
    shelf.folder.drop(Plain, Foo);
    {
        const Faults faults([&](const QByteArray &call, const QString &path) {
            if (call == "dlopen" && path == shelf.file())
                QFile::remove(path);
            return 0;
        });
        QVERIFY(!shelf.load());
    }
    const QString failed = QStringLiteral("warning: failed to load libfoo: Cannot load library %1: (%1: cannot open "
                                          "shared object file: No such file or directory)");
    QCOMPARE(shelf.journal->take(), QStringList{failed.arg(shelf.file())});
    settle();
    shelf.folder.drop(Plain, Foo);
    QVERIFY(shelf.load());
}

void tst_Faults::pluginLoadsWhereItCannotBeMappedToBeLookedAt()
{
    Shelf shelf;
    shelf.folder.drop(Plain, Foo);
    const Faults faults("mmap", ENOMEM, shelf.file());
    QVERIFY(shelf.load());
}

void tst_Faults::damageIsFoundWhereTheFileCannotBeMapped()
{
    Shelf shelf;
    shelf.folder.drop(Plain, Foo);
    QFile file(shelf.file());
    QVERIFY(file.open(QIODevice::ReadWrite));
    Elf64_Ehdr header;
    Elf64_Phdr segment;
    QCOMPARE(file.read(reinterpret_cast<char *>(&header), sizeof header), qint64(sizeof header));
    QVERIFY(file.seek(qint64(header.e_phoff)));
    QCOMPARE(file.read(reinterpret_cast<char *>(&segment), sizeof segment), qint64(sizeof segment));
    segment.p_filesz = segment.p_memsz = 1 << 30; // past the end
    QVERIFY(file.seek(qint64(header.e_phoff)));
    QVERIFY(file.write(reinterpret_cast<const char *>(&segment), sizeof segment) && file.flush());

    const Faults faults("mmap", ENOMEM, shelf.file());
    QVERIFY(!shelf.load());
    QCOMPARE(shelf.journal->take(),
             QStringList{QStringLiteral("warning: failed to load libfoo: the file is damaged: segments")});
}

void tst_Faults::unloadThatFailsIsToldAndThePluginLoadsAgain()
{
    Shelf shelf;
    shelf.folder.drop(Plain, Foo);
    Library held = shelf.load();
    QVERIFY(held);
    {
        const Faults faults("dlclose", EINVAL);
        held.clear();
        settle();
        QCOMPARE(faults.hits(), 1);
    }
    QCOMPARE(shelf.journal->take(), QStringList({Loaded, QStringLiteral("warning: failed to unload: libfoo")}));
    QVERIFY(!shelf.loaded());
    {
        const Library library = shelf.load();
        QVERIFY(library);
        QVERIFY(QSharedPointer<ZObject>(*library)); // one that is alive
    }
    settle();
    QCOMPARE(shelf.journal->take(), QStringList({Loaded, Unloaded}));
    QVERIFY(!isMapped(shelf.file()));
}

void tst_Faults::temporaryFolderThatCannotBeMadeGivesWay()
{
    const SystemFolder system;
    const Folder parent;
    const QString folder = parent.filePath(QStringLiteral("below"));
    ZDefaultTempFile service;
    {
        const Faults faults("mkdir", EACCES, folder);
        apply(service, folder);
    }
    QCOMPARE(service.newFile0()->fileTemplate(), system.filePath(Stem));
    QVERIFY(!QFileInfo::exists(folder));
    apply(service, folder);
    QCOMPARE(service.newFile0()->fileTemplate(), folder + QLatin1Char('/') + Stem);
    QVERIFY(QFileInfo(folder).isDir());
}

void tst_Faults::leftoverThatCannotBeRemovedHindersNothing()
{
    const Folder folder;
    for (const char *name : {"stem.a", "stem.b", "stem.c"})
        folder.write(QLatin1String(name), "left over");
    ZDefaultTempFile service;
    {
        const Faults faults("unlink", EACCES, QStringLiteral("stem.b"));
        apply(service, folder.path());
        QCOMPARE(faults.hits(), 1);
    }
    QCOMPARE(folder.files(), QStringList{QStringLiteral("stem.b")});
    QVERIFY(service.newFile0()->open());
    apply(service, folder.path());
    QCOMPARE(folder.files(), QStringList());
}

void tst_Faults::temporaryFolderThatCannotBeReadKeepsItsLeftovers()
{
    const Folder folder;
    folder.write(QStringLiteral("stem.a"), "left over");
    ZDefaultTempFile service;
    {
        const Faults faults("opendir", EMFILE, folder.path());
        apply(service, folder.path());
    }
    QCOMPARE(folder.files(), QStringList{QStringLiteral("stem.a")});
    QCOMPARE(service.newFile0()->fileTemplate(), folder.filePath(Stem));
}

void tst_Faults::temporaryFileThatCannotBeMadeTellsAtOpen_data()
{
    QTest::addColumn<int>("error");
    for (const int error : {EACCES, EROFS, ENOSPC, EMFILE, ENFILE})
        QTest::newRow(qPrintable(reason(error))) << error;
}

void tst_Faults::temporaryFileThatCannotBeMadeTellsAtOpen()
{
    QFETCH(int, error);
    const Folder folder;
    ZDefaultTempFile service;
    apply(service, folder.path());
    QSharedPointer<QTemporaryFile> file;
    {
        const Faults faults("open", error, folder.path());
        file = service.newFile0();
        QVERIFY(file);
        QVERIFY(!file->open());
    }
    QCOMPARE(file->errorString(), reason(error));
    QCOMPARE(folder.files(), QStringList());
    QVERIFY(file->open());
    QVERIFY(file->fileName().startsWith(folder.filePath(Stem) + QLatin1Char('.')));
    QVERIFY(service.newFile0()->open());
}

void tst_Faults::temporaryFolderMayGoAndComeBack()
{
    const Folder folder;
    ZDefaultTempFile service;
    apply(service, folder.path());
    QVERIFY(QDir().rmdir(folder.path()));
    QVERIFY(!service.newFile0()->open());
    QVERIFY(!QFileInfo::exists(folder.path()));
    QVERIFY(QDir().mkdir(folder.path()));
    QVERIFY(service.newFile0()->open());
}

void tst_Faults::threadForWhichThereIsNoRoomStaysItsCallers_data()
{
    QTest::addColumn<int>("error");
    for (const int error : {EAGAIN, EPERM, EINVAL, ENOMEM})
        QTest::newRow(qPrintable(reason(error))) << error;
}

void tst_Faults::threadForWhichThereIsNoRoomStaysItsCallers()
{
    QFETCH(int, error);
    const QPointer<Runner> thread = new Runner;
    {
        ZThreadPool pool;
        {
            const Faults faults("pthread_create", error);
            QVERIFY(!pool.poolAndStart(thread, QThread::NormalPriority));
        }
        QCOMPARE(messages().take(QtCriticalMsg).size(), 1); // by Qt
        QCOMPARE(pool.printd(), QJsonArray());
        QVERIFY(pool.waitAll(0));
        QVERIFY(pool.interruptAndWaitAll(0));
        QVERIFY(!thread->isRunning());
    } // which does not wait for it
    settle();
    QVERIFY(thread);

    ZThreadPool another;
    QVERIFY(another.poolAndStart(thread, QThread::NormalPriority));
    thread->letGo();
    QVERIFY(another.waitAll(LongTime));
    QTRY_VERIFY_WITH_TIMEOUT(!thread, LongTime);
}

void tst_Faults::threadWithoutItsPriorityIsStartedAllTheSame()
{
    ZThreadPool pool;
    const QPointer<Runner> thread = new Runner;
    std::atomic_int calls{0};
    {
        const Faults faults([&](const QByteArray &call, const QString &) {
            return call == "pthread_create" && calls++ == 0 ? EPERM : 0;
        });
        QVERIFY(pool.poolAndStart(thread, QThread::HighPriority));
        QCOMPARE(faults.hits(), 1);
    }
    QCOMPARE(calls.load(), 2);
    thread->letGo();
    QVERIFY(pool.waitAll(LongTime));
    QTRY_VERIFY_WITH_TIMEOUT(!thread, LongTime);
}

void tst_Faults::threadForWhichThereIsNoRoomDisturbsNoOther()
{
    ZThreadPool pool;
    std::vector<QPointer<Runner>> threads;
    std::unique_ptr<Runner> refused;
    for (int i = 0; i < 3; ++i) {
        auto *thread = new Runner;
        if (i == 1) {
            const Faults faults("pthread_create", EAGAIN);
            QVERIFY(!pool.poolAndStart(thread, QThread::NormalPriority));
            refused.reset(thread);
        } else {
            QVERIFY(pool.poolAndStart(thread, QThread::NormalPriority));
            threads.emplace_back(thread);
        }
    }
    messages().take(QtCriticalMsg);
    QCOMPARE(pool.printd().size(), 2);
    QVERIFY(!pool.waitAll(0));
    for (const QPointer<Runner> &thread : threads)
        thread->letGo();
    QVERIFY(pool.waitAll(LongTime));
    for (const QPointer<Runner> &thread : threads)
        QTRY_VERIFY_WITH_TIMEOUT(!thread, LongTime);
}

void tst_Faults::activityForWhichThereIsNoRoomIsRefused()
{
    Scheduler scheduler;
    auto refused = QSharedPointer<Activity>::create();
    {
        const Faults faults("pthread_create", EAGAIN);
        QVERIFY(!scheduler.service.schedule0(refused));
        QCOMPARE(faults.hits(), 1);
    }
    QCOMPARE(messages().take(QtCriticalMsg).size(), 1); // by Qt
    QVERIFY(refused->isUntouched());
    QCOMPARE(scheduler.pool()->printd(), QJsonArray());
    scheduler.service.schedule0(refused);
    QVERIFY(refused->hasRun());
    const QWeakPointer<Activity> weak = refused;
    refused.clear();
    QTRY_VERIFY_WITH_TIMEOUT(!weak, LongTime);
}

void tst_Faults::activityMayBeRefusedByAnActivity()
{
    Scheduler scheduler;
    const auto inner = QSharedPointer<Activity>::create();
    std::atomic_bool isRefused{false};
    const auto outer = QSharedPointer<Activity>::create([&] {
        const Faults faults("pthread_create", EAGAIN);
        isRefused = !scheduler.service.schedule0(inner);
    });
    scheduler.service.schedule0(outer);
    QVERIFY(outer->hasRun());
    QVERIFY(isRefused);
    QVERIFY(scheduler.pool()->waitAll(LongTime));
    QCOMPARE(messages().take(QtCriticalMsg).size(), 1); // by Qt
    scheduler.service.schedule0(inner);
    QVERIFY(inner->hasRun());
}

void tst_Faults::refusedActivitiesTakeNothingFromOthers()
{
    constexpr int Descriptors = 256;
    Scheduler scheduler;
    const FewDescriptors few(Descriptors);
    {
        const Faults faults("pthread_create", EAGAIN);
        for (int i = 0; i < Descriptors; ++i)
            QVERIFY(!scheduler.service.schedule0(QSharedPointer<Activity>::create()));
        QCOMPARE(faults.hits(), Descriptors);
    }
    messages().take(QtCriticalMsg);
    const auto other = QSharedPointer<Activity>::create();
    scheduler.service.schedule0(other);
    QVERIFY(other->hasRun());
}

void tst_Faults::jobForWhichThereIsNoRoomDisturbsNoOther_data()
{
    QTest::addColumn<bool>("force");
    QTest::newRow("queued") << false;
    QTest::newRow("forced") << true;
}

void tst_Faults::jobForWhichThereIsNoRoomDisturbsNoOther()
{
    QFETCH(bool, force);
    // Never destroyed: Qt's pool would wait for the thread that it could not start.
    static auto &pools = *new std::vector<std::unique_ptr<ZJobPool>>;
    pools.push_back(std::make_unique<ZJobPool>(2, -1));
    ZJobPool &pool = *pools.back();
    QSemaphore leave;
    const auto first = QSharedPointer<Job>::create(&leave);
    pool.start(first, false, 0);
    QVERIFY(first->hasRun());
    static auto &refused = *new std::vector<QSharedPointer<Job>>;
    refused.push_back(QSharedPointer<Job>::create());
    {
        const Faults faults("pthread_create", EAGAIN);
        pool.start(refused.back(), force, 0);
        QCOMPARE(faults.hits(), 1); // it is not tried for ever
    }
    QCOMPARE(messages().take(QtCriticalMsg).size(), 1); // by Qt
    QVERIFY(refused.back()->isUntouched());

    leave.release();
    const auto other = QSharedPointer<Job>::create();
    pool.start(other, false, 0);
    QVERIFY(other->hasRun());
    QEXPECT_FAIL("", "Qt counts the thread as running", Continue);
    QVERIFY(pool.waitAll(100, false));
}

void tst_Faults::hostTellsWhyItsFileCannotBeRead_data()
{
    QTest::addColumn<QString>("call");
    QTest::addColumn<int>("error");
    QTest::newRow("not allowed") << QStringLiteral("open") << EACCES;
    QTest::newRow("no descriptor") << QStringLiteral("open") << EMFILE;
    QTest::newRow("gone") << QStringLiteral("open") << ENOENT;
    QTest::newRow("bad disk") << QStringLiteral("read") << EIO;
}

void tst_Faults::hostTellsWhyItsFileCannotBeRead()
{
    QFETCH(QString, call);
    QFETCH(int, error);
    for (const QStringList &options : {QStringList(), QStringList{QStringLiteral("--check")}}) {
        FailingHost host({}, QStringLiteral("%1 %2 config.json").arg(call).arg(error));
        host.start(options);
        QCOMPARE(host.end(), 2);
        QCOMPARE(host.written(), QStringLiteral("zhost: cannot read %1: %2\n").arg(host.file(), reason(error)));
    }
}

void tst_Faults::hostTellsThatItCannotHearSignals()
{
    const Folder deployed, hotDeploy;
    FailingHost host(watching(deployed.path(), hotDeploy.path()), QStringLiteral("pipe2 %1").arg(EMFILE));
    host.start();
    QCOMPARE(host.end(), 1);
    QCOMPARE(host.written(), QStringLiteral("zhost: cannot make a pipe for signals: %1\n").arg(reason(EMFILE)));
}

void tst_Faults::hostRunsOn_data()
{
    QTest::addColumn<QString>("failing");
    QTest::addColumn<QString>("line");
    QTest::newRow("no thread") << QStringLiteral("pthread_create %1").arg(EAGAIN)
                               << QStringLiteral("zhost: no room for one more thread: ZDbusActivity(//zhost/printd, "
                                                 "ZPeriodicSchedule(1000))");
    QTest::newRow("no watch") << QStringLiteral("inotify_add_watch %1").arg(ENOSPC)
                              << QStringLiteral("%1 cannot be watched: it is looked at every two seconds");
    QTest::newRow("no rename") << QStringLiteral("renameat2 %1").arg(EROFS)
                               << QStringLiteral("failed to rename %1/libfoo.so to %2/libfoo.so");
#ifndef __SANITIZE_THREAD__ // which needs memory itself
    QTest::newRow("no memory for the linker") << QStringLiteral("dlopen %1 libfoo").arg(ENOMEM)
                                              << QStringLiteral("failed to load libfoo: Cannot load library");
#endif
}

void tst_Faults::hostRunsOn()
{
    QFETCH(QString, failing);
    QFETCH(QString, line);
    const Folder deployed, hotDeploy;
    hotDeploy.drop(Plain, Foo);
    QJsonObject configuration = watching(deployed.path(), hotDeploy.path());
    configuration.insert(QStringLiteral("schedule"),
                         QJsonArray{QJsonObject{{QStringLiteral("url"), QStringLiteral("//zhost/printd")},
                                                {QStringLiteral("every"), 1000}}});
    FailingHost host(configuration, failing);
    host.start();
    line.replace(QStringLiteral("%1"), hotDeploy.path()).replace(QStringLiteral("%2"), deployed.path());
    QTRY_VERIFY2_WITH_TIMEOUT(host.hasWritten(line), qPrintable(line), LongTime);
    QCOMPARE(host.stop(), 0);
    QCOMPARE(hotDeploy.files().size() + deployed.files().size(), 1);
}

void tst_Faults::hostDoesWithoutWatching()
{
    const Folder deployed, hotDeploy;
    FailingHost host(watching(deployed.path(), hotDeploy.path()), QStringLiteral("inotify_init %1").arg(EMFILE));
    host.start();
    QTRY_VERIFY_WITH_TIMEOUT(host.hasWritten(QStringLiteral("hot-deploy folder changed")), LongTime);
    hotDeploy.drop(Plain, Foo);
    QTRY_VERIFY_WITH_TIMEOUT(host.hasWritten(QStringLiteral("loaded: libfoo")), LongTime);
    QCOMPARE(host.stop(), 0);
}

void tst_Faults::hostRunsOnWithoutItsFilesAndFolders()
{
    const Folder deployed, hotDeploy;
    FailingHost host(watching(deployed.path(), hotDeploy.path()));
    host.start();
    QTRY_VERIFY_WITH_TIMEOUT(host.hasWritten(QStringLiteral("hot-deploy folder changed")), LongTime);
    QVERIFY(QFile::remove(host.file()));
    QVERIFY(QDir(deployed.path()).removeRecursively()); // with the host's own note
    hotDeploy.drop(Plain, Foo);
    const QString failed = QStringLiteral("failed to rename %1/libfoo.so to %2/libfoo.so");
    QTRY_VERIFY_WITH_TIMEOUT(host.hasWritten(failed.arg(hotDeploy.path(), deployed.path())), LongTime);
    QVERIFY(QDir().mkdir(deployed.path()));
    hotDeploy.drop(Plain, QStringLiteral("libgoo.so"));
    QTRY_VERIFY_WITH_TIMEOUT(host.hasWritten(QStringLiteral("loaded: libgoo")), LongTime);
    QVERIFY(host.written().contains(QStringLiteral("loaded: libfoo")));
    QVERIFY(QDir(hotDeploy.path()).removeRecursively());
    QCOMPARE(host.stop(), 0);
}

QTEST_GUILESS_MAIN(tst_Faults)
#include "tst_faults.moc"
