// SPDX-License-Identifier: Apache-2.0
#include "broker.h"
#include "gate.h"
#include "loopback.h"
#include "nodeprocess.h"
#include "rawclient.h"
#include "testcase.h"

#include <QDateTime>
#include <QJsonDocument>

#include <cmath>
#include <memory>

namespace {

const QString Url = QStringLiteral("//w");
const QByteArray Call = "z1.default.call.w._"; // where it is called
const QString Lease = QStringLiteral("lease");

QString letters(int count, QChar letter = QLatin1Char('u')) { return QString(count, letter); }

} // namespace

/// What comes from those who do not know better, or mean ill: names of any length, numbers that are none.
class tst_NatsStrangers : public TestCase
{
    Q_OBJECT

protected Q_SLOTS:
    void init() override;

private Q_SLOTS:
    void longAddressesFailByThemselves_data();
    void longAddressesFailByThemselves();
    void theLongestAddressesPass();
    void longAddressesAreNotServed();
    void longNamesOfLeasesAreNotWanted_data();
    void longNamesOfLeasesAreNotWanted();
    void longNamesInTheSectionAreMistakes_data();
    void longNamesInTheSectionAreMistakes();
    void numbersThatAreNoneDoNoHarm_data();
    void numbersThatAreNoneDoNoHarm();
    void hopsThatAreNoNumberAreTooMany_data();
    void hopsThatAreNoNumberAreTooMany();
    void aSectionMustBeAnObject_data();
    void aSectionMustBeAnObject();
    void passwordsInUrlsAreNotTold();
    void whoeverAnswersWithoutAnEndIsNotHeardForEver();
    void manyHeadersHoldUpNobodyElse();
    void failuresAreCountedByTheirCodes_data();
    void failuresAreCountedByTheirCodes();
    void reasonsAreCut_data();
    void reasonsAreCut();
    void reasonsDoNothingToATerminal();
    void namesThatNobodyCanHaveAreNotTold_data();
    void namesThatNobodyCanHaveAreNotTold();
    void clocksThatSayAnythingDoNoHarm_data();
    void clocksThatSayAnythingDoNoHarm();
    void whoHasNoNameIsNotTooLateTwice();

private:
    /// What the near one is told if a stranger answers its call like this.
    QJsonObject answered(RawClient &stranger, const RawClient::Headers &headers);
    /// Calls "//slow" of the far one, whose calls end as the gate opens.
    void beginSlowCall();
    /// The call goes on, and so does the connection.
    void verifyNobodyWasCutOff();
    /// Since this test began.
    QString brokerSays() const { return m_broker->log().mid(m_said); }

    std::unique_ptr<Folder> m_store;
    std::unique_ptr<Broker> m_broker;
    std::unique_ptr<NodeProcess> m_near, m_far;
    std::unique_ptr<Gate> m_gate;
    int m_slowCall = 0;
    int m_said = 0;
};

void tst_NatsStrangers::init()
{
    TestCase::init();
    if (!m_broker) {
        m_store = std::make_unique<Folder>();
        m_broker = std::make_unique<Broker>(Broker::jetStream(m_store->path()));
        QVERIFY(m_broker->start());
    }
    const QJsonObject more{{QStringLiteral("timeout"), 30000}, {QStringLiteral("broadcast"), QStringLiteral("all")}};
    m_near = std::make_unique<NodeProcess>(QStringLiteral("near"), sectionFor(m_broker->url(), more));
    m_far = std::make_unique<NodeProcess>(QStringLiteral("far"), sectionFor(m_broker->url(), more));
    m_near->setMask(0xff & ~8);
    QVERIFY(m_near->startConnected());
    QVERIFY(m_far->startConnected());
    m_near->takeLog();
    m_said = m_broker->log().size();
}

