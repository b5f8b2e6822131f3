// SPDX-License-Identifier: Apache-2.0
// What the door tells of a host's plugins, and does with them.
#include "door/doorhost.h"
#include "place.h"
#include "testcase.h"

#include <QFileInfo>

class tst_DoorPlugins : public TestCase
{
    Q_OBJECT

private Q_SLOTS:
    void tellsOfAPlugin();
    void tellsWhatWasLeftNull();
    void tellsWhatKeepsAPlugin_data();
    void tellsWhatKeepsAPlugin();
    void tellsWhatKeepsAFormerVersion();
    void tellsWhatIsLeftBehind();
    void tellsHowAPluginIsTrusted();
    void tellsWhyAPluginWasTakenBack();
    void tellsOfAPluginThatCannotBeLoaded();
    void tellsThatNobodyGuards();
    void tellsOfAFileThatIsGone();
    void releasesAnEndpoint();
    void releasesAnActivity();
    void releasesNothingOfTheNewest();
    void releaseOutlivesAnException();
    void rollsBack();
    void refusesToRollBack_data();
    void refusesToRollBack();
    void doesNotRollBackWhileAnotherVersionWaits();
    void doesNotRollBackIntoAFolderThatIsGone();
    void doesNotRollBackWithoutAFolder();
};

namespace {

const QString Lodger = QStringLiteral("lodger");
const QString First = QStringLiteral("liblodger.so");
const QString Second = QStringLiteral("liblodger.2.so");
const QString Third = QStringLiteral("liblodger.3.so");

QJsonArray listIn(const QJsonObject &object, const char *key) { return object.value(QLatin1String(key)).toArray(); }

/// What keeps it in memory, as "KIND NAME: TEXT".
QStringList holdersOf(const DoorHost &host, const QString &file)
{
    QStringList result;
    const QJsonArray holders = listIn(host.plugin(file), "heldBy");
    for (const auto &value : holders) {
        const QJsonObject holder = value.toObject();
        result.append(
            QStringLiteral("%1 %2: %3").arg(textIn(holder, "kind"), textIn(holder, "name"), textIn(holder, "text")));
    }
    return result;
}

bool becomes(const DoorHost &host, const QString &file, const char *state)
{
    return QTest::qWaitFor([&] { return textIn(host.plugin(file), "state") == QLatin1String(state); }, Patience);
}

/// Drops the next version, and waits until it serves.
bool follows(const DoorHost &host, const QString &plugin, const QString &file)
{
    return host.hotDeploy.drop(plugin, file) && QTest::qWaitFor([&] { return host.isInMemory(file); }, Patience) &&
           becomes(host, file, "good");
}

} // namespace

void tst_DoorPlugins::tellsOfAPlugin()
{
    DoorHost host;
    QVERIFY(host.startsWith({Lodger}));
    QVERIFY(becomes(host, First, "good"));
    const QJsonObject plugin = host.plugin(First);
    QCOMPARE(textIn(plugin, "plugin"), Lodger);
    QCOMPARE(textIn(plugin, "version"), QString());
    QCOMPARE(qint64(plugin.value(QStringLiteral("size")).toDouble()), QFileInfo(host.deployed.filePath(First)).size());
    QVERIFY(isIn(plugin, "inMemory"));
    QVERIFY(textIn(plugin, "loadedSince") >= textIn(host.get("/v1/report/host").object(), "since"));
    QCOMPARE(textIn(plugin, "root"), QStringLiteral("Lodger"));
    QCOMPARE(listIn(plugin, "serves"), QJsonArray{QStringLiteral("ZTempFile")});
    QCOMPARE(listIn(plugin, "endpoints"), QJsonArray{QStringLiteral("//lodger")});
    QCOMPARE(listIn(plugin, "activities"), QJsonArray());
    QCOMPARE(textIn(plugin, "left"), QString());
    QCOMPARE(textIn(plugin, "reason"), QString());
}

