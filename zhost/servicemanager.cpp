// SPDX-License-Identifier: Apache-2.0
#include "servicemanager.h"

#include "printable.h"

#include <QByteArray>

#include <algorithm>
#include <ctime>
#include <utility>

#ifdef ZHOST_HAS_SYSTEMD
#include <systemd/sd-daemon.h>
#endif

namespace {

const QByteArray Alive = QByteArrayLiteral("WATCHDOG=1");

#ifdef ZHOST_HAS_SYSTEMD
void notify(const QByteArray &lines) { sd_notify(false, lines.constData()); }

/// Microseconds after which a silent program counts as hanging; 0 if nobody watches.
quint64 watchdogTime()
{
    uint64_t microseconds = 0;
    return sd_watchdog_enabled(false, &microseconds) > 0 ? microseconds : 0;
}
#else
void notify(const QByteArray &) {}
quint64 watchdogTime() { return 0; }
#endif

/// The time of a reload: systemd ignores older messages.
QByteArray monotonicMicroseconds()
{
    timespec now = {};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return QByteArray::number(qint64(now.tv_sec) * 1000000 + now.tv_nsec / 1000);
}

} // namespace

ServiceManager::ServiceManager(std::function<QString()> status) : m_status(std::move(status))
{
    QObject::connect(&m_watchdog, &QTimer::timeout, &m_watchdog, [this] { notify(Alive + '\n' + this->status()); });
}

void ServiceManager::ready()
{
    notify("READY=1\n" + status());
    if (const quint64 microseconds = watchdogTime(); microseconds > 0 && !m_watchdog.isActive())
        m_watchdog.start(int(std::clamp<quint64>(microseconds / 2000, 1, 24 * 60 * 60 * 1000)));
}

void ServiceManager::reloading() { notify("RELOADING=1\nMONOTONIC_USEC=" + monotonicMicroseconds()); }

void ServiceManager::stopping()
{
    m_watchdog.stop();
    notify("STOPPING=1\n" + Alive); // a stop has the whole time
}

QByteArray ServiceManager::status() const { return "STATUS=" + printable(m_status()).toUtf8(); }
