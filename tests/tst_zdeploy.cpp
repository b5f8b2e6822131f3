// SPDX-License-Identifier: Apache-2.0
#include "folder.h"
#include "place.h"
#include "program.h"
#include "testcase.h"

#include <QDir>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QRegularExpression>

#include <algorithm>
#include <memory>
#include <vector>

#include <csignal>

#include <fcntl.h>
#include <linux/capability.h>
#include <sys/file.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <unistd.h>

/// The program zdeploy, run as an operator would.
class tst_ZDeploy : public TestCase
{
    Q_OBJECT

private Q_SLOTS:
    void tellsWhatItIs_data();
    void tellsWhatItIs();
    void refusesACommandLineThatItCannotUse_data();
    void refusesACommandLineThatItCannotUse();
    void refusesWhatIsNoPluginOfOurs_data();
    void refusesWhatIsNoPluginOfOurs();
    void dropsACompleteCopy();
    void dropsItsSchemaAlong();
    void refusesASchemaThatIsOfNoUse_data();
    void refusesASchemaThatIsOfNoUse();
    void tellsWhereItsSchemaCannotBeDropped();
    void dropsWhatAllMayReadAndNobodyMayWrite_data();
    void dropsWhatAllMayReadAndNobodyMayWrite();
    void writesControlCharactersOut_data();
    void writesControlCharactersOut();
    void picksANameThatSortsLast_data();
    void picksANameThatSortsLast();
    void refusesAVersionThatWouldNotBeTheNewest_data();
    void refusesAVersionThatWouldNotBeTheNewest();
    void survivesEachPageZeroed();
    void isNeverSeenHalfWrittenOnASlowDisk();
    void refusesASourceThatIsBeingWritten();
    void refusesASourceThatChangesMeanwhile();
    void severalAtOnceGetNamesOfTheirOwn();
    void saysWhoHasTheFolder();
    void leavesNothingWhereASignalEndsIt_data();
    void leavesNothingWhereASignalEndsIt();
    void findsTheDeployedFolderBesideWhatALinkPointsTo();
    void refusesTheDeployedFolderItself_data();
    void refusesTheDeployedFolderItself();
    void tidiesUpWhatAKilledOneLeft();
    void aRunningHostLoadsWhatIsDropped();
    void listsWhatIsThere();
    void listsEachVersionOnItsOwnLine();
    void listsNothingWhereNothingIs();
    void refusesAFolderThatItCannotRead_data();
    void refusesAFolderThatItCannotRead();
    void goesBackToTheLastGoodVersion_data();
    void goesBackToTheLastGoodVersion();
    void goesBackBeforeAVersionThatCameAgain();
    void doesNotGoBackWhileAVersionWaits();
};

namespace {

Result run(const QStringList &arguments) { return runProgram(QStringLiteral(ZDEPLOY), arguments); }

QProcessEnvironment slowDisk()
{
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    const QString others = environment.value(QStringLiteral("LD_PRELOAD"));
    environment.insert(QStringLiteral("LD_PRELOAD"), QStringLiteral(SLOW_DISK " ") + others);
    environment.insert(QStringLiteral("ASAN_OPTIONS"), QStringLiteral("verify_asan_link_order=0"));
    return environment;
}

/// A process that has to keep to permissions, also where it is root's.
class BoundProcess : public QProcess
{
protected:
    void setupChildProcess() override
    {
        for (const int right : {CAP_DAC_OVERRIDE, CAP_DAC_READ_SEARCH})
            prctl(PR_CAPBSET_DROP, right);
    }
};

QString plugin(const char *name) { return pluginFile(QString::fromLatin1(name)); }

} // namespace

void tst_ZDeploy::tellsWhatItIs_data()
{
    QTest::addColumn<QString>("option");
    QTest::addColumn<QString>("pattern");
    QTest::newRow("version") << "--version"
                             << "^zdeploy \\d+\\.\\d+\\.\\d+\\n$";
    QTest::newRow("help") << "--help"
                          << "PLUGIN\\.so FOLDER";
    QTest::newRow("help tells of versions") << "--help"
                                            << "--as <VERSION>";
}

void tst_ZDeploy::tellsWhatItIs()
{
    QFETCH(QString, option);
    QFETCH(QString, pattern);
    verifyTells(run({option}), pattern);
}

