#include "app/sessionparameters.h"
#include "procedure/staircase.h"

#include <QtTest>

#include <cmath>
#include <random>

namespace
{
// Values quoted to six significant digits match within half a unit of the sixth digit.
bool near(double actual, double expected, double relative = 2e-6, double absolute = 1e-12)
{
    return std::fabs(actual - expected) <= std::max(absolute, relative * std::fabs(expected));
}

// Presents the current tracked value, records the answer and runs the rule;
// steps when the run goes on. Returns true when the run is over.
bool answer(SessionParameters &p, bool correct)
{
    TrialRecord record;
    record.value = Staircase::trackedValue(p);
    record.correct = correct;
    p.trials.append(record);
    p.trialCount = p.trials.size();
    const bool over = Staircase::applyReversalRule(p);
    if (!over)
        Staircase::applyStep(p);
    return over;
}

SessionParameters tracking(int mainParameter)
{
    SessionParameters p;
    p.mainParameter = mainParameter;
    Staircase::resetStartValues(p);
    return p;
}
} // namespace

class TestStaircase : public QObject
{
    Q_OBJECT

private slots:
    void startValues()
    {
        SessionParameters p = tracking(0);
        QCOMPARE(p.frequencyDifference[1], 0.05);
        QCOMPARE(p.modulationDepth[1], 0.0);
        QVERIFY(near(p.carrierFrequency[1], 950.0));
        QVERIFY(near(Staircase::displayValue(p), 50.0));
        QCOMPARE(Staircase::trackedValue(p), 0.05);

        p.mainParameter = 1;
        Staircase::resetStartValues(p);
        QCOMPARE(p.modulationDepth[1], 0.5);
        QCOMPARE(p.frequencyDifference[1], 0.0);
        QCOMPARE(p.carrierFrequency[1], 1000.0);
        QVERIFY(near(Staircase::displayValue(p), 50.0));

        p.mainParameter = 2;
        p.modulationDepth[1] = 0.3;
        Staircase::resetStartValues(p);
        QCOMPARE(p.modulationDepth[1], 0.3);
        QCOMPARE(Staircase::trackedValue(p), 0.0);
        QCOMPARE(Staircase::displayValue(p), 0.0);
    }

    void workedModulationSequence()
    {
        SessionParameters p = tracking(1);
        const QVector<bool> answers{true, true, false, true};
        const QVector<double> presented{0.5, 0.397164, 0.315479, 0.5};
        const QVector<int> reversalsAfter{0, 0, 1, 2};
        for (int i = 0; i < answers.size(); ++i) {
            QVERIFY2(near(p.modulationDepth[1], presented[i]), qPrintable(QString::number(i)));
            QVERIFY(!answer(p, answers[i]));
            QCOMPARE(p.reversalCount, reversalsAfter[i]);
        }
        QVERIFY(near(p.reversalValues[0], 0.315479));
        QVERIFY(near(p.reversalValues[1], 0.5));
        // From the second reversal on a correct answer steps down by 1 dB.
        QVERIFY(near(p.modulationDepth[1], 0.5 * 0.8912509381337456));
        QVERIFY(!answer(p, false));
        QVERIFY(near(p.modulationDepth[1], 0.5 * 0.8912509381337456 * 1.2589254117941673));
    }

    void frequencyStepMovesDeviantCarrier()
    {
        SessionParameters p = tracking(0);
        answer(p, false);
        QVERIFY(near(p.frequencyDifference[1], 0.0792447));
        QVERIFY(near(p.carrierFrequency[1], 1000.0 * (1 - 0.05 * 1.5848931924611136), 1e-12));
        QVERIFY(near(Staircase::displayValue(p), 79.2447));
    }

