// SPDX-License-Identifier: Apache-2.0
#include "runninghost.h"
#include "testcase.h"

#include <QFile>
#include <QRegularExpression>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

/// How the program zhost ends.
class tst_ZHostEnds : public TestCase
{
    Q_OBJECT

private Q_SLOTS:
    void startsInOrderAndStopsWellOn_data();
    void startsInOrderAndStopsWellOn();
    void secondSignalEndsAtOnce();
    void signalDuringTheStartIsHeardAfterIt();
    void secondSignalEndsAStartThatHangs();
    void saysThatAPluginHasQuit_data();
    void saysThatAPluginHasQuit();
    void namesThePluginThatCallsExit_data();
    void namesThePluginThatCallsExit();
    void namesThePluginThatCallsExitDuringTheStop();
    void callIsNotMadeWhenAPluginEndsTheHost_data();
    void callIsNotMadeWhenAPluginEndsTheHost();
    void callThatASignalPreventsIsNotHandled();
    void stopIsForcedHalfAMinuteAfterTheSignal_data();
    void stopIsForcedHalfAMinuteAfterTheSignal();
    void stopIsForcedWhereNobodyReadsWhatIsSaid();
    void pluginMayNeedTheEventLoopToDie();
    void whatIsHeldToTheEndGoesWhileItsServicesAreThere_data();
    void whatIsHeldToTheEndGoesWhileItsServicesAreThere();
#ifdef HAS_BRINGER
    void endsWellAfterAPluginThatHasBroughtALibraryOfQts();
#endif
    void stopWaitsForWhatPluginsScheduled();
    void stopNamesWhatDoesNotEnd();
    void runsWithoutStandardStreams();
    void livesThroughABrokenPipe();
};

namespace {

/// Whether its first thread waits in the kernel.
bool sleeps(const QProcess &process)
{
    QFile stat(QStringLiteral("/proc/%1/task/%1/stat").arg(process.processId()));
    stat.open(QIODevice::ReadOnly);
    const QByteArray line = stat.readAll();
    return line.mid(line.lastIndexOf(')') + 2, 1) == "S";
}

} // namespace

void tst_ZHostEnds::startsInOrderAndStopsWellOn_data()
{
    QTest::addColumn<int>("number");
    QTest::newRow("SIGINT") << SIGINT;
    QTest::newRow("SIGTERM") << SIGTERM;
}

void tst_ZHostEnds::startsInOrderAndStopsWellOn()
{
    QFETCH(int, number);
    const Folder deployed, hotDeploy;
    QVERIFY(deployed.drop(QStringLiteral("keeper")));
    Running host(loaderOf(deployed, hotDeploy, {QStringLiteral("keeper")}));
    // The logger was there before the loader, and the loader's own lines come through it.
    QTRY_VERIFY_WITH_TIMEOUT(
        host.hasWritten(QStringLiteral("[zdefault] [2] hot-deploy folder changed: ") + hotDeploy.path()), Patience);
    QVERIFY(host.written().indexOf(QStringLiteral("[zdefault] [1] loaded: keeper")) >= 0);
    host.signal(number);
    QTRY_COMPARE_WITH_TIMEOUT(host.process().state(), QProcess::NotRunning, Patience);
    QCOMPARE(host.process().exitStatus(), QProcess::NormalExit);
    QCOMPARE(host.process().exitCode(), 0);
}

void tst_ZHostEnds::secondSignalEndsAtOnce()
{
    // Its event loop is kept busy by nobody here, so both signals are sent before it can have looked at the first.
    const Folder deployed, hotDeploy;
    Running host(loaderOf(deployed, hotDeploy));
    QTRY_VERIFY_WITH_TIMEOUT(host.hasWritten(QStringLiteral("hot-deploy folder changed: ") + hotDeploy.path()),
                             Patience);
    QTRY_VERIFY_WITH_TIMEOUT(sleeps(host.process()), Patience);
    host.signal(SIGSTOP);
    host.signal(SIGTERM);
    host.signal(SIGINT);
    host.signal(SIGCONT);
    QTRY_COMPARE_WITH_TIMEOUT(host.process().state(), QProcess::NotRunning, Patience);
    QCOMPARE(host.process().exitStatus(), QProcess::CrashExit);
}

