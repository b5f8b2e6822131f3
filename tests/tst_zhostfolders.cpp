// SPDX-License-Identifier: Apache-2.0
#include "runninghost.h"
#include "testcase.h"

#include <QFile>

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
    void folderIsFreeWhenItsHostHasEnded_data();
    void folderIsFreeWhenItsHostHasEnded();
    void anyProcessMayHaveTheFolder();
};

namespace {

const QString IsWatching = QStringLiteral("hot-deploy folder changed: ");

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

QTEST_GUILESS_MAIN(tst_ZHostFolders)

#include "tst_zhostfolders.moc"
