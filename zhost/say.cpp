// SPDX-License-Identifier: Apache-2.0
#include "say.h"

#include <algorithm>
#include <cstdio>

namespace {

bool isControl(QChar character)
{
    return character.category() == QChar::Other_Control && character != QLatin1Char('\t');
}

QString spelling(QChar control)
{
    switch (control.unicode()) {
    case '\n':
        return QStringLiteral("\\n");
    case '\r':
        return QStringLiteral("\\r");
    default:
        return QStringLiteral("\\x%1").arg(control.unicode(), 2, 16, QLatin1Char('0'));
    }
}

} // namespace

QString printable(const QString &text)
{
    if (std::none_of(text.begin(), text.end(), isControl))
        return text;
    QString result;
    for (const QChar character : text)
        result += isControl(character) ? spelling(character) : QString(character);
    return result;
}

void complain(const QString &text) { std::fprintf(stderr, "zhost: %s\n", printable(text).toLocal8Bit().constData()); }

void print(const QString &text) { std::fprintf(stdout, "%s\n", text.toLocal8Bit().constData()); }
