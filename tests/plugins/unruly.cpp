// SPDX-License-Identifier: Apache-2.0
#include <zlogger.h>
#include <zobject.h>
#include <zwiring.h>

#include <QCoreApplication>
#include <QEventLoop>
#include <QTimer>

#include <csignal>
#include <cstdlib>

#include <thread>

#include <poll.h>
#include <unistd.h>

namespace {

void waitForEver()
{
    while (true)
        pause();
}

} // namespace

/// Does to its host what the environment's UNRULY says.
class Unruly : public ZObject
{
    Q_OBJECT
    Q_PLUGIN_METADATA(IID ZObject_iid)
    Q_PROPERTY(ZLogger *zLogger READ getSetZLogger WRITE getSetZLogger)

public:
    ~Unruly() override
    {
        if (m_deed != "wait")
            return;
        QEventLoop loop;
        QTimer::singleShot(10, &loop, &QEventLoop::quit);
        loop.exec();
        m_logger->info0(QStringLiteral("unruly: waited"));
    }

    ZLogger *getSetZLogger(ZLogger *logger = nullptr)
    {
        if (!zKeepFirst(m_logger, logger))
            return m_logger;
        logger->info0(QStringLiteral("unruly: here"));
        if (m_deed == "wait")
            connect(qApp, &QCoreApplication::aboutToQuit, this, [this] { m_self.clear(); });
        if (m_deed == "wait" || m_deed == "exit" || m_deed.endsWith("asked to quit"))
            m_self = shared();
        if (m_deed == "exit")
            std::exit(0);
        if (m_deed == "exit on a thread") {
            std::thread([] { std::exit(0); }).detach();
            waitForEver();
        }
        if (m_deed == "exit when asked to quit")
            connect(qApp, &QCoreApplication::aboutToQuit, qApp, [] { std::exit(0); });
        if (m_deed == "hang when asked to quit")
            connect(qApp, &QCoreApplication::aboutToQuit, qApp, waitForEver);
        if (m_deed == "hang up") {
            std::raise(SIGHUP);
            QCoreApplication::processEvents();
            logger->info0(QStringLiteral("unruly: went on"));
        }
        if (m_deed == "log") {
            logger->debug0(QStringLiteral("as debug\tok"));
            logger->info0(QStringLiteral("as info\nzhost: forged\x1b[2J\r\u009b1m"));
            logger->warning0(QStringLiteral("as warning"));
            logger->critical0(QStringLiteral("as critical"));
        }
        if (m_deed == "quit")
            QCoreApplication::quit();
        if (m_deed == "read") { // keeps the start busy until somebody writes
            pollfd input{STDIN_FILENO, POLLIN, 0};
            poll(&input, 1, -1);
            char byte;
            if (read(STDIN_FILENO, &byte, 1) < 0)
                std::abort();
        }
        return m_logger;
    }

private:
    const QByteArray m_deed = qgetenv("UNRULY");
    ZLogger *m_logger = nullptr;
    QSharedPointer<QObject> m_self;
};

#include "unruly.moc"