void tst_ZDeploy::refusesACommandLineThatItCannotUse_data()
{
    QTest::addColumn<QStringList>("arguments");
    QTest::addColumn<QString>("reason");
    const QString here = QDir::tempPath();
    QTest::newRow("nothing to list") << QStringList{"--list"} << "name one folder";
    QTest::newRow("a plugin to list") << QStringList{"--list", "libfoo.so", here} << "name one folder";
    QTest::newRow("nowhere to go back") << QStringList{"--rollback", "foo"} << "name one folder";
    QTest::newRow("two things to do") << QStringList{"--list", "--rollback", "foo", here}
                                      << "--list and --rollback exclude each other";
    QTest::newRow("nothing to wait for") << QStringList{"--wait", "--list", here}
                                         << "--wait and --list exclude each other";
    QTest::newRow("nothing to rehearse") << QStringList{"--for", "3", "--list", here} << "--for goes with --rehearse";
    QTest::newRow("two to rehearse") << QStringList{"--rehearse", "a.json", "b.json"}
                                     << "--rehearse needs no more than a configuration";
    QTest::newRow("two to describe") << QStringList{"--describe", "liba.so", "libb.so"}
                                     << "--describe needs no more than a plugin";
    QTest::newRow("to describe and to list")
        << QStringList{"--describe", "liba.so", "--list", here} << "--list and --describe exclude each other";
    QTest::newRow("nowhere to tidy up") << QStringList{"--keep", "2"}
                                        << "name one folder, or one plugin and one folder";
    for (const char *const number : {"", "0", "-1", "few", "1000001"})
        QTest::addRow("keep \"%s\"", number)
            << QStringList{"--keep", number, here} << "--keep needs a number of versions, 1 to 1000000";
    QTest::newRow("endless rehearsal") << QStringList{"--rehearse", "a.json", "--for", "0"}
                                       << "--for needs a number of seconds, 1 to 3600";
    QTest::newRow("nothing") << QStringList() << "name one plugin and one folder";
    QTest::newRow("no folder named") << QStringList{"libfoo.so"} << "name one plugin and one folder";
    QTest::newRow("too much") << QStringList{"libfoo.so", here, here} << "name one plugin and one folder";
    QTest::newRow("unknown option") << QStringList{"--nope"} << "Unknown option 'nope'.";
    QTest::newRow("no such folder") << QStringList{"libfoo.so", "/no/such"} << "there is no folder /no/such";
    QTest::newRow("folder is a file") << QStringList{"libfoo.so", "/etc/passwd"} << "there is no folder /etc/passwd";
    QTest::newRow("no deployed folder beside it")
        << QStringList{"libfoo.so", "/usr/lib"}
        << "there is no folder /usr/deployed: name the one to which plugins are moved with --deployed";
    for (const char *const seconds : {"", "0", "-1", "1.5", "3601", "soon"})
        QTest::addRow("patience \"%s\"", seconds) << QStringList{"--patience", seconds, "libfoo.so", here}
                                                  << "--patience needs a number of seconds, 1 to 3600";
    for (const char *const version : {"", ".1", "1.", "1..2", "../x", "1/2", "1 2", "1\n"})
        QTest::addRow("version \"%s\"", version)
            << QStringList{"--as", version, "libfoo.so", here}
            << QStringLiteral("\"%1\" is no version: letters, digits and single dots")
                   .arg(QString(version).replace(QLatin1Char('\n'), QStringLiteral("\\n")));
}

void tst_ZDeploy::refusesACommandLineThatItCannotUse()
{
    QFETCH(QStringList, arguments);
    QFETCH(QString, reason);
    const Result result = run(arguments);
    QCOMPARE(result.err, QStringLiteral("zdeploy: %1; see zdeploy --help\n").arg(reason));
    QCOMPARE(result.exitCode, 2);
    QCOMPARE(result.out, QString());
}

void tst_ZDeploy::refusesWhatIsNoPluginOfOurs_data()
{
    QTest::addColumn<QString>("file");
    QTest::addColumn<QByteArray>("content"); // of a file that is written, unless it is null
    QTest::addColumn<QString>("pattern");
    const auto built = [](const char *name, const char *pattern) {
        QTest::newRow(name) << plugin(name) << QByteArray() << QString::fromLatin1(pattern);
    };
    const auto written = [](const char *row, const char *name, const QByteArray &content, const char *pattern) {
        QTest::newRow(row) << QString::fromLatin1(name) << content << QString::fromLatin1(pattern);
    };
    const char wrongName[] = "a plugin's file is called lib<name>.so or lib<name>.<version>.so";
    built("crasher", "loading it ends the process: (Aborted|exit status 1)"); // a sanitizer exits instead
    built("leaver", "loading it ends the process: exit status 0");
    built("quitter", "loading it ends the process: exit status 3");
    built("nometadata", "it is no plugin: .*: its class needs Q_OBJECT and Q_PLUGIN_METADATA\\(IID ZObject_iid\\)");
    built("noroot", "its root object, NoRoot, is no ZObject: derive its class from ZObject");
    built("otherversion", "it was built for version 2 of the interfaces, and this is version 1");
    built("unresolved", "it cannot be loaded: .*undefined symbol: nowhere.*");
    built("wrongiid", "it is a plugin of another kind: its identifier is \"test::SomethingElse\", not "
                      "\"zdefault::ZObject\": write Q_PLUGIN_METADATA\\(IID ZObject_iid\\)");
    written("missing", "libmissing.so", QByteArray(), "there is no such file");
    written("empty", "libempty.so", "", "it is no plugin: .*");
    written("text", "libtext.so", "not a plugin at all\n", "it is no plugin: .*");
    written("truncated", "libtruncated.so", contentOf(plugin("plain")).left(9000), "it is no plugin: .*");
    const QByteArray good = contentOf(plugin("plain"));
    for (const char *const name :
         {"plain.so", "libplain", "libplain.so.1", "libplain..so", "lib.so", "lib.1.so", "lib[a].so", "liba*.so"})
        written(name, name, good, wrongName);
    for (const char *const name : {"libplain.so.so", "libplain.1.so.so"})
        written(name, name, good, "its name ends in \"\\.so\" twice");
}

void tst_ZDeploy::refusesWhatIsNoPluginOfOurs()
{
    QFETCH(QString, file);
    QFETCH(QByteArray, content);
    QFETCH(QString, pattern);
    const Place place;
    if (!content.isNull())
        file = place.write(file, content);
    const Result result = run({file, place.hotDeploy()});
    const QString line =
        QStringLiteral("\\Azdeploy: %1 is refused: %2\n\\z").arg(QRegularExpression::escape(file), pattern);
    QVERIFY2(QRegularExpression(line).match(result.err).hasMatch(), qPrintable(result.err));
    QCOMPARE(result.exitCode, 1);
    QCOMPARE(result.out, QString());
    QCOMPARE(place.dropped(), QStringList());
}

