// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QList>
#include <QMutex>
#include <QString>
#include <QStringList>
#include <QtGlobal>

/// Catches what goes to Qt's message handler while it lives. One at a time; any thread may write.
class Messages
{
public:
    struct Message
    {
        QtMsgType type;
        QString category;
        QString text;
    };

    Messages();
    ~Messages();

    /// The texts of one severity that have come since they were last taken, in order.
    QStringList take(QtMsgType type);
    /// All of them, in order.
    QList<Message> takeAll();
    /// Whether such a text has come and is not taken yet: for QTRY_VERIFY.
    bool has(QtMsgType type, const QString &text) const;

private:
    Q_DISABLE_COPY(Messages)
    static void handle(QtMsgType type, const QMessageLogContext &context, const QString &text);

    mutable QMutex m_mutex;
    QList<Message> m_messages;
    QtMessageHandler m_previous;
};