    void limits()
    {
        SessionParameters p = tracking(1);
        answer(p, false);
        QVERIFY(near(p.modulationDepth[1], 0.792447));
        answer(p, false);
        QCOMPARE(p.modulationDepth[1], 1.0);

        p = tracking(0);
        p.frequencyDifference[1] = 0.9;
        answer(p, false);
        QCOMPARE(p.frequencyDifference[1], 0.9999);
        QVERIFY(near(p.carrierFrequency[1], 0.1, 1e-9));
    }

    void zeroStaysZero()
    {
        SessionParameters p = tracking(1);
        p.modulationDepth[1] = 0.0;
        std::mt19937 rng(7);
        for (int i = 0; i < 60 && !answer(p, rng() % 2); ++i)
            QCOMPARE(p.modulationDepth[1], 0.0);
        QCOMPARE(p.modulationDepth[1], 0.0);
    }

    void untrackedParameterDoesNotMove()
    {
        SessionParameters p = tracking(1);
        p.mainParameter = 2;
        answer(p, false);
        answer(p, true);
        QCOMPARE(p.modulationDepth[1], 0.5);
        QCOMPARE(p.frequencyDifference[1], 0.0);
        QCOMPARE(p.carrierFrequency[1], 1000.0);
    }

    void firstAnswers_data()
    {
        QTest::addColumn<bool>("first");
        QTest::addColumn<bool>("second");
        QTest::newRow("correct, correct") << true << true;
        QTest::newRow("correct, wrong") << true << false;
        QTest::newRow("wrong, correct") << false << true;
        QTest::newRow("wrong, wrong") << false << false;
    }

    void firstAnswers()
    {
        QFETCH(bool, first);
        QFETCH(bool, second);
        SessionParameters p = tracking(1);
        answer(p, first);
        QCOMPARE(p.reversalCount, 0);
        QCOMPARE(p.stepDirection, first ? -1 : 2);
        const double secondValue = p.modulationDepth[1];
        answer(p, second);
        QCOMPARE(p.reversalCount, first != second ? 1 : 0);
        QCOMPARE(p.stepDirection, second ? -1 : 2);
        if (first != second)
            QCOMPARE(p.reversalValues[0], secondValue);
    }

    void runEndsAtSetReversalsWithoutStepping()
    {
        SessionParameters p = tracking(1);
        p.numberOfReversals = 3;
        p.reversalValues.fill(0.0, 3);
        QVERIFY(!answer(p, true));
        QVERIFY(!answer(p, false));
        QVERIFY(!answer(p, false)); // no change of correctness: the run goes on
        QVERIFY(!answer(p, true));
        const double before = p.modulationDepth[1];
        QVERIFY(answer(p, false));
        QCOMPARE(p.reversalCount, 3);
        QCOMPARE(p.modulationDepth[1], before);
        QCOMPARE(p.reversalValues.last(), before);
    }

    void stepSizeTable_data()
    {
        QTest::addColumn<int>("reversalCount");
        QTest::addColumn<int>("decibels");
        QTest::newRow("0") << 0 << 2;
        QTest::newRow("1") << 1 << 2;
        QTest::newRow("2") << 2 << 1;
        QTest::newRow("14") << 14 << 1;
        QTest::newRow("15, past the table") << 15 << 1;
        QTest::newRow("40, past the table") << 40 << 1;
        QTest::newRow("negative") << -1 << 2;
    }

    void stepSizeTable()
    {
        QFETCH(int, reversalCount);
        QFETCH(int, decibels);
        SessionParameters p;
        p.reversalCount = reversalCount;
        QCOMPARE(Staircase::stepSize(p), decibels);
    }

