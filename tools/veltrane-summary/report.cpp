// SPDX-License-Identifier: GPL-3.0-or-later
#include "report.h"

#include "figurechart.h"

#include <QDir>
#include <QGridLayout>
#include <QImage>
#include <QLabel>
#include <QPainter>
#include <QPdfWriter>
#include <QVBoxLayout>
#include <QtCharts/QChartView>

#include <memory>

namespace
{
// A page as a widget laid out by Qt: the title in bold, the note, and the
// figures in their cells of a grid.
std::unique_ptr<QWidget> sheet(const ReportPage &page)
{
    auto sheet = std::make_unique<QWidget>();
    sheet->setStyleSheet("background: white; font-size: 13px");
    auto *column = new QVBoxLayout(sheet.get());
    auto *title = new QLabel(page.title);
    title->setStyleSheet("font-weight: bold; font-size: 16px");
    auto *note = new QLabel(page.note);
    note->setWordWrap(true);
    auto *grid = new QGridLayout;
    for (int k = 0; k < page.figures.size(); ++k) {
        auto *view = new QtCharts::QChartView(FigureChart::chart(page.figures[k]));
        view->setRenderHint(QPainter::Antialiasing);
        const QRect &cell = page.cells[k];
        grid->addWidget(view, cell.y(), cell.x(), cell.height(), cell.width());
    }
    column->addWidget(title);
    column->addLayout(grid);
    // The note under the title, or at the foot.
    column->insertWidget(page.noteBelow ? -1 : column->indexOf(grid), note);
    // A4 landscape at 96 dots per inch.
    sheet->resize(1123, 794);
    column->activate();
    return sheet;
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
        const std::unique_ptr<QWidget> page = sheet(pages[k]);
        if (k > 0)
            pdf.newPage();
        page->render(&painter);
        if (!pngFolder.isEmpty()) {
            // Twice the PDF's resolution, for screens and slides.
            const double scale = 2.0;
            QImage image(page->size() * scale, QImage::Format_RGB32);
            QPainter imagePainter(&image);
            imagePainter.scale(scale, scale);
            page->render(&imagePainter);
            imagePainter.end();
            written &= image.save(
                QDir(pngFolder).filePath(QString("page-%1.png").arg(k + 1, 3, 10, QChar('0'))));
        }
        if (k > 0)
            progress(k);
    }
    return painter.end() && written;
}
