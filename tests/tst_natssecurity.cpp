// SPDX-License-Identifier: Apache-2.0
#include "broker.h"
#include "certificates.h"
#include "gate.h"
#include "journalfile.h"
#include "nodeprocess.h"
#include "rawclient.h"
#include "testcase.h"

#include <QFile>
#include <QJsonDocument>

#include <memory>

#include <sys/stat.h>

namespace {

const QString Url = QStringLiteral("//w");
constexpr int Owner = int(QFile::ReadOwner | QFile::WriteOwner);

/// What the guide tells operators: who may answer for which hosts, and nothing else.
QString permissions(const char *user, const char *password, const char *host)
{
    return QStringLiteral("{ user: \"%1\", password: \"%2\", permissions: {\n"
                          "  publish: { allow: [\"z1.default.call.>\", \"z1.default.at.>\", \"z1.default.list\",\n"
                          "    \"$SRV.>\"], deny: [\"z1.default.call.secret.>\"] },\n"
                          "  subscribe: [\"z1.default.call.%3.>\", \"z1.default.at.%1.>\", \"z1.default.list\",\n"
                          "    \"$SRV.>\", \"_INBOX_%1.>\"],\n"
                          "  allow_responses: { max: 100, expires: \"1m\" } } }")
        .arg(QLatin1String(user), QLatin1String(password), QLatin1String(host));
}

QString users(const QStringList &each)
{
    return QStringLiteral("authorization { users: [\n%1\n] }\n").arg(each.join(QLatin1String(",\n")));
}

QString anyone(const char *user, const char *password)
{
    return QStringLiteral("{ user: \"%1\", password: \"%2\" }").arg(QLatin1String(user), QLatin1String(password));
}

/// A file with a secret, of this mode.
class Secret
{
public:
    explicit Secret(const QByteArray &text, int mode = Owner)
    {
        write(text);
        QFile::setPermissions(path(), QFile::Permissions(mode));
    }
    void write(const QByteArray &text) const { m_folder.write(QStringLiteral("secret"), text); }
    QString path() const { return m_folder.filePath(QStringLiteral("secret")); }

private:
    const Folder m_folder;
};

QJsonObject userWith(const char *user, const Secret &password)
{
    return {{QStringLiteral("user"), QLatin1String(user)}, {QStringLiteral("password-file"), password.path()}};
}

} // namespace

/// Who may connect, and what they may do then.
class tst_NatsSecurity : public TestCase
{
    Q_OBJECT

private Q_SLOTS:
    void offLoopbackTlsIsAsked();
    void theRightAuthorityIsTrusted();
    void anotherAuthorityIsNot();
    void theNameOfTheServerIsChecked_data();
    void theNameOfTheServerIsChecked();
    void clientsMayHaveToHaveACertificate();
    void aKeyThatOthersReadIsNotUsed();
    void filesThatAreNothingAreNotUsed_data();
    void filesThatAreNothingAreNotUsed();
    void aFileThatBecomesAPipeIsNotWaitedFor();

    void aPasswordThatOthersReadIsNotUsed_data();
    void aPasswordThatOthersReadIsNotUsed();
    void tokensAndPasswordsComeFromFiles_data();
    void tokensAndPasswordsComeFromFiles();
    void wrongPasswordsAreTriedUntilTheyAreRight();
    void whoIsRefusedSaysWhyAndTriesSeldom();
    void credentialsMayBeWithdrawnAndGivenAgain();
    void noSecretIsTold();

    void aProcessAnswersForItsOwnHostsAlone();
    void whatIsDeniedFailsAtOnce();
    void deniedAtOnceEachFailsByItself();
    void whatIsAllowedGoesOnWhileAnotherIsDenied();
    void whoMayNotHearAnswersIsNotToldThatNobodyWasCalled();
    void answersGoToAnInboxOfOnesOwn();
    void leasesComeWithTheirPermissions();

private:
    /// Whether a host with this section comes to be connected. Its log is in `m_log`.
    bool connects(const QString &server, const QJsonObject &more, int msecs = 20000);

