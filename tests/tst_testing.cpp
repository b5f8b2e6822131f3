// SPDX-License-Identifier: Apache-2.0
// The services of the test kit.
#include "testcase.h"

#include <QPointer>

#include <zdefaultlogger.h>
#include <zhandscheduler.h>
#include <zhost.h>
#include <zliteralconfig.h>
#include <znamedlogger.h>
#include <zrecordinglogger.h>
#include <zscheduledactivity.h>
#include <ztestbus.h>

#include <functional>
#include <stdexcept>
#include <thread>
#include <vector>

namespace {

const QUrl Rain(QStringLiteral("//rain/today"));
const QJsonObject Much{{QStringLiteral("mm"), 30}};

/// Does what the test says, and tells when somebody waits.
class Deed : public ZScheduledActivity
{
public:
    Deed(const QString &name, std::function<bool()> deed) : m_name(name), m_deed(std::move(deed)) {}
    QString name() const override { return m_name; }
    bool wait() override
    {
        hasWaited = true;
        return true;
    }
    bool run() override { return m_deed(); }

    bool hasWaited = false;

private:
    const QString m_name;
    const std::function<bool()> m_deed;
};

class Endpoint : public ZDbusSubscriber
{
public:
    bool invoked(const QUrl &url, QJsonObject *, QJsonObject *out) override
    {
        if (out)
            out->insert(QStringLiteral("called"), url.toString());
        return true;
    }
};

using Write = void (*)(ZLogger *, const QString &);

QSharedPointer<Deed> deed(const QString &name, std::function<bool()> does)
{
    return QSharedPointer<Deed>::create(name, std::move(does));
}

} // namespace

Q_DECLARE_METATYPE(QtMsgType)
Q_DECLARE_METATYPE(Write)

class tst_Testing : public TestCase
{
    Q_OBJECT

private Q_SLOTS:
    void loggerKeepsLinesWithTheirSeverity_data();
    void loggerKeepsLinesWithTheirSeverity();
    void loggerKeepsTaggedLinesOfEachCategory();
    void loggerKeepsTheLinesOfAllThreads();
    void loggerWaitsForALine();
    void loggerKeepsNothingOfAPlugin();
    void configurationIsWhatIsWritten();
    void busRemembersCalls();
    void busAnswersWhatIsSaid();
    void busPassesOnToWhoIsBound();
    void schedulerTicksByHand();
    void schedulerTicksByName();
    void schedulerKeepsForTheNextTick();
    void schedulerLetsGo();
    void schedulerKeepsWhatThrows();
    void aHostTakesThemIn();
};

void tst_Testing::loggerKeepsLinesWithTheirSeverity_data()
{
    QTest::addColumn<QtMsgType>("severity");
    QTest::addColumn<Write>("write");
    const auto row = [](const char *name, QtMsgType severity, Write write) {
        QTest::newRow(name) << severity << write;
    };
    row("debug", QtDebugMsg, [](ZLogger *logger, const QString &text) { logger->debug0(text); });
    row("info", QtInfoMsg, [](ZLogger *logger, const QString &text) { logger->info0(text); });
    row("warning", QtWarningMsg, [](ZLogger *logger, const QString &text) { logger->warning0(text); });
    row("critical", QtCriticalMsg, [](ZLogger *logger, const QString &text) { logger->critical0(text); });
    row("fatal", QtFatalMsg, [](ZLogger *logger, const QString &text) { logger->fatal0(text); });
}

void tst_Testing::loggerKeepsLinesWithTheirSeverity()
{
    QFETCH(QtMsgType, severity);
    QFETCH(Write, write);
    ZRecordingLogger logger;
    QVERIFY(logger.debug0() && logger.info0() && logger.warning0() && logger.critical0());
    write(&logger, QStringLiteral("it rains"));
    for (const QtMsgType each : {QtDebugMsg, QtInfoMsg, QtWarningMsg, QtCriticalMsg, QtFatalMsg})
        QCOMPARE(logger.lines(each), each == severity ? QStringList{QStringLiteral("it rains")} : QStringList());
    QVERIFY(logger.has(QStringLiteral("rain")));
    QVERIFY(!logger.has(QStringLiteral("snow")));
    QCOMPARE(logger.all().size(), 1);
    QCOMPARE(logger.take().size(), 1);
    QVERIFY(logger.take().isEmpty());
    QCOMPARE(messages().takeAll().size(), 0);
}

void tst_Testing::loggerKeepsTaggedLinesOfEachCategory()
{
    ZRecordingLogger logger;
    const ZNamedLogger rain(&logger, QStringLiteral("rain")), snow(&logger, QStringLiteral("snow"));
    rain.log(1, QStringLiteral("drops"));
    snow.log(4, QStringLiteral("flakes"));
    snow.log(8, QStringLiteral("each flake"));
    const QVector<ZRecordingLogger::Line> lines = logger.take();
    QCOMPARE(lines.size(), 2);
    QCOMPARE(lines[0].category, QStringLiteral("rain"));
    QCOMPARE(lines[0].text, QStringLiteral("drops"));
    QCOMPARE(lines[1].category, QStringLiteral("snow"));
    QCOMPARE(lines[1].severity, QtDebugMsg);
    QCOMPARE(logger.log0(-1), 0);
    QCOMPARE(logger.log0(2), 0);

    ZRecordingLogger all(0xff);
    ZNamedLogger(&all, QStringLiteral("snow")).log(8, QStringLiteral("each flake"));
    QVERIFY(all.has(QStringLiteral("each flake")));
}

