#include "display/chartdata.h"
#include "display/spectrum.h"

#include <QtTest>

#include <cmath>
#include <limits>

// Reference amplitudes come from a direct evaluation of the discrete Fourier
// transform in this file, |sum x[m] e^(-2 pi i k m / N)| / (n / 2), and from
// the worked examples of the start-up settings.
class TestSpectrum : public QObject
{
    Q_OBJECT

private:
    static double directAmplitude(const QVector<double> &x, int length, int k, int divisor)
    {
        const long double pi = 3.141592653589793238462643383279502884L;
        long double re = 0, im = 0;
        const int n = qMin(x.size(), length);
        for (int m = 0; m < n; ++m) {
            const long double a = -2 * pi * ((static_cast<long long>(k) * m) % length) / length;
            re += x[m] * std::cos(a);
            im += x[m] * std::sin(a);
        }
        return static_cast<double>(std::sqrt(re * re + im * im) / divisor);
    }

    static bool near(double actual, double expected, double tolerance)
    {
        return std::abs(actual - expected) <= tolerance * qMax(1.0, std::abs(expected));
    }

    static QVector<double> spectrumOf(const QVector<double> &sound, int length)
    {
        QVector<double> amplitude(length / 2, -1.0);
        Spectrum::amplitudeSpectrum(sound, length, amplitude);
        return amplitude;
    }

    static QVector<double> pseudoRandom(int n, unsigned seed)
    {
        QVector<double> x(n);
        for (double &v : x) {
            seed = seed * 1103515245u + 12345u;
            v = ((seed >> 16) & 0x7fff) / 16383.5 - 1.0;
        }
        return x;
    }

private slots:
    void transformLength_data()
    {
        QTest::addColumn<int>("n");
        QTest::addColumn<int>("expected");
        QTest::newRow("start-up 24000") << 24000 << 32768;
        QTest::newRow("30000 padded") << 30000 << 32768;
        QTest::newRow("exact 32768") << 32768 << 32768;
        QTest::newRow("one above") << 32769 << 65536;
        QTest::newRow("40000") << 40000 << 65536;
        QTest::newRow("3") << 3 << 4;
        QTest::newRow("2") << 2 << 2;
        QTest::newRow("1") << 1 << 1;
        QTest::newRow("empty") << 0 << 1;
        QTest::newRow("negative") << -5 << 1;
        QTest::newRow("beyond the largest transform") << (1 << 30) + 1 << (1 << 30);
        QTest::newRow("int max") << std::numeric_limits<int>::max() << (1 << 30);
    }

    void transformLength()
    {
        QFETCH(int, n);
        QFETCH(int, expected);
        QCOMPARE(Spectrum::transformLength(n), expected);
    }

    void everyPowerOfTwoIsItsOwnLength()
    {
        for (int b = 0; b <= 30; ++b)
            QCOMPARE(Spectrum::transformLength(1 << b), 1 << b);
    }

    void drawnBinCount_data()
    {
        const double inf = std::numeric_limits<double>::infinity();
        QTest::addColumn<double>("maxFrequency");
        QTest::addColumn<double>("duration");
        QTest::addColumn<int>("bins");
        QTest::addColumn<int>("expected");
        QTest::newRow("start-up: 2000 Hz x 0.8192 s") << 2000.0 << 0.8192 << 16384 << 1638;
        QTest::newRow("lowered to the computed bins") << 2000.0 << 0.8192 << 1000 << 1000;
        QTest::newRow("sampling rate 0 gives an infinite duration")
            << 2000.0 << inf << 16384 << 16384;
        QTest::newRow("not a number") << 2000.0 << std::nan("") << 16384 << 0;
        QTest::newRow("negative") << -2000.0 << 0.8192 << 16384 << 0;
    }

