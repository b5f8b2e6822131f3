// SPDX-License-Identifier: Apache-2.0
#include "timetableentry.h"

#include <QJsonObject>
#include <QRegularExpression>

#include <limits>
#include <tuple>

namespace {

const QString timeFormat = QStringLiteral("hh:mm:ss");
constexpr int DefaultLeaseMs = 10000;
constexpr int MinLeaseMs = 500;
constexpr int MaxLeaseMs = 3600000;

/// Reads "once" and "lease".
void readLease(const QJsonObject &object, TimetableEntry *entry, QStringList *problems)
{
    static const QRegularExpression name(QStringLiteral(R"(\A[A-Za-z0-9_.-]{1,64}\z)"));
    const QJsonValue once = object.value(QStringLiteral("once"));
    const QJsonValue lease = object.value(QStringLiteral("lease"));
    entry->once = once.toString();
    if (!once.isUndefined() && !name.match(entry->once).hasMatch())
        problems->append(
            QStringLiteral("\"once\" must be the name of a lease: at most 64 characters of A-Z, a-z, 0-9, _, . and -"));
    const double ms = lease.isUndefined() ? DefaultLeaseMs : lease.toDouble();
    if (ms >= MinLeaseMs && ms <= MaxLeaseMs && ms == static_cast<int>(ms))
        entry->leaseMs = static_cast<int>(ms);
    else
        problems->append(QStringLiteral("\"lease\" must be a whole number of milliseconds from %1 to %2")
                             .arg(MinLeaseMs)
                             .arg(MaxLeaseMs));
    if (once.isUndefined() && !lease.isUndefined())
        problems->append(QStringLiteral("\"lease\" is for an entry with \"once\""));
}

} // namespace

TimetableEntry TimetableEntry::read(const QJsonValue &value, QStringList *problems)
{
    TimetableEntry entry;
    const auto wrong = [&](const char *what) { problems->append(QLatin1String(what)); };
    if (!value.isObject()) {
        wrong("must be an object");
        return entry;
    }
    const QJsonObject object = value.toObject();

    entry.url = QUrl(object.value(QStringLiteral("url")).toString(), QUrl::StrictMode);
    if (entry.url.isEmpty() || !entry.url.isValid())
        wrong("\"url\" must be the URL to call, as //host/path");

    const double every = object.value(QStringLiteral("every")).toDouble();
    if (every >= 1 && every <= std::numeric_limits<int>::max() && every == static_cast<int>(every))
        entry.every = static_cast<int>(every);
    else
        wrong("\"every\" must be a whole number of milliseconds, at least 1");

    const auto time = [&](const char *key) {
        const QJsonValue text = object.value(QLatin1String(key));
        const QTime result = QTime::fromString(text.toString(), timeFormat);
        if (!text.isUndefined() && !result.isValid())
            problems->append(QStringLiteral("\"%1\" must be a time of day, as hh:mm:ss").arg(QLatin1String(key)));
        return result;
    };
    entry.from = time("from");
    entry.to = time("to");
    if (object.contains(QStringLiteral("from")) != object.contains(QStringLiteral("to")))
        wrong("needs both \"from\" and \"to\", or neither");

    const auto flag = [&](const char *key, bool otherwise) {
        const QJsonValue isSet = object.value(QLatin1String(key));
        if (!isSet.isUndefined() && !isSet.isBool())
            problems->append(QStringLiteral("\"%1\" must be true or false").arg(QLatin1String(key)));
        return isSet.toBool(otherwise);
    };
    entry.repeat = flag("repeat", true);
    entry.keep = flag("keep", false);
    readLease(object, &entry, problems);
    return entry;
}

bool TimetableEntry::operator==(const TimetableEntry &other) const
{
    const auto all = [](const TimetableEntry &entry) {
        return std::tie(entry.url, entry.every, entry.from, entry.to, entry.repeat, entry.keep, entry.once,
                        entry.leaseMs);
    };
    return all(*this) == all(other);
}
