// SPDX-License-Identifier: GPL-3.0-or-later
#include "figurechart.h"

#include <QGraphicsScene>
#include <QPainter>
#include <QSet>
#include <QtCharts/QAreaSeries>
#include <QtCharts/QCategoryAxis>
#include <QtCharts/QChart>
#include <QtCharts/QLegendMarker>
#include <QtCharts/QLineSeries>
#include <QtCharts/QScatterSeries>
#include <QtCharts/QValueAxis>

#include <algorithm>

using namespace QtCharts;

namespace
{
QAbstractAxis *axis(const Figure::Axis &a, const QFont &font)
{
    QAbstractAxis *made;
    if (a.labels.isEmpty()) {
        auto *values = new QValueAxis;
        values->setRange(a.min, a.max);
        values->setTickType(QValueAxis::TicksDynamic);
        values->setTickAnchor(0.0);
        values->setTickInterval(a.step);
        values->setLabelFormat(QString("%.%1f").arg(a.decimals()));
        made = values;
    } else {
        auto *rows = new QCategoryAxis;
        rows->setRange(a.min, a.max);
        rows->setLabelsPosition(QCategoryAxis::AxisLabelsPositionOnValue);
        QVector<QPair<double, QString>> ascending = a.labels;
        std::sort(ascending.begin(), ascending.end());
        for (const QPair<double, QString> &label : ascending)
            rows->append(label.second, label.first);
        made = rows;
    }
    made->setTitleText(a.title);
    made->setLabelsFont(font);
    made->setTitleFont(font);
    return made;
}

QScatterSeries *markers(const Figure::Series &s, double size)
{
    auto *m = new QScatterSeries;
    m->setMarkerShape(s.style == Figure::Style::Squares ? QScatterSeries::MarkerShapeRectangle
                                                        : QScatterSeries::MarkerShapeCircle);
    m->setColor(s.style == Figure::Style::Rings ? QColor(Qt::transparent) : s.colour);
    m->setBorderColor(s.style == Figure::Style::Rings ? s.colour : s.colour.darker());
    m->setMarkerSize(size);
    return m;
}

// The Qt series that draw one figure series: a marker series per distinct
// size when the points have sizes of their own.
QList<QXYSeries *> series(const Figure::Series &s)
{
    if (!s.markers()) {
        auto *line = new QLineSeries;
        line->append(s.points.toList());
        line->setPen(QPen(s.colour, s.size,
                          s.style == Figure::Style::DashedLine ? Qt::DashLine : Qt::SolidLine));
        return {line};
    }
    QList<QXYSeries *> made{markers(s, s.size)};
    for (int i = 0; i < s.points.size(); ++i) {
        if (!s.sizes.isEmpty()) {
            made.append(markers(s, s.sizes[i]));
        }
        made.last()->append(s.points[i]);
    }
    return made;
}
} // namespace

QChart *FigureChart::chart(const Figure &figure)
{
    auto *chart = new QChart;
    QFont font = chart->font();
    font.setPixelSize(14);
    chart->setTitleFont(font);
    // Broken at the comma nearest the middle (titles are rich text).
    QString title = figure.title;
    const int middle = title.lastIndexOf(", ", title.size() / 2);
    if (title.size() > 60 && middle > 0)
        title.replace(middle, 2, ",<br>");
    chart->setTitle(title);
    font.setPixelSize(11);
    chart->legend()->setFont(font);
    chart->legend()->setAlignment(Qt::AlignBottom);
    QAbstractAxis *x = axis(figure.x, font);
    QAbstractAxis *y = axis(figure.y, font);
    chart->addAxis(x, Qt::AlignBottom);
    chart->addAxis(y, Qt::AlignLeft);
    QSet<QString> inLegend;
    for (const Figure::Series &s : figure.series) {
        const QList<QXYSeries *> parts = series(s);
        for (QXYSeries *part : parts) {
            QAbstractSeries *shown = part;
            if (s.style == Figure::Style::Filled) {
                auto *area = new QAreaSeries(static_cast<QLineSeries *>(part));
                area->setColor(s.colour);
                area->setBorderColor(s.colour.darker());
                shown = area;
            }
            shown->setName(s.legend);
            chart->addSeries(shown);
            shown->attachAxis(x);
            shown->attachAxis(y);
            const bool first =
                part == parts.first() && !s.legend.isEmpty() && !inLegend.contains(s.legend);
            for (QLegendMarker *m : chart->legend()->markers(shown))
                m->setVisible(first);
        }
        inLegend.insert(s.legend);
    }
    return chart;
}

void FigureChart::draw(QPainter &painter, const Figure &figure, const QRectF &target)
{
    QGraphicsScene scene;
    QChart *drawn = chart(figure);
    scene.addItem(drawn); // the scene owns the chart
    const QRectF own(QPointF(), target.size());
    drawn->setGeometry(own);
    scene.render(&painter, target, own);
}