void tst_ZDeploy::dropsACompleteCopy()
{
    const Place place;
    const QString source = plugin("plain");
    const Result result = run({source, place.hotDeploy()});
    QCOMPARE(result.err, QString());
    QCOMPARE(result.out, QStringLiteral("dropped as libplain.so\n"));
    QCOMPARE(result.exitCode, 0);
    QCOMPARE(place.dropped(), QStringList{QStringLiteral("libplain.so")});
    const QString copy = place.hotDeploy() + QStringLiteral("/libplain.so");
    QCOMPARE(contentOf(copy), contentOf(source));
    QCOMPARE(Place::everythingIn(place.deployed()), QStringList());
}

void tst_ZDeploy::dropsItsSchemaAlong()
{
    const Place place;
    const QString source = place.write(QStringLiteral("libplain.1.so"), contentOf(plugin("plain")));
    const QString copy = place.deployed() + QStringLiteral("/libplain.schema.json");
    for (const QByteArray schema : {R"({"required": ["a"]})", "{}"}) {
        place.write(QStringLiteral("libplain.schema.json"), schema);
        const mode_t mask = umask(077);
        const Result result = run({source, place.hotDeploy()});
        umask(mask);
        QCOMPARE(result.err, QString());
        QCOMPARE(result.exitCode, 0);
        QCOMPARE(contentOf(copy), schema);
        QVERIFY(QFile::permissions(copy) & QFile::ReadOther);
    }
    QCOMPARE(place.dropped(), (QStringList{"libplain.1.so", "libplain.2.so"}));
    QCOMPARE(Place::everythingIn(place.deployed()), QStringList{QStringLiteral("libplain.schema.json")});
}

void tst_ZDeploy::refusesASchemaThatIsOfNoUse_data()
{
    QTest::addColumn<QByteArray>("schema");
    QTest::addColumn<QString>("reason");
    QTest::newRow("no JSON") << QByteArray("{") << "its schema %1 cannot be read, or is no JSON object";
    QTest::newRow("another keyword") << QByteArray(R"({"properties": {"a": {"oneOf": []}}})")
                                     << "%1: settings.a: its schema has \"oneOf\", which is not understood";
}

void tst_ZDeploy::refusesASchemaThatIsOfNoUse()
{
    QFETCH(QByteArray, schema);
    QFETCH(QString, reason);
    const Place place;
    const QString source = place.write(QStringLiteral("libplain.so"), contentOf(plugin("plain")));
    const QString file = place.write(QStringLiteral("libplain.schema.json"), schema);
    const Result result = run({source, place.hotDeploy()});
    QCOMPARE(result.err, QStringLiteral("zdeploy: %1 is refused: %2\n").arg(source, reason.arg(file)));
    QCOMPARE(result.exitCode, 1);
    QCOMPARE(place.dropped(), QStringList());
}

void tst_ZDeploy::tellsWhereItsSchemaCannotBeDropped()
{
    const Place place;
    const QString source = place.write(QStringLiteral("libplain.so"), contentOf(plugin("plain")));
    place.write(QStringLiteral("libplain.schema.json"), "{}");
    QVERIFY(QDir(place.deployed()).mkdir(QStringLiteral("libplain.schema.json")));
    const Result result = run({source, place.hotDeploy()});
    QVERIFY2(result.err.startsWith(QStringLiteral("zdeploy: warning: %1: its schema cannot be put to ").arg(source)),
             qPrintable(result.err));
    QCOMPARE(result.exitCode, 0);
    QCOMPARE(place.dropped(), QStringList{QStringLiteral("libplain.so")});
}

void tst_ZDeploy::dropsWhatAllMayReadAndNobodyMayWrite_data()
{
    QTest::addColumn<int>("mode");
    for (const int mode : {0600, 0640, 0644, 0777})
        QTest::addRow("%o", static_cast<unsigned>(mode)) << mode;
}

void tst_ZDeploy::dropsWhatAllMayReadAndNobodyMayWrite()
{
    QFETCH(int, mode);
    const Place place;
    const QString source = place.write(QStringLiteral("libplain.so"), contentOf(plugin("plain")));
    QCOMPARE(chmod(QFile::encodeName(source).constData(), static_cast<mode_t>(mode)), 0);
    const mode_t mask = umask(077);
    const Result result = run({source, place.hotDeploy()});
    umask(mask);
    QCOMPARE(result.err, QString());
    struct stat status = {};
    QCOMPARE(stat(QFile::encodeName(place.hotDeploy() + QStringLiteral("/libplain.so")).constData(), &status), 0);
    QCOMPARE(int(status.st_mode & 07777), 0444);
}

void tst_ZDeploy::writesControlCharactersOut_data()
{
    QTest::addColumn<QString>("name");
    QTest::addColumn<bool>("isPlugin");
    QTest::addColumn<QString>("line");
    QTest::newRow("dropped") << "libred\033c.so" << true << "dropped as libred\\x1bc.so\n";
    QTest::newRow("refused") << "libred\033c\n.so" << false << "libred\\x1bc\\n.so is refused: it is no plugin";
    QTest::newRow("two bytes") << QString("libtwo\u009b31m.so") << true << "dropped as libtwo\\x9b31m.so\n";
    QTest::newRow("turned around") << QString("lib\u202egpj.so") << true << "dropped as lib\\u202egpj.so\n";
    QTest::newRow("letters") << QString("libg\u00fc\u6f22.so") << true << QString("dropped as libg\u00fc\u6f22.so\n");
}

