// SPDX-License-Identifier: Apache-2.0
#include "healthcheck.h"

#include "pluginfiles.h"

#include <QJsonObject>

#include <zcaught.h>
#include <zdbus.h>
#include <zdefaultloader.h>

#include <utility>

namespace {

/// The URL in the plugin's metadata. One without a host is not used, since it would call all endpoints.
QUrl declaredUrl(const QString &path)
{
    const QJsonObject metaData = metaDataOf(path).value(QStringLiteral("MetaData")).toObject();
    return QUrl(metaData.value(QStringLiteral("healthy")).toString());
}

} // namespace

HealthCheck::HealthCheck(const QString &path, ZDbus *bus, QObject *parent)
    : QObject(parent), m_file(path.section(QLatin1Char('/'), -1)), m_bus(bus), m_url(declaredUrl(path)),
      m_isDeclared(!m_url.host().isEmpty())
{
    if (!m_isDeclared) {
        m_url = QUrl(QStringLiteral("//%1/healthy").arg(ZDefaultLoader::basen(m_file)));
    }
    ask();
    m_timer = startTimer(PeriodMs);
}

HealthCheck::~HealthCheck()
{
    if (m_call)
        m_call->wait();
}

void HealthCheck::end()
{
    disconnect(this, &HealthCheck::failed, nullptr, nullptr);
    setObjectName({});
    m_failures = 0;
    killTimer(std::exchange(m_timer, 0));
    if (!m_call || m_call->isFinished())
        deleteLater();
    else
        connect(m_call.get(), &QThread::finished, this, &QObject::deleteLater);
}

void HealthCheck::timerEvent(QTimerEvent *)
{
    const bool isOver = m_call->isFinished();
    if (!isOver || !m_isLate)
        judge(isOver);
    m_isLate = !isOver;
    if (isOver && m_timer) // a receiver of failed() may have ended this
        ask();
}

void HealthCheck::ask()
{
    m_isHandled = false;
    m_call.reset(QThread::create([this] {
        zCaught([&] {
            QJsonObject in, out;
            const bool isAsked = m_isDeclared || m_bus->find0(m_url);
            m_isHandled = !isAsked || m_bus->invoke0(m_url, &in, &out);
        });
    }));
    m_call->setObjectName(m_url.toString());
    m_call->start();
}

void HealthCheck::judge(bool isOver)
{
    const bool isHealthy = isOver && m_isHandled;
    m_failures = isHealthy ? 0 : m_failures + 1;
    m_lastFailure = QLatin1String(isOver ? "was not handled" : "took too long");
    if (m_failures == 2)
        Q_EMIT failed(failure());
}

QString HealthCheck::failure() const
{
    return m_failures < 2 ? QString() : QStringLiteral("%1 %2, twice in a row").arg(m_url.toString(), m_lastFailure);
}
