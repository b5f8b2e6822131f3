// SPDX-License-Identifier: Apache-2.0
#include "runninghost.h"
#include "testcase.h"

#include <QFile>

#include <algorithm>
#include <ctime>

#include <sys/socket.h>
#include <sys/time.h>
#include <sys/un.h>
#include <unistd.h>

/// What zhost tells systemd.
class tst_ServiceManager : public TestCase
{
    Q_OBJECT

private Q_SLOTS:
    void isReadyWhenAllIsLoaded();
    void feedsTheWatchdogWhileItsEventLoopRuns();
    void tellsOfAReload_data();
    void tellsOfAReload();
    void doesNotReloadDuringTheStop();
    void saysNothingOfACall();
    void livesWithoutTheSocketThatIsNamed();
};

namespace {

/// The socket on which systemd would listen.
class Socket
{
public:
    Socket()
    {
        sockaddr_un address = {};
        address.sun_family = AF_UNIX;
        const QByteArray name = QFile::encodeName(path());
        std::copy(name.begin(), name.end(), address.sun_path);
        if (bind(m_descriptor, reinterpret_cast<sockaddr *>(&address), sizeof address) != 0)
            qFatal("cannot bind %s", name.constData());
    }
    ~Socket() { close(m_descriptor); }

    QString path() const { return m_folder.filePath(QStringLiteral("notify")); }
    /// For a host whose watchdog bites after `watchdog` milliseconds, if that is not 0.
    QMap<QString, QString> variables(int watchdog = 0) const
    {
        QMap<QString, QString> result{{QStringLiteral("NOTIFY_SOCKET"), path()}};
        if (watchdog > 0)
            result.insert(QStringLiteral("WATCHDOG_USEC"), QString::number(watchdog * 1000));
        return result;
    }

    /// The next message; null if none comes in time.
    QString next(int milliseconds = Patience)
    {
        const timeval limit{milliseconds / 1000, milliseconds % 1000 * 1000};
        setsockopt(m_descriptor, SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof limit);
        return receive(0);
    }
    /// Takes what has been sent until now.
    void drain()
    {
        while (!receive(MSG_DONTWAIT).isNull()) {
        }
    }

private:
    Q_DISABLE_COPY(Socket)
    QString receive(int flags)
    {
        char buffer[4096];
        const ssize_t size = recv(m_descriptor, buffer, sizeof buffer, flags);
        return size < 0 ? QString() : QString::fromUtf8(buffer, int(size));
    }

    const Folder m_folder;
    const int m_descriptor = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
};

const QString Unruly = QStringLiteral("unruly");
const QString Keeper = QStringLiteral("keeper");

/// With the plugin "unruly", which keeps the event loop busy when it is loaded, until something is written to it.
QMap<QString, QString> busy(QMap<QString, QString> variables)
{
    variables.insert(QStringLiteral("UNRULY"), QStringLiteral("read"));
    return variables;
}

qint64 monotonicMicroseconds()
{
    timespec now;
    clock_gettime(CLOCK_MONOTONIC, &now);
    return qint64(now.tv_sec) * 1000000 + now.tv_nsec / 1000;
}

void goOn(Running &host)
{
    host.process().write("go on");
    host.process().waitForBytesWritten(Patience);
}

} // namespace

void tst_ServiceManager::isReadyWhenAllIsLoaded()
{
    const Folder deployed, hotDeploy;
    QVERIFY(deployed.drop(Keeper));
    QVERIFY(deployed.drop(Unruly));
    Socket socket;
    Running host(loaderOf(deployed, hotDeploy, {Keeper, Unruly}), busy(socket.variables()), {});
    QTRY_VERIFY_WITH_TIMEOUT(host.hasWritten(QStringLiteral("unruly: here\n")), Patience);
    QCOMPARE(socket.next(100), QString()); // not before
    goOn(host);
    QCOMPARE(socket.next(), QStringLiteral("READY=1\nSTATUS=2 plugin files in memory, of %1").arg(deployed.path()));
    host.stop();
    QVERIFY2(host.hasEndedWell(), qPrintable(host.written()));
    QCOMPARE(socket.next(), QStringLiteral("STOPPING=1\nWATCHDOG=1"));
    QCOMPARE(socket.next(1), QString()); // and nobody feeds a watchdog that is not there
}

