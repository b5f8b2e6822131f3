// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QJsonObject>
#include <QString>
#include <QStringList>
#include <QUrl>

/// What the command line asks for.
struct CommandLine
{
    QString error; ///< Why it cannot be used; empty if it can.
    QString text;  ///< To be printed, and nothing more is to be done; empty if there is.
    QString file;  ///< The configuration.
    bool isCheck = false;
    bool isCall = false;
    QUrl url; ///< Of the call, as the request.
    QJsonObject request;

    static CommandLine read(const QStringList &arguments);
};
