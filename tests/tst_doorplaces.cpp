// SPDX-License-Identifier: Apache-2.0
#include "door/doorhost.h"
#include "door/wire.h"
#include "testcase.h"

#include <QCryptographicHash>
#include <QFileInfo>

#include <sys/stat.h>
#include <sys/wait.h>

/// Where the socket of a host is, and for whom.
class tst_DoorPlaces : public TestCase
{
    Q_OBJECT

private Q_SLOTS:
    void hasItsSocketWhereItIsTold_data();
    void hasItsSocketWhereItIsTold();
    void trustsNoFolderThatOthersMayEnter_data();
    void trustsNoFolderThatOthersMayEnter();
    void socketIsItsUsersAlone();
    void answersNoOtherUser();
    void takesOverWhatNobodyListensAt();
    void runsOnce();
    void leavesAloneWhatIsNoSocket();
    void tellsWhereItsSocketCannotBe();
    void socketGoesWithTheHost();
    void isClosedWhereItIsSwitchedOff();
};

namespace {

/// A host that runs in an environment.
struct Placed
{
    explicit Placed(const QMap<QString, QString> &variables, const QJsonValue &door = QJsonObject())
    {
        QMap<QString, QString> all{{QStringLiteral("RUNTIME_DIRECTORY"), QString()},
                                   {QStringLiteral("XDG_RUNTIME_DIR"), QString()}};
        for (auto variable = variables.begin(); variable != variables.end(); ++variable)
            all.insert(variable.key(), variable.value());
        QJsonObject configuration = loaderOf(deployed, hotDeploy);
        configuration.insert(QStringLiteral("door"), door);
        running = std::make_unique<Running>(configuration, all, QStringList());
    }
    bool says(const QString &text) const
    {
        return QTest::qWaitFor([&] { return running->hasWritten(text); }, Patience);
    }
    bool isReady() const { return says(QStringLiteral("hot-deploy folder")); }
    /// Two configurations of one name, in different folders, do not meet.
    QString socketName() const
    {
        const QByteArray file = QFile::encodeName(QFileInfo(running->configurationFile()).canonicalFilePath());
        const QByteArray hash = QCryptographicHash::hash(file, QCryptographicHash::Sha256).toHex().left(8);
        return QStringLiteral("config-%1.sock").arg(QString::fromLatin1(hash));
    }

    const Folder deployed, hotDeploy;
    std::unique_ptr<Running> running;
};

QStringList socketsIn(const QString &folder)
{
    return QDir(folder).entryList({QStringLiteral("config-*.sock")}, QDir::System);
}

int modeOf(const QString &path)
{
    struct stat status = {};
    return stat(QFile::encodeName(path).constData(), &status) == 0 ? int(status.st_mode & 07777) : -1;
}

const QByteArray Health = "GET /healthz HTTP/1.1\r\n\r\n";

bool isAsked(const QString &socket) { return statusOf(Wire(socket).send(Health).all()) == 200; }

} // namespace

void tst_DoorPlaces::hasItsSocketWhereItIsTold_data()
{
    QTest::addColumn<QString>("key");     // of the configuration
    QTest::addColumn<QString>("service"); // $RUNTIME_DIRECTORY
    QTest::addColumn<QString>("login");   // $XDG_RUNTIME_DIR
    QTest::addColumn<QString>("folder");  // where it is

    const QString none, a = QStringLiteral("a"), b = QStringLiteral("b");
    QTest::newRow("the configuration's") << QStringLiteral("c/config-x.sock") << a << b << QStringLiteral("c");
    QTest::newRow("the service manager's") << none << a << b << a;
    QTest::newRow("the first of the service manager's") << none << QStringLiteral("a:FOLDER/b") << b << a;
    QTest::newRow("the user's own") << none << none << none << QStringLiteral("/tmp/zhost-%1").arg(geteuid());
    QTest::newRow("the login's") << none << none << b << QStringLiteral("b/zhost");
}

