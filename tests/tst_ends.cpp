// SPDX-License-Identifier: Apache-2.0
#include "folder.h"
#include "program.h"
#include "testcase.h"

#include <QFileInfo>
#include <QJsonDocument>
#include <QJsonObject>

#include <memory>
#include <utility>
#include <vector>

#include <csignal>

/// Applications that end, each as its own process.
class tst_Ends : public TestCase
{
    Q_OBJECT

private Q_SLOTS:
    void endsWell_data();
    void endsWell();
    void endsWellUnderRunningThreads_data();
    void endsWellUnderRunningThreads();
    void hostEndsWellWhileAPluginIsLoaded();
    void hostEndsWellWhilePluginsAreDropped_data();
    void hostEndsWellWhilePluginsAreDropped();

private:
    void columns();
    void end();
};

namespace {

// What goes wrong at the end of a process does so rarely: each ends often, and more at a time than there are
// processors.
constexpr int Rounds = 4;
constexpr int AtOnce = 6;

constexpr int Patience = 30000; // milliseconds: a busy machine may take seconds for what is done in one
constexpr int Asked = 5;
const QString Farewell = QStringLiteral("farewell\n");
const QString Code = QStringLiteral("its code ends\n");
const QString System = QStringLiteral("the system ends\n");

std::vector<Result> runAtOnce(int count, const QStringList &arguments)
{
    std::vector<std::unique_ptr<QProcess>> processes;
    for (int i = 0; i < count; ++i) {
        processes.push_back(std::make_unique<QProcess>());
        processes.back()->start(QStringLiteral(ENDS), arguments);
    }
    std::vector<Result> results;
    for (const auto &process : processes)
        results.push_back(finish(*process));
    return results;
}

/// A host that watches a folder. What it writes is collected in `written`.
struct Host
{
    const Folder deployed, hotDeploy;
    QProcess process;
    QString written;

    void start()
    {
        const QJsonObject loader{{QStringLiteral("deployed"), deployed.path()},
                                 {QStringLiteral("hot-deploy"), hotDeploy.path()}};
        const QJsonObject logger{{QStringLiteral("log"), QJsonObject{{QStringLiteral("zdefault"), 3}}}};
        const QJsonObject sections{{QStringLiteral("loader"), loader}, {QStringLiteral("logger"), logger}};
        m_folder.write(QStringLiteral("config.json"), QJsonDocument(sections).toJson());
        process.setProcessChannelMode(QProcess::MergedChannels);
        process.start(QStringLiteral(ZHOST), {m_folder.filePath(QStringLiteral("config.json"))});
    }
    bool hasWritten(const char *text)
    {
        written += QString::fromUtf8(process.readAll());
        return written.contains(QLatin1String(text));
    }
    void terminate() { ::kill(static_cast<pid_t>(process.processId()), SIGTERM); }

private:
    const Folder m_folder;
};

} // namespace

void tst_Ends::columns()
{
    QTest::addColumn<int>("exitCode");
    QTest::addColumn<QString>("err");
}

void tst_Ends::endsWell_data()
{
    columns();
    QTest::newRow("deleted at rest") << 0 << Farewell + System + Code;
    QTest::newRow("deleted before the first event") << 0 << System + Farewell + Code;
    QTest::newRow("deleted untold") << 0 << System;
    QTest::newRow("deleted under delegates") << 0 << System + Farewell + Code;
    QTest::newRow("deleted under a library") << 0 << System;
    QTest::newRow("deleted after the application") << 0 << Farewell + System + Code;
    QTest::newRow("deleted after an application that never ran") << 0 << System + Farewell + Code;
    QTest::newRow("deleted under a plugin that holds itself") << 0 << System + Code;
    QTest::newRow("a library outlives the application") << 0 << System + Code;
    QTest::newRow("an activity quits") << Asked << Farewell + System + Code;
    QTest::newRow("a job quits") << Asked << Farewell + System + Code;
    QTest::newRow("a plugin quits") << Asked << Farewell + System + Code;
    QTest::newRow("a service is replaced while the application quits") << Asked << Farewell + System + Code;
}

void tst_Ends::endsWell() { end(); }

