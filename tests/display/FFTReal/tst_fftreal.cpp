#include "display/FFTReal/fftreal.h"

#include <QtTest>

#include <algorithm>
#include <atomic>
#include <climits>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <new>
#include <random>
#include <vector>

// Every heap allocation of this program is counted, so that a test can check
// that a transform allocates nothing. All forms go to malloc and free, so the
// sanitizers see matching pairs.
static std::atomic<long> allocationCount{0};

static void *countedAllocation(std::size_t size)
{
    ++allocationCount;
    if (void *p = std::malloc(size == 0 ? 1 : size)) {
        return p;
    }
    throw std::bad_alloc();
}

void *operator new(std::size_t size)
{
    return countedAllocation(size);
}

void *operator new[](std::size_t size)
{
    return countedAllocation(size);
}

void operator delete(void *p) noexcept
{
    std::free(p);
}

void operator delete[](void *p) noexcept
{
    std::free(p);
}

void operator delete(void *p, std::size_t) noexcept
{
    std::free(p);
}

void operator delete[](void *p, std::size_t) noexcept
{
    std::free(p);
}

namespace
{

// Exposes the tables of a transformer to the checks below.
class InspectedFFTReal : public FFTReal<double>
{
public:
    using FFTReal<double>::FFTReal;
    int nbrBits() const { return _nbr_bits; }
    const DynArray<int> &bitRevTable() const { return _bit_rev_table; }
    const DynArray<double> &cosTable() const { return _cos_table; }
    DynArray<SinCosOscillator> &oscTable() { return _osc_table; }
};

const long double pi = 3.141592653589793238462643383279502884L;

std::vector<double> randomSignal(int length, unsigned seed)
{
    std::mt19937 generator(seed);
    std::uniform_real_distribution<double> distribution(-1.0, 1.0);
    std::vector<double> x(length);
    for (double &value : x) {
        value = distribution(generator);
    }
    return x;
}

// Relative RMS difference between the packed result f and X(k) evaluated
// directly in long double, over the given bins k (0 <= k <= N/2): f[k] against
// Re X(k) and, for 0 < k < N/2, f[N/2 + k] against -Im X(k).
double relativeRmsError(const std::vector<double> &x, const std::vector<double> &f,
                        const std::vector<int> &bins)
{
    const int n = int(x.size());
    std::vector<long double> cosines(n), sines(n);
    for (int i = 0; i < n; ++i) {
        cosines[i] = std::cos(2 * pi * i / n);
        sines[i] = std::sin(2 * pi * i / n);
    }
    long double error = 0, reference = 0;
    for (int k : bins) {
        long double re = 0, im = 0;
        for (int m = 0; m < n; ++m) {
            const int phase = int((static_cast<long long>(k) * m) % n);
            re += x[m] * cosines[phase];
            im -= x[m] * sines[phase];
        }
        error += (f[k] - re) * (f[k] - re);
        reference += re * re;
        if (k > 0 && k < n / 2) {
            error += (f[n / 2 + k] + im) * (f[n / 2 + k] + im);
            reference += im * im;
        }
    }
    return double(std::sqrt(error / reference));
}

std::vector<double> transformed(const std::vector<double> &x)
{
    FFTReal<double> fft(int(x.size()));
    std::vector<double> f(x.size());
    fft.forward_transform(f.data(), x.data());
    return f;
}

} // namespace