void tst_DoorPlugins::tellsWhatWasLeftNull()
{
    DoorHost host;
    QVERIFY(host.startsWith({Lodger}));
    const QJsonArray components = listIn(host.plugin(First), "components");
    QCOMPARE(components.size(), 1);
    QCOMPARE(textIn(components.at(0).toObject(), "class"), QStringLiteral("Lodger"));
    QVERIFY(!textIn(components.at(0).toObject(), "since").isEmpty());
    QStringList properties;
    const QJsonArray all = listIn(components.at(0).toObject(), "properties");
    for (const auto &value : all) {
        const QJsonObject property = value.toObject();
        properties.append(QStringLiteral("%1 %2 %3")
                              .arg(textIn(property, "interface"), textIn(property, "name"),
                                   isIn(property, "given") ? QStringLiteral("given") : QStringLiteral("null")));
    }
    // But not the one that holds a text: no service goes there.
    QCOMPARE(properties, QStringList({QStringLiteral("ZLogger zLogger given"), QStringLiteral("Greeter greeter null"),
                                      QStringLiteral("ZDbus zDbus given"), QStringLiteral("ZEmitter zEmitter given")}));
}

void tst_DoorPlugins::tellsWhatKeepsAPlugin_data()
{
    QTest::addColumn<QString>("plugin");
    QTest::addColumn<QStringList>("holders");
    const auto add = [](const char *plugin, const QStringList &holders) {
        QTest::newRow(plugin) << QString::fromLatin1(plugin) << holders;
    };
    add("lender", {QStringLiteral("service ZTempFile: serves ZTempFile")});
    add("echo", {QStringLiteral("endpoint //echo: an endpoint at //echo")});
    add("worker", {QStringLiteral("activity work: an activity: work")});
    add("keeper", {QStringLiteral("unknown : something of it that is shared: what, is not known")});
    add("lodger", {QStringLiteral("service ZTempFile: serves ZTempFile"),
                   QStringLiteral("endpoint //lodger: an endpoint at //lodger")});
}

void tst_DoorPlugins::tellsWhatKeepsAPlugin()
{
    QFETCH(QString, plugin);
    DoorHost host;
    QVERIFY(host.startsWith({plugin}));
    QTEST(holdersOf(host, QStringLiteral("lib%1.so").arg(plugin)), "holders");
}

void tst_DoorPlugins::tellsWhatKeepsAFormerVersion()
{
    DoorHost host;
    QVERIFY(host.startsWith({Lodger}));
    QCOMPARE(host.call("//lodger/wait", "{}", 1).status, 504); // a call is under way in it
    QVERIFY(follows(host, Lodger, Second));
    const QString former =
        QStringLiteral("former service ZTempFile: has served ZTempFile, and is held by a call or a share");
    QVERIFY(holdersOf(host, First).contains(former));
    QCOMPARE(listIn(host.plugin(First), "serves"), QJsonArray());
    QCOMPARE(listIn(host.plugin(Second), "serves"), QJsonArray{QStringLiteral("ZTempFile")});
    QCOMPARE(textIn(host.plugin(Second), "version"), QStringLiteral("2"));
}

void tst_DoorPlugins::tellsWhatIsLeftBehind()
{
    DoorHost host;
    const QString file = QStringLiteral("libthreadlocal.so");
    QVERIFY(host.startsWith({QStringLiteral("threadlocal")}));
    QTRY_VERIFY_WITH_TIMEOUT(!textIn(host.plugin(file), "left").isEmpty(), Patience);
    const QString left = textIn(host.plugin(file), "left");
    QVERIFY2(left.contains(QStringLiteral("thread_local")), qPrintable(left));
    QCOMPARE(holdersOf(host, file), QStringList{QStringLiteral("for good : ") + left});
    QVERIFY(host.isInMemory(file));
    QCOMPARE(listIn(host.plugin(file), "components"), QJsonArray()); // its root is gone
}

void tst_DoorPlugins::tellsHowAPluginIsTrusted()
{
    DoorHost host;
    host.probation = 3600000;
    QVERIFY(host.startsWith({QStringLiteral("guarded_Serve")}));
    const QString first = QStringLiteral("libguarded_Serve.so");
    QVERIFY(becomes(host, first, "on probation"));
    const QString second = QStringLiteral("libguarded_Serve.2.so");
    QVERIFY(host.hotDeploy.drop(QStringLiteral("guarded_Serve"), second));
    QVERIFY(becomes(host, second, "on probation"));
    QVERIFY(becomes(host, first, "unproven")); // nobody will judge it any more
}

