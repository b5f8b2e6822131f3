// SPDX-License-Identifier: Apache-2.0
#include "runninghost.h"
#include "testcase.h"

#include <QDir>

#include <sys/stat.h>
#include <unistd.h>

/// What zhost says, and does, of folders and plugins that others may change.
class tst_Ownership : public TestCase
{
    Q_OBJECT

private Q_SLOTS:
    void foldersOfOthersAreNamed_data();
    void foldersOfOthersAreNamed();
    void strictHostDoesNotStartOnFoldersOfOthers_data();
    void strictHostDoesNotStartOnFoldersOfOthers();
    void openFolderAboveIsNamed();
    void inboxIsSharedByItsStickyBit_data();
    void inboxIsSharedByItsStickyBit();
    void inboxIsAFolderOfItsOwn_data();
    void inboxIsAFolderOfItsOwn();
    void pluginsOfOthersAreNamed_data();
    void pluginsOfOthersAreNamed();
    void strictHostLoadsNoPluginOfOthers_data();
    void strictHostLoadsNoPluginOfOthers();
    void strictHostLoadsNoDropOfOthers();
    void strictHostLoadsNothingWhereItCannotRename();
};

namespace {

constexpr uid_t Stranger = 12345; // without a name

void setMode(const QString &path, mode_t mode) { QCOMPARE(chmod(QFile::encodeName(path).constData(), mode), 0); }

void give(const QString &path, uid_t user, gid_t group)
{
    QCOMPARE(chown(QFile::encodeName(path).constData(), user, group), 0);
}

/// What makes a folder or a file somebody else's, and how that is said.
void addOwnersData(mode_t mode)
{
    QTest::addColumn<int>("mode");
    QTest::addColumn<int>("user"); // -1: stays
    QTest::addColumn<int>("group");
    QTest::addColumn<QString>("who");
    QTest::newRow("everybody") << int(mode | 002) << -1 << -1 << "everybody";
    if (geteuid() != 0)
        return;
    QTest::newRow("another user") << int(mode) << int(Stranger) << -1 << "user 12345";
    QTest::newRow("another group") << int(mode | 020) << -1 << int(Stranger) << "group 12345";
}

void makeOthers(const QString &path, int mode, int user, int group)
{
    give(path, static_cast<uid_t>(user), static_cast<gid_t>(group));
    setMode(path, static_cast<mode_t>(mode));
}

/// The folders of a configuration, and its file.
struct Place
{
    Folder deployed, hotDeploy, other, config;
    QJsonObject loader = loaderOf(deployed, hotDeploy).value(QStringLiteral("loader")).toObject();

    QJsonObject configuration() const
    {
        QJsonObject result = loaderOf(deployed, hotDeploy);
        result.insert(QStringLiteral("loader"), loader);
        return result;
    }
    QString file() const { return config.filePath(QStringLiteral("config.json")); }
    Result run(const QStringList &options = {QStringLiteral("--check")}) const
    {
        config.write(QStringLiteral("config.json"), QJsonDocument(configuration()).toJson());
        return runProgram(QStringLiteral(ZHOST), options + QStringList{file()});
    }
    /// Has `folder` be the one under `key`.
    void put(const QString &key, const QString &folder)
    {
        const bool isList = key.startsWith(QLatin1String("add"));
        loader.insert(key, isList ? QJsonValue(QJsonArray{folder}) : QJsonValue(folder));
    }
    QString line(const QString &key, const QString &what) const
    {
        const QString index = QLatin1String(key.startsWith(QLatin1String("add")) ? "[0]" : "");
        return QStringLiteral("zhost: %1: \"loader.%2%3\": %4\n").arg(file(), key, index, what);
    }
};

} // namespace

void tst_Ownership::foldersOfOthersAreNamed_data() { addOwnersData(0755); }

void tst_Ownership::foldersOfOthersAreNamed()
{
    QFETCH(int, mode);
    QFETCH(int, user);
    QFETCH(int, group);
    QFETCH(QString, who);
    for (const char *const key : {"deployed", "hot-deploy", "add-library-path", "add-path"}) {
        Place place;
        place.put(key, place.other.path());
        QCOMPARE(place.run().err, QString());
        makeOthers(place.other.path(), mode, user, group);
        const QString what = QStringLiteral("%1 may write to %2, and so have this program run anything");
        const Result result = place.run();
        QCOMPARE(result.err, place.line(key, what.arg(who, place.other.path())));
        QCOMPARE(result.exitCode, 1);
    }
}

void tst_Ownership::strictHostDoesNotStartOnFoldersOfOthers_data()
{
    QTest::addColumn<QString>("key");
    for (const char *const key : {"deployed", "hot-deploy", "add-library-path", "add-path", "inbox"})
        QTest::newRow(key) << key;
}

