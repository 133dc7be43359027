#include "app/mainwindow.h"

#include <QComboBox>
#include <QGridLayout>
#include <QPushButton>
#include <QtCharts/QChart>
#include <QtCharts/QChartView>
#include <QtCharts/QLegend>
#include <QtCharts/QLineSeries>
#include <QtCharts/QValueAxis>
#include <QtTest>

#include <limits>

using namespace QtCharts;

namespace
{
// One answered trial of a modulation-depth run that presented the given
// depth in percent, as the sequencer reports it.
void answerDepth(MainWindow &w, double percent)
{
    w.params.mainParameter = 1;
    w.params.modulationDepth[1] = percent / 100;
    ++w.params.trialCount;
    w.appendTrendPoint();
}

QPair<double, double> range(const QValueAxis *axis)
{
    return {axis->min(), axis->max()};
}
} // namespace

class TestTrendChart : public QObject
{
    Q_OBJECT

private slots:
    void startUp()
    {
        MainWindow w;
        QVERIFY(w.chartViewTrend);
        QCOMPARE(w.chartViewTrend->chart(), w.chartTrend);
        QVERIFY(w.chartViewTrend->renderHints() & QPainter::Antialiasing);
        int row, column, rowSpan, columnSpan;
        w.gridLayoutCharts->getItemPosition(w.gridLayoutCharts->indexOf(w.chartViewTrend), &row,
                                            &column, &rowSpan, &columnSpan);
        QCOMPARE((QVector<int>{row, column, rowSpan, columnSpan}), (QVector<int>{2, 0, 1, 2}));

        QCOMPARE(w.chartTrend->title(), QString("Response Trend"));
        QCOMPARE(w.chartTrend->titleFont().pixelSize(), 12);
        QVERIFY(!w.chartTrend->legend()->isVisible());
        QCOMPARE(w.chartTrend->margins(), QMargins(0, 0, 0, 0));
        QCOMPARE(w.chartTrend->minimumWidth(), 400.0);
        QCOMPARE(w.chartTrend->sizePolicy().horizontalPolicy(), QSizePolicy::Minimum);
        QCOMPARE(w.chartTrend->series(), QList<QAbstractSeries *>{w.seriesTrend});

        QCOMPARE(w.seriesTrend->name(), QString("trend"));
        QVERIFY(w.seriesTrend->pointsVisible());
        QCOMPARE(w.seriesTrend->count(), 0);
        QVERIFY(w.seriesTrend->attachedAxes().contains(w.axisXTrend));
        QVERIFY(w.seriesTrend->attachedAxes().contains(w.axisYTrend));
        QCOMPARE(w.chartTrend->axes(Qt::Horizontal), QList<QAbstractAxis *>{w.axisXTrend});
        QCOMPARE(w.chartTrend->axes(Qt::Vertical), QList<QAbstractAxis *>{w.axisYTrend});
        QCOMPARE(w.axisXTrend->alignment(), Qt::AlignBottom);
        QCOMPARE(w.axisYTrend->alignment(), Qt::AlignLeft);

        QVERIFY(!w.axisXTrend->labelsVisible());
        QCOMPARE(w.axisXTrend->tickCount(), 2);
        QCOMPARE(w.axisXTrend->titleText(), QString("Number of Trials"));
        QCOMPARE(w.axisYTrend->titleText(), QString("Modulation Depth (%)"));
        QCOMPARE(w.axisYTrend->labelFormat(), QString("%.0f"));
        QCOMPARE(range(w.axisYTrend), qMakePair(0.0, 100.0));
        for (QValueAxis *axis : {w.axisXTrend, w.axisYTrend}) {
            QCOMPARE(axis->labelsFont().pixelSize(), 10);
            QCOMPARE(axis->titleFont().pixelSize(), 10);
            QCOMPARE(axis->titleFont().weight(), 50);
        }
    }

    void createAgainKeepsObjectsAndRetitles()
    {
        MainWindow w;
        const QVector<void *> objects{w.seriesTrend, w.axisXTrend, w.axisYTrend, w.chartTrend,
                                      w.chartViewTrend};
        const int items = w.gridLayoutCharts->count();
        const QList<QPair<int, QString>> titles{{0, "Frequency difference (Hz)"},
                                                {2, "Frequency difference (Hz)"},
                                                {1, "Modulation Depth (%)"},
                                                {-1, "Modulation Depth (%)"}};
        for (const auto &t : titles) {
            w.params.mainParameter = t.first;
            w.createTrendChart();
            QCOMPARE(w.axisYTrend->titleText(), t.second);
        }
        QCOMPARE((QVector<void *>{w.seriesTrend, w.axisXTrend, w.axisYTrend, w.chartTrend,
                                  w.chartViewTrend}),
                 objects);
        QCOMPARE(w.gridLayoutCharts->count(), items);
    }

    void viewTitlesFrequencyRun()
    {
        MainWindow w;
        w.comboBoxSoundType->setCurrentIndex(0);
        w.comboBoxMainParameter->setCurrentIndex(0);
        w.pushButtonView->click();
        QCOMPARE(w.axisYTrend->titleText(), QString("Frequency difference (Hz)"));
        QCOMPARE(range(w.axisYTrend), qMakePair(0.0, 100.0));
    }