void tst_Testing::loggerKeepsTheLinesOfAllThreads()
{
    ZRecordingLogger logger;
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i)
        threads.emplace_back([&] {
            for (int line = 0; line < 1000; ++line)
                logger.info0(QStringLiteral("drop"));
        });
    for (std::thread &thread : threads)
        thread.join();
    QCOMPARE(logger.lines(QtInfoMsg).size(), 4000);
}

void tst_Testing::loggerWaitsForALine()
{
    ZRecordingLogger logger;
    QVERIFY(!logger.waitFor(QStringLiteral("rain"), 1));
    QMetaObject::invokeMethod(
        &logger, [&] { logger.info0(QStringLiteral("it rains")); }, Qt::QueuedConnection); // handled meanwhile
    QVERIFY(logger.waitFor(QStringLiteral("rain"), 60000));
    std::thread thread([&] { logger.info0(QStringLiteral("it snows")); });
    QVERIFY(logger.waitFor(QStringLiteral("snow"), 60000));
    thread.join();
}

void tst_Testing::loggerKeepsNothingOfAPlugin()
{
    ZRecordingLogger logger;
    QChar text[] = {QLatin1Char('a')}; // as a literal of a file that is unloaded
    logger.info0(QString::fromRawData(text, 1));
    const int category = logger.log0(QString::fromRawData(text, 1));
    text[0] = QLatin1Char('b');
    QCOMPARE(logger.lines(QtInfoMsg), QStringList{QStringLiteral("a")});
    QCOMPARE(logger.log0(QStringLiteral("a")), category);
}

void tst_Testing::configurationIsWhatIsWritten()
{
    QCOMPARE(ZLiteralConfig(Much).toJson0(), Much);
    QCOMPARE(ZLiteralConfig(R"({"mm": 30})").toJson0(), Much);
    QCOMPARE(ZLiteralConfig("{}").toJson0(), QJsonObject());
}

void tst_Testing::busRemembersCalls()
{
    ZTestBus bus;
    QJsonObject in = Much;
    QVERIFY(!bus.invoke0(Rain, &in, nullptr));
    in = {};
    QVERIFY(!bus.invoke0(QUrl(QStringLiteral("//snow?deep#quietly")), nullptr, nullptr));
    QCOMPARE(bus.count(Rain), 1);
    QCOMPARE(bus.count(QUrl(QStringLiteral("//RAIN/today?again"))), 1);
    QCOMPARE(bus.count(QUrl(QStringLiteral("//rain"))), 0);
    const QVector<ZTestBus::Call> calls = bus.take();
    QCOMPARE(calls.size(), 2);
    QCOMPARE(calls[0].url, Rain);
    QCOMPARE(calls[0].in, Much);
    QCOMPARE(calls[1].url, QUrl(QStringLiteral("//snow?deep#quietly")));
    QVERIFY(bus.take().isEmpty());
}

void tst_Testing::busAnswersWhatIsSaid()
{
    ZTestBus bus;
    const auto endpoint = QSharedPointer<Endpoint>::create();
    QVERIFY(bus.bind0(Rain, endpoint));
    QJsonObject out;
    bus.answer(Rain, Much);
    QVERIFY(bus.invoke0(Rain, nullptr, &out));
    QCOMPARE(out, Much);
    QVERIFY(bus.invoke0(Rain, nullptr, nullptr));
    bus.refuse(Rain);
    QVERIFY(!bus.invoke0(Rain, nullptr, &out));
    bus.answer(QUrl(QStringLiteral("//snow")), {});
    QVERIFY(bus.find0(QUrl(QStringLiteral("//snow"))));
    QVERIFY(bus.invoke0(QUrl(QStringLiteral("//snow")), nullptr, nullptr));
    QCOMPARE(bus.take().size(), 4);
}

void tst_Testing::busPassesOnToWhoIsBound()
{
    ZTestBus bus;
    auto endpoint = QSharedPointer<Endpoint>::create();
    QVERIFY(!bus.find0(Rain));
    QVERIFY(bus.bind0(Rain, endpoint));
    QVERIFY(bus.find0(Rain));
    QJsonObject out;
    QVERIFY(bus.invoke0(Rain, nullptr, &out));
    QCOMPARE(out.value(QStringLiteral("called")).toString(), Rain.toString());
    QVERIFY(bus.invoke0(QUrl(QStringLiteral("/to-all")), nullptr, &out));
    QCOMPARE(out.value(QStringLiteral("called")).toString(), QStringLiteral("/to-all"));
    endpoint.clear();
    QVERIFY(!bus.invoke0(Rain, nullptr, nullptr));
    QCOMPARE(bus.take().size(), 3);
}