void tst_Ownership::strictHostDoesNotStartOnFoldersOfOthers()
{
    QFETCH(QString, key);
    Place place;
    place.put(key, place.other.path());
    place.loader.insert(QStringLiteral("strict"), true);
    QCOMPARE(place.run().err, QString());
    setMode(place.other.path(), 0777);
    for (const QStringList &options : {QStringList{QStringLiteral("--check")}, QStringList()}) {
        const Result result = place.run(options);
        const QString line = place.line(key, QStringLiteral("everybody may write to %1").arg(place.other.path()));
        QVERIFY2(result.err.startsWith(line.trimmed()), qPrintable(result.err));
        QCOMPARE(result.exitCode, 2);
    }
}

void tst_Ownership::openFolderAboveIsNamed()
{
    Place place;
    const QString below = place.other.filePath(QStringLiteral("below"));
    QVERIFY(QDir().mkdir(below));
    place.put(QStringLiteral("deployed"), below);
    QCOMPARE(place.run().err, QString());
    setMode(place.other.path(), 0777);
    const QString what = QStringLiteral("everybody may write to %1, and so have this program run anything");
    QCOMPARE(place.run().err, place.line(QStringLiteral("deployed"), what.arg(place.other.path())));
    setMode(place.other.path(), 01777); // nobody can put another folder in its place
    QCOMPARE(place.run().err, QString());
}

void tst_Ownership::inboxIsSharedByItsStickyBit_data()
{
    QTest::addColumn<int>("mode");
    QTest::addColumn<bool>("isRight");
    QTest::newRow("its own") << 0755 << true;
    QTest::newRow("everybody's") << 01777 << true;
    QTest::newRow("everybody's, unseen") << 01733 << true;
    QTest::newRow("everybody's, without it") << 0777 << false;
}

void tst_Ownership::inboxIsSharedByItsStickyBit()
{
    QFETCH(int, mode);
    QFETCH(bool, isRight);
    Place place;
    const QString key = QStringLiteral("inbox");
    place.put(key, place.other.path());
    setMode(place.other.path(), static_cast<mode_t>(mode));
    const Result result = place.run();
    const QString what = QStringLiteral("everybody may write to %1, and so take away what others put there");
    QCOMPARE(result.err, isRight ? QString() : place.line(key, what.arg(place.other.path())));
    QCOMPARE(result.exitCode, isRight ? 0 : 1);
}

void tst_Ownership::inboxIsAFolderOfItsOwn_data()
{
    QTest::addColumn<QString>("key");
    QTest::newRow("deployed") << "deployed";
    QTest::newRow("hot-deploy") << "hot-deploy";
}

void tst_Ownership::inboxIsAFolderOfItsOwn()
{
    QFETCH(QString, key);
    Place place;
    place.put(QStringLiteral("inbox"), place.loader.value(key).toString());
    const QString what = QStringLiteral("is the folder that \"loader.%1\" is").arg(key);
    for (const QStringList &options : {QStringList{QStringLiteral("--check")}, QStringList()}) {
        const Result result = place.run(options);
        QCOMPARE(result.err, place.line(QStringLiteral("inbox"), what));
        QCOMPARE(result.exitCode, 2);
    }
}

void tst_Ownership::pluginsOfOthersAreNamed_data() { addOwnersData(0644); }

void tst_Ownership::pluginsOfOthersAreNamed()
{
    QFETCH(int, mode);
    QFETCH(int, user);
    QFETCH(int, group);
    QFETCH(QString, who);
    for (const char *const key : {"deployed", "hot-deploy", "add-library-path"}) {
        Place place;
        place.put(key, place.other.path());
        QVERIFY(place.other.drop(QStringLiteral("greeter")));
        const QString file = place.other.filePath(QStringLiteral("libgreeter.so"));
        makeOthers(file, mode, user, group);
        const QString what = QStringLiteral("%1 may write to %2, and so have this program run anything%3");
        for (const bool isStrict : {false, true}) {
            place.loader.insert(QStringLiteral("strict"), isStrict);
            const QString end = QLatin1String(isStrict ? "; it is not loaded" : "");
            const Result result = place.run();
            QCOMPARE(result.err, place.line(key, what.arg(who, file, end)));
            QCOMPARE(result.exitCode, 1);
        }
    }
}

void tst_Ownership::strictHostLoadsNoPluginOfOthers_data()
{
    QTest::addColumn<bool>("isStrict");
    QTest::newRow("strict") << true;
    QTest::newRow("not strict") << false;
}

