// SPDX-License-Identifier: Apache-2.0
#include "zdefaultlogger.h"

#include "ztypename.h"
#include "zwiring.h"

#include <QDateTime>
#include <QHash>
#include <QJsonObject>
#include <QLoggingCategory>
#include <QMessageLogger>

#include <algorithm>
#include <limits>

namespace {

/// Whether Qt has the severity switched on. When the process ends, the switches are destroyed before the last lines are
/// written: then only `urgent` ones are.
template <bool (QLoggingCategory::*isOn)() const>
bool isEnabled(bool urgent)
{
    const QLoggingCategory *category = QLoggingCategory::defaultCategory();
    return category ? (category->*isOn)() : urgent;
}

/// Fractions are cut off. A number that does not fit into an int becomes the nearest one that does.
int toInt(const QJsonValue &number)
{
    return static_cast<int>(
        qBound(double(std::numeric_limits<int>::min()), number.toDouble(), double(std::numeric_limits<int>::max())));
}

constexpr int TimeSize = 23;

/// Appends the local time, "dd.MM.yyyy hh:mm:ss.zzz". To ask for the time zone takes far longer than the rest of a
/// line, so each thread keeps the text of the current second. A change of the clock or the zone shows within a second.
void appendTime(QByteArray &line)
{
    constexpr int Size = TimeSize - 3;
    thread_local qint64 second = -1;
    thread_local char text[Size];
    const qint64 now = QDateTime::currentMSecsSinceEpoch();
    if (now / 1000 != second) {
        second = now / 1000;
        const QString local = QDateTime::fromMSecsSinceEpoch(now).toString(QStringLiteral("dd.MM.yyyy hh:mm:ss."));
        const QByteArray latin1 = local.toLatin1();
        std::copy_n(latin1.constData(), qMin(latin1.size(), Size), text);
    }
    const int milliseconds = int(now % 1000);
    const char digits[] = {char('0' + milliseconds / 100), char('0' + milliseconds / 10 % 10),
                           char('0' + milliseconds % 10)};
    line.append(text, Size).append(digits, sizeof digits);
}

QMessageLogger message() { return QMessageLogger(nullptr, 0, nullptr, "default"); }

} // namespace

const char *zDefaultLoggerTypeName() { return zTypeName<ZDefaultLogger>("ZDefaultLogger*"); }

const char *const ZDefaultLogger::TypeName = zDefaultLoggerTypeName();

ZDefaultLogger::ZDefaultLogger() = default;

void ZDefaultLogger::info0(const QString &text)
{
    if (info0())
        message().info("%s", text.toUtf8().constData());
}

bool ZDefaultLogger::info0() { return isEnabled<&QLoggingCategory::isInfoEnabled>(false); }

void ZDefaultLogger::debug0(const QString &text)
{
    if (debug0())
        message().debug("%s", text.toUtf8().constData());
}

bool ZDefaultLogger::debug0() { return isEnabled<&QLoggingCategory::isDebugEnabled>(false); }

void ZDefaultLogger::warning0(const QString &text)
{
    if (warning0())
        message().warning("%s", text.toUtf8().constData());
}

bool ZDefaultLogger::warning0() { return isEnabled<&QLoggingCategory::isWarningEnabled>(true); }

void ZDefaultLogger::critical0(const QString &text)
{
    if (critical0())
        message().critical("%s", text.toUtf8().constData());
}

bool ZDefaultLogger::critical0() { return isEnabled<&QLoggingCategory::isCriticalEnabled>(true); }

void ZDefaultLogger::fatal0(const QString &text) { message().fatal("%s", text.toUtf8().constData()); }

void ZDefaultLogger::log0(int index, int kind, const QString &text)
{
    if (!ZDefaultLogger::debug0() || ZDefaultLogger::log0(index) == 0)
        return;
    const QString &name = m_names.at(index);
    const auto bits = static_cast<qulonglong>(kind); // the two's complement of a negative number
    const QByteArray end = text.toUtf8();
    QByteArray line;
    line.reserve(TimeSize + name.size() * 3 + end.size() + 32);
    line.append('[');
    appendTime(line);
    line.append("] [").append(name.toUtf8()).append("] [");
    line.append(QByteArray::number(bits, 16)).append("] ").append(end);
    if (name.contains(QLatin1Char('%'))) { // a place such as %1 in the name is filled like those of the line
        const QString time = QString::fromLatin1(line.mid(1, TimeSize));
        line = QStringLiteral("[%1] [%2] [%3] %4").arg(time, name).arg(bits, 0, 16).arg(text).toUtf8();
    }
    message().debug("%s", line.constData());
}

