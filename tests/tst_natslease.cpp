// SPDX-License-Identifier: Apache-2.0
#include "broker.h"
#include "journalfile.h"
#include "nodeprocess.h"
#include "proxy.h"
#include "testcase.h"

#include <QElapsedTimer>

#include <memory>
#include <vector>

namespace {

const QString Lease = QStringLiteral("nightly");
const QString Key = QStringLiteral("key");
constexpr int LeaseMs = 600;
constexpr int SlotMs = 50;
constexpr int Takeover = 2 * LeaseMs;
constexpr int LongMs = 30000;
constexpr int GapMs = 2000; // much less than it takes until who has not the lease looks again

QJsonObject wish(int msecs = LeaseMs) { return {{QStringLiteral("lease"), Lease}, {QStringLiteral("ms"), msecs}}; }

struct Begun
{
    QString slot, name;
    qint64 at;
};

QVector<Begun> begunIn(const JournalFile &journal)
{
    QVector<Begun> all;
    const QStringList lines = journal.lines();
    for (const QString &line : lines) {
        const QStringList words = line.split(QLatin1Char(' '));
        all.append({words.value(0), words.value(1), words.value(3).toLongLong()});
    }
    return all;
}

/// The slots that were begun more than once.
QStringList begunTwice(const JournalFile &journal)
{
    QHash<QString, QString> names;
    QStringList twice;
    const QVector<Begun> all = begunIn(journal);
    for (const Begun &each : all) {
        if (names.contains(each.slot))
            twice << QStringLiteral("%1 by %2 and %3").arg(each.slot, names.value(each.slot), each.name);
        names.insert(each.slot, each.name);
    }
    return twice;
}

/// Between two slots that were begun one after the other.
qint64 longestGap(const JournalFile &journal)
{
    qint64 longest = 0;
    const QVector<Begun> all = begunIn(journal);
    for (int i = 1; i < all.size(); ++i)
        longest = qMax(longest, all.at(i).at - all.at(i - 1).at);
    return longest;
}

} // namespace

/// What is to be done once, in three processes: by whoever has the lease.
class tst_NatsLease : public TestCase
{
    Q_OBJECT

protected Q_SLOTS:
    void init() override;

private Q_SLOTS:
    void oneOfThreeBegins();
    void aSlotIsBegunOnce();
    void withoutTheLeaseNothingBegins();
    void whoeverForgetsGivesItAway();
    void wantedTwiceItIsForgottenTwice();
    void theNextVersionKnowsWhatIsWanted_data();
    void theNextVersionKnowsWhatIsWanted();
    void anExchangeLeavesNoGap_data();
    void anExchangeLeavesNoGap();
    void theLogTellsWhyNobodyHasIt_data();
    void theLogTellsWhyNobodyHasIt();
    void theLogTellsThatTheBrokerHangs();
    void theReportTellsOfLeases();
    void theHolderIsKilledAgainAndAgain();
    void theHolderStopsAndGoesOn();
    void theHolderIsCutOff();
    void theBrokerIsKilledAndComesBack();
    void slotsOutliveTheBroker();
    void withoutABrokerNothingBegins();
    void aLongLeaseDoesNotDelayAShortOne();
    void itGoesOnWhenTheBrokerHasForgotten_data();
    void itGoesOnWhenTheBrokerHasForgotten();

private:
    NodeProcess &start(int index, const QString &server = QString(), const QJsonObject &more = {}, int msecs = LeaseMs);
    bool begins(NodeProcess &node, qint64 slot);
    /// Has it do the work of all slots, as far as it may.
    void work(NodeProcess &node);
    /// The one that began last, once so many slots are begun; null if that does not come.
    NodeProcess *holderAfter(int count);

    std::unique_ptr<Folder> m_store;
    std::unique_ptr<Broker> m_broker;
    std::unique_ptr<JournalFile> m_journal;
    std::vector<std::unique_ptr<NodeProcess>> m_nodes;
    qint64 m_slot = 0;
};

void tst_NatsLease::init()
{
    TestCase::init();
    m_nodes.clear();
    m_nodes.resize(3);
    m_broker.reset();
    m_store = std::make_unique<Folder>();
    m_broker = std::make_unique<Broker>(Broker::jetStream(m_store->path()));
    m_journal = std::make_unique<JournalFile>();
    m_slot = 0;
    QVERIFY(m_broker->start());
}