void tst_Ownership::strictHostLoadsNoPluginOfOthers()
{
    QFETCH(bool, isStrict);
    Place place;
    place.loader.insert(QStringLiteral("strict"), isStrict);
    place.loader.insert(QStringLiteral("load-list"), QJsonArray{"greeter"});
    QVERIFY(place.deployed.drop(QStringLiteral("greeter")));
    QVERIFY(place.deployed.drop(QStringLiteral("greeter.2")));
    const QString file = place.deployed.filePath(QStringLiteral("libgreeter.2.so"));
    setMode(file, 0666);
    Running host(place.configuration());
    QTRY_VERIFY_WITH_TIMEOUT(host.hasWritten(QStringLiteral("hot-deploy folder changed")), Patience);
    const QString line =
        QStringLiteral("zhost: %1 is not loaded: everybody may write to %1; it is %1.distrusted now\n");
    QVERIFY2(host.written().contains(QStringLiteral("loaded: greeter\n")), qPrintable(host.written()));
    QCOMPARE(host.written().contains(QStringLiteral("loaded: libgreeter.2\n")), !isStrict);
    QCOMPARE(host.written().contains(line.arg(file)), isStrict);
    QCOMPARE(place.deployed.files().contains(QStringLiteral("libgreeter.2.so")), !isStrict);
    QCOMPARE(place.deployed.files().contains(QStringLiteral("libgreeter.2.so.distrusted")), isStrict);
    host.stop();
    QVERIFY2(host.hasEndedWell(), qPrintable(host.written()));
}

void tst_Ownership::strictHostLoadsNoDropOfOthers()
{
    Place place;
    place.loader.insert(QStringLiteral("strict"), true);
    Running host(place.configuration());
    QTRY_VERIFY_WITH_TIMEOUT(host.hasWritten(QStringLiteral("hot-deploy folder changed")), Patience);
    const QString file = place.other.filePath(QStringLiteral("libgreeter.so"));
    const QString line = QStringLiteral("zhost: %1 is not loaded: everybody may write to %1; it is %1.distrusted now\n")
                             .arg(place.deployed.filePath(QStringLiteral("libgreeter.so")));
    for (int i = 1; i <= 2; ++i) {
        QVERIFY(place.other.drop(QStringLiteral("greeter")));
        setMode(file, 0666);
        QVERIFY(QDir().rename(file, place.hotDeploy.filePath(QStringLiteral("libgreeter.so"))));
        QTRY_VERIFY_WITH_TIMEOUT(host.hasWritten(line) && host.written().count(line) == i, Patience);
    }
    QVERIFY(place.hotDeploy.drop(QStringLiteral("plain")));
    QTRY_VERIFY_WITH_TIMEOUT(host.hasWritten(QStringLiteral("loaded: libplain\n")), Patience);
    QVERIFY2(!host.written().contains(QStringLiteral("loaded: libgreeter\n")), qPrintable(host.written()));
    QCOMPARE(place.deployed.files(), (QStringList{"libgreeter.so.distrusted", "libplain.so"}));
}

void tst_Ownership::strictHostLoadsNothingWhereItCannotRename()
{
    if (geteuid() != 0)
        return QTest::qSkip("takes two users", __FILE__, __LINE__);
    constexpr uid_t Other = 65534;
    Place place;
    place.put(QStringLiteral("add-library-path"), place.other.path());
    place.loader.insert(QStringLiteral("strict"), true);
    place.loader.insert(QStringLiteral("load-list"), QJsonArray{"greeter"});
    for (const Folder *folder : {&place.deployed, &place.hotDeploy, &place.config})
        give(folder->path(), Other, Other);
    setMode(place.other.path(), 0755);
    QVERIFY(place.other.drop(QStringLiteral("greeter")));
    const QString file = place.other.filePath(QStringLiteral("libgreeter.so"));
    setMode(file, 0666);
    place.config.write(QStringLiteral("config.json"), QJsonDocument(place.configuration()).toJson());
    const QString user = QString::number(Other);
    const Result result =
        runProgram(QStringLiteral("setpriv"), {"--reuid", user, "--regid", user, "--clear-groups",
                                               QStringLiteral(ZHOST), "--call", "//zhost/printd", place.file()});
    const QString line =
        QStringLiteral("zhost: %1 is not loaded: everybody may write to %1; and it cannot be renamed: ");
    QVERIFY2(result.err.contains(line.arg(file)), qPrintable(result.err));
    QVERIFY2(!result.err.contains(QStringLiteral("loaded: greeter\n")), qPrintable(result.err));
    QVERIFY2(!result.out.contains(QStringLiteral("libgreeter.so")), qPrintable(result.out));
}

QTEST_GUILESS_MAIN(tst_Ownership)

#include "tst_ownership.moc"
