// SPDX-License-Identifier: Apache-2.0
#include "folder.h"
#include "place.h"
#include "program.h"
#include "testcase.h"

#include <QRegularExpression>

#include <sys/stat.h>
#include <unistd.h>

/// What zdeploy tells of a plugin, asked or not.
class tst_Describe : public TestCase
{
    Q_OBJECT

private Q_SLOTS:
    void tellsWhatAPluginIsAndAsksFor_data();
    void tellsWhatAPluginIsAndAsksFor();
    void warnsOfWhatCompilesAndDoesNothing_data();
    void warnsOfWhatCompilesAndDoesNothing();
    void saysNothingOfWhatIsRight_data();
    void saysNothingOfWhatIsRight();
    void warnsOfWhatMakesItCrash();
    void refusesWhatADropWouldRefuse_data();
    void refusesWhatADropWouldRefuse();
    void tellsOfManyPropertiesAsFarAsThereIsRoom();
    void saysThatThePluginIsNotToBlame();
};

namespace {

Result run(const QStringList &arguments) { return runProgram(QStringLiteral(ZDEPLOY), arguments); }

Result describe(const QString &file) { return run({QStringLiteral("--describe"), file}); }

/// What is told beside what is described, or dropped.
QString warning(const QString &file, const QString &text)
{
    return QStringLiteral("zdeploy: warning: %1: %2\n").arg(file, text);
}

} // namespace

void tst_Describe::tellsWhatAPluginIsAndAsksFor_data()
{
    QTest::addColumn<QString>("table");
    QTest::newRow("plain") << "class       Plain\n"
                              "identifier  zdefault::ZObject\n"
                              "interfaces  1\n";
    QTest::newRow("unversioned") << "class       Plain\n"
                                    "identifier  zdefault::ZObject\n";
    QTest::newRow("mistaken_None") << "class       test::Mistaken\n"
                                      "identifier  zdefault::ZObject\n"
                                      "interfaces  1\n"
                                      "healthy     //guarded/very/healthy\n"
                                      "serves      test::Adder\n"
                                      "wants       test::Adder, ZEmitter\n"
                                      "\n"
                                      "PROPERTY  TYPE          WANTS        WRITABLE\n"
                                      "adder     test::Adder*  test::Adder  yes\n"
                                      "count     int                        yes\n"
                                      "constant  int                        no\n"
                                      "timer     QTimer*                    yes\n"
                                      "config    QObject*                   yes\n"
                                      "zEmitter  ZEmitter*     ZEmitter     yes\n";
}

void tst_Describe::tellsWhatAPluginIsAndAsksFor()
{
    QFETCH(QString, table);
    const Result result = describe(pluginFile(QString::fromLatin1(QTest::currentDataTag())));
    QCOMPARE(result.err, QString());
    QCOMPARE(result.out, table);
    QCOMPARE(result.exitCode, 0);
}

void tst_Describe::warnsOfWhatCompilesAndDoesNothing_data()
{
    QTest::addColumn<QString>("text");
    QTest::newRow("ShortName") << "its property \"adder\" is never written, for Qt knows no type \"Adder*\": write its "
                                  "type as \"test::Adder *\"";
    QTest::newRow("Undeclared")
        << "its property \"helper\" is never written, for Qt knows no type \"Helper*\": write it "
           "with its namespace, if it has one, and Q_DECLARE_METATYPE(Helper *) behind its class";
    QTest::newRow("Const")
        << "its property \"zLogger\" is never written, for Qt knows no type \"const ZLogger*\": write "
           "its type as \"ZLogger *\"";
    QTest::newRow("Value") << "its property \"zLogger\" is never written, for it is no pointer: write its type as "
                              "\"ZLogger *\"";
    QTest::newRow("Object") << "its property \"zLogger\" is never written, for it is a QObject: write its type as "
                               "\"ZLogger *\"";
    QTest::newRow("OwnObject") << "its property \"adder\" is never written, for it is a QObject: write its type as "
                                  "\"test::Adder *\"";
    QTest::newRow("Unlisted") << "nobody can call it as a ZTempFile, from which its class derives: write "
                                 "Q_INTERFACES(ZTempFile)";
}

void tst_Describe::warnsOfWhatCompilesAndDoesNothing()
{
    QFETCH(QString, text);
    const QString file = pluginFile(QStringLiteral("mistaken_") + QString::fromLatin1(QTest::currentDataTag()));
    const Result described = describe(file);
    QCOMPARE(described.err, warning(file, text));
    QCOMPARE(described.exitCode, 0);
    const Place place;
    const Result dropped = run({file, place.hotDeploy()});
    QCOMPARE(dropped.err, warning(file, text));
    QCOMPARE(dropped.exitCode, 0);
    QCOMPARE(place.dropped().size(), 1);
}

