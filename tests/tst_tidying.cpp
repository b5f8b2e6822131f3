// SPDX-License-Identifier: Apache-2.0
#include "hiddenlock.h"
#include "place.h"
#include "runninghost.h"
#include "testcase.h"

#include <QDir>

#include <optional>

/// Which old versions zdeploy removes.
class tst_Tidying : public TestCase
{
    Q_OBJECT

private Q_SLOTS:
    void removesOldVersionsThatNobodyNeeds_data();
    void removesOldVersionsThatNobodyNeeds();
    void neverRemovesWhatIsLoaded();
    void removesNothingWhereItCannotBeToldWhatIsLoaded();
    void saysWhatItCannotRemove();
};

namespace {

Result keep(const Place &place, int number, const QStringList &plugin = {})
{
    return runProgram(QStringLiteral(ZDEPLOY), QStringList{QStringLiteral("--keep"), QString::number(number)} + plugin +
                                                   QStringList{place.hotDeploy()});
}

QStringList pluginsIn(const Place &place)
{
    return QDir(place.deployed()).entryList({QStringLiteral("lib*")}, QDir::NoFilter, QDir::Name);
}

QString told(const QStringList &removed)
{
    QString lines;
    for (const QString &file : removed)
        lines += QStringLiteral("removed %1\n").arg(file);
    return lines;
}

} // namespace

void tst_Tidying::removesOldVersionsThatNobodyNeeds_data()
{
    QTest::addColumn<int>("number");
    QTest::addColumn<QStringList>("plugin");
    QTest::addColumn<QStringList>("deployed");
    QTest::addColumn<QStringList>("good");
    QTest::addColumn<QStringList>("removed");
    const QStringList three{"liba.so", "liba.1.so", "liba.2.so"};
    const QStringList two{"libb.1.so", "libb.2.so"};
    const QStringList nothing;
    QTest::newRow("as many as there are") << 3 << nothing << three << three << nothing;
    QTest::newRow("the oldest") << 2 << nothing << three << three << QStringList{"liba.so"};
    QTest::newRow("all but one") << 1 << nothing << three << three << QStringList{"liba.so", "liba.1.so"};
    QTest::newRow("the newest good one stays")
        << 1 << nothing << three << QStringList{"liba.so"} << QStringList{"liba.1.so"};
    QTest::newRow("of those that are good the newest stays")
        << 1 << nothing << three << QStringList{"liba.so", "liba.1.so"} << QStringList{"liba.so"};
    QTest::newRow("none is good") << 1 << nothing << three << nothing << QStringList{"liba.so", "liba.1.so"};
    QTest::newRow("each plugin") << 1 << nothing << three + two << three + two
                                 << QStringList{"liba.so", "liba.1.so", "libb.1.so"};
    QTest::newRow("one plugin") << 1 << QStringList{"b"} << three + two << three + two << QStringList{"libb.1.so"};
    const QStringList twoCases{"liba.1.so", "libA.2.so", "liba.3.so"};
    QTest::newRow("versions in another case") << 2 << nothing << twoCases << nothing << QStringList{"libA.2.so"};
    QTest::newRow("versions in another case, of one plugin")
        << 2 << QStringList{"a"} << twoCases << nothing << QStringList{"libA.2.so"};
    QTest::newRow("plain files in another case")
        << 1 << nothing << QStringList{"liba.so", "libA.so"} << nothing << nothing;
    QTest::newRow("what is in quarantine is no version")
        << 1 << nothing << QStringList{"liba.1.so", "liba.2.so.quarantined"} << nothing << nothing;
}

void tst_Tidying::removesOldVersionsThatNobodyNeeds()
{
    QFETCH(int, number);
    QFETCH(QStringList, plugin);
    QFETCH(QStringList, deployed);
    QFETCH(QStringList, good);
    QFETCH(QStringList, removed);
    const Place place;
    place.deploy(deployed, good);
    place.write(QStringLiteral("hot-deploy/liba.0.so"), ""); // a host will come for it
    const Result result = keep(place, number, plugin);
    QCOMPARE(result.err, QString());
    QCOMPARE(result.out, told(removed));
    QCOMPARE(result.exitCode, 0);
    for (const QString &file : removed)
        deployed.removeOne(file);
    deployed.sort();
    QCOMPARE(pluginsIn(place), deployed);
    QCOMPARE(place.dropped(), QStringList{"liba.0.so"});
}

void tst_Tidying::neverRemovesWhatIsLoaded()
{
    const Place place;
    const QByteArray content = contentOf(pluginFile(QStringLiteral("guarded_Serve")));
    place.deploy({"libguarded.1.so"}, {}, content);
    Running host(loaderOf(place.deployed(), place.hotDeploy(), {QStringLiteral("guarded")}));
    QTRY_VERIFY_WITH_TIMEOUT(host.hasWritten(QStringLiteral("hot-deploy folder changed")), Patience);
    place.deploy({"libguarded.2.so", "libguarded.3.so"}, {}, content); // which it does not load
    const Result result = keep(place, 1);
    QCOMPARE(result.err, QString());
    QCOMPARE(result.out, told({"libguarded.2.so"}));
    QCOMPARE(pluginsIn(place), (QStringList{"libguarded.1.so", "libguarded.3.so"}));
    host.stop();
    QCOMPARE(keep(place, 1).out, told({"libguarded.1.so"}));
}

void tst_Tidying::removesNothingWhereItCannotBeToldWhatIsLoaded()
{
    const Place place;
    const QStringList files{"liba.1.so", "liba.2.so"};
    place.deploy(files, {});
    std::optional<HiddenLock> lock(place.deployed());
    QVERIFY(lock->isHeld());
    const Result result = keep(place, 1);
    lock.reset();
    QCOMPARE(result.err, QStringLiteral("zdeploy: cannot tell what another process has loaded\n"));
    QCOMPARE(result.exitCode, 1);
    QCOMPARE(pluginsIn(place), files);
    QCOMPARE(keep(place, 1).out, told({"liba.1.so"}));
}

void tst_Tidying::saysWhatItCannotRemove()
{
    const Place place;
    place.deploy({"liba.so", "liba.2.so"}, {});
    QVERIFY(QDir(place.deployed()).mkdir(QStringLiteral("liba.1.so")));
    const Result result = keep(place, 1);
    QCOMPARE(result.out, told({"liba.so"}));
    QVERIFY2(result.err.startsWith(
                 QStringLiteral("zdeploy: cannot remove %1/liba.1.so: Is a directory").arg(place.deployed())),
             qPrintable(result.err));
    QCOMPARE(result.exitCode, 1);
}

QTEST_GUILESS_MAIN(tst_Tidying)

#include "tst_tidying.moc"
