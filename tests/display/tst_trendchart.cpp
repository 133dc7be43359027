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
    // The chart at start-up; View and later calls retitle the value axis for
    // the tracked quantity (other values keep the title) and create nothing.
    void startUpAndRetitle()
    {
        MainWindow w;
        int row, column, rowSpan, columnSpan;
        w.gridLayoutCharts->getItemPosition(w.gridLayoutCharts->indexOf(w.chartViewTrend), &row,
                                            &column, &rowSpan, &columnSpan);
        QCOMPARE((QVector<int>{row, column, rowSpan, columnSpan}), (QVector<int>{2, 0, 1, 2}));
        QCOMPARE(w.chartTrend->title(), QString("Response Trend"));
        QVERIFY(!w.chartTrend->legend()->isVisible());
        QCOMPARE(w.chartTrend->minimumWidth(), 400.0);
        QVERIFY(w.seriesTrend->pointsVisible());
        QCOMPARE(w.seriesTrend->attachedAxes().size(), 2);
        QCOMPARE(w.chartTrend->axes(Qt::Horizontal), QList<QAbstractAxis *>{w.axisXTrend});
        QCOMPARE(w.chartTrend->axes(Qt::Vertical), QList<QAbstractAxis *>{w.axisYTrend});
        QVERIFY(!w.axisXTrend->labelsVisible());
        QCOMPARE(w.axisXTrend->titleText(), QString("Number of Trials"));
        QCOMPARE(w.axisYTrend->titleText(), QString("Modulation Depth (%)"));
        QCOMPARE(w.axisYTrend->labelFormat(), QString("%.0f"));
        QCOMPARE(range(w.axisYTrend), qMakePair(0.0, 100.0));

        const QVector<void *> objects{w.seriesTrend, w.axisXTrend, w.axisYTrend, w.chartTrend,
                                      w.chartViewTrend};
        const int items = w.gridLayoutCharts->count();
        w.comboBoxSoundType->setCurrentIndex(0);
        w.comboBoxMainParameter->setCurrentIndex(0);
        w.pushButtonView->click();
        QCOMPARE(w.axisYTrend->titleText(), QString("Frequency difference (Hz)"));
        const QString depth = "Modulation Depth (%)", frequency = "Frequency difference (Hz)";
        for (const auto &[mainParameter, title] :
             {qMakePair(2, frequency), qMakePair(1, depth), qMakePair(-1, depth)}) {
            w.params.mainParameter = mainParameter;
            w.createTrendChart();
            QCOMPARE(w.axisYTrend->titleText(), title);
        }
        QCOMPARE((QVector<void *>{w.seriesTrend, w.axisXTrend, w.axisYTrend, w.chartTrend,
                                  w.chartViewTrend}),
                 objects);
        QCOMPARE(w.gridLayoutCharts->count(), items);
    }

    // The trials axis runs from 0 to the trial count with a tick per trial;
    // the value axis keeps 0 .. 100 until two values differ, then hugs them.
    void axesFollowTheAnswers_data()
    {
        QTest::addColumn<QVector<double>>("values");
        QTest::addColumn<double>("min");
        QTest::addColumn<double>("max");
        QTest::newRow("one value") << QVector<double>{50} << 0.0 << 100.0;
        QTest::newRow("equal values") << QVector<double>{50, 50, 50} << 0.0 << 100.0;
        QTest::newRow("50, 40") << QVector<double>{50, 40} << 40.0 << 50.0;
        QTest::newRow("50, 40, 60") << QVector<double>{50, 40, 60} << 40.0 << 60.0;
        QTest::newRow("above 100") << QVector<double>{150, 120} << 120.0 << 150.0;
    }

    void axesFollowTheAnswers()
    {
        QFETCH(QVector<double>, values);
        QFETCH(double, min);
        QFETCH(double, max);
        MainWindow w;
        for (double v : values)
            answerDepth(w, v);
        const int n = values.size();
        QCOMPARE(range(w.axisXTrend), qMakePair(0.0, double(n)));
        QCOMPARE(w.axisXTrend->tickCount(), n + 1);
        QVERIFY(qAbs(w.axisYTrend->min() - min) < 1e-9 && qAbs(w.axisYTrend->max() - max) < 1e-9);
        QCOMPARE(w.seriesTrend->count(), n);
        for (int i = 0; i < n; ++i)
            QVERIFY(w.seriesTrend->at(i).x() == i &&
                    qAbs(w.seriesTrend->at(i).y() - values[i]) < 1e-9);
    }

    void frequencyIsPlottedInHz()
    {
        MainWindow w;
        w.params.mainParameter = 0;
        w.params.frequencyDifference[1] = 0.05;
        w.params.carrierFrequency[0] = 1000;
        w.params.trialCount = 1;
        w.appendTrendPoint();
        QCOMPARE(w.seriesTrend->count(), 1);
        QVERIFY(qAbs(w.seriesTrend->at(0).y() - 50.0) < 1e-9);
    }

    // Only finite values reach the chart; the trials axis still counts the trial.
    void nonFiniteValuesAreNotPlotted()
    {
        MainWindow w;
        answerDepth(w, 50);
        answerDepth(w, std::numeric_limits<double>::infinity());
        answerDepth(w, std::numeric_limits<double>::quiet_NaN());
        answerDepth(w, 30);
        QCOMPARE(range(w.axisXTrend), qMakePair(0.0, 4.0));
        QCOMPARE(w.seriesTrend->pointsVector(), (QVector<QPointF>{QPointF(0, 50), QPointF(3, 30)}));
        QCOMPARE(range(w.axisYTrend), qMakePair(30.0, 50.0));
    }

    // Reset clears the run and the value axis; the trials axis keeps the last
    // run's range until the next answer.
    void resetClearsRunButNotTrialsAxis()
    {
        MainWindow w;
        for (double v : {50.0, 40.0, 60.0})
            answerDepth(w, v);
        w.params.reversalValues.fill(0.3, 14);
        w.params.reversalCount = 5;
        w.params.trials.resize(3);
        w.params.threshold = 0.25;

        w.resetRun();
        QCOMPARE(w.seriesTrend->count(), 0);
        QCOMPARE(range(w.axisYTrend), qMakePair(0.0, 100.0));
        QCOMPARE(range(w.axisXTrend), qMakePair(0.0, 3.0));
        QCOMPARE(w.axisXTrend->tickCount(), 4);
        QCOMPARE(w.params.trialCount, 0);
        QCOMPARE(w.params.reversalValues, QVector<double>(14, 0.0));
        QCOMPARE(w.params.reversalCount, 0);
        QVERIFY(w.params.trials.isEmpty());
        QCOMPARE(w.params.threshold, 0.0);

        // The next run starts from the reset range.
        answerDepth(w, 70);
        answerDepth(w, 80);
        QCOMPARE(range(w.axisYTrend), qMakePair(70.0, 80.0));
        QCOMPARE(w.seriesTrend->pointsVector().first(), QPointF(0, 70));
    }
};

QTEST_MAIN(TestTrendChart)
#include "tst_trendchart.moc"