void tst_Describe::saysNothingOfWhatIsRight_data()
{
    QTest::addColumn<QString>("file");
    for (const char *const name : {"configured", "echo", "greeter", "lodger", "metatypes", "mistaken_None", "store"})
        QTest::newRow(name) << pluginFile(QString::fromLatin1(name));
}

void tst_Describe::saysNothingOfWhatIsRight()
{
    QFETCH(QString, file);
    QCOMPARE(describe(file).err, QString());
    const Place place;
    QCOMPARE(run({file, place.hotDeploy()}).err, QString());
}

void tst_Describe::warnsOfWhatMakesItCrash()
{
    const QString file = pluginFile(QStringLiteral("mistaken_ReadOnly"));
    const QString beginning =
        warning(file, QStringLiteral("its property \"zLogger\" is never written, for it can only "
                                     "be read: give it MEMBER, or WRITE")) +
        QStringLiteral("zdeploy: %1 is refused: giving it its services ends the process: ").arg(file);
    const Result described = describe(file);
    QVERIFY2(described.err.startsWith(beginning), qPrintable(described.err));
    QVERIFY2(described.out.contains(QStringLiteral("zLogger   ZLogger*   ZLogger   no\n")), qPrintable(described.out));
    QCOMPARE(described.exitCode, 1);
    const Place place;
    const Result dropped = run({file, place.hotDeploy()});
    QVERIFY2(dropped.err.startsWith(beginning), qPrintable(dropped.err));
    QCOMPARE(dropped.exitCode, 1);
    QCOMPARE(place.dropped(), QStringList());
}

void tst_Describe::refusesWhatADropWouldRefuse_data()
{
    QTest::addColumn<QString>("pattern");
    QTest::addColumn<QString>("firstLine"); // of what can be told nevertheless
    QTest::newRow("crasher") << "loading it ends the process: .*"
                             << "identifier  zdefault::ZObject\n";
    QTest::newRow("missing") << "there is no such file"
                             << "";
    QTest::newRow("nometadata") << "it is no plugin: .*"
                                << "";
    QTest::newRow("noroot") << "its root object, NoRoot, is no ZObject: .*"
                            << "class       NoRoot\n";
    QTest::newRow("wrongiid") << "it is a plugin of another kind: .*"
                              << "";
}

void tst_Describe::refusesWhatADropWouldRefuse()
{
    QFETCH(QString, pattern);
    QFETCH(QString, firstLine);
    const QString file = pluginFile(QString::fromLatin1(QTest::currentDataTag()));
    const Result result = describe(file);
    const QString line =
        QStringLiteral("\\Azdeploy: %1 is refused: %2\n\\z").arg(QRegularExpression::escape(file), pattern);
    QVERIFY2(QRegularExpression(line).match(result.err).hasMatch(), qPrintable(result.err));
    QCOMPARE(result.exitCode, 1);
    QCOMPARE(result.out.section(QLatin1Char('\n'), 0, 0, QString::SectionIncludeTrailingSep), firstLine);
}

/// What is told first leaves room for the verdict.
void tst_Describe::tellsOfManyPropertiesAsFarAsThereIsRoom()
{
    const QString file = pluginFile(QStringLiteral("crowded"));
    const Result result = describe(file);
    QCOMPARE(result.err,
             QStringLiteral("zdeploy: %1 is refused: its root object, CrowdedAndOfAnotherKindThanOurs, is no "
                            "ZObject: derive its class from ZObject\n")
                 .arg(file));
    QVERIFY2(result.out.contains(QStringLiteral("\nproperty099  int   yes\n")), qPrintable(result.out));
    QCOMPARE(result.exitCode, 1);
}

void tst_Describe::saysThatThePluginIsNotToBlame()
{
    constexpr uid_t Nobody = 65534;
    if (getuid() != 0) {
        QTest::qSkip("only root may give a folder away", __FILE__, __LINE__);
        return;
    }
    const Place place;
    const QString file = place.write(QStringLiteral("hot-deploy/libplain.so"), contentOf(pluginFile("plain")));
    QCOMPARE(chown(QFile::encodeName(place.hotDeploy()).constData(), Nobody, Nobody), 0);
    QCOMPARE(chmod(QFile::encodeName(place.path()).constData(), 0700), 0);
    const Result result = describe(file);
    QCOMPARE(result.err, QStringLiteral("zdeploy: %1 cannot be described: it cannot be tried out: the owner of its "
                                        "folder cannot read it: Permission denied\n")
                             .arg(file));
    QCOMPARE(result.exitCode, 3);
}

QTEST_GUILESS_MAIN(tst_Describe)

#include "tst_describe.moc"
