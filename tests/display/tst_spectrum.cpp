// SPDX-License-Identifier: GPL-3.0-or-later
#include "display/FFTReal/fftreal.h"
#include "display/chartdata.h"
#include "display/spectrum.h"

#include <QtTest>

#include <cmath>
#include <complex>
#include <limits>
#include <random>

// X(k) of the first n samples of x over a transform of the given length,
// evaluated directly in long double.
template <class Samples>
static std::complex<long double> directBin(const Samples &x, int n, int length, int k)
{
    const long double pi = 3.141592653589793238462643383279502884L;
    std::complex<long double> sum = 0;
    for (int m = 0; m < n; ++m)
        sum +=
            std::polar(static_cast<long double>(x[m]), -2 * pi * (qint64(k) * m % length) / length);
    return sum;
}

// The program's own real FFT, and the amplitude spectra and chart ranges drawn
// from it.
class TestSpectrum : public QObject
{
    Q_OBJECT

private slots:
    // Rows: the three short cases, pass 3 alone, the first table pass, the
    // first and the program's lengths whose top levels take their twiddles
    // from oscillators (16384, 32768), and 2^17, whose bit count takes the
    // coarse shift. With table twiddles the relative error is a few eps; a
    // rotated twiddle drifts by up to about eps per step, and the top level
    // takes up to N/4 steps. A wrong entry, a float twiddle or an oscillator
    // not restarted per block costs orders of magnitude more.
    void fftMatchesDirectEvaluation_data()
    {
        QTest::addColumn<int>("bits");
        for (int bits : {0, 1, 2, 3, 4, 14, 15, 17})
            QTest::addRow("N=%d", 1 << bits) << bits;
    }

    void fftMatchesDirectEvaluation()
    {
        QFETCH(int, bits);
        const int n = 1 << bits;
        std::mt19937 random(bits);
        std::vector<double> x(n), f(n);
        for (int m = 0; m < n; ++m)
            x[m] = std::uniform_real_distribution<double>(-1.0, 1.0)(random);
        FFTReal<double> fft(n);
        // Twice: a transform must leave the oscillators ready for the next.
        fft.forward_transform(f.data(), x.data());
        fft.forward_transform(f.data(), x.data());
        // The edges and about 32 random bins; the packed result holds
        // f[k] = Re X(k) and f[N/2 + k] = -Im X(k). |X(k)| is about
        // sqrt(N / 3) for this input.
        const double bound = (bits < 14 ? 1e-14 : 3e-17 * n) * std::sqrt(n / 3.0);
        for (int k = 0; k <= n / 2; ++k) {
            if (n > 256 && k > 1 && k < n / 2 - 1 && random() % (n / 32) != 0)
                continue;
            const double im = k > 0 && k < n / 2 ? -f[n / 2 + k] : 0;
            const double error =
                double(std::abs(std::complex<long double>(f[k], im) - directBin(x, n, n, k)));
            QVERIFY2(error <= bound, qPrintable(QString("bin %1: error %2").arg(k).arg(error)));
        }
    }

    // Against |X(k)| / (count / 2, truncated) for a chirp of n samples that
    // puts energy into every bin; count is the record's sample count, n unless
    // the panel changed it since the sound was built. Bin N/2 and beyond are
    // never written.
    void spectrumMatchesDirectTransform_data()
    {
        QTest::addColumn<int>("n");
        QTest::addColumn<int>("length");
        QTest::addColumn<int>("count");
        QTest::newRow("odd count, every bin") << 21 << 32 << 21;
        QTest::newRow("cut, still divided by 20000") << 40000 << 32768 << 40000;
        QTest::newRow("built before the record's count changed") << 24000 << 32768 << 32000;
    }

    void spectrumMatchesDirectTransform()
    {
        QFETCH(int, n);
        QFETCH(int, length);
        QFETCH(int, count);
        QVector<double> x(n), amplitude(length / 2 + 1, -1.0);
        for (int m = 0; m < n; ++m)
            x[m] = std::sin(0.37 * m * m) + 0.25;
        Spectrum::amplitudeSpectrum(x, length, count, amplitude);
        QCOMPARE(amplitude.last(), -1.0);
        for (int k = 0; k < length / 2; k += k < 3 || length == 32 ? 1 : 2341) {
            const double expected =
                double(std::abs(directBin(x, qMin(n, length), length, k)) / (count / 2));
            QVERIFY2(std::abs(amplitude[k] - expected) <= 1e-9 * qMax(1.0, expected),
                     qPrintable(QString("bin %1: %2").arg(k).arg(amplitude[k])));
        }
    }

    // A record of one sample has no amplitude to divide by: its bins read 0.
    // An exact power of two is not doubled. Axis ranges: the finite extremes
    // of a sound or spectrum, widened when flat, full scale when nothing can be
    // drawn.
    void sizesAndRanges()
    {
        QVector<double> single(17, -1.0);
        Spectrum::amplitudeSpectrum({0.5}, 32, 1, single);
        QCOMPARE(single, QVector<double>(16, 0.0) << -1.0);
        QCOMPARE(Spectrum::transformLength(32768), 32768);
        const double nan = std::nan(""), inf = std::numeric_limits<double>::infinity();
        QCOMPARE(ChartData::valueRange({nan, 0.1, -0.7, 0.9, inf, 0.2}),
                 QVector<double>({-0.7, 0.9}));
        QCOMPARE(ChartData::drawableRange(0.5, 0.5), QVector<double>({-0.5, 1.5}));
        QCOMPARE(ChartData::drawableRange(0.0, nan), QVector<double>({-1.0, 1.0}));
        QCOMPARE(ChartData::drawableRange(2.0, 1.0), QVector<double>({-1.0, 1.0}));
    }
};

QTEST_APPLESS_MAIN(TestSpectrum)
#include "tst_spectrum.moc"