void tst_ZHostEnds::signalDuringTheStartIsHeardAfterIt()
{
    const Folder deployed, hotDeploy;
    QVERIFY(deployed.drop(QStringLiteral("unruly")));
    Running host(loaderOf(deployed, hotDeploy, {QStringLiteral("unruly")}), QStringLiteral("read"));
    QTRY_VERIFY_WITH_TIMEOUT(host.hasWritten(QStringLiteral("unruly: here\n")), Patience);
    host.signal(SIGTERM);
    host.process().write("go on");
    QTRY_COMPARE_WITH_TIMEOUT(host.process().state(), QProcess::NotRunning, Patience);
    QVERIFY(host.hasWritten(QStringLiteral("loaded: unruly\n")));
    QVERIFY(host.hasWritten(QStringLiteral("unloaded: libunruly\n")));
    QCOMPARE(host.process().exitStatus(), QProcess::NormalExit);
    QCOMPARE(host.process().exitCode(), 0);
}

void tst_ZHostEnds::secondSignalEndsAStartThatHangs()
{
    const Folder deployed, hotDeploy;
    QVERIFY(deployed.drop(QStringLiteral("unruly")));
    Running host(loaderOf(deployed, hotDeploy, {QStringLiteral("unruly")}), QStringLiteral("read"));
    QTRY_VERIFY_WITH_TIMEOUT(host.hasWritten(QStringLiteral("unruly: here\n")), Patience);
    host.signal(SIGTERM);
    host.signal(SIGINT);
    QTRY_COMPARE_WITH_TIMEOUT(host.process().state(), QProcess::NotRunning, Patience);
    QCOMPARE(host.process().exitStatus(), QProcess::CrashExit);
}

void tst_ZHostEnds::saysThatAPluginHasQuit_data()
{
    QTest::addColumn<bool>("atStart");
    QTest::newRow("while the host starts") << true;
    QTest::newRow("when it is dropped") << false;
}

void tst_ZHostEnds::saysThatAPluginHasQuit()
{
    QFETCH(bool, atStart);
    const Folder deployed, hotDeploy;
    if (atStart)
        QVERIFY(hotDeploy.drop(QStringLiteral("unruly")));
    Running host(loaderOf(deployed, hotDeploy), QStringLiteral("quit"));
    QTRY_VERIFY_WITH_TIMEOUT(host.hasWritten(QStringLiteral("hot-deploy folder changed: ") + hotDeploy.path()),
                             Patience);
    if (!atStart)
        QVERIFY(hotDeploy.drop(QStringLiteral("unruly")));
    QTRY_COMPARE_WITH_TIMEOUT(host.process().state(), QProcess::NotRunning, Patience);
    QVERIFY(host.hasWritten(QStringLiteral("loaded: libunruly\n")));
    QVERIFY(host.hasWritten(QStringLiteral("unloaded: libunruly\n")));
    QVERIFY2(host.hasWritten(QStringLiteral("zhost: ended by quit(), called by a plugin\n")),
             qPrintable(host.written()));
    QCOMPARE(host.exitCode(), 3);
}

void tst_ZHostEnds::namesThePluginThatCallsExit_data()
{
    QTest::addColumn<QString>("deed");
    QTest::newRow("as it is loaded") << "exit";
    QTest::newRow("on a thread of its own") << "exit on a thread";
}

void tst_ZHostEnds::namesThePluginThatCallsExit()
{
    QFETCH(QString, deed);
    const Folder deployed, hotDeploy;
    QVERIFY(deployed.drop(QStringLiteral("unruly")));
    Running host(loaderOf(deployed, hotDeploy, {QStringLiteral("unruly")}), deed);
    QTRY_COMPARE_WITH_TIMEOUT(host.process().state(), QProcess::NotRunning, Patience);
    const QString file = deployed.filePath(QStringLiteral("libunruly.so"));
    QVERIFY2(host.hasWritten(QStringLiteral("zhost: ended by exit(0), called by %1\n").arg(file)),
             qPrintable(host.written()));
    QCOMPARE(host.exitCode(), 3);
}

void tst_ZHostEnds::namesThePluginThatCallsExitDuringTheStop()
{
    const Folder deployed, hotDeploy;
    QVERIFY(deployed.drop(QStringLiteral("unruly")));
    Running host(loaderOf(deployed, hotDeploy, {QStringLiteral("unruly")}), QStringLiteral("exit when asked to quit"));
    QTRY_VERIFY_WITH_TIMEOUT(host.hasWritten(QStringLiteral("hot-deploy folder changed: ")), Patience);
    host.stop();
    const QString file = deployed.filePath(QStringLiteral("libunruly.so"));
    QVERIFY2(host.hasWritten(QStringLiteral("zhost: ended by exit(0), called by %1\n").arg(file)),
             qPrintable(host.written()));
    QCOMPARE(host.exitCode(), 3);
}