NodeProcess &tst_NatsLease::start(int index, const QString &server, const QJsonObject &more, int msecs)
{
    auto &node = m_nodes[static_cast<std::size_t>(index)];
    node = std::make_unique<NodeProcess>(QStringLiteral("n%1").arg(index),
                                         sectionFor(server.isEmpty() ? m_broker->url() : server, more));
    node->setMask(0xff & ~8);
    node->startConnected();
    node->ask(QStringLiteral("want"), wish(msecs));
    return *node;
}

bool tst_NatsLease::begins(NodeProcess &node, qint64 slot)
{
    return at(node.ask(QStringLiteral("begin"), {{QStringLiteral("lease"), Lease}, {QStringLiteral("slot"), slot}}),
              "begun")
        .toBool();
}

void tst_NatsLease::work(NodeProcess &node)
{
    node.ask(QStringLiteral("work"), {{QStringLiteral("lease"), Lease},
                                      {QStringLiteral("slot"), SlotMs},
                                      {QStringLiteral("tries"), 2},
                                      {QStringLiteral("file"), m_journal->path()},
                                      {QStringLiteral("name"), node.name()},
                                      {Key, Lease}});
}

NodeProcess *tst_NatsLease::holderAfter(int count)
{
    const int goal = m_journal->size() + count;
    if (!QTest::qWaitFor([&] { return m_journal->size() >= goal; }, 20000))
        return nullptr;
    const QString name = begunIn(*m_journal).constLast().name;
    for (const auto &node : m_nodes) {
        if (node && node->name() == name)
            return node.get();
    }
    return nullptr;
}

void tst_NatsLease::oneOfThreeBegins()
{
    for (int i = 0; i < 3; ++i)
        start(i);
    QTRY_VERIFY_WITH_TIMEOUT(
        begins(*m_nodes[0], ++m_slot) || begins(*m_nodes[1], m_slot) || begins(*m_nodes[2], m_slot), 10000);
    for (int round = 0; round < 20; ++round) {
        ++m_slot;
        int begun = 0;
        for (const auto &node : m_nodes)
            begun += begins(*node, m_slot);
        QCOMPARE(begun, 1);
    }
}

void tst_NatsLease::aSlotIsBegunOnce()
{
    NodeProcess &node = start(0);
    QTRY_VERIFY_WITH_TIMEOUT(begins(node, ++m_slot), 10000);
    QVERIFY(!begins(node, m_slot));
    QVERIFY(!begins(node, m_slot - 1));
    QVERIFY(begins(node, m_slot + 5));
    QVERIFY(!begins(node, m_slot + 4)); // a later one has begun
    const QJsonObject answer =
        node.ask(QStringLiteral("begin"), {{QStringLiteral("lease"), Lease}, {QStringLiteral("slot"), m_slot}});
    QVERIFY(!at(answer, "reason").toString().isEmpty());
    // Slots may be as large as times are.
    QVERIFY(begins(node, 1800000000000));
    QVERIFY(!begins(node, 1800000000000));
}

void tst_NatsLease::withoutTheLeaseNothingBegins()
{
    NodeProcess &node = start(0);
    const QJsonObject answer = node.ask(
        QStringLiteral("begin"), {{QStringLiteral("lease"), QStringLiteral("another")}, {QStringLiteral("slot"), 1}});
    QCOMPARE(at(answer, "begun"), QJsonValue(false));
    QVERIFY(!at(answer, "reason").toString().isEmpty());
}

void tst_NatsLease::whoeverForgetsGivesItAway()
{
    NodeProcess &first = start(0);
    QTRY_VERIFY_WITH_TIMEOUT(begins(first, ++m_slot), 10000);
    NodeProcess &second = start(1);
    QVERIFY(!begins(second, ++m_slot));
    first.ask(QStringLiteral("forget"), {{QStringLiteral("lease"), Lease}});
    QElapsedTimer timer;
    timer.start();
    QTRY_VERIFY_WITH_TIMEOUT(begins(second, ++m_slot), 10000);
    QVERIFY2(timer.elapsed() < Takeover, qPrintable(QString::number(timer.elapsed())));
    QVERIFY(!begins(first, ++m_slot));
    first.ask(QStringLiteral("want"), wish());
    QVERIFY(second.quit() >= 0); // which gives it away, too
    timer.start();
    QTRY_VERIFY_WITH_TIMEOUT(begins(first, ++m_slot), 10000);
    QVERIFY2(timer.elapsed() < Takeover, qPrintable(QString::number(timer.elapsed())));
}

