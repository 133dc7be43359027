#include "app/sessionparameters.h"
#include "procedure/staircase.h"

#include <QtTest>

#include <algorithm>
#include <cmath>
#include <numeric>
#include <random>

namespace
{
// Factors of 1 dB and 2 dB in amplitude, computed independently.
const double oneDb = std::pow(10.0, 1.0 / 20), twoDb = std::pow(10.0, 2.0 / 20);

// Values quoted to six significant digits match within half a unit of the sixth.
bool near(double actual, double expected, double relative = 2e-6)
{
    return std::abs(actual - expected) <= relative * std::abs(expected);
}

// Presents the tracked value, records the answer and applies the rule,
// stepping when the run goes on. Returns true when the run is over.
bool answer(SessionParameters &p, bool correct)
{
    p.trials.append({Staircase::trackedValue(p), 2, 2, correct, 100.0 * p.trials.size()});
    const bool over = Staircase::applyReversalRule(p);
    if (!over)
        Staircase::applyStep(p);
    return over;
}
} // namespace

class TestStaircase : public QObject
{
    Q_OBJECT

private slots:
    void workedExamples()
    {
        // Depth from 0.5: correct, correct, wrong, correct presents 0.5,
        // 0.397164, 0.315479, 0.5, with reversals at answers 3 and 4; then
        // the steps are 1 dB (+3 dB: 0.706268, +5 dB: 0.889140), and 1.0
        // limits the climb of wrong answers.
        SessionParameters p;
        p.mainParameter = 1;
        const bool answers[] = {true, true, false, true, false, false, false, false};
        const double presented[] = {0.5,         0.397164, 0.315479, 0.5, 0.5 / oneDb,
                                    0.5 * oneDb, 0.706268, 0.889140, 1.0};
        for (int i = 0; i < 9; ++i) {
            QVERIFY2(near(p.modulationDepth[1], presented[i]), qPrintable(QString::number(i)));
            if (i < 8)
                answer(p, answers[i]);
        }
        QVERIFY(p.reversalCount == 3 && near(p.reversalValues[1], 0.5));

        // The reset to 5 % of 1000 Hz; one wrong answer: 79.2447 Hz and a
        // deviant carrier of 920.7553 Hz; from 0.9 the limit 0.9999 leaves 0.1 Hz.
        p = SessionParameters();
        Staircase::resetStartValues(p);
        QVERIFY(p.modulationDepth[1] == 0.0 && p.carrierFrequency[1] == 950.0);
        answer(p, false);
        QVERIFY(near(Staircase::displayValue(p), 79.2447) && near(p.carrierFrequency[1], 920.7553));
        p.frequencyDifference[1] = 0.9;
        answer(p, false);
        QVERIFY(p.frequencyDifference[1] == 0.9999 && near(p.carrierFrequency[1], 0.1, 1e-9));
        // Back to depth: all three deviant values reset.
        p.mainParameter = 1;
        Staircase::resetStartValues(p);
        QVERIFY(p.modulationDepth[1] == 0.5 && p.frequencyDifference[1] == 0.0 &&
                p.carrierFrequency[1] == 1000.0);
    }

    // Forty reversals of a frequency track run well past the 15-entry step
    // table (1 dB from the second reversal on), and the reversal record
    // starts short so that it must grow. Every change of correctness, and
    // only that, is a reversal storing the value presented; the run ends at
    // the fortieth; the threshold is the mean of the last eight, the
    // reaction time the mean of all trials.
    void longRandomRun()
    {
        SessionParameters p;
        p.numberOfReversals = 40;
        p.reversalValues.fill(0.0, 10);
        std::mt19937 random(20240601u);
        QVector<double> reversals;
        bool over = false;
        while (!over && p.trials.size() < 5000) {
            const bool correct = random() % 3 != 0;
            const double before = Staircase::trackedValue(p);
            if (!p.trials.isEmpty() && p.trials.last().correct != correct)
                reversals.append(before);
            const double factor = reversals.size() < 2 ? twoDb : oneDb;
            const double expected =
                std::min(0.9999, correct ? before / factor : before * factor * factor);
            over = answer(p, correct);
            QCOMPARE(p.reversalCount, reversals.size());
            QVERIFY(over || near(p.frequencyDifference[1], expected, 1e-12));
            QVERIFY(over || near(p.carrierFrequency[1], 1000.0 * (1 - expected), 1e-12));
        }
        QVERIFY(over && reversals.size() == 40);
        QCOMPARE(p.reversalValues, reversals);
        Staircase::computeResults(p);
        const double last8 = std::accumulate(reversals.begin() + 32, reversals.end(), 0.0) / 8;
        QVERIFY(near(p.threshold, last8, 1e-12));
        QVERIFY(near(p.reactionTime, 50.0 * (p.trials.size() - 1), 1e-12));
    }
};

QTEST_APPLESS_MAIN(TestStaircase)
#include "tst_staircase.moc"
