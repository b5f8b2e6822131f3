// SPDX-License-Identifier: Apache-2.0
#include "zsettings.h"

#include "zlibrary.h"

#include <QHash>
#include <QJsonArray>

#include <algorithm>
#include <cmath>

namespace {

const QString Section = QStringLiteral("plugins");

QString nameOf(const ZObject &root)
{
    const QSharedPointer<ZLibrary> library = root;
    return library ? library->name() : QString();
}

QString pathOf(const QString &name) { return name.isEmpty() ? Section : Section + QLatin1Char('.') + name; }

QJsonValue sectionOf(ZConfig *config) { return config ? config->toJson0().value(Section) : QJsonValue::Undefined; }

QString quoted(const QString &text) { return QStringLiteral("\"%1\"").arg(text); }

template <class Number>
QString numberFrom(const char *what, Number least, Number most)
{
    const bool isAny = least == std::numeric_limits<Number>::lowest() && most == std::numeric_limits<Number>::max();
    return QLatin1String(what) + (isAny ? QString() : QStringLiteral(" from %1 to %2").arg(least).arg(most));
}

/// The array `value`; nothing if it is not an array, or an element has another type.
std::optional<QJsonArray> arrayOf(QJsonValue::Type type, const QJsonValue &value)
{
    const QJsonArray array = value.toArray();
    const bool isRight = value.isArray() && std::all_of(array.begin(), array.end(), [&](const QJsonValue &element) {
                             return element.type() == type;
                         });
    return isRight ? std::optional<QJsonArray>(array) : std::nullopt;
}

} // namespace

/// One object, and the errors that were found in it.
struct ZSettings::Part
{
    QString path;
    QJsonObject object;
    QStringList errors = {};
    QStringList asked = {};
    QVector<QSharedPointer<Part>> parts = {};
    QHash<QString, QSharedPointer<Part>> byPath = {};

    Part(const QString &where, const QJsonValue &value) : path(where), object(value.toObject())
    {
        if (!value.isObject() && !value.isUndefined())
            tell(where, QStringLiteral("must be an object"));
    }

    QString pathTo(const QString &key) const { return path + QLatin1Char('.') + key; }

    void tell(const QString &where, const QString &what) { add(&errors, QStringLiteral("%1: %2").arg(where, what)); }

    static void add(QStringList *texts, const QString &text)
    {
        if (!texts->contains(text))
            texts->append(text);
    }

    QJsonValue ask(const QString &key)
    {
        add(&asked, key);
        return object.value(key);
    }

    /// The value of `key`, converted by `convert`, which returns nothing for a value that is not `what`.
    template <class Value, class Convert>
    Value read(const QString &key, const std::optional<Value> &otherwise, const Value &neutral, const QString &what,
               Convert convert)
    {
        const QJsonValue value = ask(key);
        std::optional<Value> converted;
        if (!value.isUndefined())
            converted = convert(value);
        if (converted)
            return *converted;
        if (!value.isUndefined())
            tell(pathTo(key), QStringLiteral("must be %1").arg(what));
        else if (!otherwise)
            tell(pathTo(key), QStringLiteral("is missing"));
        return otherwise.value_or(neutral);
    }

    template <class Number, class IsRight>
    Number readNumber(const QString &key, const std::optional<Number> &otherwise, Number least, Number most,
                      const char *what, IsRight isRight)
    {
        return read(key, otherwise, std::clamp(Number(0), least, most), numberFrom(what, least, most),
                    [&](const QJsonValue &value) -> std::optional<Number> {
                        const double number = value.toDouble();
                        if (!value.isDouble() || !isRight(number) || number < least || number > most)
                            return {};
                        return static_cast<Number>(number);
                    });
    }

    /// The one that there is of this path, or a new one.
    QSharedPointer<Part> part(const QString &partPath, const QJsonValue &value)
    {
        QSharedPointer<Part> &known = byPath[partPath];
        if (known)
            return known;
        known = QSharedPointer<Part>::create(partPath, value);
        parts.append(known);
        return known;
    }

    QStringList allErrors() const
    {
        QStringList all = errors;
        for (const QSharedPointer<Part> &part : parts)
            all += part->allErrors();
        const QStringList keys = object.keys();
        for (const QString &key : keys) {
            if (!asked.contains(key) && !key.startsWith(QLatin1Char('#')))
                all.append(QStringLiteral("%1: is not known; known are: %2")
                               .arg(pathTo(key), asked.join(QStringLiteral(", "))));
        }
        return all;
    }
};