void tst_NatsLease::wantedTwiceItIsForgottenTwice()
{
    NodeProcess &node = start(0);
    node.ask(QStringLiteral("want"), wish());
    QTRY_VERIFY_WITH_TIMEOUT(begins(node, ++m_slot), 10000);
    node.ask(QStringLiteral("forget"), {{QStringLiteral("lease"), Lease}});
    QVERIFY(begins(node, ++m_slot));
    node.ask(QStringLiteral("forget"), {{QStringLiteral("lease"), Lease}});
    QTRY_VERIFY_WITH_TIMEOUT(!begins(node, ++m_slot), 5000);
}

void tst_NatsLease::theNextVersionKnowsWhatIsWanted_data()
{
    QTest::addColumn<bool>("isAskedAgain");
    QTest::newRow("and is not asked again") << false;
    QTest::newRow("and is asked again") << true;
}

void tst_NatsLease::theNextVersionKnowsWhatIsWanted()
{
    QFETCH(bool, isAskedAgain);
    NodeProcess &node = start(0);
    QTRY_VERIFY_WITH_TIMEOUT(begins(node, ++m_slot), 10000);
    for (const char *file : {"libznats.1.so", "libznats.2.so"}) {
        QVERIFY(node.drop(QLatin1String(file)));
        QTRY_VERIFY_WITH_TIMEOUT(node.hasMappedOnly(QLatin1String(file)), 30000);
        if (isAskedAgain)
            node.ask(QStringLiteral("want"), wish());
        QTRY_VERIFY_WITH_TIMEOUT(begins(node, ++m_slot), 10000);
    }
    QCOMPARE(at(at(node.report(), "leases").toArray().at(0), "wants").toInt(), 1);
    NodeProcess &other = start(1);
    QVERIFY(!begins(other, ++m_slot));
    node.ask(QStringLiteral("forget"), {{QStringLiteral("lease"), Lease}});
    QTRY_VERIFY_WITH_TIMEOUT(begins(other, ++m_slot), 10000);
    QVERIFY(at(node.report(), "leases").toArray().isEmpty());
}

void tst_NatsLease::anExchangeLeavesNoGap_data()
{
    QTest::addColumn<int>("processes");
    QTest::newRow("one process") << 1;
    QTest::newRow("another one wants it, too") << 2;
}

/// The lease is so long that who takes the version before for a stranger looks again after ten seconds only.
void tst_NatsLease::anExchangeLeavesNoGap()
{
    QFETCH(int, processes);
    for (int i = 0; i < processes; ++i)
        work(start(i, QString(), {}, LongMs));
    QVERIFY(holderAfter(10));
    for (const char *file : {"libznats.1.so", "libznats.2.so", "libznats.3.so"}) {
        NodeProcess *const holder = holderAfter(1);
        QVERIFY(holder);
        if (!holder->hasMapped(QLatin1String(file)))
            QVERIFY(holder->drop(QLatin1String(file)));
        QTRY_VERIFY_WITH_TIMEOUT(holder->hasMappedOnly(QLatin1String(file)), 30000);
        QVERIFY(holderAfter(10));
    }
    QCOMPARE(begunTwice(*m_journal), QStringList());
    const qint64 longest = longestGap(*m_journal);
    QVERIFY2(longest < GapMs, qPrintable(QStringLiteral("nobody began for %1 ms").arg(longest)));
    // The version before did not take it away from the next one.
    const NodeProcess *const holder = holderAfter(1);
    QVERIFY(holder);
    QVERIFY(!holder->hasLogged(QStringLiteral("no more")));
}