void tst_ServiceManager::feedsTheWatchdogWhileItsEventLoopRuns()
{
    constexpr int Time = 400;
    const Folder deployed, hotDeploy;
    Socket socket;
    Running host(loaderOf(deployed, hotDeploy), busy(socket.variables(Time)), {});
    QVERIFY(socket.next().startsWith(QStringLiteral("READY=1\n")));
    const QString alive = QStringLiteral("WATCHDOG=1\nSTATUS=%1 in memory, of ") + deployed.path();
    for (int i = 0; i < 3; ++i)
        QCOMPARE(socket.next(), alive.arg(QStringLiteral("0 plugin files")));

    QVERIFY(hotDeploy.drop(Unruly));
    QTRY_VERIFY_WITH_TIMEOUT(host.hasWritten(QStringLiteral("unruly: here\n")), Patience);
    socket.drain();
    QCOMPARE(socket.next(3 * Time), QString()); // systemd would have ended it by now
    goOn(host);
    QVERIFY(socket.next().startsWith(QStringLiteral("WATCHDOG=1\n")));

    QVERIFY(hotDeploy.drop(Keeper));
    QTRY_COMPARE_WITH_TIMEOUT(socket.next(), alive.arg(QStringLiteral("1 plugin file")), Patience);
    host.stop();
    QVERIFY2(host.hasEndedWell(), qPrintable(host.written()));
}

void tst_ServiceManager::tellsOfAReload_data()
{
    QTest::addColumn<bool>("isWrong");
    QTest::newRow("of a file that is followed") << false;
    QTest::newRow("of a file that is wrong") << true;
}

void tst_ServiceManager::tellsOfAReload()
{
    QFETCH(bool, isWrong);
    const Folder deployed, hotDeploy;
    Socket socket;
    Running host(loaderOf(deployed, hotDeploy), socket.variables(), {});
    const QString ready = socket.next();
    QVERIFY(ready.startsWith(QStringLiteral("READY=1\n")));
    if (isWrong)
        host.configure("{");
    const qint64 before = monotonicMicroseconds();
    host.signal(SIGHUP);
    const QStringList lines = socket.next().split(QLatin1Char('\n'));
    QCOMPARE(lines.size(), 2);
    QCOMPARE(lines.first(), QStringLiteral("RELOADING=1"));
    QVERIFY(lines.last().startsWith(QStringLiteral("MONOTONIC_USEC=")));
    const qint64 time = lines.last().section(QLatin1Char('='), 1).toLongLong();
    QVERIFY(before <= time && time <= monotonicMicroseconds());
    QCOMPARE(socket.next(), ready);
    host.stop();
    QVERIFY2(host.hasEndedWell(), qPrintable(host.written()));
    QCOMPARE(host.written().contains(QStringLiteral(" is wrong\n")), isWrong);
}

void tst_ServiceManager::doesNotReloadDuringTheStop()
{
    const Folder deployed, hotDeploy;
    QVERIFY(deployed.drop(QStringLiteral("stubborn")));
    Socket socket;
    Running host(loaderOf(deployed, hotDeploy, {QStringLiteral("stubborn")}), socket.variables(), {});
    QVERIFY(socket.next().startsWith(QStringLiteral("READY=1\n")));
    host.signal(SIGTERM);
    QVERIFY(socket.next().startsWith(QStringLiteral("STOPPING=1\n")));
    host.signal(SIGHUP); // while it runs the event loop, and waits for what does not end
    QTRY_COMPARE_WITH_TIMEOUT(host.process().state(), QProcess::NotRunning, Patience);
    QVERIFY(host.hasWritten(QStringLiteral("zhost: left running: ZSchedulerThread-work\n")));
    QCOMPARE(host.exitCode(), 1);
    QCOMPARE(socket.next(1), QString());
}

void tst_ServiceManager::saysNothingOfACall()
{
    const Folder deployed, hotDeploy;
    Socket socket;
    Running host(loaderOf(deployed, hotDeploy), socket.variables(1),
                 {QStringLiteral("--call"), QStringLiteral("//zhost/printd")});
    QTRY_COMPARE_WITH_TIMEOUT(host.process().state(), QProcess::NotRunning, Patience);
    QVERIFY2(host.hasEndedWell(), qPrintable(host.written()));
    QCOMPARE(socket.next(1), QString());
}

void tst_ServiceManager::livesWithoutTheSocketThatIsNamed()
{
    const Folder deployed, hotDeploy;
    Running host(loaderOf(deployed, hotDeploy), {{QStringLiteral("NOTIFY_SOCKET"), deployed.filePath(Keeper)}}, {});
    QTRY_VERIFY_WITH_TIMEOUT(host.hasWritten(QStringLiteral("hot-deploy folder changed: ")), Patience);
    host.stop();
    QVERIFY2(host.hasEndedWell(), qPrintable(host.written()));
}

QTEST_GUILESS_MAIN(tst_ServiceManager)

#include "tst_servicemanager.moc"