    Certificates m_certificates;
    QStringList m_log;
};

bool tst_NatsSecurity::connects(const QString &server, const QJsonObject &more, int msecs)
{
    NodeProcess node(QStringLiteral("node"), sectionFor(server, more));
    node.setMask(0xff & ~8);
    const bool isConnected = node.start() && QTest::qWaitFor([&] { return node.isConnected(); }, msecs);
    m_log = node.log();
    m_log << at(node.report(), "connection", "error").toString();
    return isConnected && node.quit() >= 0;
}

void tst_NatsSecurity::offLoopbackTlsIsAsked()
{
    QVERIFY(!connects(QStringLiteral("nats://192.0.2.1:4222"), {}, 1000));
    const QString log = m_log.join(QLatin1Char('\n'));
    QVERIFY2(log.contains(QLatin1String("192.0.2.1")) && log.contains(QLatin1String("tls"), Qt::CaseInsensitive),
             qPrintable(log));
}

void tst_NatsSecurity::theRightAuthorityIsTrusted()
{
    QVERIFY(m_certificates.isValid());
    Broker broker(m_certificates.tls());
    QVERIFY(broker.start());
    const QJsonObject tls{{QStringLiteral("ca"), m_certificates.file(QStringLiteral("ca.crt"))}};
    const QString server = QStringLiteral("tls://127.0.0.1:%1").arg(broker.port());
    QVERIFY2(connects(server, {{QStringLiteral("tls"), tls}}), qPrintable(m_log.join(QLatin1Char('\n'))));
}

void tst_NatsSecurity::anotherAuthorityIsNot()
{
    const Certificates others;
    Broker broker(m_certificates.tls());
    QVERIFY(broker.start());
    const QJsonObject tls{{QStringLiteral("ca"), others.file(QStringLiteral("ca.crt"))}};
    const QString server = QStringLiteral("tls://127.0.0.1:%1").arg(broker.port());
    QVERIFY(!connects(server, {{QStringLiteral("tls"), tls}}, 3000));
    QVERIFY2(m_log.join(QLatin1Char(' ')).contains(QLatin1String("certificate"), Qt::CaseInsensitive) ||
                 m_log.join(QLatin1Char(' ')).contains(QLatin1String("SSL")),
             qPrintable(m_log.join(QLatin1Char('\n'))));
}

void tst_NatsSecurity::theNameOfTheServerIsChecked_data()
{
    QTest::addColumn<QString>("name");
    QTest::addColumn<bool>("connected");
    QTest::newRow("right") << "broker.test" << true;
    QTest::newRow("wrong") << "other.test" << false;
}

void tst_NatsSecurity::theNameOfTheServerIsChecked()
{
    QFETCH(QString, name);
    QFETCH(bool, connected);
    Broker broker(m_certificates.tls());
    QVERIFY(broker.start());
    const QJsonObject tls{{QStringLiteral("ca"), m_certificates.file(QStringLiteral("ca.crt"))},
                          {QStringLiteral("name"), name}};
    const QString server = QStringLiteral("tls://127.0.0.1:%1").arg(broker.port());
    QCOMPARE(connects(server, {{QStringLiteral("tls"), tls}}, connected ? 20000 : 3000), connected);
}

void tst_NatsSecurity::clientsMayHaveToHaveACertificate()
{
    Broker broker(m_certificates.tls(true));
    QVERIFY(broker.start());
    const QString server = QStringLiteral("tls://127.0.0.1:%1").arg(broker.port());
    QJsonObject tls{{QStringLiteral("ca"), m_certificates.file(QStringLiteral("ca.crt"))}};
    QVERIFY(!connects(server, {{QStringLiteral("tls"), tls}}, 3000));
    tls.insert(QStringLiteral("certificate"), m_certificates.file(QStringLiteral("client.crt")));
    tls.insert(QStringLiteral("key"), m_certificates.file(QStringLiteral("client.key")));
    QVERIFY2(connects(server, {{QStringLiteral("tls"), tls}}), qPrintable(m_log.join(QLatin1Char('\n'))));
}

