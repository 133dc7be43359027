// SPDX-License-Identifier: GPL-3.0-or-later
#include "report.h"

#include "psychometric.h"

#include <QDir>
#include <QGraphicsScene>
#include <QImage>
#include <QMap>
#include <QPainter>
#include <QPdfWriter>
#include <QtCharts/QChart>
#include <QtCharts/QLegendMarker>
#include <QtCharts/QLineSeries>
#include <QtCharts/QScatterSeries>
#include <QtCharts/QValueAxis>

#include <algorithm>
#include <cmath>
#include <memory>

using namespace QtCharts;

namespace
{
// A page in pixels at 96 dots per inch: A4 landscape.
const QSizeF pageSize(1123, 794);
const QColor rightColour(40, 150, 60);
const QColor wrongColour(200, 50, 40);

QString fixed(double v, int decimals = 2)
{
    return std::isfinite(v) ? QString::number(v, 'f', decimals) : QString("–");
}

// A chart with two value axes fitted to the range of what it shows.
struct Plot {
    QChart *chart = new QChart;
    double xMin = INFINITY, xMax = -INFINITY, yMin = INFINITY, yMax = -INFINITY;

    void add(QXYSeries *series, bool inLegend = true)
    {
        for (const QPointF &p : series->pointsVector()) {
            xMin = std::min(xMin, p.x());
            xMax = std::max(xMax, p.x());
            yMin = std::min(yMin, p.y());
            yMax = std::max(yMax, p.y());
        }
        chart->addSeries(series);
        if (!inLegend)
            for (QLegendMarker *m : chart->legend()->markers(series))
                m->setVisible(false);
    }

