#include "app/sessionparameters.h"
#include "procedure/staircase.h"

#include <QtTest>

#include <cmath>
#include <random>

namespace
{
// Values quoted to six significant digits match within half a unit of the sixth digit.
bool near(double actual, double expected, double relative = 2e-6)
{
    return std::fabs(actual - expected) <= std::max(1e-12, relative * std::fabs(expected));
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

// Factors of 1 dB and 2 dB in amplitude, computed independently.
const double oneDb = std::pow(10.0, 1.0 / 20);
const double twoDb = std::pow(10.0, 2.0 / 20);
} // namespace

class TestStaircase : public QObject
{
    Q_OBJECT

private slots:
    // A main parameter that tracks nothing neither resets nor steps.
    void untrackedParameter()
    {
        SessionParameters p;
        p.mainParameter = 2;
        p.modulationDepth[1] = 0.3;
        Staircase::resetStartValues(p);
        answer(p, false);
        answer(p, true);
        QCOMPARE(p.modulationDepth[1], 0.3);
        QCOMPARE(p.frequencyDifference[1], 0.05);
        QCOMPARE(p.carrierFrequency[1], 1000.0);
        QCOMPARE(Staircase::trackedValue(p), 0.0);
        QCOMPARE(Staircase::displayValue(p), 0.0);
    }

    // From 0.5: correct, correct, wrong, correct presents 0.5, 0.397164,
    // 0.315479, 0.5, with reversals at answers 3 and 4; after the second
    // reversal the steps are 1 dB.
    void workedModulationSequence()
    {
        SessionParameters p = tracking(1);
        const QVector<bool> answers{true, true, false, true, false};
        const QVector<double> presented{0.5, 0.397164, 0.315479, 0.5, 0.5 / oneDb};
        const QVector<int> reversalsAfter{0, 0, 1, 2, 3};
        for (int i = 0; i < answers.size(); ++i) {
            QVERIFY2(near(p.modulationDepth[1], presented[i]), qPrintable(QString::number(i)));
            QVERIFY(!answer(p, answers[i]));
            QCOMPARE(p.reversalCount, reversalsAfter[i]);
        }
        QVERIFY(near(p.reversalValues[0], 0.315479) && near(p.reversalValues[1], 0.5));
        QVERIFY(near(p.modulationDepth[1], 0.5 / oneDb * oneDb * oneDb));
    }

    // One wrong answer from 0.05 at 1000 Hz: 79.2447 Hz, the deviant carrier
    // moving with it; the limits 0.9999 and 1.0.
    void frequencyStepAndLimits()
    {
        SessionParameters p = tracking(0);
        QVERIFY(near(Staircase::displayValue(p), 50.0));
        answer(p, false);
        QVERIFY(near(p.frequencyDifference[1], 0.0792447));
        QVERIFY(near(p.carrierFrequency[1], 1000.0 * (1 - 0.05 * twoDb * twoDb), 1e-12));
        QVERIFY(near(Staircase::displayValue(p), 79.2447));
        p.frequencyDifference[1] = 0.9;
        answer(p, false);
        QCOMPARE(p.frequencyDifference[1], 0.9999);
        QVERIFY(near(p.carrierFrequency[1], 0.1, 1e-9));

        p = tracking(1);
        answer(p, false);
        QVERIFY(near(p.modulationDepth[1], 0.792447));
        answer(p, false);
        QCOMPARE(p.modulationDepth[1], 1.0);
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

    // The first answer is never a reversal; the second is one when its
    // correctness differs, and stores the value it was given at.
    void firstAnswers()
    {
        for (bool first : {true, false}) {
            for (bool second : {true, false}) {
                SessionParameters p = tracking(1);
                answer(p, first);
                const int afterFirst = p.reversalCount;
                const double secondValue = p.modulationDepth[1];
                answer(p, second);
                const bool reversal = first != second;
                QVERIFY2(afterFirst == 0 && p.reversalCount == int(reversal) &&
                             p.reversalValues[0] == (reversal ? secondValue : 0.0),
                         qPrintable(QString("answers %1, %2").arg(first).arg(second)));
            }
        }
    }

    // Forty reversals run well past the 15-entry step table (1 dB from the
    // second reversal on); the reversal record is kept short on purpose to
    // check that it grows instead of being written past its end. Every change
    // of correctness is a reversal, the value never exceeds its limit, and the
    // run ends at the set number of reversals.
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
                const double factor = changes < 2 ? twoDb : oneDb;
                const double expected =
                    std::min(limit, correct ? before / factor : before * factor * factor);
                over = answer(p, correct);
                QCOMPARE(p.reversalCount, changes);
                QVERIFY(Staircase::trackedValue(p) > 0.0 && Staircase::trackedValue(p) <= limit);
                if (!over)
                    QVERIFY2(near(Staircase::trackedValue(p), expected, 1e-12),
                             qPrintable(QString("trial %1").arg(trial)));
            }
            QVERIFY(over);
            QCOMPARE(p.reversalValues.size(), 40);
            int stored = 0;
            for (int i = 1; i < p.trials.size(); ++i)
                if (p.trials[i].correct != p.trials[i - 1].correct)
                    QCOMPARE(p.reversalValues[stored++], p.trials[i].value);
            QCOMPARE(stored, 40);
        }
    }

    // The threshold averages the last reversalsToCalculate values stored
    // (here 1, 2, ... 14), and is never nan or inf.
    void threshold_data()
    {
        QTest::addColumn<int>("reversalCount");
        QTest::addColumn<int>("toCalculate");
        QTest::addColumn<double>("expected");
        QTest::newRow("8 of 14: the 7th to the 14th") << 14 << 8 << 10.5;
        QTest::newRow("all fourteen") << 14 << 14 << 7.5;
        QTest::newRow("zero to calculate") << 14 << 0 << 0.0;
        QTest::newRow("negative to calculate") << 14 << -3 << 0.0;
        QTest::newRow("more than stored") << 3 << 8 << 2.0;
        QTest::newRow("nothing stored") << 0 << 8 << 0.0;
        QTest::newRow("count beyond the record") << 20 << 2 << 13.5;
    }

    void threshold()
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
        QVERIFY2(near(p.threshold, expected, 1e-12), qPrintable(QString::number(p.threshold)));
    }

    void meanReactionTime()
    {
        SessionParameters p;
        Staircase::computeResults(p);
        QCOMPARE(p.reactionTime, 0.0);
        for (double rt : {400.0, 523.5, 612.25}) {
            p.trials.append(TrialRecord());
            p.trials.last().reactionTime = rt;
        }
        Staircase::computeResults(p);
        QVERIFY(near(p.reactionTime, (400.0 + 523.5 + 612.25) / 3, 1e-12));
    }
};

QTEST_APPLESS_MAIN(TestStaircase)
#include "tst_staircase.moc"
