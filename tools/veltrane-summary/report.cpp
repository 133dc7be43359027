// SPDX-License-Identifier: GPL-3.0-or-later
#include "report.h"

#include "figurechart.h"

#include <QDir>
#include <QImage>
#include <QPainter>
#include <QPdfWriter>

namespace
{
// A white page with its title in bold at the top, the note, and the figures.
void draw(QPainter &painter, const ReportPage &page)
{
    painter.fillRect(QRectF(QPointF(), ReportPage::size()), Qt::white);
    painter.setPen(Qt::black);
    QFont font = painter.font();
    font.setPixelSize(16);
    font.setBold(true);
    painter.setFont(font);
    painter.drawText(QRectF(20, 10, ReportPage::size().width() - 40, 24), Qt::AlignLeft,
                     page.title);
    font.setPixelSize(13);
    font.setBold(false);
    painter.setFont(font);
    painter.drawText(page.noteArea, Qt::AlignLeft | Qt::TextWordWrap, page.note);
    for (const Figure &figure : page.figures)
        FigureChart::draw(painter, figure, figure.area);
}
} // namespace

bool Report::write(const QString &pdfPath, const QString &pngFolder,
                   const QVector<ReportPage> &pages, const std::function<void(int)> &progress)
{
    QPdfWriter pdf(pdfPath);
    pdf.setPageLayout(QPageLayout(QPageSize(QPageSize::A4), QPageLayout::Landscape, QMarginsF()));
    pdf.setResolution(96);
    pdf.setCreator("veltrane-summary");
    QPainter painter;
    if (!painter.begin(&pdf))
        return false;
    bool written = true;
    for (int k = 0; k < pages.size(); ++k) {
        if (k > 0)
            pdf.newPage();
        draw(painter, pages[k]);
        if (!pngFolder.isEmpty()) {
            // Twice the PDF's resolution, for screens and slides.
            const double scale = 2.0;
            QImage image((ReportPage::size() * scale).toSize(), QImage::Format_RGB32);
            QPainter imagePainter(&image);
            imagePainter.setRenderHint(QPainter::Antialiasing);
            imagePainter.scale(scale, scale);
            draw(imagePainter, pages[k]);
            imagePainter.end();
            written &= image.save(
                QDir(pngFolder).filePath(QString("page-%1.png").arg(k + 1, 3, 10, QChar('0'))));
        }
        if (k > 0)
            progress(k);
    }
    return painter.end() && written;
}