void tst_ZHostEnds::callIsNotMadeWhenAPluginEndsTheHost_data()
{
    QTest::addColumn<QString>("deed");
    QTest::newRow("quit") << "quit";
    QTest::newRow("exit") << "exit";
}

void tst_ZHostEnds::callIsNotMadeWhenAPluginEndsTheHost()
{
    QFETCH(QString, deed);
    const Folder deployed, hotDeploy;
    QVERIFY(deployed.drop(QStringLiteral("unruly")));
    Running host(loaderOf(deployed, hotDeploy, {QStringLiteral("unruly")}), {{QStringLiteral("UNRULY"), deed}},
                 {QStringLiteral("--call"), QStringLiteral("//zhost/printd")});
    QTRY_COMPARE_WITH_TIMEOUT(host.process().state(), QProcess::NotRunning, Patience);
    QVERIFY2(host.hasWritten(QStringLiteral("zhost: ended by %1(").arg(deed)), qPrintable(host.written()));
    QVERIFY2(!host.hasWritten(QStringLiteral("endpoints")), qPrintable(host.written()));
    QCOMPARE(host.exitCode(), 3);
}

void tst_ZHostEnds::callThatASignalPreventsIsNotHandled()
{
    const Folder deployed, hotDeploy;
    QVERIFY(deployed.drop(QStringLiteral("unruly")));
    Running host(loaderOf(deployed, hotDeploy, {QStringLiteral("unruly")}),
                 {{QStringLiteral("UNRULY"), QStringLiteral("read")}},
                 {QStringLiteral("--call"), QStringLiteral("//zhost/printd")});
    QTRY_VERIFY_WITH_TIMEOUT(host.hasWritten(QStringLiteral("unruly: here\n")), Patience);
    host.signal(SIGTERM);
    host.process().write("go on");
    QTRY_COMPARE_WITH_TIMEOUT(host.process().state(), QProcess::NotRunning, Patience);
    const bool isAnswered = host.hasWritten(QStringLiteral("endpoints")); // which of the two comes first is left open
    QCOMPARE(host.exitCode(), isAnswered ? 0 : 1);
}

void tst_ZHostEnds::stopIsForcedHalfAMinuteAfterTheSignal_data()
{
    QTest::addColumn<QString>("deed");
    QTest::addColumn<QString>("line");
    QTest::newRow("the start hangs") << "read"
                                     << "zhost: something does not end, while loading unruly; ended by force\n";
    QTest::newRow("a plugin that hears of the end hangs") << "hang when asked to quit"
                                                          << "zhost: something does not end; ended by force\n";
}

void tst_ZHostEnds::stopIsForcedHalfAMinuteAfterTheSignal()
{
    QFETCH(QString, deed);
    QFETCH(QString, line);
    const Folder deployed, hotDeploy;
    QVERIFY(deployed.drop(QStringLiteral("unruly")));
    const QString others = QString::fromLocal8Bit(qgetenv("LD_PRELOAD"));
    Running host(loaderOf(deployed, hotDeploy, {QStringLiteral("unruly")}),
                 {{QStringLiteral("UNRULY"), deed},
                  {QStringLiteral("LD_PRELOAD"), QStringLiteral(HASTY_ALARM " ") + others},
                  {QStringLiteral("ASAN_OPTIONS"), QStringLiteral("verify_asan_link_order=0")}},
                 {});
    QTRY_VERIFY_WITH_TIMEOUT(host.hasWritten(QStringLiteral("unruly: here\n")), Patience);
    host.signal(SIGTERM);
    QTRY_COMPARE_WITH_TIMEOUT(host.process().state(), QProcess::NotRunning, Patience);
    QVERIFY2(host.hasWritten(line), qPrintable(host.written()));
    QCOMPARE(host.exitCode(), 1);
}