class TestFFTReal : public QObject
{
    Q_OBJECT

private slots:
    // Bounds: every pass rounds each value once or twice, so with twiddles
    // correct to the last bit the relative RMS error grows like
    // eps * sqrt(log2 N), eps = 1.1e-16, a few 1e-16 for the lengths served by
    // the cosine table alone (measured up to 3.1e-16); 1e-15 leaves room for
    // other inputs. From 16384 on, the twiddles of the levels 13 and up come
    // from rotating by the rounded cos/sin of the step: its modulus misses 1
    // by up to ~eps, so after j steps a twiddle is off by up to ~j * eps,
    // j < 4096 at level 13 and j < 8192 at level 14, i.e. a few 1e-13 at the
    // end of a block and half that on average (measured 6.5e-14 at 16384 and
    // 1.8e-13 at 32768). A wrong table entry, a float twiddle or an oscillator
    // that is not restarted per block costs orders of magnitude more.
    void matchesDirectEvaluation_data()
    {
        QTest::addColumn<int>("bits");
        QTest::addColumn<double>("bound");
        for (int bits = 0; bits <= 15; ++bits) {
            const double bound = bits < 14 ? 1e-15 : bits == 14 ? 1.5e-13 : 3e-13;
            QTest::addRow("N=%d", 1 << bits) << bits << bound;
        }
    }

    void matchesDirectEvaluation()
    {
        QFETCH(int, bits);
        QFETCH(double, bound);
        const int n = 1 << bits;
        const std::vector<double> x = randomSignal(n, 1000 + bits);
        const std::vector<double> input = x;
        const std::vector<double> f = transformed(x);
        QVERIFY(x == input);

        // All bins up to 4096; above, the edges and a random sample.
        std::vector<int> bins;
        if (n <= 4096) {
            for (int k = 0; k <= n / 2; ++k) {
                bins.push_back(k);
            }
        } else {
            bins = {0, 1, n / 4, n / 2 - 1, n / 2};
            std::mt19937 generator(bits);
            std::uniform_int_distribution<int> bin(0, n / 2);
            for (int i = 0; i < 150; ++i) {
                bins.push_back(bin(generator));
            }
        }
        const double error = relativeRmsError(x, f, bins);
        QVERIFY2(error <= bound, qPrintable(QString("relative RMS error %1").arg(error)));
    }

    void smallLengthsExactly()
    {
        QCOMPARE(transformed({3.5}), std::vector<double>({3.5}));
        QCOMPARE(transformed({1, 2}), std::vector<double>({3, -1}));
        // X(0) = 10, X(1) = -2 + 2i, X(2) = -2.
        QCOMPARE(transformed({1, 2, 3, 4}), std::vector<double>({10, -2, -2, -2}));
        // An impulse has a flat real spectrum and no imaginary part.
        QCOMPARE(transformed({1, 0, 0, 0, 0, 0, 0, 0}),
                 std::vector<double>({1, 1, 1, 1, 1, 0, 0, 0}));
    }

    void cosineOnABinStaysInThatBin_data()
    {
        QTest::addColumn<int>("length");
        QTest::addColumn<int>("bin");
        QTest::newRow("N=1024, bin 1") << 1024 << 1;
        QTest::newRow("N=1024, bin 300") << 1024 << 300;
        QTest::newRow("N=32768, bin 1000") << 32768 << 1000;
        QTest::newRow("N=32768, bin 16383") << 32768 << 16383;
    }

    void cosineOnABinStaysInThatBin()
    {
        QFETCH(int, length);
        QFETCH(int, bin);
        std::vector<double> x(length);
        for (int m = 0; m < length; ++m) {
            x[m] = double(std::cos(2 * pi * ((static_cast<long long>(bin) * m) % length) / length));
        }
        const std::vector<double> f = transformed(x);
        QVERIFY(std::abs(f[bin] - length / 2.0) < 1e-13 * length);
        double leaked = 0;
        for (int i = 0; i < length; ++i) {
            if (i != bin) {
                leaked += f[i] * f[i];
            }
        }
        // Rounding only: relative to the bin's energy (N/2)^2 about the square
        // of the relative error bound of matchesDirectEvaluation, (3e-13)^2.
        QVERIFY2(leaked < 1e-25 * (length / 2.0) * (length / 2.0),
                 qPrintable(QString("leaked energy %1").arg(leaked)));
    }

