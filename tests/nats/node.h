// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "nodeendpoint.h"
#include "nodeload.h"
#include "nodework.h"

#include <QHash>
#include <QJsonObject>
#include <QObject>
#include <QSharedPointer>
#include <QThreadPool>

#include <zdbus.h>
#include <zdbusasync.h>
#include <zdbusoutcome.h>
#include <zlease.h>

#include <functional>
#include <map>
#include <memory>

/// What a host of tests does when it is told to, and answers. Commands come on its own thread; those that wait, wait
/// elsewhere.
class Node : public QObject, public ZDbusReceiver
{
    Q_OBJECT
    Q_PROPERTY(ZDbus *zDbus MEMBER m_bus)
    Q_PROPERTY(ZDbusOutcome *zDbusOutcome MEMBER m_outcome)
    Q_PROPERTY(ZDbusAsync *zDbusAsync MEMBER m_async)
    Q_PROPERTY(ZLease *zLease MEMBER m_lease)

public:
    using Answer = std::function<void(const QJsonObject &)>;

    Node(const QString &name, Answer answer);
    ~Node() override;

    void obey(const QJsonObject &command);
    void answered(qint64 call, const QJsonObject &answer) override;

Q_SIGNALS:
    void isToQuit();

private:
    struct Place
    {
        QUrl url;
        QJsonObject options;
        QSharedPointer<NodeRecord> record;
        QSharedPointer<ZDbusSubscriber> endpoint;
    };

    QJsonObject atOnce(const QString &deed, const QJsonObject &command);
    QJsonObject waiting(const QString &deed, const QJsonObject &command) const;
    QJsonObject call(const QJsonObject &command, bool withOutcome) const;
    bool bind(const QJsonObject &command);
    bool settle(Place *place);
    void swap(int msecs);
    void begin(int id, const QJsonObject &command);

    const QString m_name;
    const Answer m_answer;
    ZDbus *m_bus = nullptr;
    ZDbusOutcome *m_outcome = nullptr;
    ZDbusAsync *m_async = nullptr;
    ZLease *m_lease = nullptr;
    QHash<QString, Place> m_places; // by the URL as it was given
    std::map<QString, std::unique_ptr<NodeLoad>> m_loads;
    std::map<QString, std::unique_ptr<NodeWork>> m_works;
    QHash<qint64, int> m_begun; // the commands of calls that nobody waits for
    QHash<qint64, QJsonObject> m_early;
    QSharedPointer<Node> m_self; // for whom receivers are held
    QThreadPool m_threads;
};
