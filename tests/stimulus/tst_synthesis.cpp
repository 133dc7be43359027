// SPDX-License-Identifier: GPL-3.0-or-later
#include "app/sessionparameters.h"
#include "stimulus/randomsource.h"
#include "stimulus/synthesis.h"

#include <QtTest>

#include <algorithm>
#include <cmath>
#include <numeric>

class TestSynthesis : public QObject
{
    Q_OBJECT

private slots:
    // The start-up settings: 24000 samples each; sample
    // 10 is 1.0 in the standard and 0.333991 in the deviant (depth 0.5,
    // modulator from 180 degrees, divided by 1.5). Equalising scales the
    // standard to the deviant's RMS of 0.5 (a factor of about 0.707107); a
    // silent standard has no RMS to scale from and stays silent, not NaN.
    void sounds()
    {
        SessionParameters p;
        QVector<double> standard = Synthesis::synthesise(p, 0);
        const QVector<double> deviant = Synthesis::synthesise(p, 1);
        QVERIFY(standard.size() == 24000 && deviant.size() == 24000);
        QVERIFY(std::abs(standard[10] - 1.0) < 1e-12 && std::abs(deviant[10] - 0.333991) < 5e-7);
        Synthesis::equaliseRms(standard, deviant);
        QVERIFY(std::abs(calculateRms(deviant) - 0.5) < 1e-6);
        QVERIFY(std::abs(standard[10] - std::sqrt(0.5)) < 1e-6);
        QVector<double> silent(100, 0.0);
        Synthesis::equaliseRms(silent, deviant);
        QCOMPARE(silent, QVector<double>(100, 0.0));

        // An unmodulated standard of uniform noise on -1 .. +1 reaching both
        // ends (the mean of 24000 values has a standard deviation of 0.0037),
        // new at every build, the same again from the same seed.
        p.soundType = 1;
        RandomSource::seed(7);
        const QVector<double> noise = Synthesis::synthesise(p, 0);
        const auto [lowest, highest] = std::minmax_element(noise.begin(), noise.end());
        QVERIFY(*lowest >= -1.0 && *lowest < -0.999 && *highest <= 1.0 && *highest > 0.999);
        QVERIFY(std::abs(std::accumulate(noise.begin(), noise.end(), 0.0) / 24000) < 0.02);
        QVERIFY(Synthesis::synthesise(p, 0) != noise);
        RandomSource::seed(7);
        QCOMPARE(Synthesis::synthesise(p, 0), noise);

        // Counts are floored, not rounded.
        QCOMPARE(Synthesis::secondsToSamples(40000.0, 0.00004999), 1);
    }
};

QTEST_APPLESS_MAIN(TestSynthesis)
#include "tst_synthesis.moc"
