// SPDX-License-Identifier: GPL-3.0-or-later
#include "plot.h"

#include "figurechart.h"

#include <QImage>
#include <QPainter>

bool Plot::writePng(const QString &path, const QVector<Figure> &figures)
{
    QRectF page;
    for (const Figure &figure : figures)
        page |= figure.area;
    QImage image(page.size().toSize(), QImage::Format_RGB32);
    image.fill(Qt::white);
    QPainter painter(&image);
    painter.setRenderHint(QPainter::Antialiasing);
    for (const Figure &figure : figures)
        FigureChart::draw(painter, figure, figure.area);
    return painter.end() && image.save(path, "PNG");
}
