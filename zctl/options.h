// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QJsonObject>
#include <QString>
#include <QStringList>
#include <QUrl>

struct Command;

/// What the command line says.
struct Options
{
    QString error; ///< Why it cannot be used; empty if it can.
    QString text;  ///< To be printed, and nothing more is to be done; empty if there is.

    // Which host, by one of these, or none:
    QString socket;
    QString configuration;
    QUrl url;
    QString tokenFile;

    bool isJson = false; ///< What the host answers is printed as it is.
    const Command *command = nullptr;
    QStringList arguments; ///< Of the command.
    bool follows = false;  ///< Of "log", as the next.
    int lines = 0;
    QJsonObject request; ///< Of "call", as the next.
    int deadlineMs = 0;

    static Options read(const QStringList &arguments);
};
