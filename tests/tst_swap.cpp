// SPDX-License-Identifier: Apache-2.0
#include "swap/load.h"

#include <cstdio>
#include <map>

/// Replaces a service under load. The environment variable SOAK gives the number of versions for a long run, which
/// prints figures.
class tst_Swap : public TestCase
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase_data();

    void everyVersionTakesOver();
    void everyCallIsAnswered();
    void answersComeFromLiveVersions();
    void versionsNeverGoBack();
    void versionsAreReplacedDuringCalls();
    void oldFilesLeaveMemoryAfterTheirLastCall();
    void whatIsBornDies();
    void memoryStaysFlat();
    void descriptorsStayFlat();
    void mappingsStayFlat();

private:
    const Outcome &outcome();

    const int m_soak = qEnvironmentVariableIntValue("SOAK");
    std::map<QString, Outcome> m_outcomes;
};

namespace {

double micros(quint64 nanoseconds) { return static_cast<double>(nanoseconds) / 1e3; }

void print(const char *what, const Histogram &times)
{
    std::printf("  %-34s p50 %.2f us, p99.9 %.2f us, max %.1f us (of %llu)\n", what, micros(times.quantile(0.5)),
                micros(times.quantile(0.999)), micros(times.max()), times.count());
}

void print(const char *what, qint64 before, qint64 after) { std::printf("  %-34s %lld, %lld\n", what, before, after); }

void print(const QString &load, const Outcome &outcome)
{
    const double seconds = static_cast<double>(outcome.swapping) / 1e9;
    std::printf("%s: %d replacements in %.1f s, %.1f a second; %d left under a call\n", qPrintable(load),
                outcome.versions, seconds, outcome.versions / seconds, outcome.leftUnderCalls);
    std::printf("  %-34s %llu made, %llu lost\n", "calls", outcome.calls, outcome.lost);
    print("one call of the service", outcome.busyCalls);
    print("the same, nothing replaced", outcome.quietCalls);
    print("from the rename to the new answer", outcome.takeover);
    print("bytes allocated, before and after", outcome.before.memory, outcome.after.memory);
    print("bytes resident", outcome.before.resident, outcome.after.resident);
    print("descriptors", outcome.before.descriptors, outcome.after.descriptors);
    print("mappings", outcome.before.mappings, outcome.after.mappings);
    std::fflush(stdout);
}

} // namespace

void tst_Swap::initTestCase_data()
{
    QTest::addColumn<QString>("load");
    QTest::addColumn<int>("versions");
    QTest::addColumn<int>("atOnce");
    QTest::addColumn<bool>("isLaden");
    const auto row = [this](const char *load, int versions, int atOnce, bool isLaden) {
        QTest::newRow(load) << QString::fromLatin1(load) << (m_soak > 0 ? m_soak : versions) << atOnce << isLaden;
    };
    row("one at a time", 1000, 1, false);
    row("eight at once", 400, 8, false);
    row("with an endpoint, an activity and a job", 100, 1, true);
}

const Outcome &tst_Swap::outcome()
{
    QFETCH_GLOBAL(QString, load);
    QFETCH_GLOBAL(int, versions);
    QFETCH_GLOBAL(int, atOnce);
    QFETCH_GLOBAL(bool, isLaden);
    const auto [entry, isNew] = m_outcomes.try_emplace(load);
    if (isNew) {
        entry->second = Load(isLaden).run(versions, atOnce, m_soak > 0);
        if (m_soak > 0)
            print(load, entry->second);
    }
    return entry->second;
}

void tst_Swap::everyVersionTakesOver()
{
    QFETCH_GLOBAL(int, versions);
    QCOMPARE(outcome().warnings, QStringList());
    QCOMPARE(outcome().versions, versions);
}

void tst_Swap::everyCallIsAnswered()
{
    QVERIFY(outcome().calls > static_cast<quint64>(outcome().versions));
    QCOMPARE(outcome().lost, quint64(0));
}

void tst_Swap::answersComeFromLiveVersions() { QCOMPARE(outcome().wrong, quint64(0)); }

void tst_Swap::versionsNeverGoBack() { QCOMPARE(outcome().backwards, quint64(0)); }

void tst_Swap::versionsAreReplacedDuringCalls()
{
    QFETCH_GLOBAL(int, versions);
    QFETCH_GLOBAL(int, atOnce);
    const int drops = (versions + atOnce - 1) / atOnce;
    QCOMPARE(outcome().leftUnderCalls, (drops + 1) / 2); // for each other one there was such a call
}

void tst_Swap::oldFilesLeaveMemoryAfterTheirLastCall() { QCOMPARE(outcome().overstayed, 0); }

void tst_Swap::whatIsBornDies()
{
    QFETCH_GLOBAL(bool, isLaden);
    const int all = outcome().versions + 1;
    const int more = isLaden ? all : 0;
    QCOMPARE(outcome().born, (std::array<int, 3>{all, more, more}));
    QCOMPARE(outcome().dead, outcome().born);
}

void tst_Swap::memoryStaysFlat()
{
    // The C library never forgets an exit function that is not the newest one: 32 bytes for each static object of a
    // file that goes after another one came, and Qt puts one into each plugin.
    const qint64 known = 33 * outcome().versions;
    // What a thread keeps for itself after it was freed counts as allocated. CTest switches that off.
    const qint64 slack = qEnvironmentVariableIsSet("GLIBC_TUNABLES") ? 8 * 1024 : 256 * 1024;
    const qint64 growth = outcome().after.memory - outcome().before.memory;
    QVERIFY2(growth < known + slack, qPrintable(QString::number(growth)));
}

void tst_Swap::descriptorsStayFlat() { QCOMPARE(outcome().after.descriptors, outcome().before.descriptors); }

void tst_Swap::mappingsStayFlat()
{
    const int somebodyElses = 16 + outcome().versions / 10; // malloc's, and more so a sanitizer's
    const qint64 growth = outcome().after.mappings - outcome().before.mappings;
    QVERIFY2(growth < somebodyElses, qPrintable(QString::number(growth)));
}

QTEST_GUILESS_MAIN(tst_Swap)

#include "tst_swap.moc"