QJsonObject tst_NatsStrangers::answered(RawClient &stranger, const RawClient::Headers &headers)
{
    const int id = m_near->begin(QStringLiteral("outcome"), {{QStringLiteral("url"), Url}});
    const RawMessage request = stranger.next();
    stranger.publish(request.reply, "{}", headers);
    stranger.flush();
    return m_near->answer(id);
}

void tst_NatsStrangers::beginSlowCall()
{
    m_gate = std::make_unique<Gate>();
    const QString slow = QStringLiteral("//slow");
    QVERIFY(m_far->bind(slow, m_gate->option()));
    m_slowCall = m_near->begin(QStringLiteral("outcome"), {{QStringLiteral("url"), slow}});
    QTRY_COMPARE(m_far->calls(slow), 1);
}

void tst_NatsStrangers::verifyNobodyWasCutOff()
{
    QVERIFY(m_near->isConnected());
    QVERIFY(m_far->isConnected());
    m_gate->open();
    QCOMPARE(at(m_near->answer(m_slowCall), "outcome", "code").toInt(), 200);
    for (NodeProcess *each : {m_near.get(), m_far.get()})
        QCOMPARE(at(each->report(), "connection", "reconnects").toInt(), 0);
    QVERIFY2(!m_near->hasLogged(QStringLiteral("connection is lost")),
             qPrintable(m_near->log().join(QLatin1Char('\n'))));
    QVERIFY2(!brokerSays().contains(QLatin1String("maximum control line")), qPrintable(brokerSays()));
}

void tst_NatsStrangers::longAddressesFailByThemselves_data()
{
    QTest::addColumn<QString>("called");
    for (int count : {2000, 4000, 5000, 200000}) {
        const QByteArray size = QByteArray::number(count);
        QTest::newRow("user of " + size) << QStringLiteral("//%1@w/x").arg(letters(count));
        QTest::newRow("path of " + size) << QStringLiteral("//v/%1").arg(letters(count));
        QTest::newRow("path by name of " + size) << QStringLiteral("//far@v/%1").arg(letters(count));
    }
    QTest::newRow("user that is escaped") << QStringLiteral("//%1@w/x").arg(letters(700, QChar(0x4e2d)));
    QTest::newRow("path that is escaped") << QStringLiteral("//v/%1").arg(letters(700, QChar(0x4e2d)));
    QTest::newRow("many pieces") << QStringLiteral("//v") + QStringLiteral("/u").repeated(3000);
    QTest::newRow("user and path") << QStringLiteral("//%1@v/%2").arg(letters(1500), letters(2040));
}

void tst_NatsStrangers::longAddressesFailByThemselves()
{
    QFETCH(QString, called);
    beginSlowCall();
    for (int i = 0; i < 3; ++i) {
        const QJsonObject answer = m_near->call(called);
        QCOMPARE(at(answer, "handled"), QJsonValue(false));
        QCOMPARE(at(answer, "outcome", "called"), QJsonValue(false));
        const int code = at(answer, "outcome", "code").toInt();
        QVERIFY2(code == 413 || code == 503 || code == 410, qPrintable(QString::number(code)));
        QCOMPARE(at(m_near->ask(QStringLiteral("find"), {{QStringLiteral("url"), called}}), "found"),
                 QJsonValue(false));
    }
    verifyNobodyWasCutOff();
}