void tst_DoorPlaces::hasItsSocketWhereItIsTold()
{
    QFETCH(QString, key);
    QFETCH(QString, service);
    QFETCH(QString, login);
    QFETCH(QString, folder);
    const Folder places;
    for (const char *name : {"a", "b", "c"})
        QVERIFY(QDir(places.path()).mkdir(QLatin1String(name)));
    const auto path = [&](QString name) {
        name.replace(QStringLiteral("FOLDER"), places.path());
        return name.isEmpty() || name.startsWith(QLatin1Char('/')) ? name : places.filePath(name);
    };

    const Placed host(
        {{QStringLiteral("RUNTIME_DIRECTORY"), path(service)}, {QStringLiteral("XDG_RUNTIME_DIR"), path(login)}},
        QJsonObject{{QStringLiteral("socket"), path(key)}});
    const QString named = key.isEmpty() ? host.socketName() : QFileInfo(key).fileName();
    const QString socket = path(folder) + QLatin1Char('/') + named;
    QTRY_VERIFY_WITH_TIMEOUT(isAsked(socket), Patience);
    if (service.isEmpty() && key.isEmpty()) // the host's to make
        QCOMPARE(modeOf(path(folder)), 0700);
    host.running->stop();
    QVERIFY(!QFile::exists(socket));
}

void tst_DoorPlaces::trustsNoFolderThatOthersMayEnter_data()
{
    QTest::addColumn<int>("mode"); // -1: a link to one that is good
    QTest::addColumn<int>("owner");
    QTest::newRow("others may enter") << 0711 << int(geteuid());
    QTest::newRow("a group may read") << 0740 << int(geteuid());
    QTest::newRow("a link") << -1 << int(geteuid());
    if (geteuid() == 0) // who can give it away
        QTest::newRow("somebody else's") << 0700 << 65534;
}

void tst_DoorPlaces::trustsNoFolderThatOthersMayEnter()
{
    QFETCH(int, mode);
    QFETCH(int, owner);
    const Folder login, good;
    const QByteArray own = QFile::encodeName(login.filePath(QStringLiteral("zhost")));
    if (mode < 0)
        QCOMPARE(symlink(QFile::encodeName(good.path()).constData(), own.constData()), 0);
    else
        QVERIFY(mkdir(own.constData(), 0700) == 0 && chmod(own.constData(), mode_t(mode)) == 0 &&
                chown(own.constData(), uid_t(owner), gid_t(-1)) == 0);

    const Placed host({{QStringLiteral("XDG_RUNTIME_DIR"), login.path()}});
    QVERIFY(
        host.says(QStringLiteral("zhost: the door has no place: there is no folder that only this user can enter\n")));
    QVERIFY(host.isReady());
    QCOMPARE(socketsIn(QFile::decodeName(own)), QStringList());
    host.running->stop();
    QVERIFY(host.running->hasEndedWell());
}

void tst_DoorPlaces::socketIsItsUsersAlone()
{
    const Folder runtime;
    const Placed host({{QStringLiteral("RUNTIME_DIRECTORY"), runtime.path()}});
    const QString socket = runtime.filePath(host.socketName());
    QTRY_VERIFY_WITH_TIMEOUT(isAsked(socket), Patience);
    QCOMPARE(modeOf(socket), 0600);
}

/// Even where its mode would let him.
void tst_DoorPlaces::answersNoOtherUser()
{
    if (geteuid() != 0)
        QSKIP("takes root, who can be somebody else", 0);
    const Folder runtime;
    QCOMPARE(chmod(QFile::encodeName(runtime.path()).constData(), 0755), 0);
    const Placed host({{QStringLiteral("RUNTIME_DIRECTORY"), runtime.path()}});
    const QString socket = runtime.filePath(host.socketName());
    QTRY_VERIFY_WITH_TIMEOUT(isAsked(socket), Patience);
    QCOMPARE(chmod(QFile::encodeName(socket).constData(), 0777), 0);

    enum
    {
        NotConnected,
        Closed,
        Answered
    };
    const pid_t stranger = fork();
    if (stranger == 0) {
        if (setgid(65534) != 0 || setuid(65534) != 0)
            _exit(NotConnected);
        Wire wire(socket);
        if (!wire.isOpen())
            _exit(NotConnected);
        _exit(wire.send(Health).all().isEmpty() ? Closed : Answered);
    }
    int status = -1;
    QCOMPARE(waitpid(stranger, &status, 0), stranger);
    QVERIFY(WIFEXITED(status));
    QCOMPARE(WEXITSTATUS(status), int(Closed));
    QVERIFY(isAsked(socket));
}

