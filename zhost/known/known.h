// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "activitybook.h"
#include "endpointbook.h"
#include "history.h"
#include "loopclock.h"
#include "whereabouts.h"
#include "wiringbook.h"

#include <QDateTime>
#include <QJsonObject>
#include <QMutex>
#include <QMutexLocker>
#include <QString>
#include <QStringList>

#include <atomic>

/// What a host knows of itself, for those that ask by the door. It lives from before the first plugin until after the
/// last.
struct Known
{
    explicit Known(const QString &configurationFile) : file(configurationFile) {}

    enum State
    {
        Starting,
        Running,
        Stopping
    };

    const QString file; ///< of the configuration, absolute
    const QDateTime since = QDateTime::currentDateTimeUtc();
    std::atomic<State> state{Starting};
    History history;
    WiringBook wiring{&history};
    EndpointBook endpoints;
    ActivityBook activities;
    LoopClock loop;
    Whereabouts whereabouts; ///< of the thread that makes this

    /// The configuration by which the host runs.
    QJsonObject configuration() const
    {
        const QMutexLocker locker(&m_mutex);
        return m_configuration;
    }
    void setConfiguration(const QJsonObject &configuration)
    {
        const QMutexLocker locker(&m_mutex);
        m_configuration = configuration;
    }

    /// Where the host can be asked: a socket, and an address with its port.
    QStringList places() const
    {
        const QMutexLocker locker(&m_mutex);
        return m_places;
    }
    void setPlaces(const QStringList &places)
    {
        const QMutexLocker locker(&m_mutex);
        m_places = places;
    }

private:
    mutable QMutex m_mutex; // guards all that follow
    QJsonObject m_configuration;
    QStringList m_places;
};
