// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "terminal.h"

#include <QString>
#include <QStringList>
#include <QVector>

/// How many columns of a terminal `text` takes.
int widthOf(const QString &text);

/// `text`, or as much of it as takes no more than `columns`, with "…" at its end.
QString cutTo(const QString &text, int columns);

/// A table for people. Its texts may come from anybody, so they are written as `printable`.
class Table
{
public:
    enum Kind
    {
        Text,
        Short, ///< Never cut.
        Number ///< Likewise, and at the right.
    };
    struct Column
    {
        QString title;
        Kind kind = Text;
    };
    struct Cell
    {
        Cell(QString t = QString(), Terminal::Colour c = Terminal::Plain) : text(std::move(t)), colour(c) {}
        QString text;
        Terminal::Colour colour;
    };

    explicit Table(QVector<Column> columns) : m_columns(std::move(columns)) {}
    /// As many cells as there are columns.
    void add(const QVector<Cell> &row);

    bool isEmpty() const { return m_rows.isEmpty(); }
    /// The lines, beginning with the titles, if there are any. A column without any text is left out. If a line is
    /// wider than the terminal, it is cut; if that does not help, the last columns are left out.
    QStringList lines(const Terminal &terminal) const;

private:
    QVector<int> widths(const Terminal &terminal) const;
    int excess(const QVector<int> &widths, const Terminal &terminal) const;
    int widestText(const QVector<int> &widths) const;
    QString line(const QVector<Cell> &row, const QVector<int> &widths, const Terminal &terminal) const;

    QVector<Column> m_columns;
    QVector<QVector<Cell>> m_rows;
};
