#include "app/mainwindow.h"

#include <QGridLayout>
#include <QLineEdit>
#include <QPushButton>
#include <QtCharts/QChart>
#include <QtCharts/QChartView>
#include <QtCharts/QLegend>
#include <QtCharts/QLineSeries>
#include <QtCharts/QValueAxis>
#include <QtTest>

#include <algorithm>
#include <cmath>

using namespace QtCharts;

// Expected values come from the start-up settings' worked examples and from
// the sound and spectrum vectors themselves, evaluated here independently of
// the chart code (extremes by std::minmax_element, bin frequencies by k × rate
// / 32768).
class TestCharts : public QObject
{
    Q_OBJECT

private:
    struct Chart {
        QLineSeries *series;
        QValueAxis *x;
        QValueAxis *y;
        QChart *chart;
        QChartView *view;
    };

    static QVector<Chart> charts(const MainWindow &w)
    {
        return {
            {w.seriesWaveStd, w.axisXWaveStd, w.axisYWaveStd, w.chartWaveStd, w.chartViewWaveStd},
            {w.seriesWaveDev, w.axisXWaveDev, w.axisYWaveDev, w.chartWaveDev, w.chartViewWaveDev},
            {w.seriesSpecStd, w.axisXSpecStd, w.axisYSpecStd, w.chartSpecStd, w.chartViewSpecStd},
            {w.seriesSpecDev, w.axisXSpecDev, w.axisYSpecDev, w.chartSpecDev, w.chartViewSpecDev}};
    }

    static bool near(double actual, double expected, double tolerance = 1e-9)
    {
        return std::abs(actual - expected) <= tolerance * qMax(1.0, std::abs(expected));
    }

    static void view(MainWindow &w, const QString &rate, const QString &durationMs = "600")
    {
        w.lineEditSamplingRate->setText(rate);
        w.lineEditDurationStd->setText(durationMs);
        w.lineEditDurationDev->setText(durationMs);
        w.pushButtonView->click();
    }

    // The amplitude axis spans the extremes of the whole vector.
    static void verifyAmplitudeAxis(QValueAxis *axis, const QVector<double> &values)
    {
        const auto mm = std::minmax_element(values.begin(), values.end());
        QVERIFY(*mm.first < *mm.second);
        QCOMPARE(axis->min(), *mm.first);
        QCOMPARE(axis->max(), *mm.second);
    }

    // Point k of the series is (x[k], y[k]) for every k below count.
    static void verifyPoints(QLineSeries *series, const QVector<double> &x,
                             const QVector<double> &y, int count)
    {
        const QVector<QPointF> points = series->pointsVector();
        QCOMPARE(points.size(), count);
        for (int k = 0; k < count; ++k)
            QVERIFY2(points[k] == QPointF(x[k], y[k]), qPrintable(QString("point %1").arg(k)));
    }

private slots:
    void startUpSpectra()
    {
        MainWindow w;
        QCOMPARE(w.fftLength, (QVector<int>{32768, 32768}));
        QCOMPARE(w.fftDuration, (QVector<double>{0.8192, 0.8192}));
        QCOMPARE(w.frequencyResolution, (QVector<double>{1.220703125, 1.220703125}));
        QCOMPARE(w.params.spectrumPoints, (QVector<int>{1638, 1638}));
        QCOMPARE(w.spectrumFrequency.size(), 16384);
        QCOMPARE(w.amplitudeSpectrumStd.size(), 16384);
        QCOMPARE(w.amplitudeSpectrumDev.size(), 16384);
        QCOMPARE(w.spectrumFrequency[1637], 1998.291015625);
        QCOMPARE(w.spectrumFrequency[16383], 16383 * 40000.0 / 32768);
        // The deviant is modulated at 40 Hz with depth 0.5: its spectrum has
        // side bands, and its carrier of noise fills the whole band.
        QVERIFY(*std::max_element(w.amplitudeSpectrumDev.begin(), w.amplitudeSpectrumDev.end()) >
                0.0);
    }

