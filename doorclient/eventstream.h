// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QByteArray>

#include <functional>

/// Reads server-sent events, which may come in pieces.
class EventStream
{
public:
    /// `receive` is called with the data of each.
    explicit EventStream(std::function<void(const QByteArray &data)> receive) : m_receive(std::move(receive)) {}

    void feed(const QByteArray &bytes);

private:
    void take(const QByteArray &line);

    const std::function<void(const QByteArray &)> m_receive;
    QByteArray m_rest; // of a line that has not ended
    QByteArray m_data;
};
