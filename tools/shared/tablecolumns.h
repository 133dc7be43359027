// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <QJsonObject>
#include <QString>
#include <QVector>

#include <functional>

// A column of a tab-separated table: its name (lower case, the unit in it),
// what it holds and its unit, and how a row fills it. Both tools write their
// tables and the JSON that describes them from such columns, so that a table
// and its description cannot disagree.
template <typename Row> struct Column {
    QString name;
    QString description;
    QString units; // empty when the column has none
    std::function<QString(const Row &)> cell;
};

namespace TableColumns
{

// The header line, then a line per row. Appended in place: a table may have a
// row for every trial of a study.
template <typename Row> QString table(const QVector<Column<Row>> &columns, const QVector<Row> &rows)
{
    QString text;
    for (int c = 0; c < columns.size(); ++c)
        text += (c > 0 ? "\t" : "") + columns[c].name;
    text += '\n';
    for (const Row &row : rows) {
        for (int c = 0; c < columns.size(); ++c) {
            if (c > 0)
                text += '\t';
            text += columns[c].cell(row);
        }
        text += '\n';
    }
    return text;
}

// Each column's "Description" and "Units", by name, as the neuroimaging data
// standard (BIDS) describes the columns of its tables.
template <typename Row> QJsonObject describe(const QVector<Column<Row>> &columns)
{
    QJsonObject object;
    for (const Column<Row> &c : columns) {
        QJsonObject column{{"Description", c.description}};
        if (!c.units.isEmpty())
            column.insert("Units", c.units);
        object.insert(c.name, column);
    }
    return object;
}

} // namespace TableColumns