    void drawnBinCount()
    {
        QFETCH(double, maxFrequency);
        QFETCH(double, duration);
        QFETCH(int, bins);
        QFETCH(int, expected);
        QCOMPARE(Spectrum::drawnBinCount(maxFrequency, duration, bins), expected);
    }

    void binFrequenciesAtStartUpAndAt20000Hz()
    {
        QVector<double> f(16384, 0.0);
        Spectrum::binFrequencies(f, 16384, 40000.0 / 32768);
        QCOMPARE(f[1], 1.220703125);
        QCOMPARE(f[1637], 1998.291015625);
        Spectrum::binFrequencies(f, 16384, 20000.0 / 32768);
        QCOMPARE(f[1], 0.6103515625);
        QCOMPARE(f[1637], 999.1455078125);
        QVector<double> shorter(10, 0.0);
        Spectrum::binFrequencies(shorter, 16384, 1.0);
        QCOMPARE(shorter.size(), 10);
        QCOMPARE(shorter[9], 9.0);
    }

    void constantSound_data()
    {
        QTest::addColumn<int>("n");
        QTest::addColumn<double>("c");
        QTest::addColumn<double>("expected");
        QTest::newRow("24000 samples of 0.3") << 24000 << 0.3 << 0.6;
        QTest::newRow("even n, negative value") << 1000 << -0.25 << 0.5;
        QTest::newRow("n = 2") << 2 << 0.7 << 1.4;
        QTest::newRow("n = 3: divided by 1") << 3 << 0.5 << 1.5;
        QTest::newRow("n = 5: divided by 2") << 5 << 0.4 << 1.0;
    }

    void constantSound()
    {
        QFETCH(int, n);
        QFETCH(double, c);
        QFETCH(double, expected);
        const QVector<double> amplitude = spectrumOf(QVector<double>(n, c), 32768);
        QVERIFY2(near(amplitude[0], expected, 1e-12), qPrintable(QString::number(amplitude[0])));
    }

    void silentAndTooShortSoundsGiveZeros_data()
    {
        QTest::addColumn<QVector<double>>("sound");
        QTest::newRow("all zero") << QVector<double>(24000, 0.0);
        QTest::newRow("one sample") << QVector<double>{0.8};
        QTest::newRow("empty") << QVector<double>();
    }

    void silentAndTooShortSoundsGiveZeros()
    {
        QFETCH(QVector<double>, sound);
        const QVector<double> amplitude = spectrumOf(sound, 32768);
        QCOMPARE(amplitude.size(), 16384);
        for (double a : amplitude)
            QCOMPARE(a, 0.0);
    }

    void everyBinMatchesTheDirectTransform()
    {
        // A short transform checks every bin of the packed layout, including
        // the signs of the imaginary parts and the first and last drawn bins.
        const QVector<double> x = pseudoRandom(20, 7);
        const QVector<double> amplitude = spectrumOf(x, 32);
        for (int k = 0; k < 16; ++k)
            QVERIFY2(near(amplitude[k], directAmplitude(x, 32, k, 10), 1e-12),
                     qPrintable(QString("bin %1").arg(k)));
    }

    void paddedAndCutSounds_data()
    {
        QTest::addColumn<int>("n");
        QTest::addColumn<int>("divisor");
        QTest::newRow("30000 samples padded") << 30000 << 15000;
        QTest::newRow("40000 samples cut, divided by 20000") << 40000 << 20000;
    }

    void paddedAndCutSounds()
    {
        QFETCH(int, n);
        QFETCH(int, divisor);
        const QVector<double> x = pseudoRandom(n, 11);
        const QVector<double> amplitude = spectrumOf(x, 32768);
        for (int k : {0, 1, 2, 819, 1637, 9999, 16383})
            QVERIFY2(near(amplitude[k], directAmplitude(x, 32768, k, divisor), 1e-9),
                     qPrintable(QString("bin %1").arg(k)));
    }

