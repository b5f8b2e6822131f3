// SPDX-License-Identifier: Apache-2.0
#include "printable.h"

QString printable(const QString &text)
{
    QString result;
    for (const QChar c : text) {
        const bool isSeen = c.category() != QChar::Other_Control && c.category() != QChar::Other_Format &&
                            c.category() != QChar::Separator_Line && c.category() != QChar::Separator_Paragraph;
        if (isSeen)
            result += c;
        else if (c.unicode() < 0x100)
            result += QStringLiteral("\\x%1").arg(c.unicode(), 2, 16, QLatin1Char('0'));
        else
            result += QStringLiteral("\\u%1").arg(c.unicode(), 4, 16, QLatin1Char('0'));
    }
    return result;
}
