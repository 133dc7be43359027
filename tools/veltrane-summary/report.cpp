// SPDX-License-Identifier: GPL-3.0-or-later
#include "report.h"

#include "overview.h"
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
// The foot of the proportion-correct axis.
constexpr double lowestProportion = 0.4;

QString fixed(double v, int decimals = 2)
{
    return std::isfinite(v) ? QString::number(v, 'f', decimals) : QString("–");
}

// A round tick spacing for a span: 1, 2 or 5 times a power of ten, about
// `ticks` intervals; at least 1 on an axis that counts.
double tickStep(double span, int ticks, bool whole)
{
    const double raw = std::max(span, 1e-9) / ticks;
    const double power = std::pow(10.0, std::floor(std::log10(raw)));
    double step = 10 * power;
    for (double m : {1.0, 2.0, 5.0})
        if (m * power >= raw) {
            step = m * power;
            break;
        }
    return whole ? std::max(1.0, std::round(step)) : step;
}

// Widens [low, high] to whole steps and puts a labelled tick on each, with as
// many decimals as the step needs ("20", not "20.0", on a counting axis).
void roundAxis(QValueAxis *axis, double low, double high, double step)
{
    axis->setRange(std::floor(low / step + 1e-9) * step, std::ceil(high / step - 1e-9) * step);
    axis->setTickType(QValueAxis::TicksDynamic);
    axis->setTickAnchor(0.0);
    axis->setTickInterval(step);
    const int decimals = std::max(0, -static_cast<int>(std::floor(std::log10(step) + 1e-9)));
    axis->setLabelFormat(QString("%.%1f").arg(decimals));
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

    // Axes fitted to what the chart shows; a counting axis gets whole ticks.
    QChart *finish(const QString &title, const QString &xTitle, const QString &yTitle, bool wholeX)
    {
        chart->setTitle(title);
        chart->legend()->setAlignment(Qt::AlignBottom);
        const bool empty = !(xMin <= xMax);
        auto *x = new QValueAxis;
        auto *y = new QValueAxis;
        x->setTitleText(xTitle);
        y->setTitleText(yTitle);
        const double xLow = empty ? 0 : xMin - 0.5, xHigh = empty ? 1 : xMax + 0.5;
        const double yLow = empty ? 0 : yMin - 0.05 * (yMax - yMin) - 0.5;
        const double yHigh = empty ? 1 : yMax + 0.05 * (yMax - yMin) + 0.5;
        roundAxis(x, xLow, xHigh, tickStep(xHigh - xLow, 6, wholeX));
        roundAxis(y, yLow, yHigh, tickStep(yHigh - yLow, 6, false));
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
    // Excluded runs dashed and in orange, so that they stand apart in
    // grey-scale print too; one legend entry for each kind of line.
    bool includedNamed = false, excludedNamed = false;
    for (int i : g.runs) {
        const RunRow &r = rows[i];
        auto *line = new QLineSeries;
        bool &named = r.included() ? includedNamed : excludedNamed;
        line->setName(r.included() ? "included run" : "excluded run (dashed)");
        line->setPen(r.included() ? QPen(QColor(70, 70, 70), 1)
                                  : QPen(QColor(220, 120, 0), 2, Qt::DashLine));
        for (int t = 0; t < r.trials.size(); ++t) {
            const QPointF p(t + 1, r.levelDb(t));
            if (!std::isfinite(p.y()))
                continue;
            line->append(p);
            (r.trials[t].correct ? right : wrong)->append(p);
            if (r.reversalTrials.contains(t))
                reversals->append(p);
        }
        plot.add(line, !named);
        named = true;
    }
    plot.add(right);
    plot.add(wrong);
    plot.add(reversals);
    return plot.finish("Tracks", "Trial", "Level (dB)", true);
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
    return plot.finish("Thresholds in run order", "Run", "Threshold (dB)", true);
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
    // A marker's area grows with its bin's trials, so that a bin of 2 trials
    // does not look like one of 200: each bin is a series of its own size.
    // The axis starts at 0.4 (chance is 0.5); a bin below it is drawn on it
    // as a square.
    int most = 0;
    bool below = false;
    for (const QPair<int, int> &bin : bins) {
        most = std::max(most, bin.first);
        below |= double(bin.second) / bin.first < lowestProportion;
    }
    const QColor binColour(40, 70, 130);
    plot.add(scatter("1 dB bins, area ∝ trials", binColour, 8));
    if (below)
        plot.add(scatter("below 0.4 (square)", binColour, 8, QScatterSeries::MarkerShapeRectangle));
    for (auto it = bins.cbegin(); it != bins.cend(); ++it) {
        const double p = double(it->second) / it->first;
        auto *point =
            scatter(QString(), binColour, std::max(3.0, 18.0 * std::sqrt(double(it->first) / most)),
                    p < lowestProportion ? QScatterSeries::MarkerShapeRectangle
                                         : QScatterSeries::MarkerShapeCircle);
        point->append(it.key(), std::max(p, lowestProportion));
        plot.add(point, false);
    }
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
        "Level (dB)", "Proportion correct", false);
    roundAxis(static_cast<QValueAxis *>(chart->axes(Qt::Vertical).first()), lowestProportion, 1.0,
              0.1);
    return chart;
}

