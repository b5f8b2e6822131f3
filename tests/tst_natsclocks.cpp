// SPDX-License-Identifier: Apache-2.0
#include "broker.h"
#include "nodeprocess.h"
#include "testcase.h"

#include <QFile>

namespace {

const QJsonObject Patient{{QStringLiteral("timeout"), 5000}};

/// The clock of a process, which can be moved.
class Clock
{
public:
    explicit Clock(NodeProcess *node)
    {
        move(0);
        node->setVariable(QStringLiteral("SHIFTED_CLOCK"), m_folder.filePath(QStringLiteral("shift")));
        const QString others = QString::fromLocal8Bit(qgetenv("LD_PRELOAD"));
        node->setVariable(QStringLiteral("LD_PRELOAD"), QStringLiteral(SHIFTED_CLOCK " ") + others);
    }
    /// In place: the process has it mapped.
    void move(qint64 seconds) const
    {
        QFile file(m_folder.filePath(QStringLiteral("shift")));
        if (!file.open(QIODevice::ReadWrite) ||
            file.write(reinterpret_cast<const char *>(&seconds), sizeof seconds) < 8)
            qFatal("cannot move the clock");
    }

private:
    const Folder m_folder;
};

double skewOf(NodeProcess &node, const QString &host)
{
    const QJsonArray hosts = at(node.report(), "hosts").toArray();
    for (const auto &each : hosts) {
        if (at(each, "name").toString() == host)
            return at(each, "skew ms").toDouble();
    }
    return 0;
}

} // namespace

/// Hosts whose clocks are wrong.
class tst_NatsClocks : public TestCase
{
    Q_OBJECT

private Q_SLOTS:
    void clocksMayDiffer_data();
    void clocksMayDiffer();
    void aClockMayMove();
};

void tst_NatsClocks::clocksMayDiffer_data()
{
    QTest::addColumn<int>("seconds");
    QTest::newRow("an hour ahead") << 3600;
    QTest::newRow("an hour behind") << -3600;
    QTest::newRow("two seconds ahead") << 2;
}

void tst_NatsClocks::clocksMayDiffer()
{
    QFETCH(int, seconds);
    Broker broker;
    QVERIFY(broker.start());
    NodeProcess right(QStringLiteral("right"), sectionFor(broker.url(), Patient));
    NodeProcess wrong(QStringLiteral("wrong"), sectionFor(broker.url(), Patient));
    right.setMask(0xff & ~8);
    const Clock clock(&wrong);
    clock.move(seconds);
    QVERIFY(right.startConnected());
    QVERIFY(wrong.startConnected());
    QVERIFY(right.bind(QStringLiteral("//right")));
    QVERIFY(wrong.bind(QStringLiteral("//wrong")));
    for (int i = 0; i < 5; ++i) {
        QCOMPARE(right.code(QStringLiteral("//wrong")), 200);
        QCOMPARE(wrong.code(QStringLiteral("//right")), 200);
    }
    const double skew = skewOf(right, QStringLiteral("wrong"));
    QVERIFY2(qAbs(skew - seconds * 1000.0) < 900, qPrintable(QString::number(skew)));
    QVERIFY2(right.log().filter(QStringLiteral("clock")).filter(QStringLiteral("wrong")).size() == 1,
             qPrintable(right.log().join(QLatin1Char('\n')))); // said, once
}

void tst_NatsClocks::aClockMayMove()
{
    Broker broker;
    QVERIFY(broker.start());
    NodeProcess right(QStringLiteral("right"), sectionFor(broker.url(), Patient));
    NodeProcess wrong(QStringLiteral("wrong"), sectionFor(broker.url(), Patient));
    const Clock clock(&wrong);
    QVERIFY(right.startConnected());
    QVERIFY(wrong.startConnected());
    QVERIFY(right.bind(QStringLiteral("//right")));
    QVERIFY(wrong.bind(QStringLiteral("//wrong")));
    for (int seconds : {0, 3600, -3600, 0}) {
        clock.move(seconds);
        for (int i = 0; i < 3; ++i) {
            QCOMPARE(right.code(QStringLiteral("//wrong")), 200);
            QCOMPARE(wrong.code(QStringLiteral("//right")), 200);
        }
    }
}

QTEST_GUILESS_MAIN(tst_NatsClocks)
#include "tst_natsclocks.moc"
