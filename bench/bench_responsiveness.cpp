// SPDX-License-Identifier: GPL-3.0-or-later
// Times the work between a participant's answer and the start of the next
// trial with the start-up settings: the staircase step, the new deviant with
// the standard rescaled to its RMS, both amplitude spectra and the refresh of
// the four waveform and spectrum charts, on a shown experimenter window.
//
// Every repetition runs the work once (one iteration), so the median and the
// maximum reported are those of single answers. "Painted" adds what the event
// loop then does with the changed charts (layout and painting), which runs
// while the next trial's timer is already counting.

#include "app/mainwindow.h"

#include <QApplication>
#include <QtCharts/QChartView>

#include <benchmark/benchmark.h>

#include <algorithm>
#include <vector>

namespace
{

MainWindow *window = nullptr;

// Inside a run: the standard is frozen and only the deviant is rebuilt.
void prepare()
{
    window->params.trialCount = 1;
}

// The steps after an answer, in the order the program runs them.
void staircaseStep()
{
    window->applyStep();
}
void synthesis()
{
    window->generateSounds();
}
void waveformCharts()
{
    window->updateWaveformCharts();
}
void spectra()
{
    window->computeSpectra();
}
void spectrumCharts()
{
    window->updateSpectrumCharts();
}
void (*const steps[])() = {staircaseStep, synthesis, waveformCharts, spectra, spectrumCharts};

void answerToNextTrial()
{
    for (auto step : steps)
        step();
}

// What the event loop then does with the changed charts: the pending layout
// and the painting of the dirty views, while the next trial's timer counts.
void answerPainted()
{
    answerToNextTrial();
    QApplication::processEvents();
}

// Painting the four views from scratch, for comparison.
void paintCharts()
{
    for (QtCharts::QChartView *view : {window->chartViewWaveStd, window->chartViewWaveDev,
                                       window->chartViewSpecStd, window->chartViewSpecDev})
        view->viewport()->repaint();
}

double maximum(const std::vector<double> &v)
{
    return *std::max_element(v.begin(), v.end());
}

template <void (*Work)()> void run(benchmark::State &state)
{
    prepare();
    for (auto _ : state)
        Work();
}

// One step timed in its place: the steps before it run untimed in each
// repetition, so it works on a new deviant as it does after a real answer.
template <int Step> void part(benchmark::State &state)
{
    prepare();
    for (auto _ : state) {
        state.PauseTiming();
        for (int i = 0; i < Step; ++i)
            steps[i]();
        state.ResumeTiming();
        steps[Step]();
    }
}

void add(const char *name, void (*benchmark)(benchmark::State &))
{
    benchmark::RegisterBenchmark(name, benchmark)
        ->Iterations(1)
        ->Repetitions(200)
        ->ComputeStatistics("max", maximum)
        ->ReportAggregatesOnly(true)
        ->Unit(benchmark::kMillisecond);
}

} // namespace

int main(int argc, char **argv)
{
    if (qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM"))
        qputenv("QT_QPA_PLATFORM", "offscreen");
    QApplication app(argc, argv);
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv))
        return 1;

    MainWindow w;
    // The size the window takes on a 1920 × 1040 desktop, so the charts are
    // painted at a realistic size whatever the platform's screen.
    w.setGeometry(192, 52, 1536, 936);
    w.show();
    QApplication::processEvents();
    window = &w;

    add("AnswerToNextTrial", run<answerToNextTrial>);
    add("AnswerToNextTrialPainted", run<answerPainted>);
    add("Part/StaircaseStep", part<0>);
    add("Part/DeviantAndRescale", part<1>);
    add("Part/WaveformCharts", part<2>);
    add("Part/BothSpectra", part<3>);
    add("Part/SpectrumCharts", part<4>);
    add("Part/PaintFourCharts", run<paintCharts>);

    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
