// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QString>
#include <QStringList>
#include <QVector>

class QObject;

/// What a plugin's root object is, and what it does when it gets all services.
struct Description
{
    struct Property
    {
        QString name;
        QString type;      ///< As it is written.
        QString interface; ///< The one that it asks for; empty if it asks for none.
        bool isKnown;      ///< Whether Qt knows the type: else no value of it can be written.
        bool isWritable;
    };

    QString className;
    QVector<Property> properties; ///< In the order in which an emitter writes them.
    QStringList unlisted;         ///< Interfaces from which its class derives, and for which it does not answer.
    QStringList serves;           ///< Interfaces.

    /// The part that the object's class tells. To ask for a property registers its type, by code of the plugin.
    static Description of(QObject *root);

    /// The description as lines, in which one process sends it to another. The reader may have several descriptions.
    QStringList toLines() const;
    static Description fromLines(const QStringList &lines);
};