    // Forty reversals run well past the 15-entry step table; the reversal
    // record is kept short on purpose to check that it grows instead of
    // being written past its end.
    void longRandomRun()
    {
        for (int mainParameter : {0, 1}) {
            SessionParameters p = tracking(mainParameter);
            p.numberOfReversals = 40;
            p.reversalValues.fill(0.0, 10);
            const double limit = mainParameter == 0 ? 0.9999 : 1.0;
            std::mt19937 rng(20240601u + mainParameter);
            int changes = 0;
            bool over = false;
            for (int trial = 0; trial < 5000 && !over; ++trial) {
                const bool correct = rng() % 3 != 0;
                if (!p.trials.isEmpty() && p.trials.last().correct != correct)
                    ++changes;
                const double before = Staircase::trackedValue(p);
                const int dB = changes < 2 ? 2 : 1;
                const double expected =
                    std::min(limit, before * std::pow(10.0, (correct ? -dB : 2 * dB) / 20.0));
                over = answer(p, correct);
                QCOMPARE(p.reversalCount, changes);
                QVERIFY(Staircase::trackedValue(p) <= limit);
                QVERIFY(Staircase::trackedValue(p) > 0.0);
                if (!over)
                    QVERIFY2(near(Staircase::trackedValue(p), expected, 1e-12),
                             qPrintable(QString("trial %1").arg(trial)));
            }
            QVERIFY(over);
            QCOMPARE(p.reversalCount, 40);
            QCOMPARE(p.reversalValues.size(), 40);
            int stored = 0;
            for (int i = 1; i < p.trials.size(); ++i)
                if (p.trials[i].correct != p.trials[i - 1].correct)
                    QCOMPARE(p.reversalValues[stored++], p.trials[i].value);
            QCOMPARE(stored, 40);
        }
    }

    void thresholdAveragesLastReversals()
    {
        SessionParameters p;
        for (int i = 0; i < 14; ++i)
            p.reversalValues[i] = 0.01 * (i + 1) * (i + 1);
        p.reversalCount = 14;
        double sum = 0.0;
        for (int i = 7; i <= 14; ++i) // the 7th to the 14th value, counted from 1
            sum += 0.01 * i * i;
        Staircase::computeResults(p);
        QVERIFY(near(p.threshold, sum / 8, 1e-12));
    }

    void thresholdGuards_data()
    {
        QTest::addColumn<int>("reversalCount");
        QTest::addColumn<int>("toCalculate");
        QTest::addColumn<double>("expected");
        // reversalValues are 1, 2, 3, ... 14.
        QTest::newRow("zero to calculate") << 14 << 0 << 0.0;
        QTest::newRow("negative to calculate") << 14 << -3 << 0.0;
        QTest::newRow("more than stored") << 3 << 8 << 2.0;
        QTest::newRow("nothing stored") << 0 << 8 << 0.0;
        QTest::newRow("all fourteen") << 14 << 14 << 7.5;
        QTest::newRow("count beyond the record") << 20 << 2 << 13.5;
    }

    void thresholdGuards()
    {
        QFETCH(int, reversalCount);
        QFETCH(int, toCalculate);
        QFETCH(double, expected);
        SessionParameters p;
        for (int i = 0; i < 14; ++i)
            p.reversalValues[i] = i + 1;
        p.reversalCount = reversalCount;
        p.reversalsToCalculate = toCalculate;
        Staircase::computeResults(p);
        QVERIFY(std::isfinite(p.threshold));
        QVERIFY(near(p.threshold, expected, 1e-12));
    }

    void meanReactionTime()
    {
        SessionParameters p;
        Staircase::computeResults(p);
        QCOMPARE(p.reactionTime, 0.0);
        QCOMPARE(p.threshold, 0.0);
        for (double rt : {400.0, 523.5, 612.25}) {
            TrialRecord r;
            r.reactionTime = rt;
            p.trials.append(r);
        }
        Staircase::computeResults(p);
        QVERIFY(near(p.reactionTime, (400.0 + 523.5 + 612.25) / 3, 1e-12));
    }

    void ruleWithoutRecords()
    {
        SessionParameters p;
        p.stepDirection = 2;
        QVERIFY(!Staircase::applyReversalRule(p));
        QCOMPARE(p.stepDirection, 2);
        p.numberOfReversals = 0;
        QVERIFY(Staircase::applyReversalRule(p));
    }
};

QTEST_APPLESS_MAIN(TestStaircase)
#include "tst_staircase.moc"
