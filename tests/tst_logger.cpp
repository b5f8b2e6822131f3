// SPDX-License-Identifier: Apache-2.0
#include "journal.h"
#include "testcase.h"

#include <QDateTime>
#include <QHash>
#include <QJsonArray>
#include <QJsonObject>
#include <QLoggingCategory>
#include <QMap>
#include <QProcess>
#include <QRegularExpression>
#include <QSemaphore>
#include <QThread>

#include <zdefaultconfig.h>
#include <zdefaultemitter.h>
#include <zdefaultlogger.h>
#include <znamedlogger.h>
#include <ztext.h>

#include <atomic>
#include <cstring>
#include <functional>
#include <limits>
#include <memory>
#include <vector>

#include <malloc.h>

namespace {

const QString DefaultCategory = QStringLiteral("default");

/// A severity as a row of a table: how it is switched, how it is written to and asked, and what arrives.
struct Severity
{
    const char *key;
    QtMsgType type;
    void (ZLogger::*write)(const QString &);
    bool (ZLogger::*isEnabled)();
};

const Severity severities[] = {
    {"debug", QtDebugMsg, &ZLogger::debug0, &ZLogger::debug0},
    {"info", QtInfoMsg, &ZLogger::info0, &ZLogger::info0},
    {"warning", QtWarningMsg, &ZLogger::warning0, &ZLogger::warning0},
    {"critical", QtCriticalMsg, &ZLogger::critical0, &ZLogger::critical0},
};

bool isEnabledByQt(QtMsgType type) { return QLoggingCategory::defaultCategory()->isEnabled(type); }

/// A logger with this section "logger".
class Configured
{
public:
    explicit Configured(const QJsonValue &section) : m_config(QJsonObject{{QStringLiteral("logger"), section}})
    {
        m_logger.getSetZConfig(&m_config);
    }
    /// One with these categories.
    static QJsonObject log(const QJsonValue &categories) { return {{QStringLiteral("log"), categories}}; }

    ZDefaultLogger *operator->() { return &m_logger; }
    ZDefaultLogger *logger() { return &m_logger; }

private:
    ZDefaultConfig m_config;
    ZDefaultLogger m_logger;
};

/// What a process wrote, and how it ended.
struct Written
{
    QString text;
    int exitCode;
};

/// Runs this program with these arguments to its end.
Written inAProcess(const QStringList &arguments)
{
    QProcess child;
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert(QStringLiteral("QT_FORCE_STDERR_LOGGING"), QStringLiteral("1"));
    child.setProcessEnvironment(environment);
    child.start(QCoreApplication::applicationFilePath(), arguments);
    if (!child.waitForFinished(30000))
        return {QString(), 0};
    return {QString::fromUtf8(child.readAllStandardError()), child.exitCode()};
}

/// The parts of a tagged line.
struct Line
{
    explicit Line(const QString &text)
    {
        static const QRegularExpression form(
            QStringLiteral(R"(\A\[(\d{2}\.\d{2}\.\d{4} \d{2}:\d{2}:\d{2}\.\d{3})\] \[([^]]*)\] \[([^]]*)\] (.*)\z)"),
            QRegularExpression::DotMatchesEverythingOption);
        const QRegularExpressionMatch match = form.match(text);
        time = QDateTime::fromString(match.captured(1), QStringLiteral("dd.MM.yyyy hh:mm:ss.zzz"));
        category = match.captured(2);
        kind = match.captured(3);
        rest = match.captured(4);
    }

    QDateTime time; // invalid if it has not the form
    QString category;
    QString kind;
    QString rest;
};

} // namespace

Q_DECLARE_METATYPE(const Severity *)

/// Consumes the logger.
class Consumer : public QObject
{
    Q_OBJECT
    Q_PROPERTY(ZLogger *zLogger MEMBER m_logger)

public:
    ZLogger *m_logger = nullptr;
};

class tst_Logger : public TestCase
{
    Q_OBJECT

private:
    static void eachSeverity();

private Q_SLOTS:
    void writesASeverityUnlessItIsSwitchedOff_data() { eachSeverity(); }
    void writesASeverityUnlessItIsSwitchedOff();
    void writesFromNowhereUnderTheCategoryDefault_data() { eachSeverity(); }
    void writesFromNowhereUnderTheCategoryDefault();
    void configurationSwitchesSeverities_data();
    void configurationSwitchesSeverities();
    void fatalEndsTheProcess_data();
    void fatalEndsTheProcess();
    void onlyWhatIsUrgentIsToldAsTheProcessEnds();
    void changeOfTheZoneShowsWithinASecond();
    void textsArriveUnchanged_data();
    void textsArriveUnchanged();