ZSettings::ZSettings(ZConfig *config, const ZObject &root) : ZSettings(config, nameOf(root)) {}

ZSettings::ZSettings(const QJsonObject &settings, const ZObject &root)
    : d(QSharedPointer<Part>::create(pathOf(nameOf(root)), settings))
{}

ZSettings::ZSettings(ZConfig *config, const QString &name)
{
    const QJsonValue section = sectionOf(config);
    d = QSharedPointer<Part>::create(pathOf(name), section.toObject().value(name));
    if (name.isEmpty())
        d->tell(Section, QStringLiteral("a plugin has no name before it is loaded"));
    else if (!section.isObject() && !section.isUndefined())
        d->tell(Section, QStringLiteral("must be an object"));
}

ZSettings::ZSettings(const QSharedPointer<Part> &part) : d(part) {}

QString ZSettings::text(const QString &key, const std::optional<QString> &otherwise) const
{
    const bool isRequired = !otherwise;
    const QString what = isRequired ? QStringLiteral("a text that is not empty") : QStringLiteral("a text");
    return d->read(key, otherwise, QString(), what, [&](const QJsonValue &value) -> std::optional<QString> {
        if (!value.isString() || (isRequired && value.toString().isEmpty()))
            return {};
        return value.toString();
    });
}

QString ZSettings::oneOf(const QString &key, const QStringList &choices, const std::optional<QString> &otherwise) const
{
    QStringList spelt;
    for (const QString &choice : choices)
        spelt.append(quoted(choice));
    return d->read(key, otherwise, choices.value(0), QStringLiteral("one of %1").arg(spelt.join(QStringLiteral(", "))),
                   [&](const QJsonValue &value) -> std::optional<QString> {
                       if (!value.isString() || !choices.contains(value.toString()))
                           return {};
                       return value.toString();
                   });
}

bool ZSettings::flag(const QString &key, std::optional<bool> otherwise) const
{
    return d->read(key, otherwise, false, QStringLiteral("true or false"), [](const QJsonValue &value) {
        return value.isBool() ? std::optional(value.toBool()) : std::nullopt;
    });
}

int ZSettings::number(const QString &key, std::optional<int> otherwise, int least, int most) const
{
    return d->readNumber(key, otherwise, least, most, "a whole number",
                         [](double number) { return std::trunc(number) == number; });
}

double ZSettings::real(const QString &key, std::optional<double> otherwise, double least, double most) const
{
    return d->readNumber(key, otherwise, least, most, "a number", [](double) { return true; });
}

QStringList ZSettings::texts(const QString &key, const std::optional<QStringList> &otherwise) const
{
    return d->read(key, otherwise, QStringList(), QStringLiteral("an array of texts"),
                   [](const QJsonValue &value) -> std::optional<QStringList> {
                       const std::optional<QJsonArray> array = arrayOf(QJsonValue::String, value);
                       if (!array)
                           return {};
                       QStringList texts;
                       for (const auto &element : *array)
                           texts.append(element.toString());
                       return texts;
                   });
}

ZSettings ZSettings::object(const QString &key) const { return ZSettings(d->part(d->pathTo(key), d->ask(key))); }

QVector<ZSettings> ZSettings::objects(const QString &key) const
{
    const QJsonArray array =
        d->read(key, std::optional(QJsonArray()), QJsonArray(), QStringLiteral("an array of objects"),
                [](const QJsonValue &value) { return arrayOf(QJsonValue::Object, value); });
    QVector<ZSettings> result;
    for (int i = 0; i < array.size(); ++i)
        result.append(ZSettings(d->part(QStringLiteral("%1[%2]").arg(d->pathTo(key)).arg(i), array.at(i))));
    return result;
}

QJsonValue ZSettings::value(const QString &key) const { return d->ask(key); }

QStringList ZSettings::errors() const { return d->allErrors(); }

bool ZSettings::check(ZLogger *logger) const
{
    const QStringList all = errors();
    for (const QString &error : all) {
        if (logger)
            logger->warning0(error);
    }
    return all.isEmpty();
}
