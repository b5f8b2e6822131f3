// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QJsonObject>
#include <QString>

/// Writes `text` to stderr, as `printable`. If stderr is the journal, the line begins with its severity, a number of
/// <syslog.h>, in the form that the journal reads.
void writeLine(int severity, const QString &text);
/// Writes the line "zhost: TEXT" to stderr, as a warning.
void complain(const QString &text);
/// Writes `text` to stdout as it is, and ends its last line.
void print(const QString &text);
/// Writes JSON to stdout, for people.
void printJson(const QJsonObject &object);
