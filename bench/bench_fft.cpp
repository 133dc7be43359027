// SPDX-License-Identifier: GPL-3.0-or-later
// Times FFTReal<double>::forward_transform against FFTW's real-to-complex
// double transform of the same length, in the same run, and prints the ratio
// of their times at length 32768 (the length the program uses).

#include "display/FFTReal/fftreal.h"

#include <benchmark/benchmark.h>
#include <fftw3.h>

#include <algorithm>
#include <cstdio>
#include <map>
#include <random>
#include <string>
#include <vector>

#include <unistd.h>

namespace
{

const int ratioLength = 32768;

std::vector<double> randomSignal(int length)
{
    std::mt19937 generator(12345);
    std::uniform_real_distribution<double> distribution(-1.0, 1.0);
    std::vector<double> signal(length);
    for (double &value : signal) {
        value = distribution(generator);
    }
    return signal;
}

void BM_FFTReal(benchmark::State &state)
{
    const int length = static_cast<int>(state.range(0));
    FFTReal<double> fft(length);
    const std::vector<double> x = randomSignal(length);
    std::vector<double> f(length);
    for (auto _ : state) {
        fft.forward_transform(f.data(), x.data());
        benchmark::DoNotOptimize(f.data());
        benchmark::ClobberMemory();
    }
}

// The plan is made once with FFTW_MEASURE (FFTW times candidate algorithms and
// keeps the fastest), outside the timed loop. Planning overwrites the arrays,
// so the input is filled afterwards.
void BM_FFTW(benchmark::State &state)
{
    const int length = static_cast<int>(state.range(0));
    double *in = fftw_alloc_real(length);
    fftw_complex *out = fftw_alloc_complex(length / 2 + 1);
    fftw_plan plan = fftw_plan_dft_r2c_1d(length, in, out, FFTW_MEASURE);
    const std::vector<double> x = randomSignal(length);
    std::copy(x.begin(), x.end(), in);
    for (auto _ : state) {
        fftw_execute(plan);
        benchmark::DoNotOptimize(out);
        benchmark::ClobberMemory();
    }
    fftw_destroy_plan(plan);
    fftw_free(out);
    fftw_free(in);
}

BENCHMARK(BM_FFTReal)->RangeMultiplier(2)->Range(1024, 65536)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_FFTW)->RangeMultiplier(2)->Range(1024, 65536)->Unit(benchmark::kMicrosecond);

// Prints as the console reporter does and keeps the CPU time per iteration,
// in seconds, of every benchmark (on a busy machine the wall-clock time also
// counts the time the process waited for a processor). With repetitions the
// median is kept.
class RecordingReporter : public benchmark::ConsoleReporter
{
public:
    // Colours only on a terminal, so that redirected output stays plain text.
    RecordingReporter() : ConsoleReporter(isatty(fileno(stdout)) ? OO_Defaults : OO_Tabular) {}

    std::map<std::string, double> seconds;

    void ReportRuns(const std::vector<Run> &runs) override
    {
        for (const Run &run : runs) {
            if (run.error_occurred) {
                continue;
            }
            const bool median = run.run_type == Run::RT_Aggregate && run.aggregate_name == "median";
            if (run.run_type == Run::RT_Iteration || median) {
                seconds[run.run_name.str()] =
                    run.GetAdjustedCPUTime() / benchmark::GetTimeUnitMultiplier(run.time_unit);
            }
        }
        ConsoleReporter::ReportRuns(runs);
    }
};

} // namespace

int main(int argc, char **argv)
{
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) {
        return 1;
    }
    RecordingReporter reporter;
    benchmark::RunSpecifiedBenchmarks(&reporter);
    benchmark::Shutdown();

    const std::string suffix = "/" + std::to_string(ratioLength);
    const auto own = reporter.seconds.find("BM_FFTReal" + suffix);
    const auto reference = reporter.seconds.find("BM_FFTW" + suffix);
    if (own == reporter.seconds.end() || reference == reporter.seconds.end()) {
        std::printf("Ratio FFTReal/FFTW at %d: not measured in this run\n", ratioLength);
        return 0;
    }
    std::printf("Ratio FFTReal/FFTW at %d (CPU time): %.2f (%.1f us / %.1f us)\n", ratioLength,
                own->second / reference->second, own->second * 1e6, reference->second * 1e6);
    return 0;
}