void tst_NatsLease::theLogTellsWhyNobodyHasIt_data()
{
    QTest::addColumn<bool>("hasJetStream");
    QTest::addColumn<int>("replicas");
    QTest::addColumn<QString>("reason");
    QTest::newRow("JetStream is off") << false << 1 << "JetStream is off at the broker, or does not answer";
    QTest::newRow("more replicas than brokers") << true << 3 << "replicas > 1 not supported in non-clustered mode";
}

void tst_NatsLease::theLogTellsWhyNobodyHasIt()
{
    QFETCH(bool, hasJetStream);
    QFETCH(int, replicas);
    QFETCH(QString, reason);
    const QString line = QStringLiteral("nats: the lease nightly is not known: ") + reason;
    if (!hasJetStream) {
        m_broker = std::make_unique<Broker>();
        QVERIFY(m_broker->start());
    }
    NodeProcess &node =
        start(0, QString(), {{QStringLiteral("leases"), QJsonObject{{QStringLiteral("replicas"), replicas}}}});
    const auto linesWith = [&](const QString &text) { return node.log().filter(text).size(); };
    QTRY_COMPARE_WITH_TIMEOUT(linesWith(line), 1, 10000);
    QTest::qWait(2 * LeaseMs); // it looks again and again, which nobody tells
    QCOMPARE(linesWith(QStringLiteral("not known")), 1);
    QCOMPARE(at(at(node.report(), "leases").toArray().at(0), "error").toString(), reason);
    const QJsonObject answer =
        node.ask(QStringLiteral("begin"), {{QStringLiteral("lease"), Lease}, {QStringLiteral("slot"), ++m_slot}});
    QCOMPARE(at(answer, "begun"), QJsonValue(false));
    QVERIFY2(at(answer, "reason").toString().endsWith(reason), qPrintable(at(answer, "reason").toString()));
    if (hasJetStream)
        return;
    m_broker->reload(Broker::jetStream(m_store->path())); // it takes a start to be switched on
    m_broker->terminate();
    QVERIFY(m_broker->start());
    QTRY_VERIFY_WITH_TIMEOUT(begins(node, ++m_slot), 20000);
    QCOMPARE(linesWith(QStringLiteral("the lease nightly is known again")), 1);
    QCOMPARE(linesWith(QStringLiteral("not known")), 1); // that the connection was lost is another line
    QVERIFY(!at(node.report(), "leases").toArray().at(0).toObject().contains(QStringLiteral("error")));
}

/// A broker that hangs is not news at the first question that it does not answer.
void tst_NatsLease::theLogTellsThatTheBrokerHangs()
{
    NodeProcess &node = start(0);
    QTRY_VERIFY_WITH_TIMEOUT(begins(node, ++m_slot), 10000);
    m_broker->stop();
    QTRY_VERIFY_WITH_TIMEOUT(node.hasLogged(QStringLiteral("nightly is not known: no answer in time")), 10000);
    m_broker->resume();
    QTRY_VERIFY_WITH_TIMEOUT(node.hasLogged(QStringLiteral("nightly is known again")), 10000);
    QTRY_VERIFY_WITH_TIMEOUT(begins(node, ++m_slot), 10000);
}

void tst_NatsLease::theReportTellsOfLeases()
{
    NodeProcess &first = start(0);
    QTRY_VERIFY_WITH_TIMEOUT(begins(first, ++m_slot), 10000);
    NodeProcess &second = start(1);
    const auto lease = [](NodeProcess &node) { return at(node.report(), "leases").toArray().at(0).toObject(); };
    QTRY_COMPARE(at(lease(second), "state").toString(), QStringLiteral("other"));
    QCOMPARE(at(lease(second), "holder").toString(), QStringLiteral("n0"));
    QCOMPARE(at(lease(first), "state").toString(), QStringLiteral("held"));
    QCOMPARE(at(lease(first), "name").toString(), Lease);
    QCOMPARE(at(lease(first), "slot").toString(), QString::number(m_slot));
    QVERIFY(at(lease(first), "age ms").toInt() < LeaseMs);
}

