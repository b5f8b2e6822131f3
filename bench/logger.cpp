// SPDX-License-Identifier: Apache-2.0
// A line that is not wanted, and one that is: written to a handler that throws it away.
#include <benchmark/benchmark.h>

#include <QAtomicInt>
#include <QJsonObject>
#include <QLoggingCategory>
#include <QMessageLogger>

#include <ctime>

#include <zdefaultconfig.h>
#include <zdefaultlogger.h>
#include <znamedlogger.h>

#if __has_include(<spdlog/spdlog.h>)
#include <spdlog/sinks/base_sink.h>
#include <spdlog/spdlog.h>
#define HAVE_SPDLOG
#endif

namespace {

const QString text = QStringLiteral("loaded: libgreeter.1.2.so");
const QString category = QStringLiteral("zdefault");

void throwAway(QtMsgType, const QMessageLogContext &, const QString &line)
{
    benchmark::DoNotOptimize(line.constData());
}

/// Writes what it is asked to, with debug on or off; the category has mask 3.
class Logging
{
public:
    explicit Logging(bool debug)
        : m_config(
              QJsonObject{{QStringLiteral("logger"), QJsonObject{{QStringLiteral("debug"), debug ? 1 : 0},
                                                                 {QStringLiteral("log"), QJsonObject{{category, 3}}}}}})
    {
        qInstallMessageHandler(throwAway);
        logger.getSetZConfig(&m_config);
    }
    ~Logging() { qInstallMessageHandler(nullptr); }

    ZDefaultLogger logger;

private:
    ZDefaultConfig m_config;
};

/// What the rules of a tagged line demand: the line built once, as UTF-8 through Qt's handler. The text of the second
/// is kept for each thread; a zone that changes shows with the next second.
class Floor
{
public:
    void log(int kind, const QString &message) const
    {
        if (m_mask.loadAcquire() == 0 || !QLoggingCategory::defaultCategory()->isDebugEnabled())
            return;
        timespec now;
        clock_gettime(CLOCK_REALTIME, &now);
        thread_local time_t second = -1;
        thread_local char stamp[] = "dd.MM.yyyy hh:mm:ss.zzz";
        if (now.tv_sec != second) {
            tm local;
            tzset();
            localtime_r(&now.tv_sec, &local);
            strftime(stamp, sizeof stamp, "%d.%m.%Y %H:%M:%S.", &local);
            second = now.tv_sec;
        }
        const auto milliseconds = static_cast<int>(now.tv_nsec / 1000000);
        stamp[20] = static_cast<char>('0' + milliseconds / 100);
        stamp[21] = static_cast<char>('0' + milliseconds / 10 % 10);
        stamp[22] = static_cast<char>('0' + milliseconds % 10);

        const QByteArray utf8 = message.toUtf8();
        QByteArray line;
        line.reserve(static_cast<int>(sizeof stamp) + m_name.size() + utf8.size() + 20);
        line.append('[').append(stamp, sizeof stamp - 1).append("] [").append(m_name).append("] [");
        line.append(QByteArray::number(kind, 16)).append("] ").append(utf8);
        QMessageLogger(nullptr, 0, nullptr, "default").debug("%s", line.constData());
    }

private:
    QAtomicInt m_mask{3};
    QByteArray m_name = category.toUtf8();
};

void masked(benchmark::State &state)
{
    Logging logging(true);
    const ZNamedLogger log(&logging.logger, category);
    for (auto _ : state) {
        benchmark::ClobberMemory();
        log.log(4, [] { return QStringLiteral("loaded: %1").arg(text); });
    }
}

void maskedFloor(benchmark::State &state)
{
    int mask = 3;
    int *data = &mask;
    benchmark::DoNotOptimize(data);
    for (auto _ : state) {
        benchmark::ClobberMemory();
        if (*data & 4)
            benchmark::DoNotOptimize(QStringLiteral("loaded: %1").arg(text));
    }
}

void maskedByQt(benchmark::State &state)
{
    static const QLoggingCategory off("off", QtWarningMsg);
    for (auto _ : state) {
        benchmark::ClobberMemory();
        qCDebug(off, "%s", qPrintable(QStringLiteral("loaded: %1").arg(text)));
    }
}

BENCHMARK(masked)->Name("masked line/ours");
BENCHMARK(maskedFloor)->Name("masked line/floor");
BENCHMARK(maskedByQt)->Name("masked line/peer: qCDebug");

template <bool debug>
void tagged(benchmark::State &state)
{
    Logging logging(debug);
    ZLogger &logger = logging.logger;
    for (auto _ : state)
        logger.log0(0, 2, text);
}

template <bool debug>
void taggedFloor(benchmark::State &state)
{
    const Logging logging(debug);
    const Floor floor;
    for (auto _ : state)
        floor.log(2, text);
}

BENCHMARK(tagged<false>)->Name("debug off/ours");
BENCHMARK(taggedFloor<false>)->Name("debug off/floor");
BENCHMARK(tagged<true>)->Name("written line/ours");
BENCHMARK(taggedFloor<true>)->Name("written line/floor");

/// Qt's own stamp of the same form, by its message pattern.
void writtenByQt(benchmark::State &state)
{
    const Logging logging(true);
    qSetMessagePattern(QStringLiteral("[%{time dd.MM.yyyy hh:mm:ss.zzz}] [%{category}] [2] %{message}"));
    qInstallMessageHandler([](QtMsgType type, const QMessageLogContext &context, const QString &message) {
        benchmark::DoNotOptimize(qFormatLogMessage(type, context, message));
    });
    for (auto _ : state)
        qDebug("%s", text.toUtf8().constData());
}
BENCHMARK(writtenByQt)->Name("written line/peer: Qt message pattern");

#ifdef HAVE_SPDLOG
class ThrowAway : public spdlog::sinks::base_sink<std::mutex>
{
    void sink_it_(const spdlog::details::log_msg &message) override
    {
        spdlog::memory_buf_t line;
        formatter_->format(message, line);
        benchmark::DoNotOptimize(line.data());
    }
    void flush_() override {}
};

template <bool debug>
void spdlogLine(benchmark::State &state)
{
    spdlog::logger logger("zdefault", std::make_shared<ThrowAway>());
    logger.set_pattern("[%d.%m.%Y %H:%M:%S.%e] [%n] [2] %v");
    logger.set_level(debug ? spdlog::level::debug : spdlog::level::info);
    const std::string message = text.toStdString();
    for (auto _ : state) {
        benchmark::ClobberMemory();
        logger.debug(message);
    }
}
BENCHMARK(spdlogLine<false>)->Name("debug off/peer: spdlog");
BENCHMARK(spdlogLine<true>)->Name("written line/peer: spdlog");
#endif

} // namespace
