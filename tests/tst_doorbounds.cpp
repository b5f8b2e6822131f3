// SPDX-License-Identifier: Apache-2.0
#include "door/doorhost.h"
#include "door/wire.h"
#include "testcase.h"

#include <algorithm>
#include <atomic>
#include <limits>
#include <thread>
#include <vector>

#include <sys/resource.h>

/// However many come, and however slow they are: nobody else is kept waiting, and nothing of them stays.
class tst_DoorBounds : public TestCase
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void turnsAwayWhoIsOneTooMany_data();
    void turnsAwayWhoIsOneTooMany();
    void outlivesTenThousandConnections_data();
    void outlivesTenThousandConnections();
    void cutsOffWhoTrickles();
    void turnsAwayAFollowerTooMany();
    void dropsAFollowerWhoDoesNotRead();
    void outlivesClientsThatDieWhileTheyAreAnswered();
    void losesNoCallWhileAHundredAsk();
    void cleanupTestCase();

private:
    Wire wire(bool byTcp = false) const { return byTcp ? Wire(m_port) : Wire(m_host.socket()); }
    QByteArray health() const
    {
        return "GET /healthz HTTP/1.1\r\nHost: localhost:" + QByteArray::number(m_port) + "\r\n\r\n";
    }
    bool isWell() const { return m_host.get("/healthz").status == 200; }
    /// Whether nobody has left a descriptor or a thread in the host.
    bool isAsBefore() const;
    bool comesBack() const
    {
        return QTest::qWaitFor([this] { return isAsBefore(); }, Patience);
    }
    bool fillLog() const;

    DoorHost m_host;
    int m_port = 0;
    int m_descriptors = 0, m_threads = 0;
};

namespace {

QByteArray follow(int lines)
{
    return "GET /v1/log?lines=" + QByteArray::number(lines) + " HTTP/1.1\r\nAccept: text/event-stream\r\n\r\n";
}

void addWays()
{
    QTest::addColumn<bool>("byTcp");
    QTest::newRow("Unix socket") << false;
    QTest::newRow("TCP") << true;
}

/// How many connections this process may have open, at most `wanted`.
int descriptors(int wanted)
{
    rlimit limit = {};
    getrlimit(RLIMIT_NOFILE, &limit);
    limit.rlim_cur = std::min<rlim_t>(limit.rlim_max, rlim_t(wanted) + 100);
    setrlimit(RLIMIT_NOFILE, &limit);
    return int(limit.rlim_cur) - 100;
}

} // namespace

void tst_DoorBounds::initTestCase()
{
    signal(SIGPIPE, SIG_IGN); // the clients of the library write to who has turned them away
    QVERIFY(m_host.listenByTcp());
    m_host.loadList = QStringList{QStringLiteral("libecho")};
    QVERIFY(m_host.deployed.drop(QStringLiteral("echo")));
    m_host.start();
    QVERIFY(m_host.isReady());
    m_port = m_host.port();
    QVERIFY(m_port > 0);
    QVERIFY(fillLog()); // what begins with the first call has begun
    // Connections before the one that asks may still be there: the fewest of several looks.
    m_descriptors = m_threads = std::numeric_limits<int>::max();
    for (int i = 0; i < 20; ++i) {
        const QJsonObject host = m_host.get("/v1/report/host").object();
        m_descriptors = std::min(m_descriptors, host.value(QStringLiteral("descriptors")).toInt());
        m_threads = std::min(m_threads, host.value(QStringLiteral("threads")).toInt());
    }
    QVERIFY(m_descriptors > 0 && m_threads > 0);
}

bool tst_DoorBounds::isAsBefore() const
{
    const QJsonObject host = m_host.get("/v1/report/host").object();
    return !host.isEmpty() && host.value(QStringLiteral("descriptors")).toInt() <= m_descriptors &&
           host.value(QStringLiteral("threads")).toInt() <= m_threads;
}

