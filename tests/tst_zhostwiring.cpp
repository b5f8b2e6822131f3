// SPDX-License-Identifier: Apache-2.0
#include "runninghost.h"
#include "testcase.h"

/// What zhost says of plugins that it has loaded, and that do not get what they ask for.
class tst_ZHostWiring : public TestCase
{
    Q_OBJECT

private Q_SLOTS:
    void tellsOnceWhatAPluginIsLeftWithout_data();
    void tellsOnceWhatAPluginIsLeftWithout();
    void tellsOfADropAsWell();
    void tellsOfAnotherIdentifierAndLoads();
    void saysNothingOfAFileThatHasGone();
};

namespace {

const QString Wanting = QStringLiteral("wanting");
const QString LeftWithoutFirst = QStringLiteral(
    "zhost: libwanting.so: nobody served First when it was loaded: its property \"first\" was not written");

/// The lines of the host itself, when it has loaded `last` and stopped.
QStringList warnings(Running *host, const QString &last)
{
    const QString loaded = QStringLiteral("loaded: %1\n").arg(last);
    if (!QTest::qWaitFor([&] { return host->hasWritten(loaded); }, Patience))
        return {QStringLiteral("not loaded: ") + host->written()};
    host->stop();
    return host->written().split(QLatin1Char('\n')).filter(QStringLiteral("zhost: "));
}

} // namespace

void tst_ZHostWiring::tellsOnceWhatAPluginIsLeftWithout_data()
{
    QTest::addColumn<QStringList>("plugins");
    QTest::addColumn<QStringList>("lines");
    QTest::newRow("nothing") << QStringList{"founder", "configured", "echo", "greeter", "plain"} << QStringList();
    QTest::newRow("one") << QStringList{"founder", "wanting"} << QStringList{LeftWithoutFirst};
    QTest::newRow("several") << QStringList{"founder", "wanting_several"}
                             << QStringList{"zhost: libwanting_several.so: nobody served First, Second when it was "
                                            "loaded: its properties \"first\", \"second\", \"again\" were not written"};
}

void tst_ZHostWiring::tellsOnceWhatAPluginIsLeftWithout()
{
    QFETCH(QStringList, plugins);
    QFETCH(QStringList, lines);
    const Folder deployed, hotDeploy;
    for (const QString &plugin : qAsConst(plugins))
        QVERIFY(deployed.drop(plugin));
    Running host(loaderOf(deployed, hotDeploy, plugins));
    QCOMPARE(warnings(&host, plugins.constLast()), lines);
    QVERIFY(host.hasEndedWell());
}

/// Each version is loaded with its plugin, and once more by its name.
void tst_ZHostWiring::tellsOfADropAsWell()
{
    const Folder deployed, hotDeploy;
    QVERIFY(deployed.drop(QStringLiteral("founder")));
    Running host(loaderOf(deployed, hotDeploy, {QStringLiteral("founder")}));
    QTRY_VERIFY_WITH_TIMEOUT(host.hasWritten(QStringLiteral("loaded: founder\n")), Patience);
    QVERIFY(hotDeploy.drop(Wanting, QStringLiteral("libwanting.1.so")));
    const QStringList lines = warnings(&host, QStringLiteral("libwanting.1")).filter(QStringLiteral("nobody served"));
    QCOMPARE(lines, QStringList{QString(LeftWithoutFirst).replace(QStringLiteral("libwanting"), "libwanting.1")});
}

void tst_ZHostWiring::tellsOfAnotherIdentifierAndLoads()
{
    const Folder deployed, hotDeploy;
    QVERIFY(deployed.drop(QStringLiteral("wrongiid")));
    Running host(loaderOf(deployed, hotDeploy, {QStringLiteral("wrongiid")}));
    QCOMPARE(warnings(&host, QStringLiteral("wrongiid")),
             QStringList{"zhost: libwrongiid.so: its identifier is \"test::SomethingElse\", not \"zdefault::ZObject\": "
                         "write Q_PLUGIN_METADATA(IID ZObject_iid)"});
}

void tst_ZHostWiring::saysNothingOfAFileThatHasGone()
{
    const Folder deployed, hotDeploy;
    QVERIFY(deployed.drop(QStringLiteral("founder")));
    QVERIFY(deployed.drop(Wanting));
    Running host(loaderOf(deployed, hotDeploy, {QStringLiteral("founder"), Wanting}),
                 deployed.filePath(QStringLiteral("libwanting.so")), QStringLiteral("WANTING"));
    QCOMPARE(warnings(&host, Wanting), QStringList{LeftWithoutFirst});
}

QTEST_GUILESS_MAIN(tst_ZHostWiring)

#include "tst_zhostwiring.moc"
