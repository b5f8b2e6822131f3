// SPDX-License-Identifier: Apache-2.0
#include "zrecordinglogger.h"

#include "ztexts.h"

#include <QMutexLocker>
#include <QTest>

#include <algorithm>
#include <utility>

ZRecordingLogger::ZRecordingLogger(int mask) : m_mask(mask) {}

ZRecordingLogger::~ZRecordingLogger() = default;

QVector<ZRecordingLogger::Line> ZRecordingLogger::take()
{
    const QMutexLocker locker(&m_mutex);
    return std::exchange(m_lines, {});
}

QVector<ZRecordingLogger::Line> ZRecordingLogger::all() const
{
    const QMutexLocker locker(&m_mutex);
    return m_lines;
}

QStringList ZRecordingLogger::lines(QtMsgType severity) const
{
    const QMutexLocker locker(&m_mutex);
    QStringList texts;
    for (const Line &line : m_lines) {
        if (line.severity == severity)
            texts.append(line.text);
    }
    return texts;
}

bool ZRecordingLogger::has(const QString &text) const
{
    const QMutexLocker locker(&m_mutex);
    return std::any_of(m_lines.begin(), m_lines.end(), [&](const Line &line) { return line.text.contains(text); });
}

bool ZRecordingLogger::waitFor(const QString &text, int msecs) const
{
    return QTest::qWaitFor([&] { return has(text); }, msecs);
}

void ZRecordingLogger::info0(const QString &text) { keep(QtInfoMsg, text); }

bool ZRecordingLogger::info0() { return true; }

void ZRecordingLogger::debug0(const QString &text) { keep(QtDebugMsg, text); }

bool ZRecordingLogger::debug0() { return true; }

void ZRecordingLogger::warning0(const QString &text) { keep(QtWarningMsg, text); }

bool ZRecordingLogger::warning0() { return true; }

void ZRecordingLogger::critical0(const QString &text) { keep(QtCriticalMsg, text); }

bool ZRecordingLogger::critical0() { return true; }

void ZRecordingLogger::fatal0(const QString &text) { keep(QtFatalMsg, text); }

void ZRecordingLogger::log0(int index, int, const QString &text) { keep(QtDebugMsg, text, index); }

int ZRecordingLogger::log0(int index)
{
    const QMutexLocker locker(&m_mutex);
    return index >= 0 && index < m_categories.size() ? m_mask : 0;
}

int ZRecordingLogger::log0(const QString &name)
{
    const QMutexLocker locker(&m_mutex);
    if (!m_categories.contains(name))
        m_categories.append(zDeepCopy(name));
    return m_categories.indexOf(name);
}

void ZRecordingLogger::keep(QtMsgType severity, const QString &text, int category)
{
    const QMutexLocker locker(&m_mutex);
    m_lines.append({severity, m_categories.value(category), zDeepCopy(text)});
}