    QChart *finish(const QString &title, const QString &xTitle, const QString &yTitle)
    {
        chart->setTitle(title);
        chart->legend()->setAlignment(Qt::AlignBottom);
        const bool empty = !(xMin <= xMax);
        auto *x = new QValueAxis;
        auto *y = new QValueAxis;
        x->setTitleText(xTitle);
        y->setTitleText(yTitle);
        x->setRange(empty ? 0 : xMin - 0.5, empty ? 1 : xMax + 0.5);
        y->setRange(empty ? 0 : yMin - 0.05 * (yMax - yMin) - 0.5,
                    empty ? 1 : yMax + 0.05 * (yMax - yMin) + 0.5);
        x->applyNiceNumbers();
        y->applyNiceNumbers();
        QFont font = chart->font();
        font.setPixelSize(11);
        for (QValueAxis *axis : {x, y}) {
            axis->setLabelsFont(font);
            axis->setTitleFont(font);
        }
        chart->legend()->setFont(font);
        font.setPixelSize(14);
        chart->setTitleFont(font);
        chart->addAxis(x, Qt::AlignBottom);
        chart->addAxis(y, Qt::AlignLeft);
        for (QAbstractSeries *s : chart->series()) {
            s->attachAxis(x);
            s->attachAxis(y);
        }
        return chart;
    }
};

QScatterSeries *scatter(const QString &name, const QColor &colour, double size,
                        QScatterSeries::MarkerShape shape = QScatterSeries::MarkerShapeCircle)
{
    auto *s = new QScatterSeries;
    s->setName(name);
    s->setColor(colour);
    s->setBorderColor(colour.darker());
    s->setMarkerSize(size);
    s->setMarkerShape(shape);
    return s;
}

// Every run's track in dB against trial, answers and reversals marked.
QChart *tracks(const StudyGroup &g, const QVector<RunRow> &rows)
{
    Plot plot;
    auto *right = scatter("correct", rightColour, 5);
    auto *wrong = scatter("wrong", wrongColour, 5);
    auto *reversals = scatter("reversal", Qt::transparent, 10);
    reversals->setBorderColor(Qt::black);
    for (int i : g.runs) {
        const RunRow &r = rows[i];
        auto *line = new QLineSeries;
        line->setPen(QPen(r.included() ? QColor(90, 90, 90) : QColor(200, 200, 200), 1));
        for (int t = 0; t < r.trials.size(); ++t) {
            const QPointF p(t + 1, r.levelDb(t));
            if (!std::isfinite(p.y()))
                continue;
            line->append(p);
            (r.trials[t].correct ? right : wrong)->append(p);
            if (r.reversalTrials.contains(t))
                reversals->append(p);
        }
        plot.add(line, false);
    }
    plot.add(right);
    plot.add(wrong);
    plot.add(reversals);
    return plot.finish("Tracks (excluded runs in light grey)", "Trial", "Level (dB)");
}

// Thresholds against run order; excluded runs marked by their reasons.
QChart *thresholds(const StudyGroup &g, const QVector<RunRow> &rows)
{
    Plot plot;
    QMap<QString, QScatterSeries *> byReason;
    const QList<QColor> colours{wrongColour, QColor(230, 150, 30), QColor(120, 60, 170),
                                QColor(30, 120, 200), QColor(150, 150, 150)};
    for (int k = 0; k < g.runs.size(); ++k) {
        const RunRow &r = rows[g.runs[k]];
        if (!std::isfinite(r.thresholdDb))
            continue;
        const QString reason = r.included() ? QString("included") : r.excludedBecause.join(", ");
        QScatterSeries *&s = byReason[reason];
        if (!s)
            s = r.included() ? scatter(reason, rightColour, 10)
                             : scatter(reason, colours[(byReason.size() - 1) % colours.size()], 10,
                                       QScatterSeries::MarkerShapeRectangle);
        s->append(k + 1, r.thresholdDb);
    }
    for (QScatterSeries *s : byReason)
        plot.add(s);
    return plot.finish("Thresholds in run order", "Run", "Threshold (dB)");
}

// Proportion correct of the summarised runs' trials in 1 dB bins, the fitted
// function, α and its interval.
QChart *psychometric(const StudyGroup &g, const QVector<RunRow> &rows)
{
    Plot plot;
    QMap<int, QPair<int, int>> bins; // rounded level: trials, correct
    for (int i : g.used)
        for (int t = 0; t < rows[i].trials.size(); ++t) {
            QPair<int, int> &bin = bins[static_cast<int>(std::lround(rows[i].levelDb(t)))];
            ++bin.first;
            bin.second += rows[i].trials[t].correct;
        }
    auto *points = scatter("correct in 1 dB bins", QColor(40, 70, 130), 8);
    for (auto it = bins.cbegin(); it != bins.cend(); ++it)
        points->append(it.key(), double(it.value().second) / it.value().first);
    plot.add(points);
    const FitResult &f = g.fit;
    if (f.fitted) {
        auto *curve = new QLineSeries;
        curve->setName("fit");
        curve->setPen(QPen(Qt::black, 2));
        const double from = std::min(plot.xMin, f.alpha - 3 * f.beta);
        const double to = std::max(plot.xMax, f.alpha + 3 * f.beta);
        for (int k = 0; k <= 100; ++k) {
            const double x = from + (to - from) * k / 100.0;
            curve->append(x, Psychometric::probabilityCorrect(x, f.alpha, f.beta, f.lapse));
        }
        plot.add(curve);
        auto *interval = new QLineSeries;
        interval->setName("95 % interval of α");
        interval->setPen(QPen(wrongColour, 4));
        const double yAlpha = Psychometric::probabilityCorrect(f.alpha, f.alpha, f.beta, f.lapse);
        if (std::isfinite(f.alphaLow)) {
            interval->append(f.alphaLow, yAlpha);
            interval->append(f.alphaHigh, yAlpha);
        }
        plot.add(interval);
    }
    QChart *chart = plot.finish(
        f.fitted ? QString("%1 pooled trials: α %2 dB (95 %: %3 to %4), β %5 dB")
                       .arg(f.trials)
                       .arg(fixed(f.alpha), fixed(f.alphaLow), fixed(f.alphaHigh), fixed(f.beta))
                 : QString("%1 pooled trials, too few to fit").arg(f.trials),
        "Level (dB)", "Proportion correct");
    static_cast<QValueAxis *>(chart->axes(Qt::Vertical).first())->setRange(0.3, 1.0);
    return chart;
}

void drawChart(QPainter &painter, QChart *chart, const QRectF &target)
{
    QGraphicsScene scene;
    scene.addItem(chart); // the scene owns the chart from here on
    chart->setGeometry(QRectF(QPointF(0, 0), target.size()));
    scene.render(&painter, target, QRectF(QPointF(0, 0), target.size()));
}

QString heading(const StudyGroup &g, const RunRow &r)
{
    QString condition = QStringList{r.soundType, r.mainParameter}.join(", ");
    if (r.hasSidecar)
        condition += QString(", carrier %1 Hz, modulation %2 Hz, standard depth %3 %, %4 ms")
                         .arg(r.carrierHz)
                         .arg(r.modulationHz)
                         .arg(r.standardDepthPct)
                         .arg(r.durationMs);
    else
        condition += ", no sidecar: " + r.file;
    return QString("%1 — %2").arg(g.subject.isEmpty() ? QString("(no subject)") : g.subject,
                                  condition);
}

void drawPage(QPainter &painter, const StudyGroup &g, const QVector<RunRow> &rows)
{
    const RunRow &r = rows[g.first];
    painter.fillRect(QRectF(QPointF(0, 0), pageSize), Qt::white);
    painter.setPen(Qt::black);
    QFont font = painter.font();
    font.setPixelSize(16);
    font.setBold(true);
    painter.setFont(font);
    painter.drawText(QRectF(20, 10, pageSize.width() - 40, 24), Qt::AlignLeft, heading(g, r));
    font.setPixelSize(13);
    font.setBold(false);
    painter.setFont(font);
    painter.drawText(
        QRectF(20, 36, pageSize.width() - 40, 20), Qt::AlignLeft,
        QString("%1 runs, %2 summarised: mean threshold %3 dB (SD %4, 95 % %5 to %6 dB), "
                "first to last %7 dB; fit α %8 dB, β %9 dB, 66.7 % point %10 dB")
            .arg(g.runs.size())
            .arg(g.used.size())
            .arg(fixed(g.meanDb), fixed(g.sdDb), fixed(g.ciLowDb), fixed(g.ciHighDb),
                 fixed(g.firstToLastDb), fixed(g.fit.alpha), fixed(g.fit.beta), fixed(g.fit.x66)));
    const double w = pageSize.width() - 20;
    drawChart(painter, tracks(g, rows), QRectF(10, 60, w, 360));
    drawChart(painter, thresholds(g, rows), QRectF(10, 425, w / 2, 360));
    drawChart(painter, psychometric(g, rows), QRectF(10 + w / 2, 425, w / 2, 360));
}
} // namespace