/// Those around the limit either pass or fail; and with the longest names of all else.
void tst_NatsStrangers::theLongestAddressesPass()
{
    beginSlowCall();
    const QString name = letters(64, QLatin1Char('.'));
    const QJsonObject longest{{QStringLiteral("domain"), letters(64, QChar(0x4e2d))},
                              {QStringLiteral("inbox"), letters(500)}};
    NodeProcess one(QStringLiteral("one"), sectionFor(m_broker->url(), longest));
    NodeProcess other(name, sectionFor(m_broker->url(), longest));
    QVERIFY(one.startConnected());
    QVERIFY(other.startConnected());
    QVERIFY(other.bind(QStringLiteral("//v")));
    for (int count : {1000, 1900, 2030, 2040, 2043, 2044, 2045, 2046, 2047, 2048, 2049, 2100, 2600, 2990, 3010}) {
        for (const QString &user : {QString(), name + QLatin1Char('@')}) {
            const QString path = QStringLiteral("v/") + letters(count);
            const bool isBound = other.bind(QStringLiteral("//") + path);
            const QJsonObject answer = one.call(QStringLiteral("//") + user + path);
            const int code = at(answer, "outcome", "code").toInt();
            QVERIFY2(code == (isBound && count < 2000 ? 200
                              : code == 413           ? 413
                                                      : 200),
                     qPrintable(QStringLiteral("%1: %2").arg(count).arg(code)));
        }
    }
    QVERIFY(one.isConnected() && other.isConnected());
    QCOMPARE(at(one.report(), "connection", "reconnects").toInt(), 0);
    QCOMPARE(at(other.report(), "connection", "reconnects").toInt(), 0);
    verifyNobodyWasCutOff();
}

void tst_NatsStrangers::longAddressesAreNotServed()
{
    beginSlowCall();
    for (const QString &url : {QStringLiteral("//v/") + letters(5000), QStringLiteral("//v/") + letters(100000),
                               QStringLiteral("//") + letters(5000)})
        m_far->bind(url); // for its own process at least
    QVERIFY(m_far->handles(QStringLiteral("//v/") + letters(5000)));
    verifyNobodyWasCutOff();
}

void tst_NatsStrangers::longNamesOfLeasesAreNotWanted_data()
{
    QTest::addColumn<QString>("name");
    QTest::addColumn<bool>("wanted");
    QTest::newRow("128") << letters(128) << true;
    QTest::newRow("128 that are escaped") << letters(128, QChar(0x4e2d)) << true;
    QTest::newRow("129") << letters(129) << false;
    QTest::newRow("4000") << letters(4000) << false;
    QTest::newRow("10240") << letters(10240) << false;
    QTest::newRow("a million") << letters(1000000) << false;
    QTest::newRow("none") << QString() << false;
}

void tst_NatsStrangers::longNamesOfLeasesAreNotWanted()
{
    QFETCH(QString, name);
    QFETCH(bool, wanted);
    beginSlowCall();
    const QJsonObject wish{{Lease, name}, {QStringLiteral("ms"), 1000}};
    QCOMPARE(at(m_near->ask(QStringLiteral("want"), wish), "done").toBool(), wanted);
    int slot = 0;
    const auto begins = [&] {
        return at(m_near->ask(QStringLiteral("begin"), {{Lease, name}, {QStringLiteral("slot"), ++slot}}), "begun")
            .toBool();
    };
    if (wanted)
        QTRY_VERIFY_WITH_TIMEOUT(begins(), 10000);
    else
        QVERIFY(!begins());
    m_near->ask(QStringLiteral("forget"), {{Lease, name}});
    verifyNobodyWasCutOff();
}

void tst_NatsStrangers::longNamesInTheSectionAreMistakes_data()
{
    QTest::addColumn<QString>("key");
    QTest::addColumn<QString>("value");
    for (int count : {600, 5000}) {
        QTest::addRow("domain of %d", count) << "domain" << letters(count);
        QTest::addRow("inbox of %d", count) << "inbox" << letters(count);
    }
    QTest::newRow("domain of 65") << "domain" << letters(65);
}

void tst_NatsStrangers::longNamesInTheSectionAreMistakes()
{
    QFETCH(QString, key);
    QFETCH(QString, value);
    NodeProcess alone(QStringLiteral("alone"), sectionFor(m_broker->url(), {{key, value}}));
    QVERIFY(alone.start());
    QTRY_VERIFY(alone.hasLogged(QStringLiteral("nats.%1: must have at most").arg(key)));
    QCOMPARE(alone.code(Url), 503);
    QVERIFY(!alone.isConnected());
    QVERIFY2(!brokerSays().contains(QLatin1String("maximum control line")), qPrintable(brokerSays()));
}

