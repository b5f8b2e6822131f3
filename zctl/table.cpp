// SPDX-License-Identifier: Apache-2.0
#include "table.h"

#include "printable.h"

#include <algorithm>
#include <numeric>
#include <string>

#include <wchar.h>

namespace {

constexpr int Gap = 2;         // between two columns
constexpr int MinCutWidth = 8; // what is cut to less tells nothing

/// A letter that the system does not know is taken to be as wide as most.
int widthOf(wchar_t letter)
{
    const int width = wcwidth(letter);
    return width < 0 ? 1 : width;
}

} // namespace

int widthOf(const QString &text)
{
    const std::wstring letters = text.toStdWString();
    return std::accumulate(letters.begin(), letters.end(), 0,
                           [](int sum, wchar_t letter) { return sum + widthOf(letter); });
}

QString cutTo(const QString &text, int columns)
{
    if (widthOf(text) <= columns)
        return text;
    const std::wstring letters = text.toStdWString();
    size_t count = 0;
    for (int width = 1; count < letters.size(); ++count) {
        width += widthOf(letters[count]);
        if (width > columns)
            break;
    }
    return QString::fromStdWString(letters.substr(0, count)) + QChar(0x2026);
}

void Table::add(const QVector<Cell> &row)
{
    QVector<Cell> cells = row;
    for (Cell &cell : cells)
        cell.text = printable(cell.text).replace(QLatin1Char('\t'), QLatin1Char(' '));
    m_rows.append(cells);
}

/// Of each column; 0 if it is left out.
QVector<int> Table::widths(const Terminal &terminal) const
{
    QVector<int> result;
    for (int i = 0; i < m_columns.size(); ++i) {
        int width = 0;
        for (const QVector<Cell> &row : m_rows)
            width = std::max(width, widthOf(row[i].text));
        result.append(width == 0 ? 0 : std::max(width, widthOf(m_columns[i].title)));
    }
    for (int last = result.size() - 1; terminal.isOne && excess(result, terminal) > 0 && last > 0;) {
        const int widest = widestText(result);
        if (widest >= 0 && result[widest] > MinCutWidth)
            --result[widest];
        else
            result[last--] = 0;
    }
    return result;
}

/// By how much the columns are too wide.
int Table::excess(const QVector<int> &widths, const Terminal &terminal) const
{
    const int columns = widths.size() - int(std::count(widths.begin(), widths.end(), 0));
    return std::accumulate(widths.begin(), widths.end(), (columns - 1) * Gap) - terminal.columns;
}

/// The column of texts that is widest; -1 if there is none.
int Table::widestText(const QVector<int> &widths) const
{
    int result = -1;
    for (int i = 0; i < widths.size(); ++i) {
        if (m_columns[i].kind == Text && (result < 0 || widths[i] >= widths[result]))
            result = i;
    }
    return result;
}

QString Table::line(const QVector<Cell> &row, const QVector<int> &widths, const Terminal &terminal) const
{
    QString result;
    int owed = 0; // blanks, which end no line
    for (int i = 0; i < row.size(); ++i) {
        if (widths[i] == 0)
            continue;
        const QString text = terminal.isOne ? cutTo(row[i].text, widths[i]) : row[i].text;
        const int blanks = widths[i] - widthOf(text);
        if (m_columns[i].kind == Number)
            owed += blanks;
        if (!text.isEmpty()) {
            result += QString(owed, QLatin1Char(' ')) + terminal.paint(text, row[i].colour);
            owed = 0;
        }
        owed += (m_columns[i].kind == Number ? 0 : blanks) + Gap;
    }
    return result;
}

QStringList Table::lines(const Terminal &terminal) const
{
    const QVector<int> columns = widths(terminal);
    QVector<Cell> titles;
    for (const Column &column : m_columns)
        titles.append({column.title, Terminal::Title});
    QStringList result;
    const QString head = line(titles, columns, terminal);
    if (!head.isEmpty())
        result.append(head);
    for (const QVector<Cell> &row : m_rows)
        result.append(line(row, columns, terminal));
    return result;
}
