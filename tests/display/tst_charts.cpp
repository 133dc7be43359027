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
        bool operator==(const Chart &o) const
        {
            return series == o.series && x == o.x && y == o.y && chart == o.chart && view == o.view;
        }
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

    // The series draws the first count points (x[k], y[k]), the horizontal
    // axis spans 0 .. xEnd and the amplitude axis the extremes of all of y.
    static void verifyChart(const Chart &c, const QVector<double> &x, const QVector<double> &y,
                            int count, double xEnd)
    {
        QCOMPARE(c.x->min(), 0.0);
        QVERIFY2(near(c.x->max(), xEnd), qPrintable(QString::number(c.x->max())));
        const QVector<QPointF> points = c.series->pointsVector();
        QCOMPARE(points.size(), count);
        for (int k = 0; k < count; ++k)
            QVERIFY2(points[k] == QPointF(x[k], y[k]), qPrintable(QString("point %1").arg(k)));
        const auto extremes = std::minmax_element(y.begin(), y.end());
        QCOMPARE(c.y->min(), *extremes.first);
        QCOMPARE(c.y->max(), *extremes.second);
    }

    static void verifyAllCharts(const MainWindow &w, int wavePoints, double timeAxisEnd = 50.0)
    {
        const QVector<Chart> c = charts(w);
        verifyChart(c[0], w.waveformTime, w.standardSound, wavePoints, timeAxisEnd);
        verifyChart(c[1], w.waveformTime, w.deviantSound, wavePoints, timeAxisEnd);
        verifyChart(c[2], w.spectrumFrequency, w.amplitudeSpectrumStd, 1638, 2000.0);
        verifyChart(c[3], w.spectrumFrequency, w.amplitudeSpectrumDev, 1638, 2000.0);
    }