void tst_NatsStrangers::numbersThatAreNoneDoNoHarm_data()
{
    QTest::addColumn<QByteArray>("number");
    for (const char *number : {"-9223372036854775808", "9223372036854775807", "-9223372036854775299",
                               "99999999999999999999999", "-1", "1e3", "0x10", "abc", " ", "1 2 3 4", "NaN"})
        QTest::newRow(number) << QByteArray(number);
}

/// In each header that has a number, under each subject that is listened to. What is undefined, sanitizers tell.
void tst_NatsStrangers::numbersThatAreNoneDoNoHarm()
{
    QFETCH(QByteArray, number);
    QVERIFY(m_far->bind(Url));
    RawClient client(m_broker->url());
    const QByteArray now = QByteArray::number(QDateTime::currentMSecsSinceEpoch());
    const QList<RawClient::Headers> all{
        {{"Z-Left", number}},
        {{"Z-Left", number}, {"Z-Deadline", number}},
        {{"Z-Left", "2000"}, {"Z-Deadline", number}},
        {{"Z-Left", number}, {"Z-Deadline", now}},
        {{"Z-Left", "2000"}, {"Z-Deadline", now}, {"Z-Echo", "far " + number}},
        {{"Z-Left", number}, {"Z-Deadline", number}, {"Z-Echo", "far " + number + ",far " + now + ",,far,far x y"}},
        {{"Z-Hops", number}},
    };
    const QList<QPair<QByteArray, QByteArray>> subjects{
        {Call, "//w"},     {"z1.default.at.far.w._", "//far@w"}, {"z1.default.all", "/all"}, {"z1.default.list", ""},
        {"$SRV.PING", ""}, {"$SRV.INFO.zdefault-default", ""}};
    for (const auto &subject : subjects) {
        const bool isList = subject.first.endsWith("list");
        for (RawClient::Headers headers : all) {
            if (!subject.second.isEmpty())
                headers.insert("Z-Url", subject.second);
            client.publish(subject.first, isList ? R"({"re": "w"})" : "{}", headers, "somebody.waits");
        }
    }
    QVERIFY(client.flush());
    // All of that was taken in before this one, which is answered as ever.
    const RawMessage answer = client.request(Call, "{}", {{"Z-Url", "//w"}, {"Z-Left", "20000"}});
    QVERIFY(answer.isThere);
    QCOMPARE(answer.code(), 0);
    for (int i = 0; i < 3; ++i)
        QVERIFY(m_near->handles(Url));
    QTRY_COMPARE(at(m_far->report(), "queue", "running").toInt(), 0);
    QVERIFY(m_near->quit() >= 0); // in time, whatever deadlines there were
    QVERIFY(m_far->quit() >= 0);
}

void tst_NatsStrangers::hopsThatAreNoNumberAreTooMany_data()
{
    QTest::addColumn<QByteArray>("hops");
    for (const char *hops : {"99999999999", "2147483648", "-9223372036854775808", "-5", "abc", "1e0"})
        QTest::newRow(hops) << QByteArray(hops);
}

void tst_NatsStrangers::hopsThatAreNoNumberAreTooMany()
{
    QFETCH(QByteArray, hops);
    QVERIFY(m_far->bind(Url));
    RawClient client(m_broker->url());
    const RawMessage answer = client.request(Call, "{}", {{"Z-Url", "//w"}, {"Z-Left", "2000"}, {"Z-Hops", hops}});
    QCOMPARE(answer.code(), 508);
    const RawMessage all = client.request("z1.default.all", "{}", {{"Z-Url", "/all"}, {"Z-Hops", hops}});
    QCOMPARE(all.code(), 508);
    QCOMPARE(m_far->calls(Url), 0);
}

