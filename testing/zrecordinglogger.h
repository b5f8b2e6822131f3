// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "zlogger.h"
#include "zowned.h"

#include <QMutex>
#include <QStringList>
#include <QVector>

/**
 * A logger that writes nothing, and keeps all lines, so that the test can look at them. All severities are switched on,
 * and every category is known.
 *
 * Ownership: as any component. Keeps copies that do not point into a plugin.
 * Thread:    any.
 * Failure:   none. A fatal message is kept like any other, and does not end the process.
 */
class ZRecordingLogger : public QObject, public ZLogger, public ZOwned
{
    Q_OBJECT
    Q_INTERFACES(ZLogger)

public:
    struct Line
    {
        QtMsgType severity; // debug for a tagged line
        QString category;   // null unless it is a tagged line
        QString text;
    };

    /// Keeps tagged lines of the kinds in `mask`. By default these are failures, loading and unloading, and what is
    /// bound, but not each call.
    explicit ZRecordingLogger(int mask = 7);
    ~ZRecordingLogger() override;

    /// Returns all lines since the last `take()`, in order, and forgets them.
    QVector<Line> take();
    /// A copy of these lines.
    QVector<Line> all() const;
    /// The texts of one severity, in order.
    QStringList lines(QtMsgType severity) const;
    /// Whether `text` is in one of the lines.
    bool has(const QString &text) const;
    /// Waits until `text` is in one of the lines, or so many milliseconds have passed. Events of this thread are
    /// handled meanwhile. Returns whether it is.
    bool waitFor(const QString &text, int msecs = 5000) const;

    void info0(const QString &text) override;
    bool info0() override;
    void debug0(const QString &text) override;
    bool debug0() override;
    void warning0(const QString &text) override;
    bool warning0() override;
    void critical0(const QString &text) override;
    bool critical0() override;
    void fatal0(const QString &text) override;
    void log0(int index, int kind, const QString &text) override;
    int log0(int index) override;
    int log0(const QString &name) override;

private:
    void keep(QtMsgType severity, const QString &text, int category = -1);

    const int m_mask;
    mutable QMutex m_mutex;
    QStringList m_categories; // the categories by index
    QVector<Line> m_lines;
};
