// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QJsonObject>
#include <QString>

class QDateTime;
class QJsonValue;

// Figures as people read them.

/// "3 min ago", or "in 12 s"; empty for no time.
QString whenText(const QString &time);
/// "2026-11-22 01:35:25", by the clock of this place; empty for no time.
QString clockText(const QString &time);
/// "12 ms", "1.5 s", "3 min", "5 h", "3 days".
QString durationText(double ms);
/// "0.25 ms", and above 10 ms as `durationText`.
QString latencyText(double ms);
/// "38 MiB".
QString bytesText(double bytes);
/// The texts of a list, one after the other.
QString listText(const QJsonValue &texts);
/// "1 plugin", "2 plugins".
QString countText(int count, const char *what);
/// "schedule[2] //host/path", for an entry of the timetable.
QString entryText(const QJsonObject &entry);
/// One key of an object; empty, or 0, if it is not there.
QString textOf(const QJsonObject &object, const char *key);
int numberOf(const QJsonObject &object, const char *key);