void tst_DoorPlugins::tellsWhyAPluginWasTakenBack()
{
    DoorHost host;
    const QString file = Second + QStringLiteral(".quarantined");
    QVERIFY(host.deployed.drop(Lodger, file));
    QVERIFY(host.deployed.write(QStringLiteral("quarantined.json"),
                                "{\"" + file.toUtf8() + "\": {\"why\": \"it was not well\"}}"));
    QVERIFY(host.startsWith({Lodger}));
    QCOMPARE(textIn(host.plugin(Second), "state"), QStringLiteral("quarantined"));
    QCOMPARE(textIn(host.plugin(Second), "reason"), QStringLiteral("it was not well"));
    QVERIFY(!host.isInMemory(Second));
}

void tst_DoorPlugins::tellsOfAPluginThatCannotBeLoaded()
{
    DoorHost host;
    QVERIFY(host.startsWith({QStringLiteral("noroot")}));
    const QString file = QStringLiteral("libnoroot.so");
    QTRY_VERIFY_WITH_TIMEOUT(!host.isInMemory(file), Patience); // where it was looked at
    const QJsonObject plugin = host.plugin(file);
    QVERIFY(!textIn(plugin, "reason").isEmpty());
    QCOMPARE(textIn(plugin, "loadedSince"), QString());
    QCOMPARE(listIn(plugin, "heldBy"), QJsonArray());
}

void tst_DoorPlugins::tellsThatNobodyGuards()
{
    DoorHost host;
    host.sections = {{QStringLiteral("guard"), false}};
    QVERIFY(host.startsWith({Lodger}));
    QCOMPARE(textIn(host.plugin(First), "state"), QStringLiteral("unguarded"));
}

void tst_DoorPlugins::tellsOfAFileThatIsGone()
{
    DoorHost host;
    QVERIFY(host.startsWith({Lodger}));
    QVERIFY(QFile::remove(host.deployed.filePath(First)));
    const QJsonObject plugin = host.plugin(First);
    QCOMPARE(textIn(plugin, "state"), QStringLiteral("gone"));
    QVERIFY(isIn(plugin, "inMemory"));
    QCOMPARE(numberIn(plugin, "size"), 0);
    QCOMPARE(listIn(plugin, "endpoints"), QJsonArray{QStringLiteral("//lodger")});
}

void tst_DoorPlugins::releasesAnEndpoint()
{
    DoorHost host;
    QVERIFY(host.startsWith({Lodger}));
    QVERIFY(follows(host, Lodger, Second));
    QVERIFY(host.isInMemory(First));
    const Answered released = host.post("/v1/plugins/lodger/release");
    QCOMPARE(released.status, 200);
    QCOMPARE(listIn(released.object(), "asked"), QJsonArray{QStringLiteral("//lodger of liblodger.so")});
    QTRY_VERIFY_WITH_TIMEOUT(!host.isInMemory(First), Patience);
    QVERIFY(host.isInMemory(Second));
    QCOMPARE(listIn(host.plugin(Second), "endpoints"), QJsonArray{QStringLiteral("//lodger")});
    QCOMPARE(textIn(host.plugin(First), "root"), QString());
}

void tst_DoorPlugins::releasesAnActivity()
{
    DoorHost host;
    const QString worker = QStringLiteral("worker"), first = QStringLiteral("libworker.so");
    QVERIFY(host.startsWith({worker}));
    QVERIFY(follows(host, worker, QStringLiteral("libworker.2.so")));
    const Answered released = host.post("/v1/plugins/worker/release");
    QCOMPARE(listIn(released.object(), "asked"), QJsonArray{QStringLiteral("an activity of libworker.so")});
    QTRY_VERIFY_WITH_TIMEOUT(!host.isInMemory(first), Patience);
    QCOMPARE(listIn(host.plugin(QStringLiteral("libworker.2.so")), "activities"), QJsonArray{QStringLiteral("work")});
}

void tst_DoorPlugins::releasesNothingOfTheNewest()
{
    DoorHost host;
    QVERIFY(host.startsWith({Lodger}));
    const Answered released = host.post("/v1/plugins/lodger/release");
    QCOMPARE(released.status, 200);
    QCOMPARE(listIn(released.object(), "asked"), QJsonArray());
    const Answered unknown = host.post("/v1/plugins/nobody/release");
    QCOMPARE(unknown.status, 404);
    QCOMPARE(unknown.error(), QStringLiteral("no file of nobody is in memory"));
}