private slots:
    void chartAppearanceAndPlaces()
    {
        MainWindow w;
        const QVector<Chart> c = charts(w);
        const QStringList titles{"Time Waveform (standard)", "Time Waveform (Deviant)",
                                 "Amplitude Spectrum (standard)", "Amplitude Spectrum (Deviant)"};
        for (int i = 0; i < 4; ++i) {
            QCOMPARE(c[i].chart->title(), titles[i]);
            QCOMPARE(c[i].x->titleText(), QString(i < 2 ? "Time (ms)" : "Frequency (Hz)"));
            QCOMPARE(c[i].y->titleText(), QString("Amplitude"));
            QCOMPARE(c[i].x->labelFormat(), i < 2 ? QValueAxis().labelFormat() : QString("%.0f"));
            QCOMPARE(c[i].chart->titleFont().pixelSize(), 12);
            QCOMPARE(c[i].y->labelsFont().pixelSize(), 10);
            QVERIFY(!c[i].chart->legend()->isVisible());
            QCOMPARE(c[i].chart->minimumWidth(), 200.0);
            // A one-pixel line: the theme's wider one makes painting much slower.
            QCOMPARE(c[i].series->pen().widthF(), 1.0);
            QCOMPARE(c[i].chart->axes(Qt::Horizontal), QList<QAbstractAxis *>{c[i].x});
            QCOMPARE(c[i].chart->axes(Qt::Vertical), QList<QAbstractAxis *>{c[i].y});
            QCOMPARE(c[i].series->attachedAxes().size(), 2);
            QCOMPARE(w.gridLayoutCharts->itemAtPosition(i / 2, i % 2)->widget(), c[i].view);
        }
    }

    // View builds new sounds and refreshes the charts of start-up; it creates
    // none. The time axis ends with the displayed stretch, at most 50 ms; the
    // spectra keep the transform and bin count of start-up (32768 and 1638 at
    // 40000 Hz) while the bins follow the rate, under an axis of 0 .. 2000 Hz.
    void ratesAndDurations_data()
    {
        QTest::addColumn<int>("rate");
        QTest::addColumn<int>("durationMs");
        QTest::addColumn<int>("wavePoints");
        QTest::addColumn<double>("timeAxisEnd");
        QTest::addColumn<double>("lastBinHz");
        QTest::newRow("start-up") << 40000 << 600 << 2000 << 50.0 << 1998.291015625;
        QTest::newRow("44100 Hz") << 44100 << 600 << 2205 << 50.0 << 1637 * 44100.0 / 32768;
        QTest::newRow("20000 Hz") << 20000 << 600 << 1000 << 50.0 << 999.1455078125;
        QTest::newRow("20 ms sound") << 40000 << 20 << 800 << 20.0 << 1998.291015625;
    }

    void ratesAndDurations()
    {
        QFETCH(int, rate);
        QFETCH(int, durationMs);
        QFETCH(int, wavePoints);
        QFETCH(double, timeAxisEnd);
        QFETCH(double, lastBinHz);
        MainWindow w;
        verifyAllCharts(w, 2000);
        const QVector<Chart> before = charts(w);
        const int items = w.gridLayoutCharts->count();
        w.lineEditSamplingRate->setText(QString::number(rate));
        w.lineEditDurationStd->setText(QString::number(durationMs));
        w.lineEditDurationDev->setText(QString::number(durationMs));
        w.pushButtonView->click();
        QVERIFY(charts(w) == before);
        QCOMPARE(w.gridLayoutCharts->count(), items);
        verifyAllCharts(w, wavePoints, timeAxisEnd);
        // The transform length and bin count are set up once, at start-up.
        QCOMPARE(w.fftLength, (QVector<int>{32768, 32768}));
        QCOMPARE(w.fftDuration, QVector<double>(2, 32768.0 / rate)); // 0.8192 s at start-up
        QCOMPARE(w.params.spectrumPoints, (QVector<int>{1638, 1638}));
        QCOMPARE(w.spectrumFrequency.size(), 16384);
        QCOMPARE(w.amplitudeSpectrumStd.size(), 16384);
        QCOMPARE(w.seriesSpecDev->at(1637).x(), lastBinHz);
        QCOMPARE(w.frequencyResolution[0], lastBinHz / 1637);
    }

    void amplitudeAxisCoversTheWholeSound()
    {
        MainWindow w;
        QVector<double> sound(24000, 0.1);
        sound[15000] = 0.95; // 375 ms: far beyond the drawn 50 ms
        sound[23999] = -0.8;
        w.standardSound = sound;
        w.createWaveformCharts();
        QCOMPARE(w.axisYWaveStd->min(), -0.8);
        QCOMPARE(w.axisYWaveStd->max(), 0.95);
    }

    // A sound below one sample period is empty: its chart draws no points and
    // its amplitude axis shows full scale, -1 to 1. A sound of one sample has
    // no amplitude divisor: its spectrum is all zero, and an axis of no width
    // is widened to -1 … 1 so that the zero line is still drawn. A sampling
    // rate of 0 leaves every range finite.
    void emptyAndOneSampleSounds()
    {
        for (double rate : {40000.0, 0.0}) {
            MainWindow w;
            w.params.samplingRate = rate;
            w.params.nSamples = {0, 1};
            w.generateSounds();
            w.createWaveformCharts();
            w.computeSpectra();
            w.createSpectrumCharts();
            QCOMPARE(w.seriesWaveStd->count(), 0);
            QCOMPARE(w.axisYWaveStd->min(), -1.0);
            QCOMPARE(w.axisYWaveStd->max(), 1.0);
            QCOMPARE(w.axisYSpecStd->min(), -1.0);
            QCOMPARE(w.axisYSpecStd->max(), 1.0);
            for (const Chart &c : charts(w))
                for (QValueAxis *axis : {c.x, c.y})
                    QVERIFY(std::isfinite(axis->min()) && std::isfinite(axis->max()) &&
                            axis->min() < axis->max());
            for (const QPointF &p : w.seriesSpecDev->pointsVector())
                QCOMPARE(p.y(), 0.0);
        }
    }

    // After an answered trial the deviant is rebuilt and the standard only
    // rescaled to its RMS; each series gets its new points in one replace.
    void answeredTrialRefreshesInOneCallPerSeries()
    {
        MainWindow w;
        const QVector<QPointF> standardBefore = w.seriesWaveStd->pointsVector();
        const QVector<QPointF> deviantBefore = w.seriesWaveDev->pointsVector();
        const QVector<QPointF> spectrumBefore = w.seriesSpecStd->pointsVector();
        QVector<int> replaced(4, 0);
        for (int i = 0; i < 4; ++i)
            connect(charts(w)[i].series, &QXYSeries::pointsReplaced, &w, [&, i] { ++replaced[i]; });

        w.params.trialCount = 1;
        w.params.modulationDepth[1] = 0.1;
        w.generateSounds();
        w.updateWaveformCharts();
        w.computeSpectra();
        w.updateSpectrumCharts();

        QCOMPARE(replaced, QVector<int>(4, 1));
        QVERIFY(w.seriesWaveDev->pointsVector() != deviantBefore);
        verifyAllCharts(w, 2000);
        // The standard keeps its shape: every point scaled by one factor.
        const QVector<QPointF> standardAfter = w.seriesWaveStd->pointsVector();
        const QVector<QPointF> spectrumAfter = w.seriesSpecStd->pointsVector();
        int ref = 0;
        while (standardBefore[ref].y() == 0.0)
            ++ref;
        const double r = standardAfter[ref].y() / standardBefore[ref].y();
        QVERIFY(r > 0.0 && r != 1.0);
        for (int k = 0; k < standardAfter.size(); ++k)
            QVERIFY(near(standardAfter[k].y(), r * standardBefore[k].y(), 1e-12));
        for (int k = 0; k < spectrumAfter.size(); ++k)
            QVERIFY(near(spectrumAfter[k].y(), r * spectrumBefore[k].y()));
    }
};

QTEST_MAIN(TestCharts)
#include "tst_charts.moc"
