#include "display/FFTReal/fftreal.h"

#include <QtTest>

#include <atomic>
#include <climits>
#include <cmath>
#include <complex>
#include <cstdlib>
#include <new>
#include <numeric>
#include <random>
#include <vector>

// Every heap allocation of this program is counted, so that a test can check
// that a transform allocates nothing. All forms go to malloc and free, so the
// sanitizers see matching pairs.
static std::atomic<long> allocationCount{0};

void *operator new(std::size_t size)
{
    ++allocationCount;
    if (void *p = std::malloc(size == 0 ? 1 : size))
        return p;
    throw std::bad_alloc();
}

void *operator new[](std::size_t size)
{
    return operator new(size);
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
    for (double &value : x)
        value = distribution(generator);
    return x;
}

// Relative RMS difference, over the given bins k (0 <= k <= N/2), between the
// packed result f (Re X(k) at k, -Im X(k) at N/2 + k for 0 < k < N/2) and X(k)
// evaluated directly in long double.
double relativeRmsError(const std::vector<double> &x, const std::vector<double> &f,
                        const std::vector<int> &bins)
{
    const int n = int(x.size());
    std::vector<std::complex<long double>> twiddle(n);
    for (int i = 0; i < n; ++i)
        twiddle[i] = std::polar(1.0L, -2 * pi * i / n);
    long double error = 0, reference = 0;
    for (int k : bins) {
        std::complex<long double> expected = 0;
        for (int m = 0; m < n; ++m)
            expected += twiddle[static_cast<long long>(k) * m % n] * static_cast<long double>(x[m]);
        const long double im = k > 0 && k < n / 2 ? -f[n / 2 + k] : 0;
        error += std::norm(std::complex<long double>(f[k], im) - expected);
        reference += std::norm(expected);
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

// Each violated precondition, with the expression its message must quote. The
// test binary runs itself with "--violate <index>". "_nbr_bits <= MAX_BIT_DEPTH"
// cannot be reached from an int length: the largest power of two in an int is
// 2^30, 30 bits; 2^31 wraps to INT_MIN.
struct Victim {
    std::vector<double> x = std::vector<double>(16, 1.0), f = std::vector<double>(16);
    FFTReal<double> fft{16};
    DynArray<int> array{4}, empty;
    void transform(double *out, const double *in) { fft.forward_transform(out, in); }
};

const struct Violation {
    const char *name, *expression;
    void (*run)(Victim &);
} violations[] = {
    {"length 0", "x > 0", [](Victim &) { FFTReal<double>{0}; }},
    {"length -16", "size >= 0", [](Victim &) { FFTReal<double>{-16}; }},
    {"length 3", "FFTReal_is_pow2 (length)", [](Victim &) { FFTReal<double>{3}; }},
    {"length 2^31", "size >= 0", [](Victim &) { FFTReal<double>{INT_MIN}; }},
    {"f null", "f != 0", [](Victim &v) { v.transform(nullptr, v.x.data()); }},
    {"f scratch", "f != use_buffer ()",
     [](Victim &v) { v.transform(v.fft.use_buffer(), v.x.data()); }},
    {"x null", "x != 0", [](Victim &v) { v.transform(v.f.data(), nullptr); }},
    {"x scratch", "x != use_buffer ()",
     [](Victim &v) { v.transform(v.f.data(), v.fft.use_buffer()); }},
    {"x equal to f", "x != f", [](Victim &v) { v.transform(v.f.data(), v.f.data()); }},
    {"array below", "pos >= 0", [](Victim &v) { v.array[-1] = 0; }},
    {"const array past", "pos < _len",
     [](Victim &v) { static_cast<void>(std::as_const(v.array)[4]); }},
    {"empty array", "pos < _len", [](Victim &v) { v.empty[0] = 0; }},
};

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
        for (int bits = 0; bits <= 15; ++bits)
            QTest::addRow("N=%d", 1 << bits) << bits;
    }

    void matchesDirectEvaluation()
    {
        QFETCH(int, bits);
        const double bound = bits < 14 ? 1e-15 : bits == 14 ? 1.5e-13 : 3e-13;
        const int n = 1 << bits;
        const std::vector<double> x = randomSignal(n, 1000 + bits);
        // Every bin up to N = 4096; above, the edges and about 128 at random.
        std::vector<int> bins;
        std::mt19937 pick(bits);
        for (int k = 0; k <= n / 2; ++k)
            if (n <= 4096 || k <= 1 || k >= n / 2 - 1 || pick() % (n / 256) == 0)
                bins.push_back(k);
        const double error = relativeRmsError(x, transformed(x), bins);
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

    void cosineOnABinStaysInThatBin()
    {
        for (auto [n, bin] : std::vector<std::pair<int, int>>{
                 {1024, 1}, {1024, 300}, {32768, 1000}, {32768, 16383}}) {
            std::vector<double> x(n);
            for (int m = 0; m < n; ++m)
                x[m] = double(std::cos(2 * pi * (static_cast<long long>(bin) * m % n) / n));
            std::vector<double> f = transformed(x);
            QVERIFY(std::abs(f[bin] - n / 2.0) < 1e-13 * n);
            // Rounding only: relative to the bin's energy (N/2)^2 about the
            // square of the relative error bound above, (3e-13)^2.
            f[bin] = 0;
            const double leaked = std::inner_product(f.begin(), f.end(), f.begin(), 0.0);
            QVERIFY2(leaked < 1e-25 * n * n / 4,
                     qPrintable(QString("N=%1 bin %2: leaked %3").arg(n).arg(bin).arg(leaked)));
        }
    }

    void length32768()
    {
        InspectedFFTReal fft(32768);
        QCOMPARE(fft.bitRevTable()[1], 16384);
        QCOMPARE(fft.cosTable().size(), 4092);
        QCOMPARE(fft.oscTable().size(), 2);

        // Transforms repeat exactly and allocate nothing.
        const std::vector<double> x = randomSignal(32768, 7);
        std::vector<double> f(32768), again(32768);
        const long before = allocationCount;
        fft.forward_transform(f.data(), x.data());
        fft.forward_transform(again.data(), x.data());
        QCOMPARE(allocationCount.load(), before);
        QVERIFY(again == f);
        QVERIFY(x == randomSignal(32768, 7));

        // With the oscillator of level 13 or 14 standing still, that level's
        // twiddles are all 1 and the result is far off.
        for (int level : {13, 14}) {
            InspectedFFTReal broken(32768);
            broken.oscTable()[level - 13].set_step(0);
            broken.forward_transform(again.data(), x.data());
            QVERIFY(!std::equal(f.begin(), f.end(), again.begin(),
                                [](double a, double b) { return std::abs(a - b) < 1.0; }));
        }
    }

    // Each violated precondition must end the program, also in Release
    // builds, naming the expression.
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
