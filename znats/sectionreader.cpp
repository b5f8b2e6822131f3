// SPDX-License-Identifier: Apache-2.0
#include "sectionreader.h"

#include <QDir>
#include <QJsonArray>

#include <cmath>

namespace {

/// What keeps any text from being taken; empty if nothing does. A text of C ends at its first NUL, so that the client
/// library, or the system, would take another one than was checked.
QString faultOf(const QString &text)
{
    if (text.isEmpty())
        return QStringLiteral("must be a text that is not empty");
    return text.contains(QChar(QChar::Null)) ? QStringLiteral("must be a text without the character NUL") : QString();
}

} // namespace

SectionReader::SectionReader(const QJsonObject &section, const QString &path, QStringList *problems)
    : m_section(section), m_path(path), m_problems(problems)
{}

bool SectionReader::has(const char *key) const { return m_section.contains(QLatin1String(key)); }

void SectionReader::problem(const char *key, const QString &what)
{
    if (m_problems)
        m_problems->append(QStringLiteral("%1.%2: %3").arg(m_path, QLatin1String(key), what));
}

QJsonValue SectionReader::take(const char *key)
{
    m_known.append(QLatin1String(key));
    return m_section.value(QLatin1String(key));
}

QString SectionReader::text(const char *key, const QString &otherwise)
{
    const QJsonValue value = take(key);
    if (value.isUndefined())
        return otherwise;
    const QString fault = faultOf(value.toString());
    if (fault.isEmpty())
        return value.toString();
    problem(key, fault);
    return otherwise;
}

QString SectionReader::file(const char *key)
{
    QString path = text(key, {});
    if (path.isEmpty() || QDir::isAbsolutePath(path))
        return path;
    problem(key, QStringLiteral("must be the absolute path of a file"));
    return {};
}

QString SectionReader::oneOf(const char *key, const QStringList &choices)
{
    const QJsonValue value = take(key);
    if (value.isUndefined())
        return choices.first();
    if (choices.contains(value.toString()))
        return value.toString();
    problem(key, QStringLiteral("must be one of \"%1\"").arg(choices.join(QStringLiteral("\", \""))));
    return choices.first();
}

int SectionReader::number(const char *key, int otherwise, int least, int most)
{
    const QJsonValue value = take(key);
    if (value.isUndefined())
        return otherwise;
    const double number = value.toDouble(std::nan(""));
    if (number >= least && number <= most && std::trunc(number) == number)
        return static_cast<int>(number);
    problem(key, QStringLiteral("must be a whole number from %1 to %2").arg(least).arg(most));
    return otherwise;
}

QStringList SectionReader::texts(const char *key, const QStringList &otherwise,
                                 const std::function<QString(const QString &)> &fault)
{
    const QJsonValue value = take(key);
    if (value.isUndefined())
        return otherwise;
    if (!value.isArray()) {
        problem(key, QStringLiteral("must be an array"));
        return otherwise;
    }
    const QJsonArray array = value.toArray();
    QStringList result;
    for (int i = 0; i < array.size(); ++i) {
        const QString text = array.at(i).toString();
        QString what = faultOf(text);
        if (what.isEmpty())
            what = fault(text);
        if (what.isEmpty())
            result.append(text);
        else
            problem(QStringLiteral("%1[%2]").arg(QLatin1String(key)).arg(i).toUtf8().constData(), what);
    }
    return result;
}

SectionReader SectionReader::section(const char *key)
{
    const QJsonValue value = take(key);
    if (!value.isUndefined() && !value.isObject())
        problem(key, QStringLiteral("must be an object"));
    return {value.toObject(), m_path + QLatin1Char('.') + QLatin1String(key), m_problems};
}

void SectionReader::finish()
{
    const QStringList keys = m_section.keys();
    for (const QString &key : keys) {
        if (!key.startsWith(QLatin1Char('#')) && !m_known.contains(key))
            problem(key.toUtf8().constData(), QStringLiteral("nobody knows this key"));
    }
}
