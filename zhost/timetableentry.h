// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QJsonValue>
#include <QStringList>
#include <QTime>
#include <QUrl>

/// One object of the section "schedule".
struct TimetableEntry
{
    QUrl url;
    int every = 0; // milliseconds
    QTime from;    // both, or neither
    QTime to;
    bool repeat = true;
    bool keep = false; // calls on after a call that nobody handled
    QString once;      // the lease without which no call is made; empty if it takes none
    int leaseMs = 0;

    bool isDaily() const { return from.isValid(); }
    bool operator==(const TimetableEntry &other) const;

    /// Reads `value`; appends to `problems` what is wrong with it.
    static TimetableEntry read(const QJsonValue &value, QStringList *problems);
};