/// With more than a socket holds.
bool tst_DoorBounds::fillLog() const
{
    const std::string line = "/v1/call?url=//echo/" + std::string(3500, 'a');
    for (int i = 0; i < 300; ++i) {
        if (m_host.post(line).status != 200)
            return false;
        QCoreApplication::processEvents(); // takes what the host has written, which would wait
    }
    return true;
}

void tst_DoorBounds::turnsAwayWhoIsOneTooMany_data() { addWays(); }

void tst_DoorBounds::turnsAwayWhoIsOneTooMany()
{
    QFETCH(bool, byTcp);
    QVERIFY(comesBack());
    std::vector<Wire> idle;
    while (idle.size() < 65) // who has just been answered may still be one of the 64
        idle.push_back(wire(byTcp));

    QCOMPARE(byTcp ? m_host.get("/readyz").status : 200, 200); // the one way is not closed by the other
    const QByteArray told = wire(byTcp).all();
    QCOMPARE(statusOf(told), 503);
    QVERIFY(told.contains("Retry-After: 1\r\n"));
    QVERIFY(told.endsWith("\r\n\r\n{\"error\": \"too many connections\"}\n"));
    QCOMPARE(statusOf(idle.front().send(health()).all()), 200);

    idle.clear();
    QVERIFY(comesBack());
}

void tst_DoorBounds::outlivesTenThousandConnections_data() { addWays(); }

void tst_DoorBounds::outlivesTenThousandConnections()
{
    QFETCH(bool, byTcp);
    constexpr int Count = 10000;
    const int room = descriptors(Count);
    for (int opened = 0; opened < Count;) {
        std::vector<Wire> wires;
        for (; opened < Count && int(wires.size()) < room; ++opened) {
            wires.push_back(wire(byTcp));
            QVERIFY2(wires.back().isOpen(), qPrintable(QString::number(opened)));
        }
    }
    // It stands behind all of them.
    QVERIFY(QTest::qWaitFor([&] { return statusOf(wire(byTcp).send(health()).all()) == 200; }, Patience));
    QVERIFY(comesBack());
    QVERIFY(isWell());
}

void tst_DoorBounds::cutsOffWhoTrickles()
{
    struct Trickle
    {
        QByteArray first, next;
    };
    const QByteArray post = "POST /v1/call?url=//echo HTTP/1.1\r\nContent-Type: application/json\r\n"
                            "Host: localhost:" +
                            QByteArray::number(m_port) + "\r\nAuthorization: Bearer " + DoorHost::Token + "\r\n";
    const Trickle kinds[] = {{{}, {}},
                             {"GET /", "a"},
                             {"GET /healthz HTTP/1.1\r\n", "X: y\r\n"},
                             {post + "Content-Length: 1000\r\n\r\n", " "},
                             {post + "Transfer-Encoding: chunked\r\n\r\n", "1\r\n \r\n"}};
    QVERIFY(comesBack());
    QElapsedTimer timer;
    timer.start();
    std::vector<std::pair<Wire, const Trickle *>> slow;
    for (int i = 0; i < 4; ++i) {
        for (const Trickle &kind : kinds) {
            slow.emplace_back(wire(i % 2 == 1), &kind);
            slow.back().first.send(kind.first);
        }
    }
    qint64 first = 0; // when one of them was cut off
    const auto trickle = [&] {
        bool isOneLeft = false;
        for (auto &[wire, kind] : slow) {
            if (wire.isOpen() && wire.isOver(1)) // it is also told, where it has said enough
                first = first == 0 ? timer.elapsed() : first;
            isOneLeft |= wire.isOpen();
            wire.send(kind->next);
        }
        return !isOneLeft;
    };
    while (timer.elapsed() < 9000) {
        QVERIFY(!trickle());
        QVERIFY(isWell());
        QTest::qWait(200);
    }
    QVERIFY2(first == 0, qPrintable(QString::number(first)));
    QTRY_VERIFY_WITH_TIMEOUT(trickle(), Patience);
    QVERIFY(comesBack());
}

