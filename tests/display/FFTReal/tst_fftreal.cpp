// SPDX-License-Identifier: GPL-3.0-or-later
#include "display/FFTReal/fftreal.h"

#include <QtTest>

#include <complex>
#include <cstdlib>
#include <random>
#include <vector>

namespace
{
// One violated precondition of each kind (length, null pointer, aliased
// buffers, index) with the expression its message must quote; the test binary
// runs itself with "--violate <index>". Length 0 first resizes the scratch
// array to 0, which must pass its own check.
struct Victim {
    double x[16] = {}, f[16] = {};
    FFTReal<double> fft{16};
    DynArray<int> array{4};
};

const struct Violation {
    const char *name, *expression;
    void (*run)(Victim &);
} violations[] = {
    {"length 0", "x > 0", [](Victim &) { FFTReal<double>{0}; }},
    {"length 3", "FFTReal_is_pow2 (length)", [](Victim &) { FFTReal<double>{3}; }},
    {"f null", "f != 0", [](Victim &v) { v.fft.forward_transform(nullptr, v.x); }},
    {"x is f", "x != f", [](Victim &v) { v.fft.forward_transform(v.f, v.f); }},
    {"index past the end", "pos < _len", [](Victim &v) { v.array[4] = 0; }},
};
} // namespace

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

    // Every violated precondition ends the program, Release builds included,
    // naming the expression.
    void violationEndsTheProgram_data()
    {
        QTest::addColumn<int>("index");
        for (const Violation &v : violations)
            QTest::newRow(v.name) << int(&v - violations);
    }

    void violationEndsTheProgram()
    {
        QFETCH(int, index);
        QProcess child;
        child.start(QCoreApplication::applicationFilePath(), {"--violate", QString::number(index)});
        QVERIFY(child.waitForFinished(60000));
        const QString err = QString::fromLocal8Bit(child.readAllStandardError());
        QCOMPARE(child.exitStatus(), QProcess::CrashExit);
        QVERIFY2(err.contains(QString("Assertion failed: %1 (").arg(violations[index].expression)),
                 qPrintable(err));
    }
};

int main(int argc, char **argv)
{
    if (argc == 3 && qstrcmp(argv[1], "--violate") == 0) {
        Victim victim;
        violations[std::atoi(argv[2])].run(victim);
        return 0;
    }
    QCoreApplication app(argc, argv);
    TestFFTReal test;
    return QTest::qExec(&test, argc, argv);
}

#include "tst_fftreal.moc"
