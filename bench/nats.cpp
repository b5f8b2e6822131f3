// SPDX-License-Identifier: Apache-2.0
// A call to another process on this machine: by the plugin, by the client in C alone, and by others. Each way has two
// processes, one that calls and one that answers; all of them live to the end, and take turns.
#include <benchmark/benchmark.h>

#include <QDir>
#include <QFile>
#include <QProcess>
#include <QStandardPaths>
#include <QTcpServer>
#include <QTemporaryDir>
#include <QThread>

#include <map>
#include <memory>

namespace {

constexpr int PatienceMs = 20000;

class Process
{
public:
    Process(const QString &program, const QStringList &arguments)
    {
        m_process.setProcessChannelMode(QProcess::ForwardedErrorChannel);
        m_process.start(program, arguments);
    }
    ~Process()
    {
        m_process.closeWriteChannel(); // by which nodes end
        if (!m_process.waitForFinished(500))
            m_process.kill();
        m_process.waitForFinished();
    }

    qint64 id() const { return m_process.processId(); }
    void write(const QByteArray &line) { m_process.write(line + '\n'); }
    /// Null if it has ended.
    QByteArray line()
    {
        while (!m_process.canReadLine()) {
            if (!m_process.waitForReadyRead(PatienceMs))
                return {};
        }
        return m_process.readLine().trimmed();
    }

private:
    QProcess m_process;
};

QString program(const QString &name)
{
    const QString found = QStandardPaths::findExecutable(name);
    return found.isEmpty() ? QStringLiteral("/usr/sbin/") + name : found;
}

/// All that calls and answers.
class Cluster
{
public:
    Cluster()
    {
        const QString address = startBroker();
        QFile::copy(QStringLiteral(ZNATS), m_folder.filePath(QStringLiteral("libznats.so")));
        for (const char *way : {"raw", "znats"})
            add(QLatin1String(way), address);
        m_callers[QStringLiteral("local")] = node("call", QStringLiteral("local"), QString());
        m_callers[QStringLiteral("local znats")] = node("call", QStringLiteral("local"), address);
        m_daemon = std::make_unique<Process>(
            program(QStringLiteral("dbus-daemon")),
            QStringList{QStringLiteral("--session"), QStringLiteral("--nofork"), QStringLiteral("--print-address"),
                        QStringLiteral("--address=unix:path=") + m_folder.filePath(QStringLiteral("dbus"))});
        add(QStringLiteral("dbus"), QString::fromUtf8(m_daemon->line()));
#ifdef HAVE_GRPC
        QTcpServer port; // which is free as soon as this goes
        port.listen(QHostAddress::LocalHost);
        const QString server = QStringLiteral("127.0.0.1:%1").arg(port.serverPort());
        port.close();
        add(QStringLiteral("grpc"), server);
#endif
    }

    /// What the way takes: the middle of all calls, or, if not `middle`, the time of all by their number. 0 on failure.
    double seconds(const QString &way, int threads, int calls, int bytes, bool middle)
    {
        Process &caller = *m_callers[way];
        caller.write(QStringLiteral("%1 %2 %3").arg(threads).arg(calls).arg(bytes).toUtf8());
        const QList<QByteArray> words = caller.line().split(' ');
        return words.size() == 3 && words[2] == "0" ? words[middle ? 0 : 1].toDouble() / 1e9 : 0;
    }

private:
    QString startBroker()
    {
        m_broker = std::make_unique<Process>(program(QStringLiteral("nats-server")),
                                             QStringList{"--addr", "127.0.0.1", "--port", "-1", "--ports_file_dir",
                                                         m_folder.path(), "--log", m_folder.filePath("broker.log")});
        QFile ports(m_folder.filePath(QStringLiteral("nats-server_%1.ports").arg(m_broker->id())));
        QByteArray text;
        for (int i = 0; i < PatienceMs / 20 && !text.contains('}'); ++i) {
            QThread::msleep(20);
            if (ports.open(QIODevice::ReadOnly))
                text = ports.readAll();
            ports.close();
        }
        const int begin = text.indexOf("nats://");
        return QString::fromUtf8(text.mid(begin, text.indexOf('"', begin) - begin));
    }

    std::unique_ptr<Process> node(const char *role, const QString &way, const QString &address)
    {
        auto process = std::make_unique<Process>(QStringLiteral(NODE),
                                                 QStringList{QLatin1String(role), way, address, m_folder.path()});
        process->line(); // "ready"
        return process;
    }

    void add(const QString &way, const QString &address)
    {
        m_servers[way] = node("serve", way, address);
        m_callers[way] = node("call", way, address);
    }

    const QTemporaryDir m_folder;
    std::unique_ptr<Process> m_broker;
    std::unique_ptr<Process> m_daemon;
    std::map<QString, std::unique_ptr<Process>> m_servers;
    std::map<QString, std::unique_ptr<Process>> m_callers;
};

Cluster &cluster()
{
    static Cluster instance;
    return instance;
}

struct Load
{
    int threads;
    int calls;
    int bytes;
    bool middle;
};

void add(const std::string &name, const char *way, const Load &load)
{
    benchmark::RegisterBenchmark(name.c_str(),
                                 [way, load](benchmark::State &state) {
                                     for (auto _ : state) {
                                         const double seconds = cluster().seconds(QLatin1String(way), load.threads,
                                                                                  load.calls, load.bytes, load.middle);
                                         if (seconds <= 0)
                                             return state.SkipWithError("calls have failed");
                                         state.SetIterationTime(seconds);
                                     }
                                 })
        ->UseManualTime()
        ->Iterations(1);
}

const bool areRegistered = [] {
    const std::map<const char *, const char *> ways{
        {"raw", "floor"},
        {"znats", "ours"},
        {"dbus", "peer: QtDBus"},
#ifdef HAVE_GRPC
        {"grpc", "peer: gRPC"},
#endif
    };
    for (const auto &[way, what] : ways) {
        for (const auto &[bytes, size] : {std::pair(16, "16 B"), std::pair(4096, "4 KiB")}) {
            const std::string end = std::string("/") + what + "/" + size;
            add("call to another process, p50" + end, way, {1, 2000, bytes, true});
            add("call to another process, 8 callers, p50" + end, way, {8, 1000, bytes, true});
            add("call to another process, 8 callers, each" + end, way, {8, 1000, bytes, false});
        }
    }
    add("call within a process, with znats/floor", "local", {1, 200000, 0, false});
    add("call within a process, with znats/ours", "local znats", {1, 200000, 0, false});
    return true;
}();

} // namespace