    void sinusoidPeaksAtTheNearestBin()
    {
        // 1000 Hz at 40000 Hz for 0.6 s; the bins are 1.220703125 Hz wide, so
        // the nearest one is 819 (999.76 Hz).
        QVector<double> x(24000);
        for (int j = 0; j < x.size(); ++j)
            x[j] = std::sin(j * (1000 * 6.283185307179586) / 40000);
        const QVector<double> amplitude = spectrumOf(x, 32768);
        const int peak = std::max_element(amplitude.begin(), amplitude.end()) - amplitude.begin();
        QCOMPARE(peak, 819);
        QVERIFY(near(amplitude[peak], directAmplitude(x, 32768, 819, 12000), 1e-9));
        // Off the bin centre by 0.146 of the sound's own bin width, the peak
        // is a little below the full-scale 1.
        QVERIFY(amplitude[peak] > 0.9 && amplitude[peak] < 1.0);
    }

    void onlyTheBinsOfTheTransformAreWritten()
    {
        QVector<double> amplitude(16, -1.0);
        Spectrum::amplitudeSpectrum(QVector<double>(8, 1.0), 8, amplitude);
        QCOMPARE(amplitude[0], 2.0);
        QCOMPARE(amplitude[3], 0.0);
        QCOMPARE(amplitude[4], -1.0);
        QVector<double> shorter(2, -1.0);
        Spectrum::amplitudeSpectrum(QVector<double>(8, 1.0), 8, shorter);
        QCOMPARE(shorter, (QVector<double>{2.0, 0.0}));
    }

    void valueRange()
    {
        QVector<double> x(24000, 0.1);
        x[2500] = -0.7; // beyond the first 50 ms
        x[20000] = 0.9;
        QCOMPARE(ChartData::valueRange(x), (QVector<double>{-0.7, 0.9}));
        QCOMPARE(ChartData::valueRange({0.5}), (QVector<double>{0.5, 0.5}));
        const double nan = std::nan(""), inf = std::numeric_limits<double>::infinity();
        QCOMPARE(ChartData::valueRange({nan, 0.2, inf, -0.3}), (QVector<double>{-0.3, 0.2}));
        // No samples: full scale.
        QCOMPARE(ChartData::valueRange({}), (QVector<double>{-1.0, 1.0}));
        QCOMPARE(ChartData::valueRange({nan}), (QVector<double>{-1.0, 1.0}));
    }

    void drawableRange()
    {
        const double nan = std::nan(""), inf = std::numeric_limits<double>::infinity();
        QCOMPARE(ChartData::drawableRange(0.0, 50.0), (QVector<double>{0.0, 50.0}));
        QCOMPARE(ChartData::drawableRange(0.0, 0.0), (QVector<double>{-1.0, 1.0}));
        QCOMPARE(ChartData::drawableRange(0.5, 0.5), (QVector<double>{-0.5, 1.5}));
        QCOMPARE(ChartData::drawableRange(0.0, nan), (QVector<double>{-1.0, 1.0}));
        QCOMPARE(ChartData::drawableRange(-inf, 1.0), (QVector<double>{-1.0, 1.0}));
        QCOMPARE(ChartData::drawableRange(2.0, 1.0), (QVector<double>{-1.0, 1.0}));
    }

    void fillPointsStopsAtTheShorterVector()
    {
        const QVector<double> t{0.0, 0.025, 0.05, 0.075};
        const QVector<double> y{1, 2, 3};
        QVector<QPointF> points(7);
        ChartData::fillPoints(points, t, y, 10);
        QCOMPARE(points, (QVector<QPointF>{{0.0, 1}, {0.025, 2}, {0.05, 3}}));
        ChartData::fillPoints(points, t, y, 2);
        QCOMPARE(points.size(), 2);
        ChartData::fillPoints(points, t, y, -3);
        QVERIFY(points.isEmpty());
    }
};

QTEST_APPLESS_MAIN(TestSpectrum)
#include "tst_spectrum.moc"
