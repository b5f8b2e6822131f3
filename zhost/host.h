// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QJsonObject>
#include <QSharedPointer>

class ZDefaultEmitter;

/// The services of the host, wired. They go with it, the last that came first.
class Host
{
public:
    explicit Host(const QJsonObject &configuration);
    ~Host();

private:
    Q_DISABLE_COPY(Host)
    QSharedPointer<ZDefaultEmitter> m_emitter;
};
