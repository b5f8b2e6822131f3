// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QMetaType>
#include <QObject>
#include <QString>

/**
 * Plain messages at Qt's severities, and tagged lines per named category.
 *
 * Components write tagged lines through a `ZNamedLogger`, which asks for a category's index and mask once.
 *
 * Ownership: keeps nothing of the caller's.
 * Thread:    any.
 * Failure:   a message that is switched off, or for an unknown category, is dropped silently.
 */
class ZLogger
{
public:
    virtual void info0(const QString &text) = 0;
    /// Whether messages of this severity are written at all; so for the other severities below.
    virtual bool info0() = 0;
    virtual void debug0(const QString &text) = 0;
    virtual bool debug0() = 0;
    virtual void warning0(const QString &text) = 0;
    virtual bool warning0() = 0;
    virtual void critical0(const QString &text) = 0;
    virtual bool critical0() = 0;
    /// Writes `text` and ends the process, whatever is switched off.
    virtual void fatal0(const QString &text) = 0;
    /// Writes one line for category `index`, tagged with the time, the category and `kind`. `kind` is a single bit;
    /// whether the category's mask has it is for the caller to test before.
    virtual void log0(int index, int kind, const QString &text) = 0;
    /// The mask of category `index`: the kinds of line that are wanted. 0 for an index that there is not.
    virtual int log0(int index) = 0;
    /// The index of the category called `name`; -1 for a name that there is not.
    virtual int log0(const QString &name) = 0;
    // Slot order is our promise to plugins built elsewhere: a new ability is a new interface.
    virtual ~ZLogger() {}
};
Q_DECLARE_INTERFACE(ZLogger, "zdefault::ZLogger")
Q_DECLARE_METATYPE(ZLogger *)
