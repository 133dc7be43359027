// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <QtWidgets>

// What a grid layout shows, one text per row: its columns from left to right,
// each the name of the widget that starts there (its object name, else a
// button's text, else its class), ":n" when it spans n columns, "/n" when n rows, the widgets of a
// nested layout joined by "+", and "-" for an empty column. A test compares this with the layout a
// person expects to see, cell by cell.
inline QStringList gridRows(const QGridLayout *grid)
{
    const auto name = [](const QWidget *w) {
        const auto *button = qobject_cast<const QAbstractButton *>(w);
        if (!w->objectName().isEmpty())
            return w->objectName();
        return button ? button->text() : QString(w->metaObject()->className());
    };
    QMap<QPair<int, int>, QString> cells;
    QMap<QPair<int, int>, int> spans;
    for (int i = 0; i < grid->count(); ++i) {
        int row, column, rowSpan, columnSpan;
        grid->getItemPosition(i, &row, &column, &rowSpan, &columnSpan);
        QLayoutItem *item = grid->itemAt(i);
        QStringList names;
        for (int k = 0; item->layout() && k < item->layout()->count(); ++k)
            names << name(item->layout()->itemAt(k)->widget());
        if (item->widget())
            names << name(item->widget());
        cells[{row, column}] = names.join('+') +
                               (columnSpan > 1 ? ":" + QString::number(columnSpan) : "") +
                               (rowSpan > 1 ? "/" + QString::number(rowSpan) : "");
        spans[{row, column}] = columnSpan;
    }
    QStringList rows;
    for (int row = 0; row < grid->rowCount(); ++row) {
        QStringList columns;
        for (int column = 0; column < grid->columnCount(); column += spans.value({row, column}, 1))
            columns << cells.value({row, column}, "-");
        rows << columns.join(' ');
    }
    return rows;
}