    void startUpCharts()
    {
        MainWindow w;
        const QVector<Chart> c = charts(w);
        for (int i = 0; i < 2; ++i) {
            QCOMPARE(c[i].x->min(), 0.0);
            QCOMPARE(c[i].x->max(), 50.0);
            QCOMPARE(c[2 + i].x->min(), 0.0);
            QCOMPARE(c[2 + i].x->max(), 2000.0);
            QCOMPARE(c[2 + i].x->labelFormat(), QString("%.0f"));
            QCOMPARE(c[i].x->labelFormat(), QValueAxis().labelFormat());
        }
        verifyPoints(w.seriesWaveStd, w.waveformTime, w.standardSound, 2000);
        verifyPoints(w.seriesWaveDev, w.waveformTime, w.deviantSound, 2000);
        verifyPoints(w.seriesSpecStd, w.spectrumFrequency, w.amplitudeSpectrumStd, 1638);
        verifyPoints(w.seriesSpecDev, w.spectrumFrequency, w.amplitudeSpectrumDev, 1638);
        verifyAmplitudeAxis(w.axisYWaveStd, w.standardSound);
        verifyAmplitudeAxis(w.axisYWaveDev, w.deviantSound);
        verifyAmplitudeAxis(w.axisYSpecStd, w.amplitudeSpectrumStd);
        verifyAmplitudeAxis(w.axisYSpecDev, w.amplitudeSpectrumDev);
        QCOMPARE(w.waveformRangeStd[1], w.axisYWaveStd->max());
        QCOMPARE(w.spectrumRangeDev[0], w.axisYSpecDev->min());
    }

    void chartAppearanceAndPlaces()
    {
        MainWindow w;
        const QVector<Chart> c = charts(w);
        const QStringList titles{"Time Waveform (standard)", "Time Waveform (Deviant)",
                                 "Amplitude Spectrum (standard)", "Amplitude Spectrum (Deviant)"};
        const QVector<QPoint> cells{{0, 0}, {0, 1}, {1, 0}, {1, 1}};
        for (int i = 0; i < 4; ++i) {
            const Chart &k = c[i];
            QCOMPARE(k.chart->title(), titles[i]);
            QCOMPARE(k.chart->titleFont().pixelSize(), 12);
            QCOMPARE(k.chart->titleFont().weight(), 50);
            QVERIFY(!k.chart->legend()->isVisible());
            QCOMPARE(k.chart->margins(), QMargins(0, 0, 0, 0));
            QCOMPARE(k.chart->sizePolicy().horizontalPolicy(), QSizePolicy::Minimum);
            QCOMPARE(k.chart->sizePolicy().verticalPolicy(), QSizePolicy::Preferred);
            QCOMPARE(k.chart->minimumWidth(), 200.0);
            QCOMPARE(k.chart->series(), QList<QAbstractSeries *>{k.series});
            QCOMPARE(k.chart->axes(Qt::Horizontal), QList<QAbstractAxis *>{k.x});
            QCOMPARE(k.chart->axes(Qt::Vertical), QList<QAbstractAxis *>{k.y});
            QCOMPARE(k.x->alignment(), Qt::AlignBottom);
            QCOMPARE(k.y->alignment(), Qt::AlignLeft);
            QCOMPARE(k.series->attachedAxes().size(), 2);
            QVERIFY(k.series->name().isEmpty());
            QVERIFY(!k.series->pointsVisible());
            QCOMPARE(k.series->pen().widthF(), 1.0);
            QCOMPARE(k.x->titleText(), QString(i < 2 ? "Time (ms)" : "Frequency (Hz)"));
            QCOMPARE(k.y->titleText(), QString("Amplitude"));
            for (QValueAxis *axis : {k.x, k.y}) {
                QCOMPARE(axis->labelsFont().pixelSize(), 10);
                QCOMPARE(axis->titleFont().pixelSize(), 10);
                QCOMPARE(axis->labelsFont().weight(), 50);
                QCOMPARE(axis->tickCount(), QValueAxis().tickCount());
            }
            QCOMPARE(k.view->chart(), k.chart);
            QVERIFY(k.view->renderHints().testFlag(QPainter::Antialiasing));
            QLayoutItem *item = w.gridLayoutCharts->itemAtPosition(cells[i].x(), cells[i].y());
            QVERIFY(item);
            QCOMPARE(item->widget(), k.view);
            int row, column, rowSpan, columnSpan;
            w.gridLayoutCharts->getItemPosition(w.gridLayoutCharts->indexOf(k.view), &row, &column,
                                                &rowSpan, &columnSpan);
            QCOMPARE(rowSpan, 1);
            QCOMPARE(columnSpan, 1);
        }
    }

    void viewRefreshesWithoutCreating()
    {
        MainWindow w;
        const QVector<Chart> before = charts(w);
        const int items = w.gridLayoutCharts->count();
        view(w, "40000");
        const QVector<Chart> after = charts(w);
        for (int i = 0; i < 4; ++i) {
            QCOMPARE(after[i].series, before[i].series);
            QCOMPARE(after[i].x, before[i].x);
            QCOMPARE(after[i].y, before[i].y);
            QCOMPARE(after[i].chart, before[i].chart);
            QCOMPARE(after[i].view, before[i].view);
        }
        QCOMPARE(w.gridLayoutCharts->count(), items);
        // View draws the new noise it has just made.
        verifyPoints(w.seriesWaveStd, w.waveformTime, w.standardSound, 2000);
        verifyAmplitudeAxis(w.axisYSpecDev, w.amplitudeSpectrumDev);
    }

