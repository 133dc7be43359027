// SPDX-License-Identifier: GPL-3.0-or-later
#include "plot.h"

#include "figurechart.h"

#include <QImage>
#include <QPainter>

bool Plot::writePng(const QString &path, const QVector<Figure> &figures)
{
    // Each figure 760 × 560 pixels, side by side.
    const QSizeF size(760, 560);
    QImage image(QSize(size.width() * figures.size(), size.height()), QImage::Format_RGB32);
    image.fill(Qt::white);
    QPainter painter(&image);
    painter.setRenderHint(QPainter::Antialiasing);
    for (int k = 0; k < figures.size(); ++k)
        FigureChart::draw(painter, figures[k], QRectF(QPointF(k * size.width(), 0.0), size));
    return painter.end() && image.save(path, "PNG");
}