void tst_NatsSecurity::aKeyThatOthersReadIsNotUsed()
{
    Broker broker(m_certificates.tls(true));
    QVERIFY(broker.start());
    const Folder folder;
    const QString key = folder.filePath(QStringLiteral("client.key"));
    QVERIFY(QFile::copy(m_certificates.file(QStringLiteral("client.key")), key));
    QVERIFY(QFile::setPermissions(key, QFile::Permissions(Owner) | QFile::ReadGroup | QFile::ReadOther));
    const QJsonObject tls{{QStringLiteral("ca"), m_certificates.file(QStringLiteral("ca.crt"))},
                          {QStringLiteral("certificate"), m_certificates.file(QStringLiteral("client.crt"))},
                          {QStringLiteral("key"), key}};
    QVERIFY(!connects(QStringLiteral("tls://127.0.0.1:%1").arg(broker.port()), {{QStringLiteral("tls"), tls}}, 2000));
    QVERIFY2(m_log.join(QLatin1Char('\n')).contains(QLatin1String("nats.tls.key: must have the mode 0600")),
             qPrintable(m_log.join(QLatin1Char('\n'))));
}

void tst_NatsSecurity::filesThatAreNothingAreNotUsed_data()
{
    QTest::addColumn<QJsonObject>("section");
    QTest::addColumn<QString>("problem"); // without the file
    const auto row = [](const char *key, const char *file, const char *problem) {
        const QString text = QString::fromLatin1(key);
        QJsonObject section{{text.section(QLatin1Char('.'), -1), QLatin1String(file)}};
        if (text.contains(QLatin1Char('.')))
            section = {{text.section(QLatin1Char('.'), 0, 0), section}};
        QTest::addRow("%s %s", key, file) << section << QStringLiteral("nats.%1: %2").arg(text, QLatin1String(problem));
    };
    row("tls.ca", "pipe", "is no regular file");
    row("tls.ca", "garbage", "holds no certificate");
    row("credentials", "pipe", "is no regular file");
    row("credentials", "garbage", "holds no credentials of NATS");
}

void tst_NatsSecurity::filesThatAreNothingAreNotUsed()
{
    QFETCH(QJsonObject, section);
    QFETCH(QString, problem);
    const Folder folder;
    QVERIFY(folder.write(QStringLiteral("garbage"), "garbage\n"));
    QVERIFY(QFile::setPermissions(folder.filePath(QStringLiteral("garbage")), QFile::Permissions(Owner)));
    QCOMPARE(mkfifo(folder.filePath(QStringLiteral("pipe")).toUtf8().constData(), 0600), 0);
    QByteArray text = QJsonDocument(section).toJson();
    text.replace("\"pipe\"", "\"" + folder.filePath(QStringLiteral("pipe")).toUtf8() + '"');
    text.replace("\"garbage\"", "\"" + folder.filePath(QStringLiteral("garbage")).toUtf8() + '"');
    Broker broker;
    QVERIFY(broker.start());
    NodeProcess node(QStringLiteral("node"), sectionFor(broker.url(), QJsonDocument::fromJson(text).object()));
    QVERIFY(node.start());
    QTRY_VERIFY2(node.hasLogged(problem), qPrintable(node.log().join(QLatin1Char('\n'))));
    QVERIFY(!node.isConnected());
    QVERIFY(node.quit() >= 0);
}

