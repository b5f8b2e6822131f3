// SPDX-License-Identifier: Apache-2.0
#include "messages.h"

#include <QMutexLocker>

#include <algorithm>

namespace {
Messages *current = nullptr;
}

Messages::Messages()
{
    current = this;
    m_previous = qInstallMessageHandler(handle);
}

Messages::~Messages()
{
    qInstallMessageHandler(m_previous);
    current = nullptr;
}

QStringList Messages::take(QtMsgType type)
{
    const QMutexLocker locker(&m_mutex);
    QStringList texts;
    QList<Message> others;
    for (const Message &message : qAsConst(m_messages)) {
        if (message.type == type)
            texts.append(message.text);
        else
            others.append(message);
    }
    m_messages = others;
    return texts;
}

QList<Messages::Message> Messages::takeAll()
{
    const QMutexLocker locker(&m_mutex);
    return std::exchange(m_messages, {});
}

bool Messages::has(QtMsgType type, const QString &text) const
{
    const QMutexLocker locker(&m_mutex);
    return std::any_of(m_messages.begin(), m_messages.end(),
                       [&](const Message &message) { return message.type == type && message.text == text; });
}

void Messages::handle(QtMsgType type, const QMessageLogContext &context, const QString &text)
{
    if (type == QtFatalMsg) {
        current->m_previous(type, context, text);
        return;
    }
    const QMutexLocker locker(&current->m_mutex);
    current->m_messages.append({type, QString::fromUtf8(context.category), text});
}
