// SPDX-License-Identifier: GPL-3.0-or-later
#include "display/FFTReal/fftreal.h"

#include <QtTest>

#include <complex>
#include <random>
#include <vector>

class TestFFTReal : public QObject
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
    void matchesDirectEvaluation_data()
    {
        QTest::addColumn<int>("bits");
        for (int bits : {0, 1, 2, 3, 4, 14, 15, 17})
            QTest::addRow("N=%d", 1 << bits) << bits;
    }

    void matchesDirectEvaluation()
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
        // X(k) in long double at the edges and about 32 random bins; the
        // packed result holds f[k] = Re X(k) and f[N/2 + k] = -Im X(k).
        // |X(k)| is about sqrt(N / 3) for this input.
        const long double pi = 3.141592653589793238462643383279502884L;
        const double bound = (bits < 14 ? 1e-14 : 3e-17 * n) * std::sqrt(n / 3.0);
        for (int k = 0; k <= n / 2; ++k) {
            if (n > 256 && k > 1 && k < n / 2 - 1 && random() % (n / 32) != 0)
                continue;
            std::complex<long double> expected = 0;
            for (int m = 0; m < n; ++m)
                expected +=
                    std::polar(static_cast<long double>(x[m]), -2 * pi * (qint64(k) * m % n) / n);
            const double im = k > 0 && k < n / 2 ? -f[n / 2 + k] : 0;
            const double error = double(std::abs(std::complex<long double>(f[k], im) - expected));
            QVERIFY2(error <= bound, qPrintable(QString("bin %1: error %2").arg(k).arg(error)));
        }
    }
};

QTEST_APPLESS_MAIN(TestFFTReal)
#include "tst_fftreal.moc"