/// While the host runs, and looks for a broker.
void tst_NatsSecurity::aFileThatBecomesAPipeIsNotWaitedFor()
{
    const Folder folder;
    const QString ca = folder.filePath(QStringLiteral("ca.crt"));
    QVERIFY(QFile::copy(m_certificates.file(QStringLiteral("ca.crt")), ca));
    const QJsonObject tls{{QStringLiteral("ca"), ca}};
    NodeProcess node(QStringLiteral("node"),
                     sectionFor(QStringLiteral("tls://127.0.0.1:1"), {{QStringLiteral("tls"), tls}}));
    QVERIFY(node.start());
    QVERIFY(QFile::remove(ca));
    QCOMPARE(mkfifo(ca.toUtf8().constData(), 0600), 0);
    QTRY_VERIFY2(node.hasLogged(QStringLiteral("nats: is no regular file: ") + ca),
                 qPrintable(node.log().join(QLatin1Char('\n'))));
    QVERIFY(node.quit() >= 0);
}

void tst_NatsSecurity::aPasswordThatOthersReadIsNotUsed_data()
{
    QTest::addColumn<int>("mode");
    QTest::addColumn<bool>("connected");
    QTest::newRow("0600") << Owner << true;
    QTest::newRow("0400") << int(QFile::ReadOwner) << true;
    QTest::newRow("0644") << (Owner | int(QFile::ReadGroup | QFile::ReadOther)) << false;
    QTest::newRow("0640") << (Owner | int(QFile::ReadGroup)) << false;
    QTest::newRow("0602") << (Owner | int(QFile::WriteOther)) << false;
}

void tst_NatsSecurity::aPasswordThatOthersReadIsNotUsed()
{
    QFETCH(int, mode);
    QFETCH(bool, connected);
    Broker broker(users({anyone("u", "right")}));
    QVERIFY(broker.start());
    const Secret password("right\n", mode);
    QCOMPARE(connects(broker.url(), userWith("u", password), connected ? 20000 : 1500), connected);
    const QString log = m_log.join(QLatin1Char('\n'));
    QVERIFY2(connected || log.contains(QLatin1String("nats.password-file: must have the mode 0600")), qPrintable(log));
}

void tst_NatsSecurity::tokensAndPasswordsComeFromFiles_data()
{
    QTest::addColumn<QString>("authorization");
    QTest::addColumn<bool>("isToken");
    QTest::newRow("password") << users({anyone("u", "right")}) << false;
    QTest::newRow("token") << "authorization { token: right }\n" << true;
}

void tst_NatsSecurity::tokensAndPasswordsComeFromFiles()
{
    QFETCH(QString, authorization);
    QFETCH(bool, isToken);
    Broker broker(authorization);
    QVERIFY(broker.start());
    const Secret secret("right\n");
    const QJsonObject section =
        isToken ? QJsonObject{{QStringLiteral("token-file"), secret.path()}} : userWith("u", secret);
    QVERIFY2(connects(broker.url(), section), qPrintable(m_log.join(QLatin1Char('\n'))));
    QVERIFY(!connects(broker.url(), {}, 1500));
}

void tst_NatsSecurity::wrongPasswordsAreTriedUntilTheyAreRight()
{
    Broker broker(users({anyone("u", "right")}));
    QVERIFY(broker.start());
    const Secret password("wrong\n");
    NodeProcess node(QStringLiteral("node"), sectionFor(broker.url(), userWith("u", password)));
    QVERIFY(node.start());
    QTest::qWait(5000); // more than two refusals, after which the client gives up by itself
    QVERIFY(!node.isConnected());
    QCOMPARE(node.code(Url), 507);
    password.write("right\n");
    QTRY_VERIFY_WITH_TIMEOUT(node.isConnected(), 30000);
    QVERIFY(node.quit() >= 0);
}