    void numbersUnderLogAreCategories_data();
    void numbersUnderLogAreCategories();
    void categoriesHeedCase();
    void anotherSectionThanAnObjectChangesNothing_data();
    void anotherSectionThanAnObjectChangesNothing();
    void indexesFollowTheOrderOfTheKeys();
    void indexesOutsideTheTableHaveNoMaskAndNoLines_data();
    void indexesOutsideTheTableHaveNoMaskAndNoLines();
    void linesAreTagged_data();
    void linesAreTagged();
    void placesInACategoryAreFilledAsTheLinesAre_data();
    void placesInACategoryAreFilledAsTheLinesAre();
    void linesAreNotTestedAgainstTheMask();
    void aCategoryWithMaskZeroHasNoLines();
    void linesNeedDebugWhateverTheirKind();

    void theFirstConfigurationWins();
    void aLoggerMayGetItsConfigurationLater();
    void injectionConfiguresBeforeItAnnounces();
    void aSecondLoggerTakesOver();
    void severalThreadsWriteWholeLines();

    void aNamedLoggerAsksOnce();
    void aNamedLoggerTestsTheMask_data();
    void aNamedLoggerTestsTheMask();
    void aMaskIsSetWhileOthersWrite();
    void handlesThatAreGoneCostNothing();
    void aMaskIsSetOnlyOfACategoryThatIsThere();
    void aNamedLoggerBuildsNoTextThatNobodyWants();
    void aNamedLoggerOfAnUnknownCategoryWritesNothing();
    void anUnboundNamedLoggerWritesNothing();
    void aNamedLoggerOfALoggerThatIsGoneWritesNothing();
    void aCopiedNamedLoggerIsBoundToo();
    void failuresAreWarningsOrElseLines_data();
    void failuresAreWarningsOrElseLines();

    void aTextIgnoresCase_data();
    void aTextIgnoresCase();
    void aTextIsAKey();
};

void tst_Logger::eachSeverity()
{
    QTest::addColumn<const Severity *>("severity");
    for (const Severity &severity : severities)
        QTest::newRow(severity.key) << &severity;
}

void tst_Logger::writesASeverityUnlessItIsSwitchedOff()
{
    QFETCH(const Severity *, severity);
    ZDefaultLogger logger;
    QVERIFY((logger.*severity->isEnabled)());
    (logger.*severity->write)(QStringLiteral("seen"));
    QCOMPARE(messages().take(severity->type), QStringList{QStringLiteral("seen")});

    QLoggingCategory::defaultCategory()->setEnabled(severity->type, false);
    QVERIFY(!(logger.*severity->isEnabled)());
    (logger.*severity->write)(QStringLiteral("not seen"));
    QCOMPARE(messages().takeAll().size(), 0);
    for (const Severity &other : severities)
        QCOMPARE((logger.*other.isEnabled)(), other.type != severity->type);
}

void tst_Logger::writesFromNowhereUnderTheCategoryDefault()
{
    QFETCH(const Severity *, severity);
    static QtMsgType type;
    static QMessageLogContext *written;
    QMessageLogContext context("file", 1, "function", "category");
    written = &context;
    const QtMessageHandler handler =
        qInstallMessageHandler([](QtMsgType t, const QMessageLogContext &c, const QString &) {
            type = t;
            written->file = c.file;
            written->line = c.line;
            written->function = c.function;
            written->category = std::strcmp(c.category, "default") == 0 ? "default" : "another";
        });
    ZDefaultLogger logger;
    (logger.*severity->write)(QStringLiteral("text"));
    qInstallMessageHandler(handler);
    QCOMPARE(type, severity->type);
    QCOMPARE(context.file, nullptr);
    QCOMPARE(context.line, 0);
    QCOMPARE(context.function, nullptr);
    QCOMPARE(context.category, "default");
}

void tst_Logger::configurationSwitchesSeverities_data()
{
    QTest::addColumn<QJsonValue>("value");
    QTest::addColumn<int>("enabled"); // -1: as it was
    QTest::newRow("1") << QJsonValue(1) << 1;
    QTest::newRow("0") << QJsonValue(0) << 0;
    QTest::newRow("-1") << QJsonValue(-1) << 1;
    QTest::newRow("1.9") << QJsonValue(1.9) << 1;
    QTest::newRow("0.9") << QJsonValue(0.9) << 0; // as an int
    QTest::newRow("-0.5") << QJsonValue(-0.5) << 0;
    QTest::newRow("1e300") << QJsonValue(1e300) << 1;
    QTest::newRow("true") << QJsonValue(true) << -1;
    QTest::newRow("false") << QJsonValue(false) << -1;
    QTest::newRow("text") << QJsonValue(QStringLiteral("1")) << -1;
    QTest::newRow("null") << QJsonValue(QJsonValue::Null) << -1;
    QTest::newRow("object") << QJsonValue(QJsonObject()) << -1;
    QTest::newRow("array") << QJsonValue(QJsonArray{1}) << -1;
    QTest::newRow("absent") << QJsonValue(QJsonValue::Undefined) << -1;
}