void drawChart(QPainter &painter, QChart *chart, const QRectF &target)
{
    QGraphicsScene scene;
    scene.addItem(chart); // the scene owns the chart from here on
    chart->setGeometry(QRectF(QPointF(0, 0), target.size()));
    scene.render(&painter, target, QRectF(QPointF(0, 0), target.size()));
}

QString subjectName(const StudyGroup &g)
{
    return g.subject.isEmpty() ? QString("(no subject)") : g.subject;
}

QString heading(const StudyGroup &g, const RunRow &r)
{
    return QString("%1 — %2").arg(subjectName(g), conditionLabel(r));
}

// One condition of the study page: a row per subject with the mean threshold
// and its 95 % interval, then the mean over subjects as a diamond.
void drawCondition(QPainter &painter, const QRectF &area, const Overview::Condition &c,
                   const QVector<StudyGroup> &groups)
{
    QFont font = painter.font();
    font.setPixelSize(13);
    font.setBold(true);
    painter.setFont(font);
    painter.setPen(Qt::black);
    painter.drawText(QRectF(area.left(), area.top(), area.width(), 36),
                     Qt::AlignHCenter | Qt::AlignTop | Qt::TextWordWrap, c.label);

    double low = INFINITY, high = -INFINITY;
    for (int g : c.groups)
        for (double v : {groups[g].meanDb, groups[g].ciLowDb, groups[g].ciHighDb})
            if (std::isfinite(v)) {
                low = std::min(low, v);
                high = std::max(high, v);
            }
    for (double v : {c.ciLowDb, c.ciHighDb})
        if (std::isfinite(v)) {
            low = std::min(low, v);
            high = std::max(high, v);
        }
    if (!(low <= high)) {
        low = -1;
        high = 1;
    }
    const double step = tickStep(std::max(high - low, 1.0), 5, false);
    low = std::floor(low / step) * step;
    high = std::ceil(high / step) * step;
    if (high - low < step)
        high = low + step;

    // Names on the left, the values in figures on the right.
    const QRectF plot(area.left() + 100, area.top() + 44, area.width() - 100 - 175,
                      area.height() - 44 - 40);
    const int lines = c.groups.size() + 1;
    const double rowHeight = std::min(24.0, plot.height() / lines);
    const auto xOf = [&](double v) {
        return plot.left() + (v - low) / (high - low) * plot.width();
    };
    const auto yOf = [&](int line) { return plot.top() + (line + 0.5) * rowHeight; };
    const double bottom = plot.top() + lines * rowHeight;

    font.setBold(false);
    font.setPixelSize(11);
    painter.setFont(font);
    for (int k = 0; low + k * step <= high + 1e-9; ++k) {
        const double v = low + k * step;
        painter.setPen(QPen(QColor(220, 220, 220), 1));
        painter.drawLine(QPointF(xOf(v), plot.top()), QPointF(xOf(v), bottom));
        painter.setPen(Qt::black);
        painter.drawText(QRectF(xOf(v) - 30, bottom + 2, 60, 14), Qt::AlignCenter,
                         QString::number(v, 'f', step < 1 ? 1 : 0));
    }
    painter.drawText(QRectF(plot.left(), bottom + 16, plot.width(), 14), Qt::AlignCenter,
                     "Mean threshold with 95 % interval (dB)");

    font.setPixelSize(static_cast<int>(std::clamp(rowHeight - 3, 6.0, 12.0)));
    painter.setFont(font);
    const double radius = std::clamp(rowHeight / 4, 1.5, 4.0);
    const auto row = [&](int line, const QString &name, double mean, double ciLow, double ciHigh) {
        const double y = yOf(line);
        painter.setPen(Qt::black);
        painter.drawText(QRectF(area.left(), y - rowHeight / 2, 95, rowHeight),
                         Qt::AlignRight | Qt::AlignVCenter, name);
        painter.drawText(
            QRectF(plot.right() + 8, y - rowHeight / 2, 167, rowHeight),
            Qt::AlignLeft | Qt::AlignVCenter,
            std::isfinite(ciLow)
                ? QString("%1 (%2 to %3)").arg(fixed(mean), fixed(ciLow), fixed(ciHigh))
                : fixed(mean));
        if (std::isfinite(ciLow)) {
            const double cap = rowHeight / 5;
            painter.drawLine(QPointF(xOf(ciLow), y), QPointF(xOf(ciHigh), y));
            painter.drawLine(QPointF(xOf(ciLow), y - cap), QPointF(xOf(ciLow), y + cap));
            painter.drawLine(QPointF(xOf(ciHigh), y - cap), QPointF(xOf(ciHigh), y + cap));
        }
        if (!std::isfinite(mean))
            painter.drawText(QRectF(plot.left() + 4, y - rowHeight / 2, plot.width(), rowHeight),
                             Qt::AlignLeft | Qt::AlignVCenter, "no included run");
        return QPointF(xOf(mean), y);
    };
    painter.setRenderHint(QPainter::Antialiasing);
    for (int k = 0; k < c.groups.size(); ++k) {
        const StudyGroup &g = groups[c.groups[k]];
        const QPointF at = row(k, QString("%1 (%2)").arg(subjectName(g)).arg(g.used.size()),
                               g.meanDb, g.ciLowDb, g.ciHighDb);
        if (std::isfinite(g.meanDb)) {
            painter.setBrush(QColor(40, 70, 130));
            painter.drawEllipse(at, radius, radius);
        }
    }
    painter.setPen(QPen(Qt::black, 1));
    painter.drawLine(QPointF(area.left() + 10, yOf(lines - 1) - rowHeight / 2),
                     QPointF(plot.right(), yOf(lines - 1) - rowHeight / 2));
    const QPointF at =
        row(lines - 1, QString("mean of %1").arg(c.subjects), c.meanDb, c.ciLowDb, c.ciHighDb);
    if (std::isfinite(c.meanDb)) {
        const double r = radius * 1.6;
        painter.setBrush(Qt::black);
        painter.drawPolygon(QPolygonF(QVector<QPointF>{at + QPointF(-r, 0), at + QPointF(0, -r),
                                                       at + QPointF(r, 0), at + QPointF(0, r)}));
    }
    painter.setBrush(Qt::NoBrush);
}