void tst_NatsStrangers::aSectionMustBeAnObject_data()
{
    QTest::addColumn<QJsonValue>("section");
    QTest::newRow("null") << QJsonValue();
    QTest::newRow("list") << QJsonValue(QJsonArray{});
    QTest::newRow("number") << QJsonValue(5);
    QTest::newRow("text") << QJsonValue(QStringLiteral("nats://127.0.0.1:4222"));
    QTest::newRow("true") << QJsonValue(true);
}

void tst_NatsStrangers::aSectionMustBeAnObject()
{
    QFETCH(QJsonValue, section);
    NodeProcess alone(QStringLiteral("alone"), section);
    QVERIFY(alone.start());
    QTRY_VERIFY(alone.hasLogged(QStringLiteral("nats: must be an object")));
    QCOMPARE(alone.code(Url), 503); // with a broker that is not there, it would be 507
    QVERIFY(!alone.handles(QStringLiteral("//nats/printd")));
    QVERIFY(alone.bind(Url));
    QVERIFY(alone.handles(Url)); // the bus itself goes on
    QVERIFY(alone.quit() >= 0);
}

void tst_NatsStrangers::passwordsInUrlsAreNotTold()
{
    for (const char *called : {"//me:hush-hush@w/x", "scheme://me:hush-hush@w:80/x?q=1", "//near:hush-hush@w/x"}) {
        QVERIFY(!m_near->handles(QLatin1String(called)));
        QTRY_VERIFY2(m_near->hasLogged(QStringLiteral("(!)")), called);
        QVERIFY2(!m_near->hasLogged(QStringLiteral("hush")), qPrintable(m_near->log().join(QLatin1Char('\n'))));
        m_near->takeLog();
    }
}

void tst_NatsStrangers::failuresAreCountedByTheirCodes_data()
{
    QTest::addColumn<QByteArray>("code");
    QTest::addColumn<QString>("kind");
    QTest::newRow("refused") << QByteArray("404") << "refused";
    QTest::newRow("thrown") << QByteArray("500") << "thrown";
    QTest::newRow("too large") << QByteArray("413") << "too large";
    for (const char *code : {"418", "7", "-1", "2000"})
        QTest::newRow(code) << QByteArray(code) << "other";
}

/// However many texts there are: they are kept for good, and each is a label of the figures.
void tst_NatsStrangers::failuresAreCountedByTheirCodes()
{
    QFETCH(QByteArray, code);
    QFETCH(QString, kind);
    constexpr int Texts = 50;
    RawClient client(m_broker->url());
    QVERIFY(client.subscribe(Call, "z"));
    for (int i = 0; i < Texts; ++i) {
        const QByteArray text = "text " + QByteArray::number(i);
        const QJsonObject answer = answered(client, {{"Nats-Service-Error-Code", code}, {"Nats-Service-Error", text}});
        QCOMPARE(at(answer, "outcome", "reason").toString(), QString::fromLatin1(text));
    }
    QCOMPARE(at(m_near->report(), "reasons").toObject(), QJsonObject({{kind, Texts}}));
}

void tst_NatsStrangers::reasonsAreCut_data()
{
    QTest::addColumn<QString>("text");
    QTest::addColumn<QString>("reason");
    const QString astral = QString::fromUcs4(U"\U0001F600", 1);
    QTest::newRow("1000") << letters(1000) << letters(1000);
    QTest::newRow("1001") << letters(1001) << letters(1000);
    QTest::newRow("many") << letters(100000) << letters(1000);
    QTest::newRow("a character of two") << letters(999) + astral << letters(999);
    QTest::newRow("none") << QString() << QString();
}

void tst_NatsStrangers::reasonsAreCut()
{
    QFETCH(QString, text);
    RawClient client(m_broker->url());
    QVERIFY(client.subscribe(Call, "z"));
    const QJsonObject answer =
        answered(client, {{"Nats-Service-Error-Code", "418"}, {"Nats-Service-Error", text.toUtf8()}});
    QTEST(at(answer, "outcome", "reason").toString(), "reason");
}