void tst_NatsSecurity::whoIsRefusedSaysWhyAndTriesSeldom()
{
    Broker broker(users({anyone("u", "right")}));
    QVERIFY(broker.start());
    const Secret password("wrong\n");
    NodeProcess node(QStringLiteral("node"), sectionFor(broker.url(), userWith("u", password)));
    QVERIFY(node.start());
    const auto refusals = [&] { return broker.log().count(QLatin1String("authentication error")); };
    const QString why = QStringLiteral("Violation");
    QTRY_VERIFY2(node.hasLogged(why), qPrintable(node.log().join(QLatin1Char('\n'))));
    QVERIFY2(at(node.report(), "connection", "error").toString().contains(why, Qt::CaseInsensitive),
             qPrintable(at(node.report(), "connection", "error").toString()));
    constexpr int Seconds = 4;
    constexpr int Most = 5; // in each of them
    const int before = refusals();
    QTest::qWait(Seconds * 1000);
    const int tries = refusals() - before;
    QVERIFY2(tries >= 1 && tries <= Most * Seconds, qPrintable(QString::number(tries)));
    QCOMPARE(node.log().filter(why).size(), 1); // once
    password.write("right\n");
    QTRY_VERIFY_WITH_TIMEOUT(node.isConnected(), 10000);
    QVERIFY(!at(node.report(), "connection").toObject().contains(QStringLiteral("error")) ||
            at(node.report(), "connection", "error").toString().isEmpty());
    QVERIFY(node.quit() >= 0);
}

void tst_NatsSecurity::credentialsMayBeWithdrawnAndGivenAgain()
{
    const QString right = users({anyone("u", "right"), anyone("v", "other")});
    Broker broker(right);
    QVERIFY(broker.start());
    const Secret password("right");
    const Secret other("other");
    NodeProcess caller(QStringLiteral("caller"), sectionFor(broker.url(), userWith("u", password)));
    NodeProcess provider(QStringLiteral("provider"), sectionFor(broker.url(), userWith("v", other)));
    QVERIFY(caller.startConnected());
    QVERIFY(provider.startConnected());
    QVERIFY(provider.bind(Url));
    QVERIFY(caller.handles(Url));
    QVERIFY(broker.reload(users({anyone("v", "other")})));
    QTRY_VERIFY_WITH_TIMEOUT(!caller.isConnected(), 20000);
    QVERIFY(!caller.handles(Url));
    QTest::qWait(3000); // it is refused several times
    QVERIFY(!caller.isConnected());
    QVERIFY(broker.reload(right));
    QTRY_VERIFY_WITH_TIMEOUT(caller.handles(Url), 30000);
}

void tst_NatsSecurity::noSecretIsTold()
{
    Broker broker(users({anyone("u", "right")}));
    QVERIFY(broker.start());
    const Secret password("hush-hush");
    QVERIFY(!connects(broker.url(), userWith("u", password), 2000));
    QVERIFY(!m_log.isEmpty());
    QVERIFY2(!m_log.join(QLatin1Char('\n')).contains(QLatin1String("hush-hush")),
             qPrintable(m_log.join(QLatin1Char('\n'))));
}

void tst_NatsSecurity::aProcessAnswersForItsOwnHostsAlone()
{
    Broker broker(users({permissions("one", "1", "a"), permissions("two", "2", "b")}));
    QVERIFY(broker.start());
    const Secret first("1");
    const Secret second("2");
    NodeProcess one(QStringLiteral("one"), sectionFor(broker.url(), userWith("one", first)));
    NodeProcess two(QStringLiteral("two"), sectionFor(broker.url(), userWith("two", second)));
    QVERIFY(one.startConnected());
    QVERIFY(two.startConnected());
    QVERIFY(one.bind(QStringLiteral("//a")));
    QVERIFY(two.bind(QStringLiteral("//b")));
    QVERIFY(two.bind(QStringLiteral("//a"))); // it would like to answer for it
    for (int i = 0; i < 20; ++i)
        QCOMPARE(at(one.call(QStringLiteral("//b")), "out", "name").toString(), QStringLiteral("two"));
    QVERIFY(one.ask(QStringLiteral("unbind"), {{QStringLiteral("url"), QStringLiteral("//a")}}).size() > 0);
    QVERIFY(!one.handles(QStringLiteral("//a"))); // and nobody else answers
    QCOMPARE(two.calls(QStringLiteral("//a")), 0);
    QVERIFY(two.isConnected());
    QVERIFY(one.handles(QStringLiteral("//two@b")));
}