int ZDefaultLogger::log0(int index) { return isCategory(index) ? m_masks.at(index).loadRelaxed() : 0; }

int ZDefaultLogger::log0(const QString &name) { return isCategory(0) ? m_names.indexOf(name) : -1; }

bool ZDefaultLogger::setMask(const QString &name, int mask)
{
    const int index = ZDefaultLogger::log0(name);
    if (index < 0)
        return false;
    m_masks[index].storeRelaxed(mask);
    return true;
}

QStringList ZDefaultLogger::categories() const { return isCategory(0) ? m_names : QStringList(); }

ZConfig *ZDefaultLogger::getSetZConfig(ZConfig *config)
{
    if (zKeepFirst(m_config, config))
        read(config->toJson0().value(QStringLiteral("logger")).toObject());
    return m_config;
}

ZEmitter *ZDefaultLogger::getSetZEmitter(ZEmitter *emitter) { return zAnnounce<ZLoggerDelegate>(this, emitter); }

void ZDefaultLogger::read(const QJsonObject &section)
{
    static const struct
    {
        QLatin1String key;
        QtMsgType severity;
    } switches[] = {{QLatin1String("debug"), QtDebugMsg},
                    {QLatin1String("info"), QtInfoMsg},
                    {QLatin1String("warning"), QtWarningMsg},
                    {QLatin1String("critical"), QtCriticalMsg},
                    {QLatin1String("fatal"), QtFatalMsg}};
    for (const auto &[key, severity] : switches) {
        const QJsonValue value = section.value(key);
        if (value.isDouble())
            QLoggingCategory::defaultCategory()->setEnabled(severity, toInt(value) != 0);
    }

    QHash<QString, int> categories; // a category's index is its place in the hash's order: other loggers may rely on it
    const QJsonObject log = section.value(QStringLiteral("log")).toObject();
    for (auto entry = log.begin(); entry != log.end(); ++entry) {
        if (!entry.key().startsWith(QLatin1Char('#')) && entry.value().isDouble())
            categories.insert(entry.key(), toInt(entry.value()));
    }
    m_names = categories.keys();
    for (const int mask : qAsConst(categories))
        m_masks.append(mask);
    m_count.storeRelease(m_names.size());
}

bool ZDefaultLogger::isCategory(int index) const { return index >= 0 && index < m_count.loadAcquire(); }

ZLoggerDelegate::ZLoggerDelegate(QObject *object) : ZDelegate(refer(object)) { provide<ZLogger>(this); }

ZLoggerDelegate::ZLoggerDelegate(QSharedPointer<QObject> object) : ZDelegate(refer(std::move(object)))
{
    provide<ZLogger>(this);
}

void ZLoggerDelegate::info0(const QString &text) { forward(qOverload<const QString &>(&ZLogger::info0), text); }

bool ZLoggerDelegate::info0() { return forward(qOverload<>(&ZLogger::info0), false); }

void ZLoggerDelegate::debug0(const QString &text) { forward(qOverload<const QString &>(&ZLogger::debug0), text); }

bool ZLoggerDelegate::debug0() { return forward(qOverload<>(&ZLogger::debug0), false); }

void ZLoggerDelegate::warning0(const QString &text) { forward(qOverload<const QString &>(&ZLogger::warning0), text); }

bool ZLoggerDelegate::warning0() { return forward(qOverload<>(&ZLogger::warning0), false); }

void ZLoggerDelegate::critical0(const QString &text) { forward(qOverload<const QString &>(&ZLogger::critical0), text); }

bool ZLoggerDelegate::critical0() { return forward(qOverload<>(&ZLogger::critical0), false); }

void ZLoggerDelegate::fatal0(const QString &text) { forward(&ZLogger::fatal0, text); }

void ZLoggerDelegate::log0(int index, int kind, const QString &text)
{
    forward(qOverload<int, int, const QString &>(&ZLogger::log0), index, kind, text);
}

int ZLoggerDelegate::log0(int index) { return forward(qOverload<int>(&ZLogger::log0), 0, index); }

int ZLoggerDelegate::log0(const QString &name) { return forward(qOverload<const QString &>(&ZLogger::log0), 0, name); }
