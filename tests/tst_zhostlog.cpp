// SPDX-License-Identifier: Apache-2.0
#include "runninghost.h"
#include "testcase.h"

#include <QFile>

#include <sys/stat.h>

/// The lines that zhost writes.
class tst_ZHostLog : public TestCase
{
    Q_OBJECT

private Q_SLOTS:
    void spellsControlCharactersOut();
    void keepsPluginsForDebugging();
    void tellsTheJournalTheSeverity_data();
    void tellsTheJournalTheSeverity();
};

void tst_ZHostLog::spellsControlCharactersOut()
{
    const Folder deployed, hotDeploy;
    QVERIFY(deployed.drop(QStringLiteral("unruly")));
    Running host(loaderOf(deployed, hotDeploy, {QStringLiteral("unruly")}), QStringLiteral("log"));
    QTRY_VERIFY_WITH_TIMEOUT(host.hasWritten(QStringLiteral("as critical\n")), Patience);
    QVERIFY2(host.written().contains(QStringLiteral("as info\\nzhost: forged\\x1b[2J\\r\\x9b1m\n")),
             qPrintable(host.written()));
    QVERIFY2(host.written().contains(QStringLiteral("as debug\tok\n")), qPrintable(host.written()));
}

void tst_ZHostLog::keepsPluginsForDebugging()
{
    const Folder deployed, hotDeploy;
    QVERIFY(deployed.drop(QStringLiteral("plain")));
    Running host(loaderOf(deployed, hotDeploy, {QStringLiteral("plain")}), QStringLiteral("1"),
                 QStringLiteral("ZDEFAULT_KEEP_PLUGINS"));
    const QString told = QStringLiteral("stays in memory: libplain: ZDEFAULT_KEEP_PLUGINS is set\n");
    QTRY_VERIFY_WITH_TIMEOUT(host.hasWritten(told), Patience);
    QFile maps(QStringLiteral("/proc/%1/maps").arg(host.process().processId()));
    QVERIFY(maps.open(QIODevice::ReadOnly));
    QVERIFY(maps.readAll().contains(QFile::encodeName(deployed.filePath(QStringLiteral("libplain.so")))));
}

void tst_ZHostLog::tellsTheJournalTheSeverity_data()
{
    QTest::addColumn<bool>("isJournal");
    QTest::newRow("stderr is the journal") << true;
    QTest::newRow("stderr is something else") << false;
}

void tst_ZHostLog::tellsTheJournalTheSeverity()
{
    QFETCH(bool, isJournal);
    const Folder folder, deployed, hotDeploy;
    QVERIFY(deployed.drop(QStringLiteral("unruly")));
    QJsonObject configuration = loaderOf(deployed, hotDeploy, {QStringLiteral("unruly")});
    configuration.insert(QStringLiteral("loger"), 1);
    folder.write(QStringLiteral("config.json"), QJsonDocument(configuration).toJson());
    QFile journal(folder.filePath(QStringLiteral("journal")));
    QVERIFY(journal.open(QIODevice::ReadWrite));
    struct stat status;
    QVERIFY(fstat(journal.handle(), &status) == 0);
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert(QStringLiteral("UNRULY"), QStringLiteral("log"));
    environment.insert(QStringLiteral("JOURNAL_STREAM"),
                       QStringLiteral("%1:%2").arg(status.st_dev).arg(status.st_ino + (isJournal ? 0 : 1)));
    QProcess host;
    host.setProcessEnvironment(environment);
    host.setStandardErrorFile(journal.fileName(), QIODevice::Append);
    host.start(QStringLiteral(ZHOST), {folder.filePath(QStringLiteral("config.json"))});
    QString written;
    QTRY_VERIFY_WITH_TIMEOUT((written += QString::fromUtf8(journal.readAll())).contains("as critical\n"), Patience);
    const std::pair<const char *, QString> lines[] = {{"<4>", QStringLiteral("zhost: ")},
                                                      {"<7>", QStringLiteral("as debug")},
                                                      {"<6>", QStringLiteral("as info")},
                                                      {"<4>", QStringLiteral("as warning")},
                                                      {"<3>", QStringLiteral("as critical")}};
    for (const auto &[severity, text] : lines) {
        const QString begin = isJournal ? QString::fromLatin1(severity) + text : text;
        QVERIFY2((QLatin1Char('\n') + written).contains(QLatin1Char('\n') + begin), qPrintable(begin));
    }
    host.terminate();
    QVERIFY(host.waitForFinished(Patience));
}

QTEST_GUILESS_MAIN(tst_ZHostLog)

#include "tst_zhostlog.moc"
