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
 * Records which component serves which interface, and which services each component was given.
 *
 * Ownership: owns no component.
 * Thread:    any.
 */
class WiringBook
{
public:
    explicit WiringBook(History *history) : m_history(history) {}

    /// See `ZDefaultEmitter::bound`.
    void bound(int interfaceType, const QSharedPointer<QObject> &component);
    void injected(QObject *object, const QMetaProperty &property, bool isGiven);

    /// A service that a component asks for and was not given, since there is no delegate for it.
    struct Lack
    {
        QStringList properties;
        QStringList interfaces;
    };
    Lack lackOf(const QObject *component) const;

    QJsonArray services() const;
    /// The components that are alive and whose classes are in a plugin's file.
    QJsonArray components(const QString &file) const;
    /// The class of the root of `file`; null if that has received nothing.
    QString rootClass(const QString &file) const;
    QStringList interfaces(const QString &file) const;
    /// The interfaces that components of `file` have served, if these components are still alive.
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
        bool isService; // else it is a pointer to some object
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
