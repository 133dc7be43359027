#include "app/sessionparameters.h"
#include "stimulus/randomsource.h"
#include "stimulus/synthesis.h"

#include <QtTest>

#include <cmath>
#include <limits>

// Reference values come from the worked example of the start-up settings and
// from direct evaluation of the formula in this file.
class TestSynthesis : public QObject
{
    Q_OBJECT

private:
    static SessionParameters sinusoidDefaults()
    {
        SessionParameters p;
        p.soundType = 0;
        p.modulationDepth = {0.0, 0.5};
        return p;
    }

private slots:
    void startUpSinusoidSamples()
    {
        SessionParameters p = sinusoidDefaults();
        const QVector<double> standard = Synthesis::synthesise(p, 0);
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
    }

    void equalisingGivesTheDeviantsRms()
    {
        SessionParameters p = sinusoidDefaults();
        QVector<double> standard = Synthesis::synthesise(p, 0);
        const QVector<double> deviant = Synthesis::synthesise(p, 1);
        const QVector<double> before = standard;
        Synthesis::equaliseRms(standard, deviant);
        QVERIFY(std::abs(calculateRms(deviant) - 0.5) < 1e-6);
        QVERIFY(std::abs(calculateRms(standard) - calculateRms(deviant)) < 1e-12);
        QVERIFY(std::abs(standard[10] / before[10] - std::sqrt(0.5)) < 1e-6);
    }

    void silentOrEmptyStandardIsLeftAlone()
    {
        QVector<double> silent(100, 0.0);
        Synthesis::equaliseRms(silent, QVector<double>(100, 0.5));
        for (double x : silent)
            QCOMPARE(x, 0.0);
        QVector<double> empty;
        Synthesis::equaliseRms(empty, QVector<double>(100, 0.5));
        QVERIFY(empty.isEmpty());
        QCOMPARE(calculateRms(QVector<double>()), 0.0);
    }

    void rmsOfKnownVectors()
    {
        QCOMPARE(calculateRms({3.0, 4.0}), std::sqrt(12.5));
        QCOMPARE(calculateRms({-2.0, -2.0, -2.0}), 2.0);
    }

    void timeAxisOfStartUp()
    {
        const QVector<double> t = Synthesis::timeAxis(2000, 40000.0);
        QCOMPARE(t.size(), 2000);
        QCOMPARE(t[0], 0.0);
        QVERIFY(std::abs(t[1] - 0.025) < 1e-12);
        QVERIFY(std::abs(t[2] - 0.05) < 1e-12);
        QVERIFY(std::abs(t[1999] - 49.975) < 1e-9);
    }

    void noiseStaysInRangeAndChanges()
    {
        RandomSource::seed(7);
        SessionParameters p;
        p.soundType = 1;
        p.modulationDepth = {0.0, 0.0};
        p.normaliseModulation = false;
        const QVector<double> first = Synthesis::synthesise(p, 0);
        const QVector<double> second = Synthesis::synthesise(p, 0);
        QCOMPARE(first.size(), 24000);
        bool differs = false;
        double lowest = 1, highest = -1;
        for (int j = 0; j < first.size(); ++j) {
            lowest = qMin(lowest, first[j]);
            highest = qMax(highest, first[j]);
            differs = differs || first[j] != second[j];
        }
        QVERIFY(lowest >= -1.0 && highest <= 1.0);
        QVERIFY(lowest < -0.99 && highest > 0.99);
        QVERIFY(differs);
    }

    void seedingRepeatsTheSequence()
    {
        RandomSource::seed(42);
        QVector<int> a, b;
        for (int i = 0; i < 1000; ++i)
            a.append(RandomSource::next());
        RandomSource::seed(42);
        for (int i = 0; i < 1000; ++i)
            b.append(RandomSource::next());
        QCOMPARE(a, b);
    }

    void randomSourceIsUniformOnItsRange()
    {
        RandomSource::seed(1);
        const int draws = 327680;
        QVector<int> bins(8, 0);
        int lowest = RandomSource::maximum, highest = 0;
        for (int i = 0; i < draws; ++i) {
            const int r = RandomSource::next();
            lowest = qMin(lowest, r);
            highest = qMax(highest, r);
            ++bins[r / 4096];
        }
        QCOMPARE(lowest, 0);
        QCOMPARE(highest, 32767);
        // Each eighth expects 40960 draws; 5 standard deviations is about 950.
        for (int n : bins)
            QVERIFY2(std::abs(n - draws / 8) < 1000, qPrintable(QString::number(n)));
    }

    void badSampleCountsGiveEmptySounds_data()
    {
        QTest::addColumn<double>("rate");
        QTest::addColumn<double>("seconds");
        QTest::addColumn<int>("expected");
        const double inf = std::numeric_limits<double>::infinity();
        QTest::newRow("zero duration") << 40000.0 << 0.0 << 0;
        QTest::newRow("negative") << 40000.0 << -1.0 << 0;
        QTest::newRow("nan rate") << std::nan("") << 0.6 << 0;
        QTest::newRow("infinite") << inf << 0.6 << 0;
        QTest::newRow("beyond int") << 1e12 << 1e3 << INT_MAX;
        QTest::newRow("minus infinite") << -inf << 0.6 << 0;
        QTest::newRow("floor") << 44100.0 << 0.05 << 2205;
        QTest::newRow("sub-sample") << 40000.0 << 0.00001 << 0;
    }

    void badSampleCountsGiveEmptySounds()
    {
        QFETCH(double, rate);
        QFETCH(double, seconds);
        QFETCH(int, expected);
        QCOMPARE(Synthesis::secondsToSamples(rate, seconds), expected);
    }

    void nonPositiveLengthGivesEmptyVector()
    {
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