void tst_ZDeploy::writesControlCharactersOut()
{
    QFETCH(QString, name);
    QFETCH(bool, isPlugin);
    QFETCH(QString, line);
    const Place place;
    const QString source = place.write(name, isPlugin ? contentOf(plugin("plain")) : QByteArray("text"));
    QProcess process;
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert(QStringLiteral("LC_ALL"), QStringLiteral("C.UTF-8"));
    process.setProcessEnvironment(environment);
    process.start(QStringLiteral(ZDEPLOY), {source, place.hotDeploy()});
    const Result result = finish(process);
    QCOMPARE(result.exitCode, isPlugin ? 0 : 1);
    QVERIFY2((result.out + result.err).contains(line), qPrintable(result.out + result.err));
}

void tst_ZDeploy::picksANameThatSortsLast_data()
{
    QTest::addColumn<QString>("source");
    QTest::addColumn<QStringList>("waiting");
    QTest::addColumn<QStringList>("deployed");
    QTest::addColumn<QString>("name");
    const auto row = [](const char *source, const QStringList &waiting, const QStringList &deployed, const char *name) {
        const QByteArray tag = source + QByteArray(" after ") + (waiting + deployed).join(' ').toLatin1();
        QTest::newRow(tag.constData()) << QString::fromLatin1(source) << waiting << deployed
                                       << QString::fromLatin1(name);
    };
    row("libplain.so", {}, {}, "libplain.so");
    row("libplain.so", {}, {"libother.so", "libplainer.7.so", "libplai.8.so"}, "libplain.so");
    row("libplain.so", {}, {"libplain.so"}, "libplain.0001.so");
    row("libplain.so", {"libplain.so"}, {}, "libplain.0001.so");
    row("libplain.so", {"libplain.1.so"}, {"libplain.so"}, "libplain.2.so");
    row("libplain.so", {}, {"libplain.so", "libplain.1.so", "libplain.3.so"}, "libplain.4.so");
    row("libplain.so", {}, {"libplain.9.so"}, "libplain.A00000.so"); // "10" would sort before "9"
    row("libplain.so", {}, {"libplain.90.so", "libplain.9.so"}, "libplain.91.so");
    row("libplain.so", {}, {"libplain.19.so"}, "libplain.20.so");
    row("libplain.so", {}, {"libplain.99.so"}, "libplain.A00000.so");
    row("libplain.so", {}, {"libplain.1.09.so"}, "libplain.1.10.so");
    row("libplain.so", {}, {"libplain.1.9.so"}, "libplain.1.A00000.so");
    row("libplain.so", {}, {"libplain.beta.so"}, "libplain.beta0001.so");
    row("libplain.so", {}, {"libplain.2.so", "libplain.10.so"}, "libplain.3.so");
    row("libplain.so", {}, {"libplain.20250131-235959123.so"}, "libplain.20250131-235959124.so");
    row("libplain.1.2.so", {}, {}, "libplain.1.2.so");
    row("libplain.1.2.so", {}, {"libplain.so", "libplain.1.1.so"}, "libplain.1.2.so");
    row("libplain.1.2.so", {}, {"libplain.1.2.so"}, "libplain.1.3.so");
    row("libplain.1.2.so", {}, {"libplain.7.so"}, "libplain.8.so");
}

void tst_ZDeploy::picksANameThatSortsLast()
{
    QFETCH(QString, source);
    QFETCH(QStringList, waiting);
    QFETCH(QStringList, deployed);
    QFETCH(QString, name);
    const Place place;
    for (const QString &file : waiting)
        place.write(QStringLiteral("hot-deploy/") + file, "");
    for (const QString &file : deployed)
        place.write(QStringLiteral("deployed/") + file, "");

    const Result result = run({place.write(source, contentOf(plugin("plain"))), place.hotDeploy()});

    QCOMPARE(result.err, QString());
    QCOMPARE(result.out, QStringLiteral("dropped as %1\n").arg(name));
    QStringList expected = waiting + QStringList{name};
    expected.sort();
    QCOMPARE(place.dropped(), expected);
    for (const QString &file : waiting + deployed) { // as a loader sorts them: the plain name, then the others as texts
        if (file.startsWith(QStringLiteral("libplain.")) && file != QStringLiteral("libplain.so"))
            QVERIFY(name > file);
    }
}

void tst_ZDeploy::refusesAVersionThatWouldNotBeTheNewest_data()
{
    QTest::addColumn<QString>("deployed");
    QTest::addColumn<QString>("version");
    QTest::addColumn<QString>("reason");
    QTest::newRow("first") << "libplain.so"
                           << "1" << QString();
    QTest::newRow("next") << "libplain.1.2.so"
                          << "1.3" << QString();
    QTest::newRow("taken") << "libplain.1.2.so"
                           << "1.2"
                           << "libplain.1.2.so is there already, or still in memory";
    QTest::newRow("older")
        << "libplain.9.so"
        << "10"
        << "libplain.10.so would sort before a version that is there; libplain.A00000.so would be next";
}