void tst_Logger::configurationSwitchesSeverities()
{
    QFETCH(QJsonValue, value);
    QFETCH(int, enabled);
    // For Qt "fatal" cannot be switched off; the key must not switch any of the others.
    for (const QString key : {"debug", "info", "warning", "critical", "fatal"}) {
        for (const bool before : {true, false}) {
            for (const Severity &severity : severities)
                QLoggingCategory::defaultCategory()->setEnabled(severity.type, before);
            QJsonObject section;
            section.insert(key, value);
            Configured logger(section);
            for (const Severity &severity : severities) {
                const bool expected = key == QLatin1String(severity.key) && enabled >= 0 ? enabled == 1 : before;
                QVERIFY2(isEnabledByQt(severity.type) == expected, qPrintable(key));
            }
        }
    }
}

void tst_Logger::fatalEndsTheProcess_data()
{
    QTest::addColumn<QString>("section");
    QTest::newRow("as Qt has it") << QString();
    QTest::newRow("switched on") << "1";
    QTest::newRow("switched off") << "0";
}

void tst_Logger::fatalEndsTheProcess()
{
    QFETCH(QString, section);
    const Written child = inAProcess({QStringLiteral("--fatal"), section});
    QVERIFY2(child.exitCode != 0, "it went on");
    QVERIFY2(child.text.contains(QStringLiteral("the end, %s %1")), qPrintable(child.text));
    QVERIFY2(!child.text.contains(QStringLiteral("after the end")), qPrintable(child.text));
}

void tst_Logger::onlyWhatIsUrgentIsToldAsTheProcessEnds()
{
    const Written child = inAProcess({QStringLiteral("--end")});
    QCOMPARE(child.exitCode, 0);
    QCOMPARE(child.text, QStringLiteral("warning at the end\ncritical at the end\n"));
}

void tst_Logger::changeOfTheZoneShowsWithinASecond()
{
    Configured logger(Configured::log(QJsonObject{{QStringLiteral("category"), 1}}));
    const auto hoursFromUtc = [&] { // of the time that a line tells
        logger->log0(0, 1, QString());
        const QString time = messages().take(QtDebugMsg).value(0).mid(1, 23);
        QDateTime told = QDateTime::fromString(time, QStringLiteral("dd.MM.yyyy hh:mm:ss.zzz"));
        told.setTimeSpec(Qt::UTC);
        return qRound(double(QDateTime::currentDateTimeUtc().msecsTo(told)) / 3600000);
    };
    const QByteArray before = qgetenv("TZ");
    for (const auto &[zone, hours] : {std::pair("UTC0", 0), std::pair("JST-9", 9), std::pair("UTC0", 0)}) {
        qputenv("TZ", zone);
        QTRY_COMPARE(hoursFromUtc(), hours);
    }
    if (before.isNull())
        qunsetenv("TZ");
    else
        qputenv("TZ", before);
}

void tst_Logger::textsArriveUnchanged_data()
{
    QTest::addColumn<QString>("text");
    QTest::newRow("empty") << "";
    QTest::newRow("place marker") << "%1 and %2 %3 %4";
    QTest::newRow("format") << "%s %d %n %%";
    QTest::newRow("UTF-8") << QString::fromUtf8("\xc3\xa4\xe2\x82\xac\xf0\x9f\x98\x80");
    QTest::newRow("lines") << "one\ntwo\n";
    QTest::newRow("long") << QString(100000, QLatin1Char('x'));
}

void tst_Logger::textsArriveUnchanged()
{
    QFETCH(QString, text);
    Configured logger(Configured::log(QJsonObject{{QStringLiteral("category"), 1}}));
    for (const Severity &severity : severities) {
        (logger.logger()->*severity.write)(text);
        QCOMPARE(messages().take(severity.type), QStringList{text});
    }
    logger->log0(0, 1, text);
    const QStringList lines = messages().take(QtDebugMsg);
    QCOMPARE(lines.size(), 1);
    QCOMPARE(Line(lines.first()).rest, text);
}

void tst_Logger::numbersUnderLogAreCategories_data()
{
    QTest::addColumn<QString>("name");
    QTest::addColumn<QJsonValue>("value");
    QTest::addColumn<bool>("isCategory");
    QTest::addColumn<int>("mask");
    const auto row = [](const char *tag, const char *name, const QJsonValue &value, bool isCategory, int mask) {
        QTest::newRow(tag) << QString::fromLatin1(name) << value << isCategory << mask;
    };
    row("number", "zdefault", 3, true, 3);
    row("zero", "zdefault", 0, true, 0);
    row("negative", "zdefault", -1, true, -1);
    row("fraction", "zdefault", 6.9, true, 6);
    row("too large", "zdefault", 1e12, true, std::numeric_limits<int>::max());
    row("too small", "zdefault", -1e12, true, std::numeric_limits<int>::min());
    row("any name", "%1 of mine", 5, true, 5);
    row("empty name", "", 5, true, 5);
    row("# within", "a#", 5, true, 5);
    row("comment", "#zscheduler", 7, false, 0);
    row("comment of another type", "#zscheduler", QStringLiteral("7"), false, 0);
    row("text", "zdefault", QStringLiteral("3"), false, 0);
    row("object", "zdefault", QJsonObject{{QStringLiteral("mask"), 3}}, false, 0);
    row("array", "zdefault", QJsonArray{3}, false, 0);
    row("true", "zdefault", true, false, 0);
    row("null", "zdefault", QJsonValue::Null, false, 0);
}