void tst_Testing::schedulerTicksByHand()
{
    ZHandScheduler scheduler;
    QStringList done;
    int left = 2;
    const auto often = deed(QStringLiteral("often"), [&] {
        done.append(QStringLiteral("often"));
        return true;
    });
    const auto twice = deed(QStringLiteral("twice"), [&] {
        done.append(QStringLiteral("twice"));
        return --left > 0;
    });
    QVERIFY(scheduler.schedule0(often));
    QVERIFY(scheduler.schedule0(twice));
    QVERIFY(!scheduler.schedule0({}));
    QVERIFY(done.isEmpty());
    QCOMPARE(scheduler.names(), (QStringList{QStringLiteral("often"), QStringLiteral("twice")}));
    QCOMPARE(scheduler.tick(), 2);
    QCOMPARE(scheduler.tick(), 2);
    QCOMPARE(scheduler.tick(), 1);
    QCOMPARE(done.join(QLatin1Char(' ')), QStringLiteral("often twice often twice often"));
    QCOMPARE(scheduler.names(), QStringList{QStringLiteral("often")});
    QVERIFY(!often->hasWaited && !twice->hasWaited);
}

void tst_Testing::schedulerTicksByName()
{
    ZHandScheduler scheduler;
    int rains = 0, snows = 0;
    scheduler.schedule0(deed(QStringLiteral("rain"), [&] { return ++rains > 0; }));
    scheduler.schedule0(deed(QStringLiteral("snow"), [&] { return ++snows > 0; }));
    scheduler.schedule0(deed(QStringLiteral("rain"), [&] { return ++rains < 0; }));
    QCOMPARE(scheduler.tick(QStringLiteral("rain")), 2);
    QCOMPARE(scheduler.tick(QStringLiteral("hail")), 0);
    QCOMPARE(rains, 2);
    QCOMPARE(snows, 0);
    QCOMPARE(scheduler.names(), (QStringList{QStringLiteral("rain"), QStringLiteral("snow")}));
}

void tst_Testing::schedulerKeepsForTheNextTick()
{
    ZHandScheduler scheduler;
    int late = 0;
    scheduler.schedule0(deed(QStringLiteral("early"), [&] {
        scheduler.schedule0(deed(QStringLiteral("late"), [&] { return ++late > 0; }));
        return false;
    }));
    QCOMPARE(scheduler.tick(), 1);
    QCOMPARE(late, 0);
    QCOMPARE(scheduler.tick(), 1);
    QCOMPARE(late, 1);
}

void tst_Testing::schedulerLetsGo()
{
    auto activity = deed(QStringLiteral("once"), [] { return false; });
    const QWeakPointer<Deed> once = activity;
    ZHandScheduler scheduler;
    scheduler.schedule0(std::exchange(activity, {}));
    QVERIFY(once);
    scheduler.tick();
    QVERIFY(!once);

    QWeakPointer<Deed> often;
    {
        ZHandScheduler other;
        activity = deed(QStringLiteral("often"), [] { return true; });
        often = activity;
        other.schedule0(std::exchange(activity, {}));
        other.tick();
        QVERIFY(often);
    }
    QVERIFY(!often);
}

void tst_Testing::schedulerKeepsWhatThrows()
{
    ZHandScheduler scheduler;
    scheduler.schedule0(deed(QStringLiteral("bad"), []() -> bool { throw std::runtime_error("bad"); }));
    QVERIFY_EXCEPTION_THROWN(scheduler.tick(), std::runtime_error);
    QCOMPARE(scheduler.names(), QStringList{QStringLiteral("bad")});
}

void tst_Testing::aHostTakesThemIn()
{
    const QPointer<ZRecordingLogger> logger = new ZRecordingLogger;
    const QPointer<ZTestBus> bus = new ZTestBus;
    const QPointer<ZHandScheduler> scheduler = new ZHandScheduler;
    const QPointer<ZLiteralConfig> config = new ZLiteralConfig(R"({"mm": 30})");
    {
        ZHost host({}, {logger, bus, scheduler, config});
        const ZServices &services = host.services();
        QCOMPARE(services.config->toJson0(), Much);
        services.logger->info0(QStringLiteral("it rains"));
        QVERIFY(logger->has(QStringLiteral("it rains")));
        bus->answer(Rain, Much);
        QVERIFY(services.dbus->invoke0(Rain, nullptr, nullptr));
        QVERIFY(services.scheduler->schedule0(deed(QStringLiteral("deed"), [] { return false; })));
        QCOMPARE(scheduler->names(), QStringList{QStringLiteral("deed")});
    }
    QVERIFY(!logger && !bus && !scheduler && !config);
    QCOMPARE(messages().takeAll().size(), 0);
}

QTEST_GUILESS_MAIN(tst_Testing)
#include "tst_testing.moc"