void tst_ZDeploy::refusesAVersionThatWouldNotBeTheNewest()
{
    QFETCH(QString, deployed);
    QFETCH(QString, version);
    QFETCH(QString, reason);
    const Place place;
    place.write(QStringLiteral("deployed/") + deployed, "");
    const QString source = plugin("plain");
    const Result result = run({QStringLiteral("--as"), version, source, place.hotDeploy()});
    QCOMPARE(result.exitCode, reason.isEmpty() ? 0 : 1);
    QCOMPARE(result.err,
             reason.isEmpty() ? QString() : QStringLiteral("zdeploy: %1 is refused: %2\n").arg(source, reason));
    QCOMPARE(place.dropped(),
             reason.isEmpty() ? QStringList{QStringLiteral("libplain.%1.so").arg(version)} : QStringList());
}

void tst_ZDeploy::survivesEachPageZeroed()
{
    constexpr int PageSize = 4096;
    const QByteArray good = contentOf(plugin("plain"));
    int refused = 0;
    for (int page = 0; page * PageSize < good.size(); ++page) {
        const Place place;
        QByteArray damaged = good;
        const int size = std::min(PageSize, good.size() - page * PageSize);
        damaged.replace(page * PageSize, size, QByteArray(size, '\0'));
        const QString source = place.write(QStringLiteral("libplain.so"), damaged);
        const Result result = run({QStringLiteral("--patience"), QStringLiteral("10"), source, place.hotDeploy()});
        QVERIFY2(result.exitCode == 0 || result.exitCode == 1, qPrintable(result.err));
        refused += result.exitCode;
        // What is dropped is what was tried out; what is refused leaves nothing.
        QCOMPARE(place.dropped().size(), 1 - result.exitCode);
        if (result.exitCode == 0)
            QCOMPARE(contentOf(place.hotDeploy() + QStringLiteral("/libplain.so")), damaged);
    }
    QVERIFY(refused > 0);
}

void tst_ZDeploy::isNeverSeenHalfWrittenOnASlowDisk()
{
    const Place place;
    const QString source = plugin("plain");
    QProcess process;
    process.setProcessEnvironment(slowDisk());
    process.start(QStringLiteral(ZDEPLOY), {source, place.hotDeploy()});
    QVERIFY(process.waitForStarted());
    const QByteArray content = contentOf(source);
    int looks = 0;
    while (!process.waitForFinished(1)) {
        const QStringList visible = QDir(place.hotDeploy()).entryList({QStringLiteral("lib*.so")});
        for (const QString &file : visible)
            QCOMPARE(contentOf(place.hotDeploy() + QLatin1Char('/') + file), content);
        looks += visible.isEmpty();
        QVERIFY(process.state() == QProcess::Running);
    }
    QVERIFY(looks > 10);
    QCOMPARE(QString::fromUtf8(process.readAllStandardError()), QString());
    QCOMPARE(process.exitCode(), 0);
    QCOMPARE(contentOf(place.hotDeploy() + QStringLiteral("/libplain.so")), content);
}

void tst_ZDeploy::refusesASourceThatIsBeingWritten()
{
    const Place place;
    const QString source = place.write(QStringLiteral("libplain.so"), contentOf(plugin("plain")));
    QFile writer(source);
    QVERIFY(writer.open(QIODevice::Append));
    const Result result = run({source, place.hotDeploy()});
    QCOMPARE(result.err, QStringLiteral("zdeploy: %1 is refused: it is still being written\n").arg(source));
    QCOMPARE(result.exitCode, 1);
    QCOMPARE(place.dropped(), QStringList());
    writer.close();
    QCOMPARE(run({source, place.hotDeploy()}).exitCode, 0);
}

void tst_ZDeploy::refusesASourceThatChangesMeanwhile()
{
    const Place place;
    const QByteArray content = contentOf(plugin("plain")) + QByteArray(1 << 20, '\0'); // it takes its time
    const QString source = place.write(QStringLiteral("libplain.so"), content);
    QProcess process;
    process.setProcessEnvironment(slowDisk());
    process.start(QStringLiteral(ZDEPLOY), {source, place.hotDeploy()});
    QVERIFY(process.waitForStarted());
    const auto isCopying = [&] {
        const QStringList parts = place.dropped();
        return parts.size() == 1 && QFileInfo(place.hotDeploy() + QLatin1Char('/') + parts.first()).size() > 0;
    };
    QTRY_VERIFY_WITH_TIMEOUT(isCopying(), 30000);
    place.write(QStringLiteral("libplain.so"), content + "more");
    const Result result = finish(process);
    QCOMPARE(result.err, QStringLiteral("zdeploy: %1 is refused: it has changed while it was copied\n").arg(source));
    QCOMPARE(result.exitCode, 1);
    QCOMPARE(place.dropped(), QStringList());
}

void tst_ZDeploy::severalAtOnceGetNamesOfTheirOwn()
{
    const Place place;
    const QString source = plugin("plain");
    std::vector<std::unique_ptr<QProcess>> processes;
    for (int i = 0; i < 4; ++i) {
        processes.push_back(std::make_unique<QProcess>());
        processes.back()->start(QStringLiteral(ZDEPLOY), {source, place.hotDeploy()});
    }
    QStringList names;
    for (const auto &process : processes) {
        const Result result = finish(*process);
        QCOMPARE(result.err, QString());
        QCOMPARE(result.exitCode, 0);
        names << result.out.section(QLatin1Char(' '), -1).trimmed();
    }
    names.sort();
    const QStringList expected{"libplain.0001.so", "libplain.0002.so", "libplain.0003.so", "libplain.so"};
    QCOMPARE(names, expected);
    QCOMPARE(place.dropped(), expected);
    for (const QString &name : names)
        QCOMPARE(contentOf(place.hotDeploy() + QLatin1Char('/') + name), contentOf(source));
}