    void samplingRate44100()
    {
        MainWindow w;
        view(w, "44100");
        QCOMPARE(w.seriesWaveStd->count(), 2205);
        QCOMPARE(w.seriesWaveDev->count(), 2205);
        QVERIFY(near(w.axisXWaveStd->max(), 50.0));
        QVERIFY(near(w.axisXWaveDev->max(), 50.0));
        QCOMPARE(w.fftLength, (QVector<int>{32768, 32768}));
        QCOMPARE(w.seriesSpecStd->count(), 1638);
    }

    void samplingRate20000()
    {
        MainWindow w;
        view(w, "20000");
        QCOMPARE(w.frequencyResolution, (QVector<double>{0.6103515625, 0.6103515625}));
        QCOMPARE(w.params.spectrumPoints, (QVector<int>{1638, 1638}));
        for (QLineSeries *s : {w.seriesSpecStd, w.seriesSpecDev}) {
            QCOMPARE(s->count(), 1638);
            QCOMPARE(s->at(1637).x(), 999.1455078125);
        }
        for (QValueAxis *axis : {w.axisXSpecStd, w.axisXSpecDev}) {
            QCOMPARE(axis->min(), 0.0);
            QCOMPARE(axis->max(), 2000.0);
        }
        QCOMPARE(w.seriesWaveStd->count(), 1000);
        QVERIFY(near(w.axisXWaveStd->max(), 50.0));
    }

    void soundShorterThanTheDisplayedStretch()
    {
        MainWindow w;
        view(w, "40000", "20");
        QCOMPARE(w.standardSound.size(), 800);
        for (QLineSeries *s : {w.seriesWaveStd, w.seriesWaveDev})
            QCOMPARE(s->count(), 800);
        for (QValueAxis *axis : {w.axisXWaveStd, w.axisXWaveDev})
            QVERIFY(near(axis->max(), 20.0));
        // 800 samples: the spectrum is divided by 400 and the transform stays 32768.
        QCOMPARE(w.fftLength[0], 32768);
        QCOMPARE(w.seriesSpecStd->count(), 1638);
    }

    void amplitudeAxisCoversTheWholeSound()
    {
        MainWindow w;
        QVector<double> sound(24000, 0.0);
        for (int j = 0; j < sound.size(); ++j)
            sound[j] = 0.1 * std::sin(j * 0.3);
        sound[15000] = 0.95; // 375 ms: far beyond the drawn 50 ms
        sound[23999] = -0.8;
        w.standardSound = sound;
        w.createWaveformCharts();
        QCOMPARE(w.axisYWaveStd->min(), -0.8);
        QCOMPARE(w.axisYWaveStd->max(), 0.95);
        const QVector<QPointF> drawn = w.seriesWaveStd->pointsVector();
        QVERIFY(std::all_of(drawn.begin(), drawn.end(),
                            [](const QPointF &p) { return std::abs(p.y()) <= 0.1; }));
    }

    // A sound below one sample period is empty: its chart draws no points and
    // its amplitude axis shows full scale, -1 to 1. A sound of one sample has
    // no amplitude divisor: its spectrum is all zero, and an axis of no width
    // is widened to -1 … 1 so that the zero line is still drawn.
    void emptyAndOneSampleSounds()
    {
        MainWindow w;
        w.params.nSamples = {0, 1};
        w.generateSounds();
        w.createWaveformCharts();
        w.computeSpectra();
        w.createSpectrumCharts();
        QCOMPARE(w.standardSound.size(), 0);
        QCOMPARE(w.deviantSound.size(), 1);
        QCOMPARE(w.seriesWaveStd->count(), 0);
        QCOMPARE(w.seriesWaveDev->count(), 1);
        QCOMPARE(w.waveformRangeStd, (QVector<double>{-1.0, 1.0}));
        QCOMPARE(w.axisYWaveStd->min(), -1.0);
        QCOMPARE(w.axisYWaveStd->max(), 1.0);
        for (const QVector<double> *spectrum : {&w.amplitudeSpectrumStd, &w.amplitudeSpectrumDev})
            QVERIFY(
                std::all_of(spectrum->begin(), spectrum->end(), [](double a) { return a == 0.0; }));
        for (QValueAxis *axis : {w.axisYSpecStd, w.axisYSpecDev, w.axisYWaveDev}) {
            QVERIFY(std::isfinite(axis->min()) && std::isfinite(axis->max()));
            QVERIFY(axis->min() < axis->max());
        }
        QCOMPARE(w.axisYSpecStd->min(), -1.0);
        QCOMPARE(w.axisYSpecStd->max(), 1.0);
        for (const QPointF &p : w.seriesSpecDev->pointsVector())
            QCOMPARE(p.y(), 0.0);
        // A time axis of no width (the empty sound's) is still drawable.
        QVERIFY(w.axisXWaveStd->min() < w.axisXWaveStd->max());
    }