void tst_NatsSecurity::whatIsDeniedFailsAtOnce()
{
    Broker broker(users({permissions("one", "1", "a"), anyone("all", "0")}));
    QVERIFY(broker.start());
    const Secret first("1");
    const Secret zero("0");
    QJsonObject section = userWith("one", first);
    section.insert(QStringLiteral("timeout"), 5000);
    NodeProcess one(QStringLiteral("one"), sectionFor(broker.url(), section));
    NodeProcess all(QStringLiteral("all"), sectionFor(broker.url(), userWith("all", zero)));
    QVERIFY(one.startConnected());
    QVERIFY(all.startConnected());
    QVERIFY(all.bind(QStringLiteral("//secret/x")));
    for (int i = 0; i < 3; ++i) {
        const QJsonObject answer = one.call(QStringLiteral("//secret/x"));
        QVERIFY(!at(answer, "handled").toBool());
        QCOMPARE(at(answer, "outcome", "code").toInt(), 401);
        QCOMPARE(at(answer, "outcome", "reason").toString(), QStringLiteral("denied"));
        QCOMPARE(at(answer, "outcome", "called"), QJsonValue(false));
        QVERIFY2(at(answer, "ms").toInt() < 500, qPrintable(QString::number(at(answer, "ms").toInt())));
    }
    QTRY_VERIFY(one.hasLogged(QStringLiteral("(!) //secret/x denied")));
    QCOMPARE(all.calls(QStringLiteral("//secret/x")), 0);
}

/// Each of several callers is told of its own call, also where the broker's text is cut off.
void tst_NatsSecurity::deniedAtOnceEachFailsByItself()
{
    Broker broker(users({permissions("one", "1", "a")}));
    QVERIFY(broker.start());
    const Secret first("1");
    QJsonObject section = userWith("one", first);
    section.insert(QStringLiteral("timeout"), 10000);
    NodeProcess one(QStringLiteral("one"), sectionFor(broker.url(), section));
    QVERIFY(one.startConnected());
    for (int round = 0; round < 10; ++round) {
        QList<int> ids;
        for (int i = 0; i < 8; ++i) {
            const QString path = i % 2 ? QString(300 + i, QLatin1Char('a')) : QString::number(i);
            ids << one.begin(QStringLiteral("outcome"), {{QStringLiteral("url"), QStringLiteral("//secret/") + path}});
        }
        for (int id : qAsConst(ids)) {
            const QJsonObject answer = one.answer(id);
            const bool isCut = ids.indexOf(id) % 2;
            QCOMPARE(at(answer, "outcome", "code").toInt(), 401);
            QCOMPARE(at(answer, "outcome", "called"), isCut ? QJsonValue(QJsonValue::Undefined) : QJsonValue(false));
            QVERIFY2(at(answer, "ms").toInt() < 1000, qPrintable(QString::number(at(answer, "ms").toInt())));
        }
    }
}