void tst_ZDeploy::saysWhoHasTheFolder()
{
    const Place place;
    const int descriptor = open(QFile::encodeName(place.hotDeploy()).constData(), O_RDONLY | O_CLOEXEC);
    QCOMPARE(flock(descriptor, LOCK_EX), 0);
    const QString source = plugin("plain");
    const Result result = run({source, place.hotDeploy()});
    close(descriptor);
    const QString name = QString::fromUtf8(contentOf(QStringLiteral("/proc/self/comm"))).trimmed();
    QCOMPARE(result.err, QStringLiteral("zdeploy: %1 cannot be dropped: %2 is being deployed to by process %3 (%4)\n")
                             .arg(source, place.hotDeploy(), QString::number(getpid()), name));
    QCOMPARE(result.exitCode, 3);
    QCOMPARE(place.dropped(), QStringList());
    QCOMPARE(run({source, place.hotDeploy()}).exitCode, 0);
}

void tst_ZDeploy::leavesNothingWhereASignalEndsIt_data()
{
    QTest::addColumn<int>("number");
    QTest::newRow("SIGHUP") << SIGHUP;
    QTest::newRow("SIGINT") << SIGINT;
    QTest::newRow("SIGTERM") << SIGTERM;
}

void tst_ZDeploy::leavesNothingWhereASignalEndsIt()
{
    QFETCH(int, number);
    const Place place;
    const QByteArray large = contentOf(plugin("plain")) + QByteArray(16 << 20, '\0'); // seconds on that disk
    QProcess process;
    process.setProcessEnvironment(slowDisk());
    const auto before = std::signal(number, SIG_DFL); // the suite may run in the background, where it is ignored
    process.start(QStringLiteral(ZDEPLOY), {place.write(QStringLiteral("libplain.so"), large), place.hotDeploy()});
    std::signal(number, before);
    QVERIFY(process.waitForStarted());
    const auto isCopying = [&] {
        const QStringList parts = place.dropped();
        return parts.size() == 1 && QFileInfo(place.hotDeploy() + QLatin1Char('/') + parts.first()).size() > 100000;
    };
    QTRY_VERIFY_WITH_TIMEOUT(isCopying(), 30000);
    QCOMPARE(kill(static_cast<pid_t>(process.processId()), number), 0);
    QVERIFY(process.waitForFinished());
    QCOMPARE(process.exitStatus(), QProcess::CrashExit);
    QCOMPARE(process.exitCode(), number);
    QCOMPARE(place.dropped(), QStringList());
}

void tst_ZDeploy::findsTheDeployedFolderBesideWhatALinkPointsTo()
{
    const Place place;
    place.write(QStringLiteral("deployed/libplain.so"), "");
    const Folder elsewhere;
    const QString link = elsewhere.filePath(QStringLiteral("drop"));
    QVERIFY(QFile::link(place.hotDeploy(), link));
    QCOMPARE(run({plugin("plain"), link}).out, QStringLiteral("dropped as libplain.0001.so\n"));
    QCOMPARE(place.dropped(), QStringList{QStringLiteral("libplain.0001.so")});
    QVERIFY(QDir(place.deployed()).removeRecursively());
    const QString reason = QStringLiteral("there is no folder %1: ").arg(QFileInfo(place.deployed()).filePath());
    QVERIFY(run({plugin("plain"), link}).err.contains(reason));
}

void tst_ZDeploy::refusesTheDeployedFolderItself_data()
{
    QTest::addColumn<QStringList>("options");
    QTest::newRow("found beside itself") << QStringList();
    QTest::newRow("named") << QStringList{"--deployed", "."};
}

void tst_ZDeploy::refusesTheDeployedFolderItself()
{
    QFETCH(QStringList, options);
    const Place place;
    QProcess process;
    process.setWorkingDirectory(place.deployed());
    process.start(QStringLiteral(ZDEPLOY), options + QStringList{plugin("plain"), place.deployed()});
    const Result result = finish(process);
    QCOMPARE(result.err, QStringLiteral("zdeploy: %1 is the folder to which plugins are moved: name the one that is "
                                        "watched; see zdeploy --help\n")
                             .arg(place.deployed()));
    QCOMPARE(result.exitCode, 2);
    QCOMPARE(Place::everythingIn(place.deployed()), QStringList());
}

void tst_ZDeploy::tidiesUpWhatAKilledOneLeft()
{
    const Place place;
    place.write(QStringLiteral("hot-deploy/.zdeploy-abcdef.part"), "half a plugin");
    place.write(QStringLiteral("hot-deploy/.other.part"), "not ours");
    QCOMPARE(run({plugin("plain"), place.hotDeploy()}).exitCode, 0);
    QCOMPARE(place.dropped(), (QStringList{".other.part", "libplain.so"}));
}