/// In short; NATS_KILLS says how often.
void tst_NatsLease::theHolderIsKilledAgainAndAgain()
{
    bool isGiven = false;
    const int given = qEnvironmentVariableIntValue("NATS_KILLS", &isGiven);
    for (int i = 0; i < 3; ++i)
        work(start(i));
    qint64 longest = 0;
    for (int i = 0; i < (isGiven ? given : 10); ++i) {
        NodeProcess *const holder = holderAfter(10);
        QVERIFY2(holder, "nobody begins any more");
        const int index = holder->name().mid(1).toInt();
        holder->kill();
        const QVector<Begun> before = begunIn(*m_journal);
        QTRY_VERIFY_WITH_TIMEOUT(begunIn(*m_journal).size() > before.size(), 20000);
        longest = qMax(longest, begunIn(*m_journal).at(before.size()).at - before.constLast().at);
        work(start(index));
    }
    QCOMPARE(begunTwice(*m_journal), QStringList());
    QVERIFY2(longest <= Takeover + SlotMs, qPrintable(QStringLiteral("taken over after %1 ms").arg(longest)));
}

void tst_NatsLease::theHolderStopsAndGoesOn()
{
    for (int i = 0; i < 3; ++i)
        work(start(i));
    for (int i = 0; i < 3; ++i) {
        NodeProcess *const holder = holderAfter(10);
        QVERIFY(holder);
        holder->signal(SIGSTOP);
        const int before = m_journal->size();
        QTRY_VERIFY_WITH_TIMEOUT(m_journal->size() > before + 5, 20000); // another one
        holder->signal(SIGCONT);
        QVERIFY(holderAfter(10));
    }
    QCOMPARE(begunTwice(*m_journal), QStringList());
}

void tst_NatsLease::theHolderIsCutOff()
{
    Proxy network(m_broker->port());
    NodeProcess &holder = start(0, network.url());
    QTRY_VERIFY_WITH_TIMEOUT(begins(holder, ++m_slot), 10000);
    NodeProcess &other = start(1);
    work(holder);
    work(other);
    QCOMPARE(holderAfter(10), &holder);
    network.cut();
    QTRY_VERIFY_WITH_TIMEOUT(begunIn(*m_journal).constLast().name == other.name(), 20000);
    // What was asked while it was cut off ends within half of the lease's time.
    const QJsonObject answer = holder.ask(
        QStringLiteral("begin"), {{QStringLiteral("lease"), Lease}, {QStringLiteral("slot"), qint64(1900000000000)}});
    QCOMPARE(at(answer, "begun"), QJsonValue(false));
    QVERIFY2(at(answer, "ms").toInt() < LeaseMs, qPrintable(QString::number(at(answer, "ms").toInt())));
    QVERIFY(holderAfter(10));
    network.mend();
    QVERIFY(holderAfter(30));
    QCOMPARE(begunTwice(*m_journal), QStringList());
}

void tst_NatsLease::theBrokerIsKilledAndComesBack()
{
    for (int i = 0; i < 3; ++i)
        work(start(i));
    for (int i = 0; i < 3; ++i) {
        QVERIFY(holderAfter(10));
        m_broker->kill();
        QTest::qWait(i * LeaseMs); // shorter and longer than the lease
        QVERIFY(m_broker->start());
    }
    QVERIFY(holderAfter(20));
    QCOMPARE(begunTwice(*m_journal), QStringList());
}

void tst_NatsLease::slotsOutliveTheBroker()
{
    NodeProcess &first = start(0);
    QTRY_VERIFY_WITH_TIMEOUT(begins(first, ++m_slot), 10000);
    QVERIFY(begins(first, 1000));
    first.kill();
    m_broker->terminate();
    QVERIFY(m_broker->start());
    NodeProcess &second = start(1);
    QVERIFY(QTest::qWaitFor([&] { return begins(second, 1001); }, 10000));
    QVERIFY(!begins(second, 1000));
    QVERIFY(!begins(second, 999));
}

