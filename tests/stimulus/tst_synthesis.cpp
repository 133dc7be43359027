#include "app/sessionparameters.h"
#include "stimulus/randomsource.h"
#include "stimulus/synthesis.h"

#include <QtTest>

#include <algorithm>
#include <climits>
#include <cmath>
#include <limits>

// Reference values come from the worked example of the start-up settings and
// from direct evaluation of the formula in this file.
class TestSynthesis : public QObject
{
    Q_OBJECT

private slots:
    void startUpSoundsAndTimeAxis()
    {
        SessionParameters p;
        p.soundType = 0;
        p.modulationDepth = {0.0, 0.5};
        QVector<double> standard = Synthesis::synthesise(p, 0);
        const QVector<double> deviant = Synthesis::synthesise(p, 1);
        QCOMPARE(standard.size(), 24000);
        QCOMPARE(deviant.size(), 24000);
        QCOMPARE(standard[0], 0.0);
        QCOMPARE(deviant[0], 0.0);
        QVERIFY(std::abs(standard[10] - 1.0) < 1e-12);
        QVERIFY(std::abs(deviant[10] - 0.333991) < 5e-7);
        // An independent evaluation of one later sample of the deviant.
        const double j = 12345, pi = std::acos(-1.0);
        const double expected = (0.5 * std::cos(2 * pi * 40 * j / 40000 + pi) + 1.0) *
                                std::sin(2 * pi * 1000 * j / 40000) / 1.5;
        QVERIFY(std::abs(deviant[12345] - expected) < 1e-9);

        // Equalising scales the standard, shape kept, to the deviant's RMS.
        Synthesis::equaliseRms(standard, deviant);
        QVERIFY(std::abs(calculateRms(deviant) - 0.5) < 1e-6);
        QVERIFY(std::abs(calculateRms(standard) - calculateRms(deviant)) < 1e-12);
        QVERIFY(std::abs(standard[10] - std::sqrt(0.5)) < 1e-6);

        const QVector<double> t = Synthesis::timeAxis(2000, 40000.0);
        QCOMPARE(t.size(), 2000);
        QCOMPARE(t[0], 0.0);
        QVERIFY(std::abs(t[1] - 0.025) < 1e-12 && std::abs(t[1999] - 49.975) < 1e-9);
    }

    // A silent or empty standard has no RMS to scale from: it stays as it is
    // rather than fill with NaN.
    void rms()
    {
        QCOMPARE(calculateRms({3.0, 4.0}), std::sqrt(12.5));
        QCOMPARE(calculateRms({}), 0.0);
        QVector<double> silent(100, 0.0), empty;
        Synthesis::equaliseRms(silent, QVector<double>(100, 0.5));
        Synthesis::equaliseRms(empty, QVector<double>(100, 0.5));
        QCOMPARE(silent, QVector<double>(100, 0.0));
        QVERIFY(empty.isEmpty());
    }

    void noiseStaysInRangeAndChanges()
    {
        RandomSource::seed(7);
        SessionParameters p;
        p.soundType = 1;
        p.modulationDepth = {0.0, 0.0};
        p.normaliseModulation = false;
        const QVector<double> first = Synthesis::synthesise(p, 0);
        QCOMPARE(first.size(), 24000);
        const auto [lowest, highest] = std::minmax_element(first.begin(), first.end());
        QVERIFY(*lowest >= -1.0 && *highest <= 1.0);
        QVERIFY(*lowest < -0.99 && *highest > 0.99);
        QVERIFY(Synthesis::synthesise(p, 0) != first);
    }

    void randomSourceIsUniformAndRepeatable()
    {
        RandomSource::seed(1);
        const int draws = 327680;
        QVector<int> values(draws), bins(8, 0);
        for (int &r : values) {
            r = RandomSource::next();
            ++bins[r / 4096];
        }
        QCOMPARE(*std::min_element(values.begin(), values.end()), 0);
        QCOMPARE(*std::max_element(values.begin(), values.end()), 32767);
        // Each eighth expects 40960 draws; 5 standard deviations is about 950.
        for (int n : bins)
            QVERIFY2(std::abs(n - draws / 8) < 1000, qPrintable(QString::number(n)));
        RandomSource::seed(1);
        for (int i = 0; i < 1000; ++i)
            QCOMPARE(RandomSource::next(), values[i]);
    }

    // Counts that are not finite or below one sample give empty sounds; counts
    // beyond the int range are held at INT_MAX.
    void sampleCountsAndEmptySounds()
    {
        const double inf = std::numeric_limits<double>::infinity();
        QCOMPARE(Synthesis::secondsToSamples(44100.0, 0.05), 2205);
        QCOMPARE(Synthesis::secondsToSamples(40000.0, 0.00001), 0);
        QCOMPARE(Synthesis::secondsToSamples(40000.0, -1.0), 0);
        QCOMPARE(Synthesis::secondsToSamples(std::nan(""), 0.6), 0);
        QCOMPARE(Synthesis::secondsToSamples(inf, 0.6), 0);
        QCOMPARE(Synthesis::secondsToSamples(1e12, 1e3), INT_MAX);

        SessionParameters p;
        p.nSamples = {0, -5};
        QVERIFY(Synthesis::synthesise(p, 0).isEmpty());
        QVERIFY(Synthesis::synthesise(p, 1).isEmpty());
        p.nSamples = {0, 10};
        p.displaySamples = {2000, 2000};
        QCOMPARE(Synthesis::displaySampleCount(p, 0), 0);
        QCOMPARE(Synthesis::displaySampleCount(p, 1), 10);
    }
};

QTEST_APPLESS_MAIN(TestSynthesis)
#include "tst_synthesis.moc"