void tst_DoorBounds::turnsAwayAFollowerTooMany()
{
    std::vector<Wire> followers;
    while (followers.size() < 16) {
        followers.push_back(wire());
        QVERIFY(followers.back().send(follow(0)).waitFor("text/event-stream"));
    }
    const QByteArray told = wire().send(follow(0)).all();
    QCOMPARE(statusOf(told), 503);
    QVERIFY(told.contains("16 follow the log already"));
    QCOMPARE(m_host.get("/v1/log?lines=1").status, 200);
    QCOMPARE(m_host.post("/v1/call?url=//echo/for/all").status, 200);
    for (Wire &follower : followers)
        QVERIFY(follower.waitFor("//echo/for/all"));

    followers.clear();
    QVERIFY(comesBack());
    QVERIFY(QTest::qWaitFor([this] { return wire().send(follow(0)).waitFor("text/event-stream"); }, Patience));
}

void tst_DoorBounds::dropsAFollowerWhoDoesNotRead()
{
    QVERIFY(comesBack());
    Wire silent = wire();
    silent.send(follow(1000));
    QTRY_VERIFY_WITH_TIMEOUT(!isAsBefore(), Patience);
    QVERIFY(fillLog());
    QVERIFY(comesBack());
    QVERIFY(silent.isOver(Patience)); // after what was on its way
}

void tst_DoorBounds::outlivesClientsThatDieWhileTheyAreAnswered()
{
    QVERIFY(fillLog());
    for (int i = 0; i < 50; ++i)
        QVERIFY(!wire().send("GET /v1/log?lines=1000 HTTP/1.1\r\n\r\n").some().isEmpty());
    QVERIFY(comesBack());
    QVERIFY(isWell());
}

/// While plugins are exchanged, and while it stops.
void tst_DoorBounds::losesNoCallWhileAHundredAsk()
{
    std::atomic_bool isStopping{false};
    std::atomic_int reports{0}, calls{0}, odd{0};
    const QByteArray socket = QFile::encodeName(m_host.socket());
    const auto ask = [&](const QByteArray &request, const QByteArray &part, std::atomic_int *count) {
        while (true) {
            const bool mayFail = isStopping;
            Wire wire(QFile::decodeName(socket));
            if (!wire.isOpen())
                return mayFail || ++odd;
            const QByteArray answer = wire.send(request).all();
            const int status = statusOf(answer);
            if (status == 200 && answer.contains(part) && answer.endsWith("}\n"))
                ++*count;
            else if (status != 503 && !isStopping)
                ++odd;
        }
    };
    std::vector<std::thread> threads;
    for (int i = 0; i < 100; ++i) {
        if (i % 10 == 0)
            threads.emplace_back([&] {
                ask("POST /v1/call?url=//echo HTTP/1.1\r\nContent-Type: application/json\r\n\r\n", "\"handled\":true",
                    &calls);
            });
        else
            threads.emplace_back([&] { ask("GET /v1/report HTTP/1.1\r\n\r\n", "\"plugins\":", &reports); });
    }
    QStringList missing;
    for (int version = 1; version <= 5; ++version) {
        const QString file = QStringLiteral("libgreeter.%1.so").arg(version);
        const bool isDropped = m_host.hotDeploy.drop(QStringLiteral("greeter"), file);
        const auto isServed = [&] {
            return m_host.find("services", "interface", QStringLiteral("Greeter"))
                .value(QStringLiteral("file"))
                .toString()
                .endsWith(file);
        };
        if (!isDropped || !QTest::qWaitFor(isServed, Patience))
            missing.append(file);
    }
    const int before = calls;
    const bool goesOn = QTest::qWaitFor([&] { return calls > before + 10; }, Patience);
    isStopping = true;
    m_host.running->stop();
    for (std::thread &thread : threads)
        thread.join();

    QCOMPARE(missing, QStringList());
    QVERIFY(goesOn);
    QCOMPARE(odd, 0);
    QVERIFY(reports > 0);
    QCOMPARE(m_host.running->exitCode(), 0);
    QVERIFY(!m_host.running->written().contains(QStringLiteral("left running")));
}

void tst_DoorBounds::cleanupTestCase() { m_host.running.reset(); }

QTEST_GUILESS_MAIN(tst_DoorBounds)
#include "tst_doorbounds.moc"
