// SPDX-License-Identifier: Apache-2.0
// natsnode CONFIGURATION NAME: a host of tests. It does what it is told by lines of JSON on its input, and answers so
// on its output, which has its log, too. It ends with its input.
#include "node.h"

#include <QCoreApplication>
#include <QFile>
#include <QJsonDocument>
#include <QMutex>
#include <QSocketNotifier>

#include <zhost.h>

#include <cstdio>

#include <unistd.h>

namespace {

void tell(const QJsonObject &line)
{
    static QMutex mutex;
    const QByteArray text = QJsonDocument(line).toJson(QJsonDocument::Compact) + '\n';
    const QMutexLocker locker(&mutex);
    std::fwrite(text.constData(), 1, static_cast<std::size_t>(text.size()), stdout);
    std::fflush(stdout);
}

void writeMessage(QtMsgType type, const QMessageLogContext &, const QString &text)
{
    tell({{QStringLiteral("log"), text}, {QStringLiteral("type"), type}});
}

QJsonObject read(const QString &name)
{
    QFile file(name);
    return file.open(QIODevice::ReadOnly) ? QJsonDocument::fromJson(file.readAll()).object() : QJsonObject();
}

/// Obeys each line of the input; with its end it is time to quit.
class Ear
{
public:
    explicit Ear(Node *node) : m_notifier(STDIN_FILENO, QSocketNotifier::Read)
    {
        QObject::connect(&m_notifier, &QSocketNotifier::activated, node, [this, node] { hear(node); });
    }

private:
    void hear(Node *node)
    {
        char buffer[65536];
        const ssize_t count = ::read(STDIN_FILENO, buffer, sizeof buffer);
        if (count <= 0) {
            m_notifier.setEnabled(false);
            node->obey({{QStringLiteral("do"), QStringLiteral("quit")}});
            return;
        }
        m_text.append(buffer, static_cast<int>(count));
        for (int end = m_text.indexOf('\n'); end >= 0; end = m_text.indexOf('\n')) {
            const QByteArray line = m_text.left(end);
            m_text.remove(0, end + 1);
            node->obey(QJsonDocument::fromJson(line).object());
        }
    }

    QSocketNotifier m_notifier;
    QByteArray m_text;
};

} // namespace

int main(int argc, char *argv[])
{
    QCoreApplication application(argc, argv);
    qInstallMessageHandler(writeMessage);
    const QStringList arguments = application.arguments();
    {
        ZHost host(read(arguments.value(1)));
        Node node(arguments.value(2), tell);
        host.inject(&node);
        QObject::connect(&node, &Node::isToQuit, &application, &QCoreApplication::quit, Qt::QueuedConnection);
        host.begin();
        const Ear ear(&node);
        tell({{QStringLiteral("event"), QStringLiteral("ready")}});
        QCoreApplication::exec();
        tell({{QStringLiteral("event"), QStringLiteral("quitting")}});
    }
    tell({{QStringLiteral("event"), QStringLiteral("ended")}});
    return 0;
}
