// SPDX-License-Identifier: Apache-2.0
#include "words.h"

#include <QDateTime>
#include <QJsonArray>
#include <QStringList>

#include <cmath>

namespace {

constexpr double Second = 1000; // ms
constexpr double Minute = 60 * Second;
constexpr double Hour = 60 * Minute;
constexpr double Day = 24 * Hour;

QDateTime read(const QString &time) { return QDateTime::fromString(time, Qt::ISODateWithMs); }

QString roundedDown(double value, const char *unit)
{
    return QStringLiteral("%1 %2").arg(std::floor(value), 0, 'f', 0).arg(QLatin1String(unit));
}

} // namespace

QString durationText(double ms)
{
    if (ms < Second)
        return roundedDown(ms, "ms");
    if (ms < 10 * Second)
        return QStringLiteral("%1 s").arg(std::floor(ms / 100) / 10, 0, 'f', 1);
    if (ms < Minute)
        return roundedDown(ms / Second, "s");
    if (ms < Hour)
        return roundedDown(ms / Minute, "min");
    if (ms < 2 * Day)
        return roundedDown(ms / Hour, "h");
    return roundedDown(ms / Day, "days");
}

QString latencyText(double ms)
{
    return ms > 0 && ms < 10 ? QStringLiteral("%1 ms").arg(ms, 0, 'g', 2) : durationText(ms);
}

QString whenText(const QString &time)
{
    const QDateTime then = read(time);
    if (!then.isValid())
        return {};
    const auto ms = static_cast<double>(then.msecsTo(QDateTime::currentDateTimeUtc()));
    if (std::abs(ms) < Second)
        return QStringLiteral("now");
    // Whole seconds: nobody reads tenths of what goes on.
    const QString distance =
        std::abs(ms) < Minute ? roundedDown(std::abs(ms) / Second, "s") : durationText(std::abs(ms));
    return (ms > 0 ? QStringLiteral("%1 ago") : QStringLiteral("in %1")).arg(distance);
}

QString clockText(const QString &time)
{
    return read(time).toLocalTime().toString(QStringLiteral("yyyy-MM-dd HH:mm:ss"));
}

QString bytesText(double bytes)
{
    static const char *const units[] = {"B", "KiB", "MiB", "GiB", "TiB"};
    size_t unit = 0;
    for (; bytes >= 1024 && unit < 4; ++unit)
        bytes /= 1024;
    return QStringLiteral("%1 %2").arg(bytes, 0, 'f', unit > 0 && bytes < 10 ? 1 : 0).arg(QLatin1String(units[unit]));
}

QString listText(const QJsonValue &texts)
{
    QStringList result;
    const QJsonArray array = texts.toArray();
    for (const QJsonValue &text : array)
        result.append(text.toString());
    return result.join(QStringLiteral(", "));
}

QString countText(int count, const char *what)
{
    return QStringLiteral("%1 %2%3").arg(count).arg(QLatin1String(what), count == 1 ? QString() : QStringLiteral("s"));
}

QString entryText(const QJsonObject &entry)
{
    return QStringLiteral("schedule[%1] %2").arg(QString::number(numberOf(entry, "index")), textOf(entry, "url"));
}

QString textOf(const QJsonObject &object, const char *key) { return object.value(QLatin1String(key)).toString(); }

int numberOf(const QJsonObject &object, const char *key) { return object.value(QLatin1String(key)).toInt(); }