bool Report::write(const QString &pdfPath, const QString &pngFolder,
                   const QVector<StudyGroup> &groups, const QVector<RunRow> &rows,
                   const std::function<void(int)> &progress)
{
    QPdfWriter pdf(pdfPath);
    pdf.setPageSize(QPageSize(QPageSize::A4));
    pdf.setPageOrientation(QPageLayout::Landscape);
    pdf.setPageMargins(QMarginsF(0, 0, 0, 0));
    pdf.setResolution(96);
    pdf.setCreator("veltrane-summary");
    QPainter painter;
    if (!painter.begin(&pdf))
        return false;
    bool written = true;
    for (int i = 0; i < groups.size(); ++i) {
        if (i > 0)
            pdf.newPage();
        drawPage(painter, groups[i], rows);
        if (!pngFolder.isEmpty()) {
            QImage image((pageSize * 2).toSize(), QImage::Format_RGB32);
            QPainter imagePainter(&image);
            imagePainter.setRenderHint(QPainter::Antialiasing);
            imagePainter.scale(2, 2);
            drawPage(imagePainter, groups[i], rows);
            imagePainter.end();
            written &= image.save(
                QDir(pngFolder).filePath(QString("page-%1.png").arg(i + 1, 3, 10, QChar('0'))));
        }
        progress(i + 1);
    }
    return painter.end() && written;
}