// Qt's global objects go while threads use them: so these are not for the thread sanitizer.
void tst_Ends::endsWellUnderRunningThreads_data()
{
    columns();
    QTest::newRow("threads end with the application") << 0 << System;
    QTest::newRow("a static system") << 0 << Farewell + Code + System;
    QTest::newRow("static services") << 0 << QStringLiteral("the end\n");
    QTest::newRow("main returns") << 0 << Farewell + Code;
    QTest::newRow("main returns before the first event") << 0 << Code;
    QTest::newRow("main returns under a plugin that holds itself") << 0 << Code;
    QTest::newRow("main returns before the application is destroyed") << 0 << Farewell + Code;
    QTest::newRow("main returns as threads end") << 0 << QString();
    QTest::newRow("main returns while others bind") << 0 << Code;
    QTest::newRow("main returns while others load") << 0 << Code;
    QTest::newRow("main returns under a call of the old version") << 0 << QString();
    QTest::newRow("a timer exits") << Asked << Code;
    QTest::newRow("an activity exits") << Asked << Code;
    QTest::newRow("a job exits") << Asked << Code;
    QTest::newRow("a thread exits") << Asked << Code;
    QTest::newRow("a thread exits quickly") << Asked << QString();
    QTest::newRow("a thread exits at once") << Asked << QString();
}

void tst_Ends::endsWellUnderRunningThreads() { end(); }

void tst_Ends::end()
{
    QFETCH(int, exitCode);
    QFETCH(QString, err);
    const Folder deployed, hotDeploy;
    for (const auto &[plugin, file] :
         {std::pair("farewell", "libfarewell.so"), std::pair("farewell", "libparting.1.so"),
          std::pair("plain", "libparting.so"), std::pair("plain", "libplain.so"), std::pair("plain", "libplain.1.so"),
          std::pair("greeter", "libgreeter.so"), std::pair("greeter.2", "libgreeter.2.so")})
        QVERIFY(deployed.drop(QLatin1String(plugin), QLatin1String(file)));
    for (int round = 0; round < Rounds; ++round) {
        const std::vector<Result> results =
            runAtOnce(AtOnce, {QString::fromLatin1(QTest::currentDataTag()), deployed.path(), hotDeploy.path()});
        for (const Result &result : results) {
            QCOMPARE(result.err, err);
            QCOMPARE(result.exitCode, exitCode);
            QCOMPARE(result.out, QString());
        }
    }
}

void tst_Ends::hostEndsWellWhileAPluginIsLoaded()
{
    Host host;
    qputenv("UNRULY", "read"); // it waits for us while it is loaded
    host.start();
    qunsetenv("UNRULY");
    QTRY_VERIFY_WITH_TIMEOUT(host.hasWritten("hot-deploy folder changed"), Patience);
    QVERIFY(host.hotDeploy.drop(QStringLiteral("unruly")));
    QTRY_VERIFY_WITH_TIMEOUT(host.hasWritten("unruly: here"), Patience);
    host.terminate();
    host.process.write("go on");
    const Result result = finish(host.process);
    QCOMPARE(result.exitCode, 0);
    QVERIFY(result.out.contains(QStringLiteral("unloaded: libunruly")));
    QCOMPARE(host.deployed.files(), QStringList{QStringLiteral("libunruly.so")});
    QCOMPARE(host.hotDeploy.files(), QStringList());
}

void tst_Ends::hostEndsWellWhilePluginsAreDropped_data()
{
    QTest::addColumn<int>("before");
    for (int before = 1; before <= 20; ++before)
        QTest::addRow("after %d of them", before) << before;
}

void tst_Ends::hostEndsWellWhilePluginsAreDropped()
{
    QFETCH(int, before);
    Host host;
    host.start();
    QTRY_VERIFY_WITH_TIMEOUT(host.hasWritten("hot-deploy folder changed"), Patience);
    QStringList files;
    for (int i = 0; i < 24; ++i) {
        if (i == before)
            host.terminate();
        files.append(QStringLiteral("libplain%1.so").arg(i, 2, 10, QLatin1Char('0')));
        QVERIFY(host.hotDeploy.drop(QStringLiteral("plain"), files.last()));
    }
    const Result result = finish(host.process);
    QCOMPARE(result.exitCode, 0);
    QStringList left = host.deployed.files() + host.hotDeploy.files(); // each in just one of them
    left.sort();
    QCOMPARE(left, files);
    const QString log = host.written + result.out;
    const QStringList deployed = host.deployed.files();
    for (const QString &file : deployed) { // what was taken was loaded, and unloaded again
        const QString name = QFileInfo(file).completeBaseName();
        QVERIFY2(log.contains(QStringLiteral("loaded: %1\n").arg(name)), qPrintable(log));
        QVERIFY2(log.contains(QStringLiteral("unloaded: %1\n").arg(name)), qPrintable(log));
    }
}

QTEST_GUILESS_MAIN(tst_Ends)

#include "tst_ends.moc"
