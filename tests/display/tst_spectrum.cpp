// SPDX-License-Identifier: GPL-3.0-or-later
#include "display/chartdata.h"
#include "display/spectrum.h"

#include <QtTest>

#include <cmath>
#include <complex>
#include <limits>

class TestSpectrum : public QObject
{
    Q_OBJECT

private slots:
    // Against |X(k)| / (count / 2, truncated) evaluated directly here, for a
    // chirp of n samples that puts energy into every bin; count is the
    // record's sample count, n unless the panel changed it since the sound
    // was built. Bin N/2 and beyond are never written.
    void matchesTheDirectTransform_data()
    {
        QTest::addColumn<int>("n");
        QTest::addColumn<int>("length");
        QTest::addColumn<int>("count");
        QTest::newRow("odd count, every bin") << 21 << 32 << 21;
        QTest::newRow("cut, still divided by 20000") << 40000 << 32768 << 40000;
        QTest::newRow("built before the record's count changed") << 24000 << 32768 << 32000;
    }

    void matchesTheDirectTransform()
    {
        QFETCH(int, n);
        QFETCH(int, length);
        QFETCH(int, count);
        QVector<double> x(n), amplitude(length / 2 + 1, -1.0);
        for (int m = 0; m < n; ++m)
            x[m] = std::sin(0.37 * m * m) + 0.25;
        Spectrum::amplitudeSpectrum(x, length, count, amplitude);
        QCOMPARE(amplitude.last(), -1.0);
        const long double pi = 3.141592653589793238462643383279502884L;
        for (int k = 0; k < length / 2; k += k < 3 || length == 32 ? 1 : 2341) {
            std::complex<long double> X = 0;
            for (int m = 0; m < qMin(n, length); ++m)
                X += static_cast<long double>(x[m]) *
                     std::polar(1.0L, -2 * pi * (qint64(k) * m % length) / length);
            const double expected = double(std::abs(X) / (count / 2));
            QVERIFY2(std::abs(amplitude[k] - expected) <= 1e-9 * qMax(1.0, expected),
                     qPrintable(QString("bin %1: %2").arg(k).arg(amplitude[k])));
        }
    }

    // An exact power of two is not doubled. Axis ranges: the finite extremes
    // of a sound or spectrum, widened when flat, full scale when nothing can be
    // drawn; points stop at the shorter list.
    void sizesAndRanges()
    {
        QCOMPARE(Spectrum::transformLength(32768), 32768);
        const double nan = std::nan(""), inf = std::numeric_limits<double>::infinity();
        QCOMPARE(ChartData::valueRange({nan, 0.1, -0.7, 0.9, inf, 0.2}),
                 QVector<double>({-0.7, 0.9}));
        QCOMPARE(ChartData::drawableRange(0.5, 0.5), QVector<double>({-0.5, 1.5}));
        QCOMPARE(ChartData::drawableRange(0.0, nan), QVector<double>({-1.0, 1.0}));
        QCOMPARE(ChartData::drawableRange(2.0, 1.0), QVector<double>({-1.0, 1.0}));
        QVector<QPointF> points;
        ChartData::fillPoints(points, {0.0, 0.025, 0.05}, {1, 2}, 10);
        QCOMPARE(points, QVector<QPointF>({{0.0, 1}, {0.025, 2}}));
    }
};

QTEST_APPLESS_MAIN(TestSpectrum)
#include "tst_spectrum.moc"
