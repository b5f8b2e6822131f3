// SPDX-License-Identifier: Apache-2.0
// The fixture in which plugins are tested.
#include "folder.h"
#include "greeter.h"
#include "program.h"
#include "testcase.h"

#include <QCoreApplication>

#include <zpluginfixture.h>

#include <atomic>

namespace {

const QUrl Count(QStringLiteral("//handed/count"));

QString handed(int version) { return pluginFile(QStringLiteral("handed.%1").arg(version)); }

int number(const QJsonObject &answer, const char *key) { return answer.value(QLatin1String(key)).toInt(-1); }

} // namespace

class tst_PluginFixture : public TestCase
{
    Q_OBJECT

private Q_SLOTS:
    void loadsAndCalls();
    void seesAPluginLeaveThatNobodyHolds();
    void replacesVersionsUnderCallers();
    void replacesAFileByItself();
    void replacesAServiceUnderThoseWhoUseIt();
    void letsTheTestTick();
    void isConfiguredByTheTest();
    void takesServicesIn();
    void leavesTheApplicationAsItWas();
    void failsWithAReason_data();
    void failsWithAReason();
};

void tst_PluginFixture::loadsAndCalls()
{
    ZPluginFixture plugin;
    QVERIFY(plugin.load(handed(1)));
    QVERIFY(plugin.log()->has(QStringLiteral("loaded: libhanded")));
    QCOMPARE(number(plugin.call(Count), "count"), 1);
    QVERIFY(!plugin.services().dbus->invoke0(QUrl(QStringLiteral("//handed/unknown")), nullptr, nullptr));
}

void tst_PluginFixture::seesAPluginLeaveThatNobodyHolds()
{
    ZPluginFixture plugin;
    QVERIFY(plugin.load(pluginFile(QStringLiteral("plain"))));
    QVERIFY(plugin.leavesMemory());
    QVERIFY(plugin.log()->waitFor(QStringLiteral("unloaded: libplain")));
}

void tst_PluginFixture::replacesVersionsUnderCallers()
{
    auto *bus = new ZTestBus;
    ZPluginFixture plugin({bus});
    QVERIFY(plugin.load(handed(1)));
    for (const int version : {2, 3}) {
        QVERIFY(plugin.replace(handed(version), Count, {{QStringLiteral("some"), 1}}, version));
        QCOMPARE(number(plugin.call(QUrl(QStringLiteral("//handed/read"))), "version"), version);
    }
    const int calls = bus->count(Count);
    QVERIFY(calls >= 2 * 2 * 25 + 3 * 2 * 25);
    const QJsonObject answer = plugin.call(QUrl(QStringLiteral("//handed/read")));
    QVERIFY(number(answer, "count") <= calls); // one that was sent on counts twice for the bus
    QVERIFY(number(answer, "count") >= 2 * 2 * 25 + 3 * 2 * 25);
    QCOMPARE(number(answer, "ranOn"), 0);
}

void tst_PluginFixture::replacesAFileByItself()
{
    ZPluginFixture plugin;
    QVERIFY(plugin.load(handed(1)));
    QVERIFY(plugin.replace(handed(1), Count));
    QVERIFY(plugin.log()->has(QStringLiteral("loaded: libhanded.0001")));
}

void tst_PluginFixture::replacesAServiceUnderThoseWhoUseIt()
{
    ZPluginFixture plugin;
    const auto contract = QSharedPointer<GreeterDelegate>::create(nullptr);
    Greeter *const greeter = contract.data();
    plugin.services().emitter->bind0(contract);
    QVERIFY(plugin.load(pluginFile(QStringLiteral("greeter"))));
    std::atomic_int before{0}, after{0};
    const auto call = [&] {
        const QString answer = greeter->greet(QString());
        ++(answer.startsWith(QLatin1String("1:")) ? before : after);
        return !answer.isEmpty();
    };
    QVERIFY(plugin.replace(pluginFile(QStringLiteral("greeter.2")), call, 3));
    QVERIFY(before >= 3 * 25);
    QVERIFY(after > 0);
    QVERIFY(plugin.log()->waitFor(QStringLiteral("unloaded: libgreeter")));
}

void tst_PluginFixture::letsTheTestTick()
{
    auto *scheduler = new ZHandScheduler;
    ZPluginFixture plugin({scheduler});
    const QUrl read(QStringLiteral("//handed/read"));
    QVERIFY(plugin.load(handed(1)));
    QCOMPARE(scheduler->names(), QStringList{QStringLiteral("handed")});
    QCOMPARE(number(plugin.call(read), "ticks"), 0);
    QCOMPARE(scheduler->tick(), 1);
    QCOMPARE(number(plugin.call(read), "ticks"), 1);
    QVERIFY(plugin.replace(handed(2), Count));
    QCOMPARE(scheduler->names(), QStringList{QStringLiteral("handed")}); // of the next one, which has not run
    QCOMPARE(number(plugin.call(read), "ticks"), 0);
    plugin.call(QUrl(QStringLiteral("//handed/release")));
    QVERIFY(plugin.leavesMemory());
}