    void tablesForLength32768()
    {
        InspectedFFTReal fft(32768);
        QCOMPARE(fft.nbrBits(), 15);
        QCOMPARE(fft.bitRevTable().size(), 32768);
        QCOMPARE(fft.bitRevTable()[1], 16384);
        for (int i = 0; i < 32768; ++i) {
            int reversed = 0;
            for (int bit = 0; bit < 15; ++bit) {
                reversed |= ((i >> bit) & 1) << (14 - bit);
            }
            QCOMPARE(fft.bitRevTable()[i], reversed);
        }

        QCOMPARE(fft.cosTable().size(), 4092);
        // Level L starts at 2^(L-1) - 4 and holds cos(j pi / 2^L).
        for (int level = 3; level <= 12; ++level) {
            const int start = (1 << (level - 1)) - 4;
            for (int j : {0, 1, (1 << (level - 1)) - 1}) {
                const long double expected = std::cos(j * pi / (1 << level));
                QVERIFY(std::abs(fft.cosTable()[start + j] - expected) < 2e-16);
            }
        }
        QCOMPARE(fft.oscTable().size(), 2);
    }

    // After a transform the oscillator of level p has been stepped h - 1 =
    // 2^(p-1) - 1 times from angle 0 by pi / 2^p in its last block.
    void oscillatorLevelsAreUsed()
    {
        InspectedFFTReal fft(32768);
        const std::vector<double> x = randomSignal(32768, 7);
        std::vector<double> f(32768);
        for (int i = 0; i < 2; ++i) {
            QCOMPARE(fft.oscTable()[i].get_cos(), 1.0);
            QCOMPARE(fft.oscTable()[i].get_sin(), 0.0);
        }
        fft.forward_transform(f.data(), x.data());
        for (int level : {13, 14}) {
            const SinCosOscillator &osc = fft.oscTable()[level - 13];
            const long double angle = ((1 << (level - 1)) - 1) * pi / (1 << level);
            QVERIFY(std::abs(osc.get_cos() - std::cos(angle)) < 1e-12);
            QVERIFY(std::abs(osc.get_sin() - std::sin(angle)) < 1e-12);
        }

        // With the level-13 oscillator standing still, that level's twiddles
        // are all 1 and the result is far off.
        fft.oscTable()[0].set_step(0);
        std::vector<double> broken(32768);
        fft.forward_transform(broken.data(), x.data());
        double difference = 0;
        for (int i = 0; i < 32768; ++i) {
            difference = std::max(difference, std::abs(broken[i] - f[i]));
        }
        QVERIFY(difference > 1.0);
    }

    void transformsRepeatExactlyWithoutAllocating()
    {
        FFTReal<double> fft(32768);
        const std::vector<double> x = randomSignal(32768, 3);
        std::vector<double> first(32768), second(32768);
        const long before = allocationCount;
        fft.forward_transform(first.data(), x.data());
        fft.forward_transform(second.data(), x.data());
        QCOMPARE(allocationCount.load(), before);
        QVERIFY(first == second);
        QVERIFY(transformed(x) == first);
    }

    void arrayResizing()
    {
        DynArray<SinCosOscillator> empty;
        QCOMPARE(empty.size(), 0);

        DynArray<SinCosOscillator> array(3);
        QCOMPARE(array.size(), 3);
        array[2].set_step(0.5);
        array[2].step();
        array.resize(0);
        QCOMPARE(array.size(), 3);
        QVERIFY(array[2].get_sin() > 0.4);

        // A positive size gives fresh default elements.
        array.resize(3);
        QCOMPARE(array.size(), 3);
        QCOMPARE(array[2].get_sin(), 0.0);
        array.resize(5);
        QCOMPARE(array.size(), 5);
        QCOMPARE(array[4].get_cos(), 1.0);
    }