/// The broker's text ends before it has said which of the two it means.
void tst_NatsSecurity::whatIsAllowedGoesOnWhileAnotherIsDenied()
{
    const QString domain(64, QChar(0xfc));
    const QString prefix = QStringLiteral("z1.") + QStringLiteral("%c3%bc").repeated(64);
    Broker broker(users({QStringLiteral("{ user: \"one\", password: \"1\", permissions: {\n  publish: [\"") + prefix +
                             QStringLiteral(".call.w.>\"], subscribe: [\"_INBOX_one.>\"] } }"),
                         anyone("all", "0")}));
    QVERIFY(broker.start());
    const Secret first("1");
    const Secret zero("0");
    QJsonObject section = userWith("one", first);
    section.insert(QStringLiteral("timeout"), 30000);
    section.insert(QStringLiteral("domain"), domain);
    NodeProcess one(QStringLiteral("one"), sectionFor(broker.url(), section));
    section = userWith("all", zero);
    section.insert(QStringLiteral("domain"), domain);
    NodeProcess all(QStringLiteral("all"), sectionFor(broker.url(), section));
    QVERIFY(one.startConnected());
    QVERIFY(all.startConnected());
    const Gate gate;
    QVERIFY(all.bind(QStringLiteral("//w"), gate.option()));
    const auto begin = [&](const char *url) {
        return one.begin(QStringLiteral("outcome"), {{QStringLiteral("url"), QLatin1String(url)}});
    };
    const int allowed = begin("//w");
    QTRY_COMPARE(all.calls(QStringLiteral("//w")), 1);
    const int denied = begin("//secret");
    QTRY_VERIFY(broker.log().contains(QLatin1String("Publish Violation")));
    const int later = begin("//w");
    QTRY_COMPARE(all.calls(QStringLiteral("//w")), 2);
    QVERIFY(!one.hasAnswered(allowed));
    gate.open();
    QCOMPARE(at(one.answer(allowed), "handled"), QJsonValue(true));
    QCOMPARE(at(one.answer(later), "handled"), QJsonValue(true));
    const QJsonObject answer = one.answer(denied); // nobody else can be meant now
    QCOMPARE(at(answer, "outcome", "code").toInt(), 401);
    QVERIFY(at(answer, "ms").toInt() < 20000);
}

void tst_NatsSecurity::whoMayNotHearAnswersIsNotToldThatNobodyWasCalled()
{
    const QString provider = anyone("v", "1");
    const auto caller = [](const char *inbox) {
        return QStringLiteral("{ user: u, password: \"1\", permissions: { publish: \">\", subscribe: [\"%1\"] } }")
            .arg(QLatin1String(inbox));
    };
    Broker broker(users({provider, caller("_INBOX_u.>")}));
    QVERIFY(broker.start());
    const Secret password("1");
    const JournalFile journal;
    const Gate gate;
    QJsonObject section = userWith("u", password);
    section.insert(QStringLiteral("timeout"), 30000);
    NodeProcess asks(QStringLiteral("asks"), sectionFor(broker.url(), section));
    NodeProcess answers(QStringLiteral("answers"), sectionFor(broker.url(), userWith("v", password)));
    QVERIFY(asks.startConnected());
    QVERIFY(answers.startConnected());
    QVERIFY(answers.bind(Url, gate.option(journal.option())));
    const QJsonObject in{{QStringLiteral("id"), QStringLiteral("one")}};
    const int id = asks.begin(QStringLiteral("outcome"), {{QStringLiteral("url"), Url}, {QStringLiteral("in"), in}});
    QTRY_COMPARE(journal.lines(), QStringList{"one"}); // it runs
    QVERIFY(broker.reload(users({provider, caller("elsewhere.>")})));
    const QJsonObject answer = asks.answer(id);
    QCOMPARE(at(answer, "handled"), QJsonValue(false));
    QVERIFY(!answer.value(QStringLiteral("outcome")).toObject().contains(QStringLiteral("called")));
    QVERIFY2(at(answer, "ms").toInt() < 20000, "it is waited for in vain");
    gate.open();
    // Whoever is told that nobody was called is told the truth.
    int told = 0;
    for (int i = 0; i < 5; ++i) {
        const QString one = QStringLiteral("next-%1").arg(i);
        const QJsonObject next = asks.call(Url, {{QStringLiteral("id"), one}});
        QCOMPARE(at(next, "handled"), QJsonValue(false));
        if (!next.value(QStringLiteral("outcome")).toObject().contains(QStringLiteral("called")))
            continue;
        ++told;
        QCOMPARE(at(next, "outcome", "called"), QJsonValue(false));
        QVERIFY(!journal.lines().contains(one));
    }
    QVERIFY(told > 0); // from the second on, everybody knows
}