void tst_Logger::numbersUnderLogAreCategories()
{
    QFETCH(QString, name);
    QFETCH(QJsonValue, value);
    QFETCH(bool, isCategory);
    QFETCH(int, mask);
    Configured logger(Configured::log(QJsonObject{{name, value}}));
    QCOMPARE(logger->log0(name), isCategory ? 0 : -1);
    QCOMPARE(logger->log0(0), mask);
    QCOMPARE(logger->log0(QStringLiteral("absent")), -1);
    QCOMPARE(logger->log0(name + QLatin1Char('x')), -1);
}

void tst_Logger::categoriesHeedCase()
{
    Configured logger(Configured::log(QJsonObject{{QStringLiteral("zdefault"), 1}, {QStringLiteral("ZDefault"), 2}}));
    QCOMPARE(logger->log0(logger->log0(QStringLiteral("zdefault"))), 1);
    QCOMPARE(logger->log0(logger->log0(QStringLiteral("ZDefault"))), 2);
}

void tst_Logger::anotherSectionThanAnObjectChangesNothing_data()
{
    QTest::addColumn<QJsonValue>("section");
    QTest::newRow("array") << QJsonValue(QJsonArray{QJsonObject{{QStringLiteral("debug"), 0}}});
    QTest::newRow("text") << QJsonValue(QStringLiteral("debug"));
    QTest::newRow("number") << QJsonValue(0);
    QTest::newRow("null") << QJsonValue(QJsonValue::Null);
    QTest::newRow("absent") << QJsonValue(QJsonValue::Undefined);
    QTest::newRow("log is an array") << QJsonValue(Configured::log(QJsonArray{1}));
    QTest::newRow("log is a number") << QJsonValue(Configured::log(1));
    QTest::newRow("log is absent") << QJsonValue(QJsonObject());
}

void tst_Logger::anotherSectionThanAnObjectChangesNothing()
{
    QFETCH(QJsonValue, section);
    for (const bool before : {true, false}) {
        for (const Severity &severity : severities)
            QLoggingCategory::defaultCategory()->setEnabled(severity.type, before);
        Configured logger(section);
        for (const Severity &severity : severities)
            QCOMPARE(isEnabledByQt(severity.type), before);
        QCOMPARE(logger->log0(0), 0);
        QCOMPARE(logger->log0(QString()), -1);
    }
}

void tst_Logger::indexesFollowTheOrderOfTheKeys()
{
    QJsonObject categories;
    for (int i = 1; i <= 100; ++i)
        categories.insert(QStringLiteral("category %1").arg(i), i);
    QHash<QString, int> masks;
    for (auto category = categories.begin(); category != categories.end(); ++category)
        masks.insert(category.key(), category.value().toInt());
    Configured logger(Configured::log(categories));
    const QStringList names = masks.keys();
    for (int index = 0; index < names.size(); ++index) {
        QCOMPARE(logger->log0(names.at(index)), index);
        QCOMPARE(logger->log0(index), masks.value(names.at(index)));
        logger->log0(index, 1, QString());
        QCOMPARE(Line(messages().take(QtDebugMsg).value(0)).category, names.at(index));
    }
}

void tst_Logger::indexesOutsideTheTableHaveNoMaskAndNoLines_data()
{
    QTest::addColumn<int>("index");
    for (const int index : {2, 3, 1000, std::numeric_limits<int>::max(), -1, -2, std::numeric_limits<int>::min()})
        QTest::addRow("%d", index) << index;
}

void tst_Logger::indexesOutsideTheTableHaveNoMaskAndNoLines()
{
    QFETCH(int, index);
    Configured logger(Configured::log(QJsonObject{{QStringLiteral("a"), 1}, {QStringLiteral("b"), 2}}));
    ZDefaultLogger unconfigured;
    for (ZDefaultLogger *each : {logger.logger(), &unconfigured}) {
        QCOMPARE(each->log0(index), 0);
        each->log0(index, 1, QStringLiteral("nowhere"));
        QCOMPARE(messages().takeAll().size(), 0);
    }
}

void tst_Logger::linesAreTagged_data()
{
    QTest::addColumn<int>("kind");
    QTest::addColumn<QString>("hexadecimal");
    QTest::newRow("1") << 1 << "1";
    QTest::newRow("8") << 8 << "8";
    QTest::newRow("10") << 10 << "a";
    QTest::newRow("16") << 16 << "10";
    QTest::newRow("0x40000000") << 0x40000000 << "40000000";
    QTest::newRow("0") << 0 << "0";
    QTest::newRow("-1") << -1 << "ffffffffffffffff";
    QTest::newRow("-16") << -16 << "fffffffffffffff0";
}