    // Each violated precondition must end the program, also in Release builds,
    // naming the expression. The test binary runs itself with "--violate <case>".
    // "_nbr_bits <= MAX_BIT_DEPTH" cannot be reached from an int length: the
    // largest positive power of two in an int is 2^30, 30 bits.
    void violationEndsTheProgram_data()
    {
        QTest::addColumn<QString>("violation");
        QTest::addColumn<QString>("expression");
        QTest::addColumn<QString>("file");
        const struct {
            const char *violation, *expression, *file;
        } cases[] = {
            {"length-zero", "x > 0", "fftreal.h"},
            {"length-negative", "size >= 0", "dynarray.h"},
            {"length-three", "FFTReal_is_pow2 (length)", "fftreal.h"},
            {"length-2^31", "size >= 0", "dynarray.h"},
            {"pow2-zero", "x > 0", "fftreal.h"},
            {"f-null", "f != 0", "fftreal.h"},
            {"f-null-x-null", "f != 0", "fftreal.h"},
            {"f-buffer", "f != use_buffer ()", "fftreal.h"},
            {"f-buffer-x-null", "f != use_buffer ()", "fftreal.h"},
            {"x-null", "x != 0", "fftreal.h"},
            {"x-buffer", "x != use_buffer ()", "fftreal.h"},
            {"x-f", "x != f", "fftreal.h"},
            {"array-negative", "size >= 0", "dynarray.h"},
            {"array-resize-negative", "size >= 0", "dynarray.h"},
            {"array-below", "pos >= 0", "dynarray.h"},
            {"array-past", "pos < _len", "dynarray.h"},
            {"array-empty", "pos < _len", "dynarray.h"},
        };
        for (const auto &c : cases) {
            QTest::newRow(c.violation) << c.violation << c.expression << c.file;
        }
    }

    void violationEndsTheProgram()
    {
        QFETCH(QString, violation);
        QFETCH(QString, expression);
        QFETCH(QString, file);
        QProcess child;
        child.start(QCoreApplication::applicationFilePath(), {"--violate", violation});
        QVERIFY(child.waitForFinished(60000));
        const QString err = QString::fromLocal8Bit(child.readAllStandardError());
        QCOMPARE(child.exitStatus(), QProcess::CrashExit);
        QVERIFY2(err.contains("Assertion failed: " + expression + " (") && err.contains(file + ":"),
                 qPrintable(err));
    }
};

// Runs one precondition violation; returns only if nothing stopped it.
static void violate(const QByteArray &which)
{
    std::vector<double> x(16, 1.0), f(16);
    FFTReal<double> fft(16);
    DynArray<int> array(4);
    const DynArray<int> &constArray = array;
    DynArray<int> empty;
    if (which == "length-zero") {
        FFTReal<double> bad(0);
    } else if (which == "length-negative") {
        FFTReal<double> bad(-16);
    } else if (which == "length-three") {
        FFTReal<double> bad(3);
    } else if (which == "length-2^31") {
        FFTReal<double> bad(INT_MIN);
    } else if (which == "pow2-zero") {
        FFTReal_is_pow2(0);
    } else if (which == "f-null") {
        fft.forward_transform(nullptr, x.data());
    } else if (which == "f-null-x-null") {
        fft.forward_transform(nullptr, nullptr);
    } else if (which == "f-buffer") {
        fft.forward_transform(fft.use_buffer(), x.data());
    } else if (which == "f-buffer-x-null") {
        fft.forward_transform(fft.use_buffer(), nullptr);
    } else if (which == "x-null") {
        fft.forward_transform(f.data(), nullptr);
    } else if (which == "x-buffer") {
        fft.forward_transform(f.data(), fft.use_buffer());
    } else if (which == "x-f") {
        fft.forward_transform(f.data(), f.data());
    } else if (which == "array-negative") {
        DynArray<double> bad(-1);
    } else if (which == "array-resize-negative") {
        array.resize(-2);
    } else if (which == "array-below") {
        array[-1] = 0;
    } else if (which == "array-past") {
        std::printf("%d\n", constArray[4]);
    } else if (which == "array-empty") {
        empty[0] = 0;
    }
}

int main(int argc, char **argv)
{
    if (argc == 3 && qstrcmp(argv[1], "--violate") == 0) {
        violate(argv[2]);
        return 0;
    }
    QCoreApplication app(argc, argv);
    TestFFTReal test;
    return QTest::qExec(&test, argc, argv);
}

#include "tst_fftreal.moc"
