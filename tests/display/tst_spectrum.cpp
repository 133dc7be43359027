#include "display/chartdata.h"
#include "display/spectrum.h"

#include <QtTest>

#include <climits>
#include <cmath>
#include <limits>
#include <tuple>

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
        for (int m = 0; m < qMin(x.size(), length); ++m) {
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

    // Bins not written stay at -1.
    static QVector<double> spectrumOf(const QVector<double> &sound, int length)
    {
        QVector<double> amplitude(length / 2, -1.0);
        Spectrum::amplitudeSpectrum(sound, length, amplitude);
        return amplitude;
    }

private slots:
    void lengthsAndBins()
    {
        // The smallest power of two not below n, limited to 1 .. 2^30.
        const int lengths[][2] = {{-5, 1},           {0, 1},         {3, 4},
                                  {24000, 32768},    {32769, 65536}, {(1 << 30) + 1, 1 << 30},
                                  {INT_MAX, 1 << 30}};
        for (const auto &[n, expected] : lengths)
            QCOMPARE(Spectrum::transformLength(n), expected);
        for (int b = 0; b <= 30; ++b)
            QCOMPARE(Spectrum::transformLength(1 << b), 1 << b);

        const double inf = std::numeric_limits<double>::infinity();
        QCOMPARE(Spectrum::drawnBinCount(2000.0, 0.8192, 16384), 1638);
        QCOMPARE(Spectrum::drawnBinCount(2000.0, 0.8192, 1000), 1000);
        QCOMPARE(Spectrum::drawnBinCount(2000.0, inf, 16384), 16384); // sampling rate 0
        QCOMPARE(Spectrum::drawnBinCount(2000.0, std::nan(""), 16384), 0);
        QCOMPARE(Spectrum::drawnBinCount(-2000.0, 0.8192, 16384), 0);

        // A count beyond the vector writes the vector only.
        QVector<double> f(10, -1.0);
        Spectrum::binFrequencies(f, 16384, 20000.0 / 32768);
        QCOMPARE(f.size(), 10);
        QCOMPARE(f[9], 9 * 0.6103515625);
    }

    // n samples of c: X(0) = n c, divided by n / 2 truncated. Fewer than two
    // samples have no divisor and give zeros, as silence does.
    void constantAndSilentSounds()
    {
        for (auto [n, c, expected] : std::vector<std::tuple<int, double, double>>{
                 {24000, 0.3, 0.6}, {1000, -0.25, 0.5}, {3, 0.5, 1.5}, {5, 0.4, 1.0}}) {
            const double amplitude = spectrumOf(QVector<double>(n, c), 32768)[0];
            QVERIFY2(near(amplitude, expected, 1e-12),
                     qPrintable(QString("n=%1: %2").arg(n).arg(amplitude)));
        }
        for (const QVector<double> &sound :
             {QVector<double>(24000, 0.0), QVector<double>{0.8}, QVector<double>()})
            QCOMPARE(spectrumOf(sound, 32768), QVector<double>(16384, 0.0));
    }

    // A short transform checks where every bin's real and imaginary parts are
    // read, the first and last bins included; 30000 samples are padded to
    // 32768, and 40000 cut to it but divided by 20000.
    void matchesTheDirectTransform()
    {
        for (auto [n, length, divisor] : std::vector<std::tuple<int, int, int>>{
                 {20, 32, 10}, {30000, 32768, 15000}, {40000, 32768, 20000}}) {
            QVector<double> x(n);
            for (int m = 0; m < n; ++m) // a chirp: every bin has some energy
                x[m] = std::sin(0.37 * m * m);
            const QVector<double> amplitude = spectrumOf(x, length);
            for (int k = 0; k < length / 2; ++k)
                if (length == 32 || k < 3 || k % 2341 == 0 || k == length / 2 - 1)
                    QVERIFY2(near(amplitude[k], directAmplitude(x, length, k, divisor), 1e-9),
                             qPrintable(QString("n=%1, bin %2").arg(n).arg(k)));
        }
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
        QVector<double> longer(6, -1.0), shorter(2, -1.0);
        Spectrum::amplitudeSpectrum(QVector<double>(8, 1.0), 8, longer);
        Spectrum::amplitudeSpectrum(QVector<double>(8, 1.0), 8, shorter);
        QCOMPARE(longer, (QVector<double>{2.0, 0.0, 0.0, 0.0, -1.0, -1.0}));
        QCOMPARE(shorter, (QVector<double>{2.0, 0.0}));
    }

    void chartRanges()
    {
        const double nan = std::nan(""), inf = std::numeric_limits<double>::infinity();
        QVector<double> x(24000, 0.1);
        x[2500] = -0.7; // beyond the first 50 ms
        x[20000] = 0.9;
        QCOMPARE(ChartData::valueRange(x), (QVector<double>{-0.7, 0.9}));
        QCOMPARE(ChartData::valueRange({nan, 0.2, inf, -0.3}), (QVector<double>{-0.3, 0.2}));
        QCOMPARE(ChartData::valueRange({}), (QVector<double>{-1.0, 1.0})); // no samples: full scale

        QCOMPARE(ChartData::drawableRange(0.0, 50.0), (QVector<double>{0.0, 50.0}));
        QCOMPARE(ChartData::drawableRange(0.5, 0.5), (QVector<double>{-0.5, 1.5}));
        QCOMPARE(ChartData::drawableRange(-inf, 1.0), (QVector<double>{-1.0, 1.0}));
        QCOMPARE(ChartData::drawableRange(0.0, nan), (QVector<double>{-1.0, 1.0}));
        QCOMPARE(ChartData::drawableRange(2.0, 1.0), (QVector<double>{-1.0, 1.0}));
    }

    void fillPointsStopsAtTheShorterVector()
    {
        const QVector<double> t{0.0, 0.025, 0.05, 0.075};
        QVector<QPointF> points(7);
        ChartData::fillPoints(points, t, {1, 2, 3}, 10);
        QCOMPARE(points, (QVector<QPointF>{{0.0, 1}, {0.025, 2}, {0.05, 3}}));
        ChartData::fillPoints(points, t, {1, 2, 3}, -3);
        QVERIFY(points.isEmpty());
    }
};

QTEST_APPLESS_MAIN(TestSpectrum)
#include "tst_spectrum.moc"
