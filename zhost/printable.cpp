// SPDX-License-Identifier: Apache-2.0
#include "printable.h"

#include <algorithm>

namespace {

bool isSpelt(QChar character)
{
    switch (character.category()) {
    case QChar::Other_Control:
        return character != QLatin1Char('\t');
    case QChar::Other_Format:
    case QChar::Separator_Line:
    case QChar::Separator_Paragraph:
        return true;
    default:
        return false;
    }
}

QString spelling(QChar character)
{
    const ushort code = character.unicode();
    if (code == '\n')
        return QStringLiteral("\\n");
    if (code == '\r')
        return QStringLiteral("\\r");
    if (code < 0x100)
        return QStringLiteral("\\x%1").arg(code, 2, 16, QLatin1Char('0'));
    return QStringLiteral("\\u%1").arg(code, 4, 16, QLatin1Char('0'));
}

} // namespace

QString printable(const QString &text)
{
    if (std::none_of(text.begin(), text.end(), isSpelt))
        return text;
    QString result;
    for (const QChar character : text)
        result += isSpelt(character) ? spelling(character) : QString(character);
    return result;
}