void tst_PluginFixture::isConfiguredByTheTest()
{
    const QPointer<ZLiteralConfig> config = new ZLiteralConfig(R"({"rain": 1, "loader": {"remember": true}})");
    ZPluginFixture plugin({config});
    QVERIFY(!config);
    const QJsonObject all = plugin.services().config->toJson0();
    QCOMPARE(number(all, "rain"), 1);
    const QJsonObject loader = all.value(QStringLiteral("loader")).toObject();
    QCOMPARE(loader.value(QStringLiteral("remember")).toBool(), true);
    QVERIFY(!loader.value(QStringLiteral("deployed")).toString().isEmpty());
}

void tst_PluginFixture::takesServicesIn()
{
    auto *bus = new ZTestBus;
    ZPluginFixture plugin({bus});
    bus->answer(QUrl(QStringLiteral("//rain")), {{QStringLiteral("mm"), 3}});
    QCOMPARE(number(plugin.call(QUrl(QStringLiteral("//rain"))), "mm"), 3);
}

void tst_PluginFixture::leavesTheApplicationAsItWas()
{
    const QStringList paths = QCoreApplication::libraryPaths();
    {
        ZPluginFixture plugin;
        QVERIFY(plugin.load(handed(1)));
        QVERIFY(QCoreApplication::libraryPaths() != paths);
    }
    QCOMPARE(QCoreApplication::libraryPaths(), paths);
    QCOMPARE(mappedPlugins(), QStringList());
}

void tst_PluginFixture::failsWithAReason_data()
{
    QTest::addColumn<QStringList>("reasons"); // patterns, in order
    const auto row = [](const char *function, const QStringList &reasons) { QTest::newRow(function) << reasons; };
    const QString said = QStringLiteral("The log has said:");
    const QString nothing = QStringLiteral("The log has said nothing of it");
    row("configurationIsNoJson", {QStringLiteral("This configuration is no JSON: .*, at byte 2: \\{1")});
    row("configurationIsNoObject", {QStringLiteral("This configuration is no JSON object: \\[1\\]")});
    row("isNotThere", {QStringLiteral("/none/libnone.so cannot be copied: .")});
    row("doesNotLoad",
        {QStringLiteral("libnoroot.so does not load."), said, QStringLiteral("warning: failed to load libnoroot: .")});
    row("isNotHandled", {QStringLiteral("Nobody has handled the call of //rain.")});
    row("hasNothingToReplace", {QStringLiteral("There is nothing to be replaced")});
    row("hasNothingToLeave", {QStringLiteral("There is nothing to leave memory")});
    row("missesFromTheBeginning", {QStringLiteral("(\\d+) of \\1 calls of //rain were missed, before anything was "
                                                  "replaced. Of the first: nobody handled it.")});
    row("throwsWhereItIsCalled", {QStringLiteral("Of the first: it threw \"no more\".")});
    row("throwsWhatItLikes", {QStringLiteral("Of the first: it threw something.")});
    row("missesWhatTheTestCalls", {QStringLiteral("(\\d+) of \\1 calls of the test were missed, before anything "
                                                  "was replaced. Of the first: it answered false.")});
    row("missesAsItIsReplaced", {QStringLiteral("[1-9]\\d* of \\d+ calls of //handed/count were missed, as the next "
                                                "version took over. Of the first: nobody handled it.")});
    row("isReplacedByWhatDoesNotLoad",
        {QStringLiteral("libnoroot.so does not load."), QStringLiteral("failed to load libhanded.0001")});
    row("staysBesideTheNext",
        {QStringLiteral("libecho.so stays in memory. Something holds it"), said,
         QStringLiteral("zdefault: loaded: libecho"), QStringLiteral("zdefault: loaded: libecho.0001")});
    row("stays", {QStringLiteral("libhanded.so stays in memory. Something holds it"), said});
    row("staysToTheEnd", {QStringLiteral("libnodelete.so stays in memory"), said,
                          QStringLiteral("warning: stays in memory: libnodelete: .")});
    row("takesNoLogger", {QStringLiteral("A logger or a loader cannot be handed in"), nothing});
    row("takesNoLoader", {QStringLiteral("A logger or a loader cannot be handed in"), nothing});
}

void tst_PluginFixture::failsWithAReason()
{
    QFETCH(QStringList, reasons);
    const Result result = runProgram(QStringLiteral(FAILURES), {QString::fromLatin1(QTest::currentDataTag())});
    QCOMPARE(result.exitCode, 1); // failure
    const QString pattern = QStringLiteral("FAIL!  : .*%1.*Loc: \\[[^]]*failures.cpp\\(\\d+\\)\\]");
    const QRegularExpression told(pattern.arg(reasons.join(QStringLiteral(".*"))),
                                  QRegularExpression::DotMatchesEverythingOption);
    QVERIFY2(told.match(result.out).hasMatch(), qPrintable(result.out + result.err));
}

QTEST_GUILESS_MAIN(tst_PluginFixture)
#include "tst_pluginfixture.moc"
