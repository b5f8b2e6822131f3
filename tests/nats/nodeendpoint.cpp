// SPDX-License-Identifier: Apache-2.0
#include "nodeendpoint.h"

#include <QFile>
#include <QJsonValue>
#include <QThread>

#include <zdbus.h>

#include <stdexcept>

#include <fcntl.h>
#include <unistd.h>

namespace {

constexpr int PauseMs = 5;

QJsonValue valueOf(const QJsonObject *object) { return object ? QJsonValue(*object) : QJsonValue(); }

/// In one piece, whoever else appends.
void append(const QString &file, const QString &text)
{
    const int descriptor = open(QFile::encodeName(file).constData(), O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC, 0600);
    const QByteArray line = text.toUtf8() + '\n';
    if (write(descriptor, line.constData(), static_cast<size_t>(line.size())) != line.size())
        qFatal("cannot write %s", qUtf8Printable(file));
    close(descriptor);
}

} // namespace

void NodeRecord::note(const QUrl &url, const QJsonObject *in, const QJsonObject *out)
{
    const QString id = in ? in->value(QStringLiteral("id")).toString() : QString();
    if (!id.isEmpty() && !m_journal.isEmpty())
        append(m_journal, id);
    const QMutexLocker locker(&m_mutex);
    ++m_count;
    if (!id.isEmpty() && ++m_ids[id] == 2)
        ++m_twice;
    m_last = {{QStringLiteral("url"), url.toString()},
              {QStringLiteral("in"), valueOf(in)},
              {QStringLiteral("out"), valueOf(out)}};
}

QJsonObject NodeRecord::report() const
{
    const QMutexLocker locker(&m_mutex);
    return {{QStringLiteral("n"), m_count}, {QStringLiteral("twice"), m_twice}, {QStringLiteral("last"), m_last}};
}

NodeEndpoint::NodeEndpoint(const QJsonObject &options, QSharedPointer<NodeRecord> record, ZDbus *bus)
    : m_options(options), m_kind(options.value(QStringLiteral("kind")).toString(QStringLiteral("echo"))),
      m_record(std::move(record)), m_bus(bus)
{}

bool NodeEndpoint::invoked(const QUrl &url, QJsonObject *in, QJsonObject *out)
{
    m_record->note(url, in, out);
    const QString gate = m_options.value(QStringLiteral("gate")).toString();
    while (!gate.isEmpty() && !QFile::exists(gate))
        QThread::msleep(PauseMs);
    if (m_kind == QLatin1String("refuse"))
        return false;
    if (m_kind == QLatin1String("throw"))
        throw std::runtime_error("as it was told to");
    if (m_kind == QLatin1String("chain"))
        return m_bus->invoke0(QUrl(m_options.value(QStringLiteral("to")).toString()), in, out);
    if (m_kind == QLatin1String("slow"))
        QThread::msleep(static_cast<unsigned long>(m_options.value(QStringLiteral("ms")).toInt()));
    if (m_kind == QLatin1String("changes") && in)
        in->insert(QStringLiteral("changed"), true);
    if (m_kind == QLatin1String("silent") || !out)
        return true;
    if (m_kind == QLatin1String("big"))
        out->insert(QStringLiteral("data"),
                    QString(m_options.value(QStringLiteral("bytes")).toInt(), QLatin1Char('x')));
    out->insert(QStringLiteral("url"), url.toString());
    out->insert(QStringLiteral("name"), m_options.value(QStringLiteral("name")));
    if (in && m_kind != QLatin1String("big"))
        out->insert(QStringLiteral("in"), *in);
    return true;
}