void tst_ZDeploy::aRunningHostLoadsWhatIsDropped()
{
    const Place place;
    const QString source = place.write(QStringLiteral("libplain.so"), contentOf(plugin("plain")));
    place.write(QStringLiteral("libplain.schema.json"), "{}"); // is dropped along, after the plugin has appeared
    const QJsonObject configuration{
        {"logger", QJsonObject{{"debug", 1}, {"log", QJsonObject{{"zdefault", 3}}}}},
        {"loader", QJsonObject{{"hot-deploy", place.hotDeploy()}, {"deployed", place.deployed()}}}};
    const QString file = place.write(QStringLiteral("config.json"), QJsonDocument(configuration).toJson());
    QProcess host;
    host.setProcessChannelMode(QProcess::MergedChannels);
    host.start(QStringLiteral(ZHOST), {file});
    QString written;
    const auto hasWritten = [&](const char *text) {
        written += QString::fromUtf8(host.readAll());
        return written.contains(QLatin1String(text));
    };
    QTRY_VERIFY_WITH_TIMEOUT(hasWritten("hot-deploy folder changed"), 30000);

    // Each is taken away before the next comes, so the names must come from the other folder.
    for (const char *const name : {"libplain", "libplain.0001", "libplain.0002"}) {
        const Result result = run({source, place.hotDeploy()});
        QCOMPARE(result.out, QStringLiteral("dropped as %1.so\n").arg(QLatin1String(name)));
        QTRY_VERIFY_WITH_TIMEOUT(hasWritten(QByteArray(QByteArray("loaded: ") + name + '\n').constData()), 30000);
        QCOMPARE(place.dropped(), QStringList());
    }
    QVERIFY2(!written.contains(QStringLiteral("failed to rename")), qPrintable(written));
    QVERIFY2(!written.contains(QStringLiteral("is still being written")), qPrintable(written));
    host.terminate();
    QCOMPARE(finish(host).exitCode, 0);
}

void tst_ZDeploy::listsWhatIsThere()
{
    const Place place;
    place.deploy({"libb.so", "libb.0001.so", "libb.9.so", "liba.1\033.so"}, {"libb.so", "libb.9.so"});
    place.write(QStringLiteral("deployed/libb.A00000.so.quarantined"), "");
    place.write(QStringLiteral("deployed/libb.A00002.so.quarantined"), "");
    place.write(
        QStringLiteral("deployed/quarantined.json"),
        R"({"libb.A00002.so.quarantined": {"why": "it\u001b fell"}, "libb.A00002.so.quarantined.12": {"why": "again"}})");
    place.write(QStringLiteral("deployed/libb.A00002.so.quarantined.12"), "");
    place.write(QStringLiteral("deployed/libb.A00002.so.quarantined.old"), ""); // somebody else's
    place.write(QStringLiteral("deployed/libb.9.so.quarantined.1"), "");        // of an earlier file of this name
    place.write(QStringLiteral("deployed/libb.9.so"), "exchanged since");
    place.write(QStringLiteral("deployed/config.json"), "");
    place.write(QStringLiteral("hot-deploy/libb.A00001.so"), "");
    const Result result = run({QStringLiteral("--list"), place.hotDeploy()});
    QCOMPARE(result.err, QString());
    QCOMPARE(result.exitCode, 0);
    const QStringList lines{"liba.1\\x1b.so: not known to be good",
                            "libb.so: good since 2026-11-21T10:00:00",
                            "libb.0001.so: not known to be good",
                            "libb.9.so: not known to be good",
                            "libb.9.so: quarantined, as libb.9.so.quarantined.1",
                            "libb.A00000.so: quarantined",
                            "libb.A00001.so: waits for a host",
                            "libb.A00002.so: quarantined: it\\x1b fell",
                            "libb.A00002.so: quarantined, as libb.A00002.so.quarantined.12: again"};
    QCOMPARE(result.out.split(QLatin1Char('\n'), Qt::SkipEmptyParts), lines);
}

void tst_ZDeploy::listsEachVersionOnItsOwnLine()
{
    const Place place;
    place.write(QStringLiteral("deployed/libb\nliba.so: good.so"), "");
    QStringList lines{"libb\\nliba.so: good.so: not known to be good"};
    for (int i = 0; i < 100; ++i) {
        const QString file = QStringLiteral("libc.%1.so").arg(i, 4, 10, QLatin1Char('0'));
        place.write(QStringLiteral("deployed/") + file, "");
        lines.append(file + QStringLiteral(": not known to be good"));
    }
    QCOMPARE(run({QStringLiteral("--list"), place.hotDeploy()}).out.split(QLatin1Char('\n'), Qt::SkipEmptyParts),
             lines);
}

void tst_ZDeploy::listsNothingWhereNothingIs()
{
    const Result result = run({QStringLiteral("--list"), Place().hotDeploy()});
    QCOMPARE(result.out + result.err, QString());
    QCOMPARE(result.exitCode, 0);
}

void tst_ZDeploy::refusesAFolderThatItCannotRead_data()
{
    QTest::addColumn<QString>("folder");
    QTest::newRow("hot-deploy") << "hot-deploy";
    QTest::newRow("deployed") << "deployed";
}

void tst_ZDeploy::refusesAFolderThatItCannotRead()
{
    QFETCH(QString, folder);
    const Place place;
    const QString path = QDir(place.path()).filePath(folder);
    QVERIFY(QFile::setPermissions(path, QFile::WriteOwner | QFile::ExeOwner));
    const QString reason = QStringLiteral("zdeploy: %1 cannot be read; see zdeploy --help\n").arg(path);
    for (const QStringList &task : {QStringList{"--list"}, QStringList{plugin("plain")}}) {
        BoundProcess process;
        process.start(QStringLiteral(ZDEPLOY), task + QStringList{place.hotDeploy()});
        const Result result = finish(process);
        QCOMPARE(result.err, reason);
        QCOMPARE(result.exitCode, 2);
    }
    QVERIFY(QFile::setPermissions(path, QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner));
    QCOMPARE(place.dropped(), QStringList());
}

