// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QMutex>
#include <QMutexLocker>
#include <QObject>
#include <QStringList>

#include <zdefaultlogger.h>
#include <zemitter.h>

/// A logger that writes down what it is given, in order: "warning: text" and, for a line of kind 2 of its only
/// category, "zdefault 2: text".
class Journal : public QObject, public ZLogger
{
    Q_OBJECT
    Q_INTERFACES(ZLogger)

public:
    explicit Journal(int mask = 0xff, bool warnings = true, const QString &category = QStringLiteral("zdefault"))
        : m_mask(mask), m_warnings(warnings), m_category(category)
    {}

    /// A journal that is the `ZLogger` of `emitter`.
    template <class... Args>
    static QSharedPointer<Journal> bind(ZEmitter *emitter, Args &&...args)
    {
        const auto journal = QSharedPointer<Journal>::create(std::forward<Args>(args)...);
        emitter->bind0(QSharedPointer<ZLoggerDelegate>::create(QSharedPointer<QObject>(journal)));
        return journal;
    }

    QStringList entries() const
    {
        const QMutexLocker locker(&m_mutex);
        QStringList entries = m_entries;
        entries.detach(); // as long as nobody writes: what shares the list would be read while it grows
        return entries;
    }
    QStringList take()
    {
        const QMutexLocker locker(&m_mutex);
        return std::exchange(m_entries, {});
    }
    bool isEmpty() const { return entries().isEmpty(); }

    void info0(const QString &text) override { write(QStringLiteral("info: "), text); }
    bool info0() override { return true; }
    void debug0(const QString &text) override { write(QStringLiteral("debug: "), text); }
    bool debug0() override { return true; }
    void warning0(const QString &text) override { write(QStringLiteral("warning: "), text); }
    bool warning0() override { return m_warnings; }
    void critical0(const QString &text) override { write(QStringLiteral("critical: "), text); }
    bool critical0() override { return true; }
    void fatal0(const QString &text) override { write(QStringLiteral("fatal: "), text); }
    void log0(int, int kind, const QString &text) override
    {
        write(QStringLiteral("%1 %2: ").arg(m_category).arg(kind), text);
    }
    int log0(int index) override { return index == 0 ? m_mask : 0; }
    int log0(const QString &name) override { return name == m_category ? 0 : -1; }

private:
    void write(const QString &severity, const QString &text)
    {
        const QMutexLocker locker(&m_mutex);
        m_entries.append(severity + text);
    }

    const int m_mask;
    const bool m_warnings;
    const QString m_category;
    mutable QMutex m_mutex;
    QStringList m_entries;
};