void tst_NatsSecurity::answersGoToAnInboxOfOnesOwn()
{
    Broker broker(users({anyone("one", "1")}));
    QVERIFY(broker.start());
    const Secret first("1");
    RawClient client(broker.url(), QStringLiteral("one"), QStringLiteral("1"));
    QVERIFY(client.isConnected());
    QVERIFY(client.subscribe("z1.default.call.w._", "z"));
    const auto inboxWith = [&](const QJsonObject &more) {
        QJsonObject section = userWith("one", first);
        for (auto entry = more.begin(); entry != more.end(); ++entry)
            section.insert(entry.key(), entry.value());
        NodeProcess one(QStringLiteral("one"), sectionFor(broker.url(), section));
        if (!one.startConnected())
            return QByteArray();
        const int id = one.begin(QStringLiteral("outcome"), {{QStringLiteral("url"), Url}});
        const RawMessage request = client.next();
        client.publish(request.reply, "{}");
        client.flush();
        return at(one.answer(id), "handled").toBool() ? request.reply : QByteArray();
    };
    QVERIFY(inboxWith({}).startsWith("_INBOX_one."));
    QVERIFY(inboxWith({{QStringLiteral("inbox"), QStringLiteral("mine")}}).startsWith("mine."));
}

/// With nothing but what the guide gives to a user.
void tst_NatsSecurity::leasesComeWithTheirPermissions()
{
    const Folder store;
    const QString user = QStringLiteral(
        "{ user: \"clock\", password: \"1\", permissions: {\n"
        "  publish: [\"z1.default.list\", \"$SRV.>\", \"$JS.API.INFO\", \"$JS.API.STREAM.INFO.KV_zleases\",\n"
        "    \"$JS.API.STREAM.CREATE.KV_zleases\", \"$JS.API.STREAM.MSG.GET.KV_zleases\",\n"
        "    \"$JS.API.DIRECT.GET.KV_zleases.>\", \"$KV.zleases.>\"],\n"
        "  subscribe: [\"_INBOX_clock.>\", \"z1.default.at.clock.>\", \"z1.default.list\", \"z1.default.all\",\n"
        "    \"$SRV.>\", \"z1.default.call.clock.>\"],\n"
        "  allow_responses: {max: 1, expires: \"1h\"} } }");
    Broker broker(Broker::jetStream(store.path()) + users({user}));
    QVERIFY(broker.start());
    const Secret first("1");
    QJsonObject section = userWith("clock", first);
    section.insert(QStringLiteral("serve"), QJsonArray{QStringLiteral("clock")});
    NodeProcess node(QStringLiteral("clock"), sectionFor(broker.url(), section));
    QVERIFY(node.startConnected());
    const QString lease = QStringLiteral("lease");
    node.ask(QStringLiteral("want"), {{lease, lease}, {QStringLiteral("ms"), 1000}});
    int slot = 0;
    const auto begins = [&] {
        return at(node.ask(QStringLiteral("begin"), {{lease, lease}, {QStringLiteral("slot"), ++slot}}), "begun")
            .toBool();
    };
    QTRY_VERIFY_WITH_TIMEOUT(begins(), 10000);
    QVERIFY2(!node.hasLogged(QStringLiteral("Permissions Violation")), qPrintable(node.log().join(QLatin1Char('\n'))));
    QVERIFY2(!broker.log().contains(QLatin1String("Violation")), qPrintable(broker.log()));
}

QTEST_GUILESS_MAIN(tst_NatsSecurity)
#include "tst_natssecurity.moc"
