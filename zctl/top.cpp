// SPDX-License-Identifier: Apache-2.0
#include "commands.h"
#include "fullscreen.h"
#include "options.h"
#include "output.h"
#include "printable.h"
#include "reports.h"
#include "status.h"
#include "words.h"

#include <QElapsedTimer>
#include <QHash>
#include <QJsonArray>
#include <QJsonObject>

#include <algorithm>
#include <csignal>
#include <optional>

#include <unistd.h>

namespace {

constexpr int PeriodMs = 1000;
constexpr int AnswerSeconds = 5; // Ctrl-C waits for it
constexpr int MostThreads = 8;

/// What the threads do from one report to the next.
class Load
{
public:
    /// To be told each report, as soon as it is there.
    void take(const QJsonArray &threads)
    {
        const double ms = m_clock.isValid() ? double(m_clock.restart()) : 0;
        if (!m_clock.isValid())
            m_clock.start();
        QHash<int, double> used;
        m_rows.clear();
        for (const QJsonValue &value : threads) {
            const QJsonObject thread = value.toObject();
            const int id = numberOf(thread, "id");
            used[id] = thread.value(QLatin1String("cpuMs")).toDouble();
            const double since = used[id] - m_used.value(id, used[id]);
            m_rows.append({ms > 0 ? 100 * since / ms : 0, thread});
        }
        m_used = used;
        std::stable_sort(m_rows.begin(), m_rows.end(),
                         [](const Row &a, const Row &b) { return a.percent > b.percent; });
    }

    /// The busiest.
    Table table() const
    {
        Table result({{QStringLiteral("CPU %"), Table::Number},
                      {QStringLiteral("THREAD"), Table::Number},
                      {QStringLiteral("NAME")},
                      {QStringLiteral("STATE"), Table::Short}});
        for (const Row &row : m_rows.mid(0, MostThreads))
            result.add({QString::number(row.percent, 'f', 0), QString::number(numberOf(row.thread, "id")),
                        textOf(row.thread, "name"), threadState(textOf(row.thread, "state"))});
        return result;
    }

private:
    struct Row
    {
        double percent;
        QJsonObject thread;
    };
    QElapsedTimer m_clock;
    QHash<int, double> m_used; // by thread
    QVector<Row> m_rows;
};

void addLine(QStringList *lines, const Terminal &terminal, const Table::Cell &cell)
{
    lines->append(terminal.paint(cutTo(printable(cell.text), terminal.columns), cell.colour));
}

QStringList frame(const QJsonObject &report, const Load &load, const Terminal &terminal)
{
    const QJsonObject host = report.value(QLatin1String("host")).toObject();
    QStringList lines;
    addLine(&lines, terminal, headline(report));
    addLine(&lines, terminal,
            QStringLiteral("%1, started %2").arg(describeSize(host), whenText(textOf(host, "since"))));
    const Table::Cell loop = describeLoop(host);
    addLine(&lines, terminal, {QStringLiteral("event loop ") + loop.text, loop.colour});
    const QStringList failed = failures(report);
    for (const QString &failure : failed)
        addLine(&lines, terminal, {failure, Terminal::Bad});
    for (const Table &table : {load.table(), scheduleTable(report.value(QLatin1String("schedule")).toArray()),
                               pluginTable(report.value(QLatin1String("plugins")).toArray())}) {
        if (!table.isEmpty())
            lines += QStringList(QString()) + table.lines(terminal);
    }
    return lines;
}

/// Until the user has enough, or nobody answers; `signal` is the one by which to end, if there is one.
Answer watch(const Client &client, int *signal)
{
    FullScreen screen;
    Load load;
    for (QElapsedTimer clock;;) {
        Answer answer = client.get(QStringLiteral("/v1/report"), AnswerSeconds);
        if (!answer.error.isEmpty())
            return answer;
        const QJsonObject report = answer.json.object();
        load.take(report.value(QLatin1String("threads")).toArray());
        screen.show(frame(report, load, Terminal::ofOutput()));
        for (clock.start(); !clock.hasExpired(PeriodMs);) {
            switch (screen.wait(std::max(0, PeriodMs - int(clock.elapsed())))) {
            case FullScreen::Continued:
                screen.show(frame(report, load, Terminal::ofOutput()));
                break;
            case FullScreen::Key:
                if (screen.key() == 'q')
                    return answer;
                break;
            case FullScreen::Ended:
                *signal = screen.signal();
                return answer;
            case FullScreen::Interrupted:
                return answer;
            case FullScreen::Nothing:
                break;
            }
        }
    }
}

} // namespace

ExitCode showTop(const Request &request)
{
    const bool isTerminal = isatty(STDIN_FILENO) != 0 && isatty(STDOUT_FILENO) != 0;
    if (request.options.isJson || !isTerminal) {
        complain(QStringLiteral("top is for a terminal: zctl status tells the same once, also with --json"));
        return Unusable;
    }
    int signal = 0;
    const Answer answer = watch(request.client, &signal);
    if (signal != 0)
        raise(signal); // as it would have ended without a screen to put back
    if (!answer.error.isEmpty())
        complain(answer.error);
    return exitCodeOf(answer);
}