// A white page with its title in bold at the top; returns the title's font.
QFont beginPage(QPainter &painter, const QString &title)
{
    painter.fillRect(QRectF(QPointF(0, 0), pageSize), Qt::white);
    painter.setPen(Qt::black);
    QFont font = painter.font();
    font.setPixelSize(16);
    font.setBold(true);
    painter.setFont(font);
    painter.drawText(QRectF(20, 10, pageSize.width() - 40, 24), Qt::AlignLeft, title);
    return font;
}

// The first page: every condition's subjects side by side, then what became of
// the runs.
void drawStudyPage(QPainter &painter, const Overview &o, const QVector<StudyGroup> &groups)
{
    QFont font = beginPage(painter, QString("The study: %1 condition%2; per subject the mean "
                                            "threshold of the included runs (their number in "
                                            "brackets)")
                                        .arg(o.conditions.size())
                                        .arg(o.conditions.size() == 1 ? "" : "s"));

    const int columns = std::max(1, std::min<int>(o.conditions.size(), 2));
    const int panelRows = std::max(1, (o.conditions.size() + columns - 1) / columns);
    const double width = (pageSize.width() - 20) / columns;
    const double height = (pageSize.height() - 44 - 64) / panelRows;
    for (int k = 0; k < o.conditions.size(); ++k)
        drawCondition(
            painter,
            QRectF(10 + (k % columns) * width, 44 + (k / columns) * height, width - 10, height - 6),
            o.conditions[k], groups);

    QStringList reasons;
    for (const QPair<QString, int> &e : o.excluded)
        reasons.append(QString("%1 %2").arg(e.first).arg(e.second));
    font.setPixelSize(13);
    font.setBold(false);
    painter.setFont(font);
    painter.setPen(Qt::black);
    painter.drawText(
        QRectF(20, pageSize.height() - 58, pageSize.width() - 40, 50),
        Qt::AlignLeft | Qt::TextWordWrap,
        QString("Results files read: %1. Runs included in the means and fits: %2. Files that "
                "could not be used: %3.\nRuns left out (a run with several reasons counts under "
                "each): %4.")
            .arg(o.read)
            .arg(o.included)
            .arg(o.unusable)
            .arg(reasons.isEmpty() ? QString("none") : reasons.join(", ")));
}

void drawPage(QPainter &painter, const StudyGroup &g, const QVector<RunRow> &rows)
{
    const RunRow &r = rows[g.first];
    QFont font = beginPage(painter, heading(g, r));
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
                   const QVector<StudyGroup> &groups, const QVector<RunRow> &rows, int unusable,
                   const std::function<void(int)> &progress)
{
    const Overview overview = Overview::of(groups, rows, unusable);
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
    // Page 0 is the study page, page i + 1 the group i's.
    const auto draw = [&](QPainter &p, int page) {
        if (page == 0)
            drawStudyPage(p, overview, groups);
        else
            drawPage(p, groups[page - 1], rows);
    };
    for (int page = 0; page <= groups.size(); ++page) {
        if (page > 0)
            pdf.newPage();
        draw(painter, page);
        if (!pngFolder.isEmpty()) {
            QImage image((pageSize * 2).toSize(), QImage::Format_RGB32);
            QPainter imagePainter(&image);
            imagePainter.setRenderHint(QPainter::Antialiasing);
            imagePainter.scale(2, 2);
            draw(imagePainter, page);
            imagePainter.end();
            written &= image.save(
                QDir(pngFolder).filePath(QString("page-%1.png").arg(page + 1, 3, 10, QChar('0'))));
        }
        if (page > 0)
            progress(page);
    }
    return painter.end() && written;
}