void tst_Logger::linesAreTagged()
{
    QFETCH(int, kind);
    QFETCH(QString, hexadecimal);
    Configured logger(Configured::log(QJsonObject{{QStringLiteral("zdefault"), 1}}));
    const QDateTime before = QDateTime::currentDateTime();
    logger->log0(0, kind, QStringLiteral("hello"));
    const QDateTime after = QDateTime::currentDateTime();
    const QList<Messages::Message> written = messages().takeAll();
    QCOMPARE(written.size(), 1);
    QCOMPARE(written.first().type, QtDebugMsg);
    QCOMPARE(written.first().category, DefaultCategory);
    const Line line(written.first().text);
    QVERIFY2(line.time.isValid(), qPrintable(written.first().text));
    QVERIFY(line.time >= before && line.time <= after);
    QCOMPARE(line.category, QStringLiteral("zdefault"));
    QCOMPARE(line.kind, hexadecimal);
    QCOMPARE(line.rest, QStringLiteral("hello"));
}

void tst_Logger::placesInACategoryAreFilledAsTheLinesAre_data()
{
    QTest::addColumn<QString>("category");
    QTest::addColumn<QString>("line"); // behind the time
    QTest::newRow("no place") << "100%"
                              << "[100%] [a] hello";
    QTest::newRow("%1") << "<%1>"
                        << "[<a>] [hello] %4";
    QTest::newRow("%2") << "<%2>"
                        << "[<a>] [hello] %4";
    QTest::newRow("%3") << "<%3>"
                        << "[<a>] [a] hello";
    QTest::newRow("%4") << "<%4>"
                        << "[<hello>] [a] hello";
    QTest::newRow("%5") << "<%5>"
                        << "[<%5>] [a] hello";
}

void tst_Logger::placesInACategoryAreFilledAsTheLinesAre()
{
    QFETCH(QString, category);
    Configured logger(Configured::log(QJsonObject{{category, 1}}));
    logger->log0(0, 10, QStringLiteral("hello"));
    const QStringList lines = messages().take(QtDebugMsg);
    QCOMPARE(lines.size(), 1);
    QTEST(lines.first().mid(int(qstrlen("[dd.MM.yyyy hh:mm:ss.zzz] "))), "line");
}

void tst_Logger::linesAreNotTestedAgainstTheMask()
{
    Configured logger(Configured::log(QJsonObject{{QStringLiteral("zdefault"), 1}}));
    logger->log0(0, 2, QStringLiteral("written"));
    QCOMPARE(messages().take(QtDebugMsg).size(), 1);
}

void tst_Logger::aCategoryWithMaskZeroHasNoLines()
{
    Configured logger(Configured::log(QJsonObject{{QStringLiteral("zdefault"), 0}}));
    for (int bit = 0; bit < 31; ++bit)
        logger->log0(0, 1 << bit, QStringLiteral("hidden"));
    QCOMPARE(messages().takeAll().size(), 0);
}

void tst_Logger::linesNeedDebugWhateverTheirKind()
{
    Configured logger(Configured::log(QJsonObject{{QStringLiteral("zdefault"), 15}}));
    QLoggingCategory::defaultCategory()->setEnabled(QtDebugMsg, false);
    for (const int kind : {1, 2, 4, 8})
        logger->log0(0, kind, QStringLiteral("hidden"));
    QCOMPARE(messages().takeAll().size(), 0);
}

void tst_Logger::theFirstConfigurationWins()
{
    ZDefaultConfig first(
        QJsonObject{{QStringLiteral("logger"), Configured::log(QJsonObject{{QStringLiteral("first"), 1}})}});
    QJsonObject section = Configured::log(QJsonObject{{QStringLiteral("second"), 1}});
    section.insert(QStringLiteral("info"), 0);
    ZDefaultConfig second(QJsonObject{{QStringLiteral("logger"), section}});
    ZDefaultLogger logger;
    QCOMPARE(logger.getSetZConfig(), nullptr);
    QCOMPARE(logger.getSetZConfig(&first), &first);
    QCOMPARE(logger.getSetZConfig(&second), &first);
    QCOMPARE(logger.getSetZConfig(nullptr), &first);
    QCOMPARE(logger.log0(QStringLiteral("first")), 0);
    QCOMPARE(logger.log0(QStringLiteral("second")), -1);
    QVERIFY(logger.info0());
}

void tst_Logger::aLoggerMayGetItsConfigurationLater()
{
    const Wiring wiring;
    auto *logger = qobject_cast<ZDefaultLogger *>(wiring->zemit0(ZDefaultLogger::TypeName));
    QCOMPARE(logger->log0(QStringLiteral("zdefault")), -1);
    QCOMPARE(logger->log0(0), 0);
    logger->log0(0, 1, QStringLiteral("hidden"));
    logger->info0(QStringLiteral("plain ones work"));
    QCOMPARE(messages().takeAll().size(), 1);

    const QJsonObject config{{QStringLiteral("logger"), Configured::log(QJsonObject{{QStringLiteral("zdefault"), 3}})}};
    wiring->zemit0(ZDefaultConfig::TypeName, Q_ARG(QJsonObject, config));
    QCOMPARE(logger->log0(QStringLiteral("zdefault")), -1);
    wiring->inject0(logger);
    QCOMPARE(logger->log0(QStringLiteral("zdefault")), 0);
    QCOMPARE(logger->log0(0), 3);
}