void tst_ZHostEnds::stopIsForcedWhereNobodyReadsWhatIsSaid()
{
#ifdef __SANITIZE_THREAD__
    return QTest::qSkip("the thread sanitizer gives no signal to who is held up in a write", __FILE__, __LINE__);
#endif
    const Folder deployed, hotDeploy, folder;
    QVERIFY(deployed.drop(QStringLiteral("unruly")));
    const QString path = folder.filePath(QStringLiteral("pipe"));
    QCOMPARE(mkfifo(QFile::encodeName(path).constData(), 0600), 0);
    const int pipe = open(QFile::encodeName(path).constData(), O_RDWR | O_NONBLOCK | O_CLOEXEC);
    const QJsonObject configuration = loaderOf(deployed, hotDeploy, {QStringLiteral("unruly")});
    QVERIFY(folder.write(QStringLiteral("config.json"), QJsonDocument(configuration).toJson()));
    QProcess host;
    const QString others = QString::fromLocal8Bit(qgetenv("LD_PRELOAD"));
    host.setProcessEnvironment(
        environmentWith({{QStringLiteral("UNRULY"), QStringLiteral("wait")}, // it says something as it goes
                         {QStringLiteral("LD_PRELOAD"), QStringLiteral(HASTY_ALARM " ") + others},
                         {QStringLiteral("ASAN_OPTIONS"), QStringLiteral("verify_asan_link_order=0")}}));
    host.setStandardErrorFile(path, QIODevice::Append);
    host.start(QStringLiteral(ZHOST), {folder.filePath(QStringLiteral("config.json"))});
    QByteArray said;
    const auto hasLoaded = [&said, pipe] {
        char byte = 0;
        while (read(pipe, &byte, 1) == 1)
            said += byte;
        return said.contains("loaded: unruly\n");
    };
    QTRY_VERIFY_WITH_TIMEOUT(hasLoaded(), Patience);
    while (write(pipe, "", 1) == 1) {
    } // to the last byte
    kill(static_cast<pid_t>(host.processId()), SIGTERM);
    const bool hasEnded = host.waitForFinished(Patience);
    close(pipe);
    QVERIFY(hasEnded);
    QCOMPARE(host.exitStatus(), QProcess::NormalExit);
    QCOMPARE(host.exitCode(), 1);
}

void tst_ZHostEnds::pluginMayNeedTheEventLoopToDie()
{
    const Folder deployed, hotDeploy;
    QVERIFY(deployed.drop(QStringLiteral("unruly")));
    Running host(loaderOf(deployed, hotDeploy, {QStringLiteral("unruly")}), QStringLiteral("wait"));
    QTRY_VERIFY_WITH_TIMEOUT(host.hasWritten(QStringLiteral("loaded: unruly\n")), Patience);
    host.signal(SIGTERM);
    QTRY_COMPARE_WITH_TIMEOUT(host.process().state(), QProcess::NotRunning, Patience);
    QVERIFY(host.hasWritten(QStringLiteral("unruly: waited\n")));
    QVERIFY(host.hasWritten(QStringLiteral("unloaded: libunruly\n")));
    QCOMPARE(host.process().exitCode(), 0);
}

void tst_ZHostEnds::whatIsHeldToTheEndGoesWhileItsServicesAreThere_data()
{
    QTest::addColumn<QString>("holder");
    QTest::addColumn<int>("remnants");
    for (const char *const holder : {"activity", "thread", "service"}) {
        QTest::addRow("by its %s", holder) << holder << 0;
        QTest::addRow("by its %s, and leaves something behind", holder) << QString(holder) + " remnants" << 4;
    }
}

void tst_ZHostEnds::whatIsHeldToTheEndGoesWhileItsServicesAreThere()
{
    QFETCH(QString, holder);
    QFETCH(int, remnants);
    const Folder deployed, hotDeploy;
    QVERIFY(deployed.drop(QStringLiteral("lasting")));
    Running host(loaderOf(deployed, hotDeploy, {QStringLiteral("lasting")}), holder, QStringLiteral("LASTING"));
    QTRY_VERIFY_WITH_TIMEOUT(host.hasWritten(QStringLiteral("hot-deploy folder changed: ")), Patience);
    QVERIFY(!host.hasWritten(QStringLiteral("gone")));
    host.stop();
    QVERIFY2(host.hasEndedWell(), qPrintable(host.written()));
    const QStringList lines = host.written().split(QLatin1Char('\n')).filter(QStringLiteral("lasting"));
    QVERIFY2(host.written().contains(QStringLiteral("lasting: gone\n")), qPrintable(host.written()));
    QCOMPARE(host.written().count(QStringLiteral(" more\n")), remnants);
    QVERIFY2(lines.last().endsWith(QStringLiteral("unloaded: liblasting")), qPrintable(host.written()));
}

#ifdef HAS_BRINGER
/// Qt is told to call a library of its own at the end, which only a plugin had needed.
void tst_ZHostEnds::endsWellAfterAPluginThatHasBroughtALibraryOfQts()
{
    const Folder deployed, hotDeploy;
    QVERIFY(deployed.drop(QStringLiteral("bringer")));
    Running host(loaderOf(deployed, hotDeploy, {QStringLiteral("bringer")}));
    QTRY_VERIFY_WITH_TIMEOUT(host.hasWritten(QStringLiteral("unloaded: libbringer\n")), Patience);
    host.signal(SIGTERM);
    QTRY_COMPARE_WITH_TIMEOUT(host.process().state(), QProcess::NotRunning, Patience);
    QCOMPARE(host.process().exitStatus(), QProcess::NormalExit);
    QCOMPARE(host.process().exitCode(), 0);
}
#endif

