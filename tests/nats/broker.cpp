// SPDX-License-Identifier: Apache-2.0
#include "broker.h"

#include "loopback.h"

#include <QDeadlineTimer>
#include <QFile>
#include <QThread>

#include <poll.h>

namespace {
constexpr int PatienceMs = 20000;
constexpr int PauseMs = 10;
} // namespace

int freePort()
{
    const int listener = listenAt(0);
    const int port = portOf(listener);
    close(listener);
    return port;
}

Broker::Broker(const QString &configuration) : m_port(freePort()), m_configuration(configuration) {}

Broker::~Broker() { kill(); }

bool Broker::start()
{
    write(m_configuration);
    m_process = std::make_unique<Child>();
    m_process->setProcessChannelMode(QProcess::MergedChannels);
    m_process->setStandardOutputFile(m_folder.filePath(QStringLiteral("log")), QIODevice::Append);
    m_process->start(QStringLiteral(NATS_SERVER),
                     {QStringLiteral("-c"), m_folder.filePath(QStringLiteral("broker.conf"))});
    const QDeadlineTimer deadline(PatienceMs);
    while (!deadline.hasExpired() && !m_process->waitForFinished(PauseMs)) {
        if (isGreeting())
            return true;
    }
    qWarning("the broker does not start: %s", qUtf8Printable(log()));
    return false;
}

void Broker::kill()
{
    if (m_process)
        m_process->end();
}

void Broker::terminate()
{
    m_process->terminate();
    if (!m_process->waitForFinished(PatienceMs))
        m_process->end();
}

void Broker::stop()
{
    m_process->signal(SIGSTOP);
    while (!m_process->isStopped()) // it may run on for a moment
        QThread::yieldCurrentThread();
}

void Broker::resume() { m_process->signal(SIGCONT); }

void Broker::beLameDuck() { m_process->signal(SIGUSR2); }

bool Broker::reload(const QString &configuration)
{
    m_configuration = configuration;
    write(configuration);
    const int before = log().count(QStringLiteral("Reloaded server configuration"));
    m_process->signal(SIGHUP);
    const QDeadlineTimer deadline(PatienceMs);
    while (!deadline.hasExpired() && !m_process->waitForFinished(PauseMs)) {
        if (log().count(QStringLiteral("Reloaded server configuration")) > before)
            return true;
    }
    return false;
}

bool Broker::isRunning() const { return m_process && m_process->state() == QProcess::Running; }

QString Broker::url() const { return QStringLiteral("nats://127.0.0.1:%1").arg(m_port); }

QString Broker::log() const
{
    QFile file(m_folder.filePath(QStringLiteral("log")));
    return file.open(QIODevice::ReadOnly) ? QString::fromUtf8(file.readAll()) : QString();
}

QString Broker::jetStream(const QString &folder)
{
    return QStringLiteral("jetstream { store_dir: \"%1\", max_mem: 64M, max_file: 64M }\n").arg(folder);
}

void Broker::write(const QString &configuration) const
{
    m_folder.write(QStringLiteral("broker.conf"),
                   QStringLiteral("listen: 127.0.0.1:%1\n%2\n").arg(m_port).arg(configuration).toUtf8());
}

/// A broker's first line is about itself.
bool Broker::isGreeting() const
{
    const int socket = connectTo(m_port);
    if (socket < 0)
        return false;
    QByteArray greeting;
    pollfd waiting{socket, POLLIN, 0};
    while (!greeting.contains('\n') && poll(&waiting, 1, PatienceMs) > 0) {
        char buffer[4096];
        const ssize_t count = recv(socket, buffer, sizeof buffer, 0);
        if (count <= 0)
            break;
        greeting.append(buffer, static_cast<int>(count));
    }
    close(socket);
    return greeting.startsWith("INFO") &&
           (!m_configuration.contains(QLatin1String("jetstream")) || greeting.contains("\"jetstream\":true"));
}

std::vector<std::unique_ptr<Broker>> cluster(int count, const QString &configuration)
{
    QStringList routes;
    for (int i = 0; i < count; ++i)
        routes << QStringLiteral("127.0.0.1:%1").arg(freePort());
    std::vector<std::unique_ptr<Broker>> brokers;
    for (int i = 0; i < count; ++i) {
        QStringList others = routes;
        others.removeAt(i);
        brokers.push_back(std::make_unique<Broker>(
            configuration +
            QStringLiteral("server_name: n%1\ncluster { name: c, listen: %2, routes: [nats-route://%3] }\n")
                .arg(QString::number(i), routes.at(i), others.join(QStringLiteral(", nats-route://")))));
    }
    for (const auto &broker : brokers)
        broker->start();
    return brokers;
}