void tst_Logger::injectionConfiguresBeforeItAnnounces()
{
    /// Asks the logger for a category at the moment that it is bound.
    class Watcher : public ZDefaultEmitter
    {
    public:
        QSharedPointer<ZReference> bind0(QSharedPointer<ZDelegate> delegate) override
        {
            if (auto *logger = dynamic_cast<ZLogger *>(delegate.data()))
                mask = logger->log0(logger->log0(QStringLiteral("zdefault")));
            return ZDefaultEmitter::bind0(delegate);
        }
        int mask = -1;
    };
    const auto emitter = QSharedPointer<Watcher>::create();
    emitter->install(emitter);
    const QJsonObject config{{QStringLiteral("logger"), Configured::log(QJsonObject{{QStringLiteral("zdefault"), 6}})}};
    emitter->zemit0(ZDefaultConfig::TypeName, Q_ARG(QJsonObject, config));
    emitter->zemit0(ZDefaultLogger::TypeName);
    QCOMPARE(emitter->mask, 6);
    emitter->install({});
}

void tst_Logger::aSecondLoggerTakesOver()
{
    const Wiring wiring;
    const auto first = Journal::bind(wiring.emitter());
    Consumer consumer;
    wiring->inject0(&consumer);
    consumer.m_logger->info0(QStringLiteral("one"));
    wiring->zemit0(ZDefaultLogger::TypeName);
    consumer.m_logger->info0(QStringLiteral("two"));
    QCOMPARE(first->entries(), QStringList{QStringLiteral("info: one")});
    QCOMPARE(messages().take(QtInfoMsg), QStringList{QStringLiteral("two")});
}

void tst_Logger::severalThreadsWriteWholeLines()
{
    constexpr int ThreadCount = 4;
    constexpr int LineCount = 500;
    Configured logger(Configured::log(QJsonObject{{QStringLiteral("a"), 1}, {QStringLiteral("b"), 2}}));
    std::vector<std::unique_ptr<QThread>> threads;
    for (int thread = 0; thread < ThreadCount; ++thread) {
        threads.emplace_back(QThread::create([&logger, thread] {
            const ZNamedLogger named(logger.logger(), QStringLiteral("a"));
            for (int line = 0; line < LineCount; ++line)
                named.log(1, [&] { return QStringLiteral("%1/%2").arg(thread).arg(line); });
        }));
        threads.back()->start();
    }
    for (const auto &thread : threads)
        QVERIFY(thread->wait(60000));
    QVector<int> next(ThreadCount);
    const QStringList lines = messages().take(QtDebugMsg);
    for (const QString &text : lines) {
        const Line line(text);
        QVERIFY(line.time.isValid());
        const QStringList parts = line.rest.split(QLatin1Char('/'));
        QCOMPARE(parts.value(1).toInt(), next[parts.value(0).toInt()]++);
    }
    QCOMPARE(next, QVector<int>(ThreadCount, LineCount));
}

void tst_Logger::aNamedLoggerAsksOnce()
{
    /// Counts what it is asked.
    class Counting : public ZDefaultLogger
    {
    public:
        int log0(const QString &) override { return ++names, index; }
        int log0(int) override { return ++masks, 6; }
        void log0(int i, int kind, const QString &text) override
        {
            lines.append(QStringLiteral("%1 %2 %3").arg(i).arg(kind).arg(text));
        }
        int index = 5;
        int names = 0;
        int masks = 0;
        QStringList lines;
    } logger;

    const ZNamedLogger named(&logger, QStringLiteral("zdefault"));
    named.log(2, QStringLiteral("one"));
    named.log(4, QStringLiteral("two"));
    named.log(1, QStringLiteral("masked"));
    QCOMPARE(logger.names, 1);
    QCOMPARE(logger.masks, 1);
    QCOMPARE(logger.lines, (QStringList{"5 2 one", "5 4 two"}));

    logger.index = -1;
    const ZNamedLogger unknown(&logger, QStringLiteral("zdefault"));
    unknown.log(2, QStringLiteral("three"));
    QCOMPARE(logger.names, 2);
    QCOMPARE(logger.masks, 1); // an unknown category is not asked for its mask
    QCOMPARE(logger.lines.size(), 2);
}

void tst_Logger::aNamedLoggerTestsTheMask_data()
{
    QTest::addColumn<int>("mask");
    QTest::addColumn<QList<int>>("kinds");
    QTest::newRow("0") << 0 << QList<int>{};
    QTest::newRow("1") << 1 << QList<int>{1};
    QTest::newRow("6") << 6 << QList<int>{2, 4};
    QTest::newRow("15") << 15 << QList<int>{1, 2, 4, 8};
    QTest::newRow("-1") << -1 << QList<int>{1, 2, 4, 8, 16};
}