void tst_ZHostEnds::stopWaitsForWhatPluginsScheduled()
{
    const Folder deployed, hotDeploy;
    QVERIFY(deployed.drop(QStringLiteral("worker")));
    Running host(loaderOf(deployed, hotDeploy, {QStringLiteral("worker")}));
    QTRY_VERIFY_WITH_TIMEOUT(host.hasWritten(QStringLiteral("hot-deploy folder changed: ") + hotDeploy.path()),
                             Patience);
    host.signal(SIGTERM);
    QTRY_COMPARE_WITH_TIMEOUT(host.process().state(), QProcess::NotRunning, Patience);
    host.hasWritten(QString());
    QVERIFY2(!host.written().contains(QStringLiteral("left running")), qPrintable(host.written()));
    QCOMPARE(host.process().exitStatus(), QProcess::NormalExit);
    QCOMPARE(host.process().exitCode(), 0);
}

void tst_ZHostEnds::stopNamesWhatDoesNotEnd()
{
    const Folder deployed, hotDeploy;
    QVERIFY(deployed.drop(QStringLiteral("stubborn")));
    Running host(loaderOf(deployed, hotDeploy, {QStringLiteral("stubborn")}));
    QTRY_VERIFY_WITH_TIMEOUT(host.hasWritten(QStringLiteral("hot-deploy folder changed: ") + hotDeploy.path()),
                             Patience);
    host.signal(SIGTERM);
    QTRY_VERIFY_WITH_TIMEOUT(host.hasWritten(QStringLiteral("zhost: left running: ZSchedulerThread-work\n")), Patience);
    QTRY_COMPARE_WITH_TIMEOUT(host.process().state(), QProcess::NotRunning, Patience);
    QCOMPARE(host.process().exitStatus(), QProcess::NormalExit);
    QCOMPARE(host.process().exitCode(), 1);
}

void tst_ZHostEnds::runsWithoutStandardStreams()
{
    const Folder folder, deployed, hotDeploy;
    folder.write(QStringLiteral("config.json"), QJsonDocument(loaderOf(deployed, hotDeploy)).toJson());
    QVERIFY(hotDeploy.drop(QStringLiteral("greeter")));
    QProcess host;
    host.start(QStringLiteral("/bin/sh"), {QStringLiteral("-c"), QStringLiteral("exec \"$0\" \"$1\" <&- >&- 2>&-"),
                                           QStringLiteral(ZHOST), folder.filePath(QStringLiteral("config.json"))});
    QVERIFY(host.waitForStarted());
    QTRY_COMPARE_WITH_TIMEOUT(deployed.files(), QStringList{QStringLiteral("libgreeter.so")}, Patience);
    for (const int descriptor : {0, 1, 2}) {
        const QString link = QStringLiteral("/proc/%1/fd/%2").arg(host.processId()).arg(descriptor);
        QCOMPARE(QFile::symLinkTarget(link), QStringLiteral("/dev/null"));
    }
    host.terminate();
    QVERIFY(host.waitForFinished(Patience));
    QCOMPARE(host.exitStatus(), QProcess::NormalExit);
    QCOMPARE(host.exitCode(), 0);
}

void tst_ZHostEnds::livesThroughABrokenPipe()
{
    const Folder deployed, hotDeploy;
    Running host(loaderOf(deployed, hotDeploy));
    QTRY_VERIFY_WITH_TIMEOUT(host.hasWritten(QStringLiteral("hot-deploy folder changed: ")), Patience);
    host.signal(SIGPIPE);
    QVERIFY(hotDeploy.drop(QStringLiteral("greeter")));
    QTRY_COMPARE_WITH_TIMEOUT(deployed.files(), QStringList{QStringLiteral("libgreeter.so")}, Patience);
    QFile status(QStringLiteral("/proc/%1/status").arg(host.process().processId()));
    QVERIFY(status.open(QIODevice::ReadOnly));
    const QRegularExpression mask(QStringLiteral("SigIgn:\\s*([0-9a-f]+)"));
    const quint64 ignored = mask.match(QString::fromLatin1(status.readAll())).captured(1).toULongLong(nullptr, 16);
    QCOMPARE(ignored & (1ULL << (SIGPIPE - 1)), 0ULL); // the programs that plugins start would inherit that
    host.stop();
    QVERIFY(host.hasEndedWell());
}

QTEST_GUILESS_MAIN(tst_ZHostEnds)

#include "tst_zhostends.moc"