    void samplingRateZeroKeepsEveryValueFinite()
    {
        MainWindow w;
        w.params.samplingRate = 0.0;
        w.params.nSamples = {0, 0};
        w.generateSounds();
        w.createWaveformCharts();
        w.computeSpectra();
        w.createSpectrumCharts();
        QCOMPARE(w.standardSound.size(), 0);
        QCOMPARE(w.frequencyResolution, (QVector<double>{0.0, 0.0}));
        for (const Chart &c : charts(w)) {
            QVERIFY(std::isfinite(c.x->min()) && std::isfinite(c.x->max()));
            QVERIFY(std::isfinite(c.y->min()) && std::isfinite(c.y->max()));
        }
        QCOMPARE(w.seriesWaveStd->count(), 0);
        QCOMPARE(w.seriesSpecStd->count(), 1638);
    }

    // After an answered trial the deviant is rebuilt and the standard only
    // rescaled to its RMS; the refresh follows the order of the trial's end.
    void answeredTrialRefreshesInOneCallPerSeries()
    {
        MainWindow w;
        const QVector<QPointF> standardBefore = w.seriesWaveStd->pointsVector();
        const QVector<QPointF> deviantBefore = w.seriesWaveDev->pointsVector();
        const QVector<QPointF> standardSpectrumBefore = w.seriesSpecStd->pointsVector();
        QVector<QSignalSpy *> replaced, added;
        for (const Chart &c : charts(w)) {
            replaced << new QSignalSpy(c.series, SIGNAL(pointsReplaced()));
            added << new QSignalSpy(c.series, SIGNAL(pointAdded(int)));
        }

        w.params.trialCount = 1;
        w.params.modulationDepth[1] = 0.1;
        w.generateSounds();
        w.updateWaveformCharts();
        w.computeSpectra();
        w.updateSpectrumCharts();

        for (int i = 0; i < 4; ++i) {
            QCOMPARE(replaced[i]->count(), 1);
            QCOMPARE(added[i]->count(), 0);
        }
        qDeleteAll(replaced);
        qDeleteAll(added);

        const QVector<QPointF> deviantAfter = w.seriesWaveDev->pointsVector();
        QCOMPARE(deviantAfter.size(), deviantBefore.size());
        QVERIFY(deviantAfter != deviantBefore);
        verifyPoints(w.seriesWaveDev, w.waveformTime, w.deviantSound, 2000);
        verifyAmplitudeAxis(w.axisYWaveDev, w.deviantSound);
        verifyAmplitudeAxis(w.axisYSpecDev, w.amplitudeSpectrumDev);

        // The standard keeps its shape: every point scaled by one factor.
        const QVector<QPointF> standardAfter = w.seriesWaveStd->pointsVector();
        QCOMPARE(standardAfter.size(), standardBefore.size());
        int ref = 0;
        while (standardBefore[ref].y() == 0.0)
            ++ref;
        const double r = standardAfter[ref].y() / standardBefore[ref].y();
        QVERIFY(r > 0.0);
        for (int k = 0; k < standardAfter.size(); ++k) {
            QCOMPARE(standardAfter[k].x(), standardBefore[k].x());
            QVERIFY(near(standardAfter[k].y(), r * standardBefore[k].y(), 1e-12));
        }
        const QVector<QPointF> spectrumAfter = w.seriesSpecStd->pointsVector();
        for (int k = 0; k < spectrumAfter.size(); ++k)
            QVERIFY(near(spectrumAfter[k].y(), r * standardSpectrumBefore[k].y(), 1e-9));
        verifyAmplitudeAxis(w.axisYWaveStd, w.standardSound);
        verifyAmplitudeAxis(w.axisYSpecStd, w.amplitudeSpectrumStd);
    }
};

QTEST_MAIN(TestCharts)
#include "tst_charts.moc"