void tst_NatsStrangers::reasonsDoNothingToATerminal()
{
    const QString text = QStringLiteral("a\u001b[2Jb\u202ec\u2028d");
    RawClient client(m_broker->url());
    QVERIFY(client.subscribe(Call, "z"));
    const QJsonObject answer =
        answered(client, {{"Nats-Service-Error-Code", "418"}, {"Nats-Service-Error", text.toUtf8()}});
    QCOMPARE(at(answer, "outcome", "reason").toString(), text); // who calls gets it as it is
    QTRY_VERIFY2(m_near->hasLogged(QStringLiteral("(!) //w a\\x1b[2Jb\\u202ec\\u2028d")),
                 qPrintable(m_near->log().join(QLatin1Char('\n'))));
}

void tst_NatsStrangers::namesThatNobodyCanHaveAreNotTold_data()
{
    QTest::addColumn<QByteArray>("name");
    QTest::addColumn<bool>("isTold");
    QTest::newRow("one that is a name") << QByteArray("Some_one.else-7") << true;
    QTest::newRow("the longest") << QByteArray(64, 'x') << true;
    QTest::newRow("none") << QByteArray() << false;
    QTest::newRow("too long") << QByteArray(65, 'x') << false;
    QTest::newRow("far too long") << QByteArray(100000, 'x') << false;
    for (const char *name : {"a b", "a\x1b[2J", "\xc3\xbc", "\xff", "a,b", "a/b", "<b>"})
        QTest::addRow("%s", QByteArray(name).toPercentEncoding().constData()) << QByteArray(name) << false;
}

void tst_NatsStrangers::namesThatNobodyCanHaveAreNotTold()
{
    QFETCH(QByteArray, name);
    QFETCH(bool, isTold);
    RawClient client(m_broker->url());
    QVERIFY(client.subscribe(Call, "z"));
    const QString clock = QStringLiteral("the clock of");
    for (const RawClient::Headers &failure : {RawClient::Headers(), {{"Nats-Service-Error-Code", "418"}}}) {
        RawClient::Headers headers = failure;
        headers.insert("Z-Host", name);
        headers.insert("Z-Clock", "1");
        const QJsonObject answer = answered(client, headers);
        QCOMPARE(at(answer, "handled").toBool(), failure.isEmpty());
        QCOMPARE(at(answer, "outcome", "host").toString(), isTold ? QString::fromUtf8(name) : QString());
    }
    QCOMPARE(at(m_near->report(), "hosts").toArray().size(), isTold ? 1 : 0);
    if (isTold)
        QTRY_VERIFY(m_near->hasLogged(clock));
    else
        QVERIFY2(!m_near->hasLogged(clock), qPrintable(m_near->log().join(QLatin1Char('\n'))));
}

void tst_NatsStrangers::clocksThatSayAnythingDoNoHarm_data()
{
    QTest::addColumn<QByteArray>("clock");
    QTest::addColumn<bool>("isAhead");
    QTest::newRow("least") << QByteArray("-9223372036854775808") << false;
    QTest::newRow("little") << QByteArray("-9223372036854775299") << false;
    QTest::newRow("none") << QByteArray("abc") << false;
    QTest::newRow("most") << QByteArray("9223372036854775807") << true;
    QTest::newRow("more") << QByteArray("99999999999999999999999") << false; // no number
}

