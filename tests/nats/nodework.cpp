// SPDX-License-Identifier: Apache-2.0
#include "nodework.h"

#include <QDateTime>
#include <QFile>
#include <QThread>

#include <zlease.h>

#include <fcntl.h>
#include <unistd.h>

NodeWork::NodeWork(const QJsonObject &options, ZLease *lease)
    : m_lease(options.value(QStringLiteral("lease")).toString()),
      m_file(options.value(QStringLiteral("file")).toString()),
      m_name(options.value(QStringLiteral("name")).toString()),
      m_slot(options.value(QStringLiteral("slot")).toInt(100)),
      m_tries(options.value(QStringLiteral("tries")).toInt(1)), m_service(lease), m_thread([this] { work(); })
{}

NodeWork::~NodeWork() { stop(); }

QJsonObject NodeWork::stop()
{
    m_isOver = true;
    if (m_thread.joinable())
        m_thread.join();
    return {
        {QStringLiteral("slots"), m_slots}, {QStringLiteral("begun"), m_begun}, {QStringLiteral("reason"), m_reason}};
}

void NodeWork::work()
{
    const int file = open(QFile::encodeName(m_file).constData(), O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC, 0600);
    const auto tell = [&](qint64 slot, const char *what) {
        const QByteArray line = QByteArray::number(slot) + ' ' + m_name.toUtf8() + ' ' + what + ' ' +
                                QByteArray::number(QDateTime::currentMSecsSinceEpoch()) + '\n';
        if (write(file, line.constData(), static_cast<size_t>(line.size())) != line.size())
            qFatal("cannot write %s", qUtf8Printable(m_file));
    };
    while (!m_isOver) {
        const qint64 slot = QDateTime::currentMSecsSinceEpoch() / m_slot + 1;
        while (!m_isOver && QDateTime::currentMSecsSinceEpoch() < slot * m_slot)
            QThread::usleep(500);
        if (m_isOver)
            break;
        ++m_slots;
        for (int i = 0; i < m_tries; ++i) {
            QString reason;
            if (m_service->begin0(m_lease, slot, reason)) {
                tell(slot, "BEGUN");
                ++m_begun;
            } else {
                m_reason = reason;
            }
        }
    }
    close(file);
}
