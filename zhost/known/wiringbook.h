// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QDateTime>
#include <QHash>
#include <QJsonArray>
#include <QMutex>
#include <QPointer>
#include <QSharedPointer>
#include <QStringList>
#include <QVector>

class History;
QT_BEGIN_NAMESPACE
class QMetaProperty;
QT_END_NAMESPACE

/**
 * Who serves which interface, and what each component was given.
 *
 * Ownership: none of a component.
 * Thread:    any.
 */
class WiringBook
{
public:
    explicit WiringBook(History *history) : m_history(history) {}

    /// As `ZDefaultEmitter` tells it.
    void bound(int interfaceType, const QSharedPointer<QObject> &component);
    void injected(QObject *object, const QMetaProperty &property, bool isGiven);

    QJsonArray services() const;
    /// The components that are alive and whose classes are of a plugin's file.
    QJsonArray components(const QString &file) const;
    /// The class of its root; null if that has received nothing.
    QString rootClass(const QString &file) const;
    QStringList interfaces(const QString &file) const;
    /// The interfaces that components of `file` have served, where these are still alive.
    QStringList formerInterfaces(const QString &file) const;

private:
    struct Provider
    {
        QPointer<QObject> component;
        QString className; // null if there is none
        QString file;
        QDateTime since;
    };
    struct Service
    {
        QString interface;
        Provider now;
        QVector<Provider> before; // the last first
        int exchanges = 0;
    };
    struct Property
    {
        QString name;
        QString interface;
        bool isGiven;
    };
    struct Component
    {
        QPointer<QObject> object;
        QString className;
        QString file;
        QDateTime since;
        QVector<Property> properties;
        bool isRoot = false;
    };

    void forgetDead();

    History *const m_history;
    mutable QMutex m_mutex; // guards all that follow
    QHash<int, Service> m_services;
    QHash<const QObject *, Component> m_components;
    int m_roomForComponents = 64;
};