void tst_DoorPlaces::takesOverWhatNobodyListensAt()
{
    const Folder folder;
    const QString path = folder.filePath(QStringLiteral("config-x.sock"));
    const QJsonObject door{{QStringLiteral("socket"), path}};
    {
        const Placed killed({}, door);
        QTRY_VERIFY_WITH_TIMEOUT(isAsked(path), Patience);
    }
    QVERIFY(QDir(folder.path()).entryList(QDir::System).size() == 1);
    const Placed host({}, door);
    QTRY_VERIFY_WITH_TIMEOUT(isAsked(path), Patience);
}

void tst_DoorPlaces::runsOnce()
{
    const Folder folder;
    const QString path = folder.filePath(QStringLiteral("config-x.sock"));
    const QJsonObject door{{QStringLiteral("socket"), path}};
    const Placed first({}, door);
    QTRY_VERIFY_WITH_TIMEOUT(isAsked(path), Patience);

    const Placed second({}, door);
    QVERIFY(second.running->process().waitForFinished(Patience));
    QVERIFY(second.says(
        QStringLiteral("zhost: this host runs already: the door cannot be opened at %1: somebody listens there\n")
            .arg(path)));
    QCOMPARE(second.running->exitCode(), 2);
    QVERIFY(isAsked(path));
}

void tst_DoorPlaces::leavesAloneWhatIsNoSocket()
{
    const Folder folder;
    const QString path = folder.filePath(QStringLiteral("notes"));
    QVERIFY(folder.write(QStringLiteral("notes"), "mine"));
    const Placed host({}, QJsonObject{{QStringLiteral("socket"), path}});
    QVERIFY(host.says(QStringLiteral("zhost: the door cannot be opened at %1: something else is there\n").arg(path)));
    QVERIFY(host.isReady());
    host.running->stop();
    QVERIFY(host.running->hasEndedWell());
    QFile notes(path);
    QVERIFY(notes.open(QIODevice::ReadOnly));
    QCOMPARE(notes.readAll(), QByteArray("mine"));
}

void tst_DoorPlaces::tellsWhereItsSocketCannotBe()
{
    const Folder folder;
    const QString deep = folder.filePath(QString(100, QLatin1Char('a')));
    const Placed tooLong({}, QJsonObject{{QStringLiteral("socket"), deep}});
    QVERIFY(tooLong.says(
        QStringLiteral("zhost: the door cannot be opened at %1: the path is too long for a socket\n").arg(deep)));
    const QString nowhere = folder.filePath(QStringLiteral("none/x.sock"));
    const Placed missing({}, QJsonObject{{QStringLiteral("socket"), nowhere}});
    QVERIFY(missing.says(
        QStringLiteral("zhost: the door cannot be opened at %1: No such file or directory\n").arg(nowhere)));
    QVERIFY(tooLong.isReady());
    QVERIFY(missing.isReady());
}

void tst_DoorPlaces::socketGoesWithTheHost()
{
    const Folder folder;
    const QString path = folder.filePath(QStringLiteral("config-x.sock"));
    const Placed host({}, QJsonObject{{QStringLiteral("socket"), path}});
    QTRY_VERIFY_WITH_TIMEOUT(isAsked(path), Patience);
    QVERIFY(host.isReady());
    host.running->stop();
    QVERIFY(host.running->hasEndedWell());
    QCOMPARE(QDir(folder.path()).entryList(QDir::System), QStringList());
}

void tst_DoorPlaces::isClosedWhereItIsSwitchedOff()
{
    const Folder runtime;
    const Placed host({{QStringLiteral("RUNTIME_DIRECTORY"), runtime.path()}}, false);
    QVERIFY(host.isReady());
    QCOMPARE(QDir(runtime.path()).entryList(QDir::System), QStringList());
    host.running->stop();
    QVERIFY(host.running->hasEndedWell());
    QVERIFY(!host.running->written().contains(QStringLiteral("door")));
}

QTEST_GUILESS_MAIN(tst_DoorPlaces)
#include "tst_doorplaces.moc"