void tst_ZDeploy::goesBackToTheLastGoodVersion_data()
{
    QTest::addColumn<QStringList>("deployed");
    QTest::addColumn<QStringList>("good");
    QTest::addColumn<QString>("quarantined");
    QTest::addColumn<QString>("source"); // none where there is nothing to go back to
    QTest::addColumn<QString>("name");
    const QStringList three{"libplain.so", "libplain.0001.so", "libplain.0002.so"};
    QTest::newRow("the one before") << three << three << QString() << "libplain.0001.so"
                                    << "libplain.0003.so";
    QTest::newRow("before one that is not good") << three << QStringList{"libplain.so"} << QString() << "libplain.so"
                                                 << "libplain.0003.so";
    QTest::newRow("past a name that is quarantined") << three << three << "libplain.0003.so"
                                                     << "libplain.0001.so"
                                                     << "libplain.0004.so";
    QTest::newRow("none is good") << three << QStringList() << QString() << QString() << QString();
    QTest::newRow("only the newest is good")
        << three << QStringList{"libplain.0002.so"} << QString() << QString() << QString();
    QTest::newRow("only one is there") << QStringList{"libplain.so"} << QStringList{"libplain.so"} << QString()
                                       << QString() << QString();
    QTest::newRow("only another plugin") << QStringList{"libplainer.so", "libplainer.0001.so"}
                                         << QStringList{"libplainer.so"} << QString() << QString() << QString();
}

void tst_ZDeploy::goesBackToTheLastGoodVersion()
{
    QFETCH(QStringList, deployed);
    QFETCH(QStringList, good);
    QFETCH(QString, quarantined);
    QFETCH(QString, source);
    QFETCH(QString, name);
    const Place place;
    place.deploy(deployed, good, contentOf(plugin("plain")));
    if (!quarantined.isEmpty())
        place.write(QStringLiteral("deployed/%1.quarantined").arg(quarantined), "");
    const Result result = run({QStringLiteral("--rollback"), QStringLiteral("plain"), place.hotDeploy()});
    if (source.isEmpty()) {
        QCOMPARE(result.err, QStringLiteral("zdeploy: plain has no good version before the newest\n"));
        QCOMPARE(result.exitCode, 1);
        QCOMPARE(place.dropped(), QStringList());
        return;
    }
    QCOMPARE(result.err, QString());
    QCOMPARE(result.out, QStringLiteral("dropped as %1\n").arg(name));
    QCOMPARE(place.dropped(), QStringList{name});
    QCOMPARE(contentOf(place.hotDeploy() + QLatin1Char('/') + name),
             contentOf(place.deployed() + QLatin1Char('/') + source));
}

/// The newest is the one before it once more, as somebody who went back, or a host, has dropped it.
void tst_ZDeploy::goesBackBeforeAVersionThatCameAgain()
{
    const Place place;
    const QStringList files{"libplain.so", "libplain.0001.so", "libplain.0002.so"};
    place.deploy(files, files.mid(0, 2), contentOf(plugin("plain")));
    place.write(QStringLiteral("deployed/libplain.0002.so"),
                contentOf(place.deployed() + QStringLiteral("/libplain.0001.so")));
    const QStringList arguments{QStringLiteral("--rollback"), QStringLiteral("plain"), place.hotDeploy()};
    QCOMPARE(run(arguments).out, QStringLiteral("dropped as libplain.0003.so\n"));
    const QString dropped = place.hotDeploy() + QStringLiteral("/libplain.0003.so");
    QCOMPARE(contentOf(dropped), contentOf(place.deployed() + QStringLiteral("/libplain.so")));

    QVERIFY(QFile::rename(dropped, place.deployed() + QStringLiteral("/libplain.0003.so"))); // as a host does
    const Result result = run(arguments);
    QCOMPARE(result.err, QStringLiteral("zdeploy: plain has no good version before the newest\n"));
    QCOMPARE(result.exitCode, 1);
}

void tst_ZDeploy::doesNotGoBackWhileAVersionWaits()
{
    const Place place;
    const QStringList files{"libplain.so", "libplain.0001.so"};
    place.deploy(files, files, contentOf(plugin("plain")));
    const QStringList arguments{QStringLiteral("--rollback"), QStringLiteral("plain"), place.hotDeploy()};
    const QString waiting = place.write(QStringLiteral("hot-deploy/libplain.0002.so"), "");
    place.write(QStringLiteral("hot-deploy/libother.so"), "");
    const Result result = run(arguments);
    QCOMPARE(result.err,
             QStringLiteral("zdeploy: libplain.0002.so still waits for a host: let one load it, or remove it, "
                            "before you go back\n"));
    QCOMPARE(result.exitCode, 1);
    QCOMPARE(place.dropped(), (QStringList{"libother.so", "libplain.0002.so"}));
    QVERIFY(QFile::remove(waiting));
    QCOMPARE(run(arguments).out, QStringLiteral("dropped as libplain.0002.so\n"));
}

QTEST_GUILESS_MAIN(tst_ZDeploy)

#include "tst_zdeploy.moc"