void tst_Logger::aNamedLoggerTestsTheMask()
{
    QFETCH(int, mask);
    QFETCH(QList<int>, kinds);
    Configured logger(Configured::log(QJsonObject{{QStringLiteral("zdefault"), mask}}));
    const ZNamedLogger named(logger.logger(), QStringLiteral("zdefault"));
    QList<int> written;
    for (const int kind : {1, 2, 4, 8, 16}) {
        named.log(kind, QStringLiteral("text"));
        const QStringList lines = messages().take(QtDebugMsg);
        QCOMPARE(named.isEnabled(kind), !lines.isEmpty());
        for (const QString &line : lines)
            written << Line(line).kind.toInt(nullptr, 16);
    }
    QCOMPARE(written, kinds);
    QCOMPARE(named.isEnabled(std::numeric_limits<int>::min()), mask < 0); // the highest bit is a kind too
}

void tst_Logger::aMaskIsSetWhileOthersWrite()
{
    Configured logger(Configured::log(QJsonObject{{QStringLiteral("zdefault"), 0}, {QStringLiteral("other"), 1}}));
    QStringList categories = logger->categories();
    categories.sort();
    QCOMPARE(categories, QStringList({"other", "zdefault"}));
    const ZNamedLogger named(logger.logger(), QStringLiteral("zdefault"));
    QSemaphore asks;
    std::atomic_bool isSeen{false};
    const QScopedPointer<QThread> other(QThread::create([&] {
        asks.release();
        while (!named.isEnabled(4)) {
        }
        isSeen = true;
    }));
    other->start();
    asks.acquire();
    const ZNamedLogger copy = named;
    QVERIFY(logger->setMask(QStringLiteral("zdefault"), 6));
    ZNamedLogger::setMask(logger.logger(), QStringLiteral("other"), 2); // another category,
    ZNamedLogger::setMask(nullptr, QStringLiteral("zdefault"), 2);      // or another logger
    ZNamedLogger::setMask(logger.logger(), QStringLiteral("zdefault"), 6);
    QVERIFY(other->wait(30000));
    QVERIFY(isSeen);
    QCOMPARE(logger->log0(logger->log0(QStringLiteral("zdefault"))), 6);
    QCOMPARE(logger->log0(logger->log0(QStringLiteral("other"))), 1);
    QVERIFY(!named.isEnabled(1));
    QVERIFY(copy.isEnabled(2));
}

/// They are listed, and the list is kept short.
void tst_Logger::handlesThatAreGoneCostNothing()
{
    Configured logger(Configured::log(QJsonObject{{QStringLiteral("zdefault"), 1}}));
    const ZNamedLogger first(logger.logger(), QStringLiteral("zdefault"));
    const size_t before = mallinfo2().uordblks;
    for (int i = 0; i < 100000; ++i)
        ZNamedLogger(logger.logger(), QStringLiteral("zdefault"));
    QVERIFY(mallinfo2().uordblks < before + 100000);
    ZNamedLogger::setMask(logger.logger(), QStringLiteral("zdefault"), 2);
    QVERIFY(first.isEnabled(2));
}

void tst_Logger::aMaskIsSetOnlyOfACategoryThatIsThere()
{
    ZDefaultLogger without;
    QVERIFY(!without.setMask(QStringLiteral("zdefault"), 1));
    QCOMPARE(without.categories(), QStringList());

    Configured logger(Configured::log(QJsonObject{{QStringLiteral("zdefault"), 2}}));
    QVERIFY(!logger->setMask(QStringLiteral("Zdefault"), 1));
    QCOMPARE(logger->categories(), QStringList{"zdefault"});
    QCOMPARE(logger->log0(0), 2);
}

void tst_Logger::aNamedLoggerBuildsNoTextThatNobodyWants()
{
    Configured logger(Configured::log(QJsonObject{{QStringLiteral("zdefault"), 2}}));
    const ZNamedLogger named(logger.logger(), QStringLiteral("zdefault"));
    int built = 0;
    const auto text = [&] { return QString::number(++built); };
    named.log(1, text);
    QCOMPARE(built, 0);
    named.log(2, text);
    QCOMPARE(built, 1);
    QCOMPARE(Line(messages().take(QtDebugMsg).value(0)).rest, QStringLiteral("1"));
}

void tst_Logger::aNamedLoggerOfAnUnknownCategoryWritesNothing()
{
    Configured logger(Configured::log(QJsonObject{{QStringLiteral("zdefault"), 15}}));
    const ZNamedLogger named(logger.logger(), QStringLiteral("zscheduler"));
    for (const int kind : {1, 2, 4, 8})
        named.log(kind, QStringLiteral("hidden"));
    QCOMPARE(messages().takeAll().size(), 0);
}

void tst_Logger::anUnboundNamedLoggerWritesNothing()
{
    const ZNamedLogger unbound;
    const ZNamedLogger boundToNothing(nullptr, QStringLiteral("zdefault"));
    for (const ZNamedLogger &named : {unbound, boundToNothing}) {
        QVERIFY(!named.isEnabled(1));
        named.log(1, QStringLiteral("hidden"));
        named.warn(1, QStringLiteral("hidden"));
    }
    QCOMPARE(messages().takeAll().size(), 0);
}

