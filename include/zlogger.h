// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QMetaType>
#include <QObject>
#include <QString>

/**
 * Writes plain messages at Qt's severities, and tagged lines, each of which belongs to a named category.
 *
 * Components write tagged lines through a `ZNamedLogger`, which asks only once for the index and mask of its category.
 *
 * Ownership: keeps nothing of the caller's.
 * Thread:    any.
 * Failure:   a message that is switched off, or for an unknown category, is dropped silently.
 */
class ZLogger
{
public:
    virtual void info0(const QString &text) = 0;
    /// Whether messages of this severity are written at all. The other severities below have the same function.
    virtual bool info0() = 0;
    virtual void debug0(const QString &text) = 0;
    virtual bool debug0() = 0;
    virtual void warning0(const QString &text) = 0;
    virtual bool warning0() = 0;
    virtual void critical0(const QString &text) = 0;
    virtual bool critical0() = 0;
    /// Writes `text` and ends the process, even if the severity is switched off.
    virtual void fatal0(const QString &text) = 0;
    /// Writes one line for category `index`, tagged with the time, the category and `kind`. `kind` is a single bit. The
    /// caller tests before whether the category's mask has that bit.
    virtual void log0(int index, int kind, const QString &text) = 0;
    /// The mask of category `index`: the kinds of line that are wanted. 0 for an index that does not exist.
    virtual int log0(int index) = 0;
    /// The index of the category called `name`; -1 for a name that does not exist.
    virtual int log0(const QString &name) = 0;
    // Plugins that are built elsewhere rely on the order of the operations: a new ability is a new interface.
    virtual ~ZLogger() {}
};
Q_DECLARE_INTERFACE(ZLogger, "zdefault::ZLogger")
Q_DECLARE_METATYPE(ZLogger *)