void tst_NatsStrangers::clocksThatSayAnythingDoNoHarm()
{
    QFETCH(QByteArray, clock);
    QFETCH(bool, isAhead);
    RawClient client(m_broker->url());
    QVERIFY(client.subscribe(Call, "z"));
    QVERIFY(at(answered(client, {{"Z-Host", "someone"}, {"Z-Clock", clock}}), "handled").toBool());
    const QJsonArray hosts = at(m_near->report(), "hosts").toArray();
    QCOMPARE(hosts.size(), 1);
    const double skewMs = at(hosts.first(), "skew ms").toDouble();
    QVERIFY2(isAhead ? skewMs > 0 : skewMs < 0, qPrintable(QString::number(skewMs)));
    QVERIFY2(std::abs(skewMs) < double(qint64(1) << 51), qPrintable(QString::number(skewMs)));
}

/// What is refused as too late is asked again with the refuser's name and clock.
void tst_NatsStrangers::whoHasNoNameIsNotTooLateTwice()
{
    RawClient client(m_broker->url());
    QVERIFY(client.subscribe(Call, "z"));
    const QJsonObject answer = answered(client, {{"Nats-Service-Error-Code", "408"},
                                                 {"Nats-Service-Error", "too late"},
                                                 {"Z-Host", QByteArray(65, 'x')},
                                                 {"Z-Clock", "1"}});
    QCOMPARE(at(answer, "outcome", "code").toInt(), 408);
    QVERIFY2(!client.next(200).isThere, "it is made again");
}

void tst_NatsStrangers::whoeverAnswersWithoutAnEndIsNotHeardForEver()
{
    QJsonArray urls;
    for (int i = 0; i < 1000; ++i)
        urls.append(QStringLiteral("//far/%1").arg(i));
    const QByteArray some = QJsonDocument(urls).toJson();
    RawClient client(m_broker->url());
    QVERIFY(client.subscribe("z1.default.list"));
    const int id = m_near->begin(QStringLiteral("findall"), {{QStringLiteral("pattern"), QStringLiteral(".*")}});
    const RawMessage question = client.next();
    QVERIFY(question.isThere);
    // As long as it takes, and longer than it is read.
    for (int i = 0; i < 1000 && !m_near->hasAnswered(id); ++i) {
        for (int each = 0; each < 20; ++each)
            QVERIFY(client.publish(question.reply, some));
        QVERIFY(client.flush());
        QCoreApplication::processEvents();
    }
    QVERIFY(m_near->hasAnswered(id));
}

/// The client library takes seconds to read so many.
void tst_NatsStrangers::manyHeadersHoldUpNobodyElse()
{
    const QByteArray headers = "NATS/1.0\r\n" + QByteArray("a:b\r\n").repeated(100000) + "\r\n";
    const QByteArray size = QByteArray::number(headers.size());
    const QByteArray all = QByteArray::number(headers.size() + 2);
    QVERIFY(m_far->bind(Url));
    const int client = connectTo(m_broker->port());
    QVERIFY(client >= 0);
    const QByteArray text = "CONNECT {\"verbose\":false,\"headers\":true}\r\nSUB answers 1\r\nHPUB " + Call +
                            " answers " + size + ' ' + all + "\r\n" + headers + "{}\r\n";
    QCOMPARE(write(client, text.constData(), static_cast<std::size_t>(text.size())), ssize_t(text.size()));
    QTRY_COMPARE(at(m_far->report(), "queue", "running").toInt(), 1); // it is being read
    QVERIFY(m_near->handles(Url));
    QVERIFY(m_far->code(QStringLiteral("//none")) == 503); // which hears the answers to its own calls, too
    QByteArray told;
    char part[65536];
    const auto isAnswered = [&] {
        const ssize_t got = recv(client, part, sizeof part, MSG_DONTWAIT);
        told.append(part, got > 0 ? static_cast<int>(got) : 0);
        return told.contains("HMSG answers");
    };
    QVERIFY2(!isAnswered(), "nobody had to wait for it");
    QTRY_VERIFY_WITH_TIMEOUT(isAnswered(), 120000);
    close(client);
}

QTEST_GUILESS_MAIN(tst_NatsStrangers)
#include "tst_natsstrangers.moc"
