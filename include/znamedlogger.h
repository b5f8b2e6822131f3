// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "zglobal.h"
#include "zlogger.h"

#include <QAtomicInt>
#include <QSharedData>
#include <QSharedDataPointer>
#include <QString>

#include <type_traits>
#include <utility>

/**
 * Writes the tagged lines of one category for a component. It asks the logger once for the index and mask of the
 * category, and tests the mask before every line. `setMask` gives it another mask later.
 *
 * Ownership: a value; points at the logger's delegate, which lives as long as the emitter.
 * Thread:    any for writing; bind it before other threads write.
 * Failure:   writes nothing while unbound, or for a category that the logger does not know.
 */
class ZDEFAULT_EXPORT ZNamedLogger
{
public:
    struct ZData : QSharedData
    {
        ZLogger *logger = nullptr;
        int index = -1; // unknown
        QAtomicInt mask = 0;
    };

    /// Not bound to a logger.
    ZNamedLogger();
    ZNamedLogger(ZLogger *logger, const QString &category);

    /// Whether a line of this kind, a single bit, is wanted.
    bool isEnabled(int kind) const { return (m_data->mask.loadRelaxed() & kind) != 0; }

    /// Writes a tagged line of `kind`. `text` is a `QString`, or a callable that returns one: it is called only when
    /// the line is wanted.
    template <class Text>
    void log(int kind, Text &&text) const
    {
        if (!isEnabled(kind))
            return;
        if constexpr (std::is_invocable_v<Text>)
            write(kind, std::forward<Text>(text)());
        else
            write(kind, text);
    }

    /// Reports a failure: as a warning when warnings are switched on, else as a tagged line of `kind`.
    void warn(int kind, const QString &text) const;

    /// Makes all handles on `category` that are bound to `logger` test this mask from now on. On any thread.
    static void setMask(const ZLogger *logger, const QString &category, int mask);

private:
    void write(int kind, const QString &text) const;

    QSharedDataPointer<ZData> m_data;
};