    void trialsAxisFollowsTheCount()
    {
        MainWindow w;
        answerDepth(w, 50);
        QCOMPARE(range(w.axisXTrend), qMakePair(0.0, 1.0));
        QCOMPARE(w.axisXTrend->tickCount(), 2);
        QCOMPARE(range(w.axisYTrend), qMakePair(0.0, 100.0));
        QCOMPARE(w.seriesTrend->pointsVector(), QVector<QPointF>{QPointF(0, 50)});
        for (int i = 0; i < 4; ++i)
            answerDepth(w, 50);
        QCOMPARE(range(w.axisXTrend), qMakePair(0.0, 5.0));
        QCOMPARE(w.axisXTrend->tickCount(), 6);
        QCOMPARE(w.seriesTrend->pointsVector().last(), QPointF(4, 50));
        QCOMPARE(w.trendTrials, (QVector<double>{0, 1, 2, 3, 4}));
    }

    void valueAxis_data()
    {
        QTest::addColumn<QVector<double>>("values");
        QTest::addColumn<double>("min");
        QTest::addColumn<double>("max");
        QTest::newRow("one value") << QVector<double>{50} << 0.0 << 100.0;
        QTest::newRow("equal values") << QVector<double>{50, 50, 50} << 0.0 << 100.0;
        QTest::newRow("50, 40") << QVector<double>{50, 40} << 40.0 << 50.0;
        QTest::newRow("50, 40, 60") << QVector<double>{50, 40, 60} << 40.0 << 60.0;
        QTest::newRow("rising") << QVector<double>{10, 20, 30} << 10.0 << 30.0;
        QTest::newRow("staircase")
            << QVector<double>{50, 39.7164, 31.5479, 50, 44.5625} << 31.5479 << 50.0;
        QTest::newRow("above 100") << QVector<double>{150, 120} << 120.0 << 150.0;
    }

    void valueAxis()
    {
        QFETCH(QVector<double>, values);
        QFETCH(double, min);
        QFETCH(double, max);
        MainWindow w;
        for (double v : values)
            answerDepth(w, v);
        QVERIFY(qAbs(w.axisYTrend->min() - min) < 1e-9);
        QVERIFY(qAbs(w.axisYTrend->max() - max) < 1e-9);
        QCOMPARE(w.seriesTrend->count(), values.size());
        QCOMPARE(w.trendValues.size(), values.size());
        for (int i = 0; i < values.size(); ++i)
            QVERIFY(qAbs(w.seriesTrend->at(i).y() - values[i]) < 1e-9);
    }

    void frequencyIsPlottedInHz()
    {
        MainWindow w;
        w.params.mainParameter = 0;
        w.params.frequencyDifference[1] = 0.05;
        w.params.carrierFrequency[0] = 1000;
        w.params.trialCount = 1;
        w.appendTrendPoint();
        QCOMPARE(w.trendValues.size(), 1);
        QVERIFY(qAbs(w.trendValues[0] - 50.0) < 1e-9);
    }

    // Only finite values reach the chart; the trials axis still counts the trial.
    void nonFiniteValuesAreNotPlotted()
    {
        MainWindow w;
        answerDepth(w, 50);
        answerDepth(w, std::numeric_limits<double>::infinity());
        answerDepth(w, std::numeric_limits<double>::quiet_NaN());
        w.params.mainParameter = 0;
        w.params.frequencyDifference[1] = 0.0;
        w.params.carrierFrequency[0] = std::numeric_limits<double>::infinity();
        ++w.params.trialCount;
        w.appendTrendPoint();
        QCOMPARE(range(w.axisXTrend), qMakePair(0.0, 4.0));
        QCOMPARE(w.seriesTrend->count(), 1);
        QCOMPARE(w.trendValues.size(), 1);
        QCOMPARE(w.trendTrials.size(), 1);
        answerDepth(w, 30);
        QCOMPARE(w.seriesTrend->pointsVector(), (QVector<QPointF>{QPointF(0, 50), QPointF(4, 30)}));
        QCOMPARE(range(w.axisYTrend), qMakePair(30.0, 50.0));
    }

    void resetClearsRunButNotTrialsAxis()
    {
        MainWindow w;
        for (double v : {50.0, 40.0, 60.0})
            answerDepth(w, v);
        w.params.reversalValues.fill(0.3, 14);
        w.params.reversalCount = 5;
        w.params.trials.resize(3);
        w.params.stimPosition = 3;
        w.params.threshold = 0.25;
        w.params.reactionTime = 480;

        w.resetRun();
        QVERIFY(w.trendTrials.isEmpty());
        QVERIFY(w.trendValues.isEmpty());
        QCOMPARE(w.seriesTrend->count(), 0);
        QCOMPARE(w.trendMin, 0.0);
        QCOMPARE(w.trendMax, 100.0);
        QCOMPARE(range(w.axisYTrend), qMakePair(0.0, 100.0));
        QCOMPARE(range(w.axisXTrend), qMakePair(0.0, 3.0));
        QCOMPARE(w.axisXTrend->tickCount(), 4);
        QCOMPARE(w.params.trialCount, 0);
        QCOMPARE(w.params.reversalValues, QVector<double>(14, 0.0));
        QCOMPARE(w.params.reversalCount, 0);
        QVERIFY(w.params.trials.isEmpty());
        QCOMPARE(w.params.stimPosition, 0);
        QCOMPARE(w.params.threshold, 0.0);
        QCOMPARE(w.params.reactionTime, 0.0);

        // The next run starts from the reset range.
        answerDepth(w, 70);
        answerDepth(w, 80);
        QCOMPARE(range(w.axisYTrend), qMakePair(70.0, 80.0));
        QCOMPARE(w.seriesTrend->pointsVector().first(), QPointF(0, 70));
    }
};

QTEST_MAIN(TestTrendChart)
#include "tst_trendchart.moc"