void tst_DoorPlugins::releaseOutlivesAnException()
{
    DoorHost host;
    QVERIFY(host.startsWith({Lodger}));
    QVERIFY(follows(host, Lodger, Second));
    host.call("//lodger/refuse"); // the newest
    QVERIFY(follows(host, Lodger, Third));
    const Answered released = host.post("/v1/plugins/lodger/release");
    QCOMPARE(released.status, 200);
    QCOMPARE(listIn(released.object(), "asked").size(), 2);
    QTRY_VERIFY_WITH_TIMEOUT(!host.isInMemory(First), Patience);
    QVERIFY(host.isInMemory(Second)); // which has thrown
    QVERIFY(host.get("/metrics").body.contains("zhost_door_call_failures_total 1\n"));
}

void tst_DoorPlugins::rollsBack()
{
    DoorHost host;
    host.deployed.write(First, contentOf(pluginFile(Lodger)) + "another");
    host.loadList = QStringList{Lodger};
    host.start();
    QVERIFY(host.isReady());
    QVERIFY(becomes(host, First, "good"));
    QVERIFY(follows(host, Lodger, Second));
    const Answered rolled = host.post("/v1/plugins/lodger/rollback");
    QCOMPARE(rolled.status, 200);
    QCOMPARE(rolled.object(), QJsonObject({{QStringLiteral("from"), First}, {QStringLiteral("to"), Third}}));
    QTRY_COMPARE_WITH_TIMEOUT(textIn(host.find("services", "interface", QStringLiteral("ZTempFile")), "file"), Third,
                              Patience);
    const QString told = QStringLiteral("zhost: liblodger.so is deployed again, as liblodger.3.so: somebody has asked");
    QTRY_VERIFY_WITH_TIMEOUT(host.running->hasWritten(told), Patience);
}

void tst_DoorPlugins::refusesToRollBack_data()
{
    QTest::addColumn<QString>("plugin");
    QTest::newRow("the only version") << Lodger;
    QTest::newRow("no such plugin") << QStringLiteral("nobody");
    QTest::newRow("no name of a plugin") << QStringLiteral("..");
}

void tst_DoorPlugins::refusesToRollBack()
{
    QFETCH(QString, plugin);
    DoorHost host;
    QVERIFY(host.startsWith({Lodger}));
    QVERIFY(becomes(host, First, "good"));
    const Answered answered = host.post(QStringLiteral("/v1/plugins/%1/rollback").arg(plugin).toStdString());
    QCOMPARE(answered.status, 404);
    QCOMPARE(answered.error(), QStringLiteral("%1 has no good version before the newest").arg(plugin));
}

void tst_DoorPlugins::doesNotRollBackWhileAnotherVersionWaits()
{
    DoorHost host;
    QVERIFY(host.startsWith({Lodger}));
    QVERIFY(becomes(host, First, "good"));
    QVERIFY(follows(host, Lodger, Second));
    QCOMPARE(host.call("//lodger/hang").status, 200); // nobody comes for what is dropped
    QVERIFY(host.hotDeploy.drop(Lodger, Third));
    const Answered answered = host.post("/v1/plugins/lodger/rollback");
    QCOMPARE(answered.status, 409);
    QCOMPARE(answered.error(), QStringLiteral("liblodger.3.so is still to be loaded"));
}

void tst_DoorPlugins::doesNotRollBackIntoAFolderThatIsGone()
{
    DoorHost host;
    QVERIFY(host.startsWith({Lodger}));
    QVERIFY(becomes(host, First, "good"));
    QVERIFY(follows(host, Lodger, Second));
    QVERIFY(QDir().rename(host.hotDeploy.path(), host.folder.filePath(QStringLiteral("away"))));
    const Answered answered = host.post("/v1/plugins/lodger/rollback");
    QCOMPARE(answered.status, 409);
    QCOMPARE(answered.error(), QStringLiteral("there is no hot-deploy folder, or no deployed folder"));
    QVERIFY(QDir().rename(host.folder.filePath(QStringLiteral("away")), host.hotDeploy.path()));
}

void tst_DoorPlugins::doesNotRollBackWithoutAFolder()
{
    DoorHost host;
    host.sections = {{QStringLiteral("loader"), QJsonObject{{QStringLiteral("deployed"), host.deployed.path()}}}};
    host.start();
    QVERIFY(host.isReady());
    const Answered answered = host.post("/v1/plugins/lodger/rollback");
    QCOMPARE(answered.status, 409);
    QCOMPARE(answered.error(), QStringLiteral("there is no hot-deploy folder, or no deployed folder"));
}

QTEST_GUILESS_MAIN(tst_DoorPlugins)
#include "tst_doorplugins.moc"