void tst_Logger::aNamedLoggerOfALoggerThatIsGoneWritesNothing()
{
    const auto journal = QSharedPointer<Journal>::create();
    ZLoggerDelegate delegate(nullptr);
    const ZNamedLogger early(&delegate, QStringLiteral("zdefault"));
    delegate.replace(QSharedPointer<ZReference>::create(journal));
    const ZNamedLogger named(&delegate, QStringLiteral("zdefault"));
    early.log(1, QStringLiteral("was told of no kinds"));
    named.log(1, QStringLiteral("written"));

    delegate.replace({});
    named.log(1, QStringLiteral("hidden"));
    named.warn(1, QStringLiteral("hidden"));
    QCOMPARE(journal->entries(), QStringList{QStringLiteral("zdefault 1: written")});
}

void tst_Logger::aCopiedNamedLoggerIsBoundToo()
{
    Configured logger(Configured::log(QJsonObject{{QStringLiteral("zdefault"), 1}}));
    ZNamedLogger copy;
    {
        const ZNamedLogger named(logger.logger(), QStringLiteral("zdefault"));
        copy = named;
    }
    copy.log(1, QStringLiteral("text"));
    QCOMPARE(messages().take(QtDebugMsg).size(), 1);
}

void tst_Logger::failuresAreWarningsOrElseLines_data()
{
    QTest::addColumn<bool>("warnings");
    QTest::addColumn<int>("mask");
    QTest::addColumn<QStringList>("entries");
    QTest::newRow("warnings on") << true << 15 << QStringList{"warning: failed"};
    QTest::newRow("warnings on, masked") << true << 0 << QStringList{"warning: failed"};
    QTest::newRow("warnings off") << false << 15 << QStringList{"zdefault 2: failed"};
    QTest::newRow("warnings off, masked") << false << 13 << QStringList();
}

void tst_Logger::failuresAreWarningsOrElseLines()
{
    QFETCH(bool, warnings);
    QFETCH(int, mask);
    Journal journal(mask, warnings);
    ZNamedLogger(&journal, QStringLiteral("zdefault")).warn(2, QStringLiteral("failed"));
    QTEST(journal.entries(), "entries");
}

void tst_Logger::aTextIgnoresCase_data()
{
    QTest::addColumn<QString>("left");
    QTest::addColumn<QString>("right");
    QTest::addColumn<int>("order");
    QTest::newRow("same") << "abc"
                          << "abc" << 0;
    QTest::newRow("other case") << "abC"
                                << "ABc" << 0;
    QTest::newRow("other case beyond ASCII") << QString::fromUtf8("\xc3\xa4") << QString::fromUtf8("\xc3\x84") << 0;
    QTest::newRow("empty and null") << "" << QString() << 0;
    QTest::newRow("before") << "Abc"
                            << "abD" << -1;
    QTest::newRow("after") << "b"
                           << "A" << 1;
    QTest::newRow("prefix") << "ab"
                            << "ABC" << -1;
}

void tst_Logger::aTextIgnoresCase()
{
    QFETCH(QString, left);
    QFETCH(QString, right);
    QFETCH(int, order);
    QCOMPARE(ZText(left) == ZText(right), order == 0);
    QCOMPARE(ZText(left) < ZText(right), order < 0);
    QCOMPARE(ZText(right) < ZText(left), order > 0);
}

void tst_Logger::aTextIsAKey()
{
    QMap<ZText, int> map;
    map.insert(ZText(QStringLiteral("Content-Type")), 1);
    map.insert(QStringLiteral("content-type"), 2);
    const ZText copy = map.firstKey();
    QCOMPARE(map.size(), 1);
    QCOMPARE(map.value(copy), 2);
}

namespace {

/// For onlyWhatIsUrgentIsToldAsTheProcessEnds.
int writeAtTheEnd(int argc, char *argv[])
{
    static ZDefaultLogger logger;
    static const struct Last
    {
        ~Last()
        {
            for (const Severity &severity : severities)
                (logger.*severity.write)(QString::fromLatin1(severity.key) + QStringLiteral(" at the end"));
        }
    } last;
    const QCoreApplication application(argc, argv);
    return QLoggingCategory::defaultCategory() ? 0 : 1; // Qt's switches are made by now, and so are gone before
}

} // namespace

int main(int argc, char *argv[])
{
    if (argc == 2 && qstrcmp(argv[1], "--end") == 0)
        return writeAtTheEnd(argc, argv);
    QCoreApplication application(argc, argv);
    const QStringList arguments = QCoreApplication::arguments();
    if (arguments.value(1) == QStringLiteral("--fatal")) { // for fatalEndsTheProcess
        QJsonObject section;
        if (!arguments.value(2).isEmpty())
            section.insert(QStringLiteral("fatal"), arguments.value(2).toInt());
        Configured logger(section);
        logger->fatal0(QStringLiteral("the end, %s %1"));
        logger->critical0(QStringLiteral("after the end"));
        return 0;
    }
    tst_Logger test;
    return QTest::qExec(&test, argc, argv);
}

#include "tst_logger.moc"