void tst_NatsLease::withoutABrokerNothingBegins()
{
    NodeProcess &node = start(0);
    QTRY_VERIFY_WITH_TIMEOUT(begins(node, ++m_slot), 10000);
    m_broker->kill();
    QTRY_VERIFY_WITH_TIMEOUT(!begins(node, ++m_slot), 5000);
    QTest::qWait(LeaseMs);
    QVERIFY(!node.hasLogged(QStringLiteral("not known"))); // the connection is lost, as another line says
    const QJsonObject answer =
        node.ask(QStringLiteral("begin"), {{QStringLiteral("lease"), Lease}, {QStringLiteral("slot"), 5000}});
    QCOMPARE(at(answer, "begun"), QJsonValue(false));
    QVERIFY(!at(answer, "reason").toString().isEmpty());
    QVERIFY(at(answer, "ms").toInt() < LeaseMs);
}

/// Both wait for a broker that hangs, and is started anew.
void tst_NatsLease::aLongLeaseDoesNotDelayAShortOne()
{
    NodeProcess &node = start(0);
    QTRY_VERIFY_WITH_TIMEOUT(begins(node, ++m_slot), 10000);
    const QString other = QStringLiteral("long-%1");
    const auto wantLong = [&](int number) {
        node.ask(QStringLiteral("want"), {{QStringLiteral("lease"), other.arg(number)}, {QStringLiteral("ms"), 60000}});
    };
    wantLong(0);
    QVERIFY(begins(node, ++m_slot));
    m_broker->stop();
    wantLong(1); // it is asked for while nobody answers
    QTRY_VERIFY(!begins(node, ++m_slot));
    m_broker->kill();
    QVERIFY(m_broker->start());
    QElapsedTimer timer;
    timer.start();
    QTRY_VERIFY_WITH_TIMEOUT(begins(node, ++m_slot), 30000);
    QVERIFY2(timer.elapsed() < 4000, qPrintable(QString::number(timer.elapsed())));
    m_broker->stop();
    wantLong(2);
    QTest::qWait(LeaseMs); // so long nobody answers
    m_broker->resume();
    timer.start();
    QTRY_VERIFY_WITH_TIMEOUT(begins(node, ++m_slot), 30000);
    QVERIFY2(timer.elapsed() < 4000, qPrintable(QString::number(timer.elapsed())));
    const qint64 took = node.quit();
    QVERIFY2(took >= 0 && took < 3000, qPrintable(QString::number(took)));
}

void tst_NatsLease::itGoesOnWhenTheBrokerHasForgotten_data()
{
    QTest::addColumn<int>("processes");
    QTest::newRow("one process") << 1;
    QTest::newRow("two") << 2;
}

/// What is kept in memory is gone with the broker. Those who want the lease know more.
void tst_NatsLease::itGoesOnWhenTheBrokerHasForgotten()
{
    QFETCH(int, processes);
    const QJsonObject leases{{QStringLiteral("storage"), QStringLiteral("memory")}};
    for (int i = 0; i < processes; ++i)
        start(i, QString(), {{QStringLiteral("leases"), leases}});
    const auto beginsAnywhere = [&](qint64 slot) {
        int begun = 0;
        for (int i = 0; i < processes; ++i)
            begun += begins(*m_nodes[static_cast<std::size_t>(i)], slot);
        return begun;
    };
    for (int restart = 1; restart <= 2; ++restart) {
        QTRY_VERIFY_WITH_TIMEOUT(beginsAnywhere(++m_slot) == 1, 20000);
        m_slot += 1000;
        QTRY_VERIFY_WITH_TIMEOUT(beginsAnywhere(++m_slot) == 1, 20000);
        QTest::qWait(2 * LeaseMs); // the others look at it now and then, which nobody tells
        m_broker->kill();
        QVERIFY(m_broker->start());
        QElapsedTimer timer;
        timer.start();
        // Each slot that was begun is tried for as long as it takes to have the lease again, and then.
        const auto beginsOnceMore = [&] {
            int begun = 0;
            for (qint64 slot : {m_slot, m_slot - 1, m_slot - 999, qint64(1)})
                begun += beginsAnywhere(slot);
            return begun > 0;
        };
        qint64 next = m_slot + 1;
        for (; !beginsAnywhere(next); ++next) {
            QVERIFY2(timer.elapsed() < 20000, "nobody has it any more");
            QVERIFY(!beginsOnceMore());
        }
        QVERIFY(!beginsOnceMore());
        m_slot = next;
    }
}

QTEST_GUILESS_MAIN(tst_NatsLease)
#include "tst_natslease.moc"
