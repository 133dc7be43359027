// SPDX-License-Identifier: GPL-3.0-or-later
// Timing report of the sounds: plays a run with the panel's default settings
// into a private PulseAudio pipe sink, answered by a simulated participant, and
// prints for every trial what came out of the audio output: the onset of each
// interval, the inter-onset intervals against the timer period, how long after
// its tick each sound began, and the delay from the true end of sound 4 to the
// start of the reaction-time clock. Every interval is also compared bit for bit
// with the sound it should carry.
//
//   timing_report [--trials N] [--coarse-timer]
//
// --trials N stops after N trials (default: the whole run, about 25 trials of
// 7 s each); --coarse-timer restarts the sound timer as a coarse timer after
// every answer, for comparison with the precise timer the program uses. The
// exit status is 1 when a sound did not come out bit for bit as built.

#include "app/mainwindow.h"
#include "stimulus/samplebytes.h"
#include "support/runharness.h"

#include <QApplication>
#include <QEventLoop>
#include <QTimer>

#include <algorithm>
#include <cmath>
#include <cstdio>

namespace
{

struct Summary {
    QVector<double> values;
    void add(double v) { values.append(v); }
    double mean() const
    {
        double s = 0;
        for (double v : values)
            s += v;
        return values.isEmpty() ? 0 : s / values.size();
    }
    double min() const { return *std::min_element(values.begin(), values.end()); }
    double max() const { return *std::max_element(values.begin(), values.end()); }
    double maxAbs() const
    {
        double m = 0;
        for (double v : values)
            m = std::max(m, std::fabs(v));
        return m;
    }
};

// Where `sound` (float32le bytes) begins in `captured` when it is the first
// thing other than silence within `within` samples from `from`: the first
// non-zero sample aligned with the sound's first non-zero sample; -1 when there
// is none.
qint64 onsetOf(const QByteArray &captured, const QByteArray &sound, qint64 from, qint64 within)
{
    const auto *expected = reinterpret_cast<const float *>(sound.constData());
    int lead = 0;
    while (lead < sound.size() / 4 && expected[lead] == 0.0f)
        ++lead;
    const QByteArray window =
        captured.mid(static_cast<int>(4 * from), static_cast<int>(4 * within));
    const auto *samples = reinterpret_cast<const float *>(window.constData());
    for (int i = 0; lead < sound.size() / 4 && i < window.size() / 4; ++i) {
        if (samples[i] != 0.0f)
            return from + i - lead;
    }
    return -1;
}

int usage()
{
    std::fprintf(stderr, "usage: timing_report [--trials N] [--coarse-timer]\n");
    return 2;
}

} // namespace

int main(int argc, char **argv)
{
    // The report shows no window; it needs no display.
    if (qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM"))
        qputenv("QT_QPA_PLATFORM", "offscreen");
    QApplication app(argc, argv);
    int maxTrials = 0;
    bool coarse = false;
    const QStringList args = app.arguments();
    for (int i = 1; i < args.size(); ++i) {
        if (args[i] == "--trials" && i + 1 < args.size())
            maxTrials = args[++i].toInt();
        else if (args[i] == "--coarse-timer")
            coarse = true;
        else
            return usage();
    }

    PulseServer capture;
    QString error;
    if (!capture.start(&error, PulseServer::Sink::Pipe)) {
        std::fprintf(stderr, "timing_report: %s\n", qPrintable(error));
        return 1;
    }
    // Only the report's own lines on stdout; the program's log is not wanted here.
    qInstallMessageHandler([](QtMsgType type, const QMessageLogContext &, const QString &text) {
        if (type != QtDebugMsg)
            std::fprintf(stderr, "%s\n", qPrintable(text));
    });

    MainWindow window;
    window.on_pushButtonView_clicked();
    const int period =
        static_cast<int>(1000 * std::max(window.params.duration[0], window.params.duration[1]) +
                         1000 * window.params.silentInterval);
    RunHarness participant(window, 0.2, 500, &capture);
    // When each trial's timer was started: right after the code that started it.
    QVector<qint64> timerStarts;
    participant.afterResponse = [&] {
        if (coarse && window.soundTimer->isActive()) {
            window.soundTimer->setTimerType(Qt::CoarseTimer);
            window.soundTimer->start();
        }
        timerStarts.append(PulseServer::nowNs());
    };

    QEventLoop loop;
    int ended = 0;
    QObject::connect(&window, &MainWindow::soundPlaying, &loop, [&](int index) {
        if (index == -1 && ++ended == maxTrials)
            QTimer::singleShot(0, &loop, &QEventLoop::quit);
    });
    QObject::connect(&window, &MainWindow::doneDataCollection, &loop,
                     [&] { QTimer::singleShot(0, &loop, &QEventLoop::quit); });
    QTimer::singleShot(0, &loop, [&] { participant.pressReady(); });
    // The loop ends at the last trial's end, before the participant answers it.
    loop.exec();

    std::printf("Timing report: %s timer, period %d ms, %d trials\n", coarse ? "coarse" : "precise",
                period, participant.trials.size());
    std::printf("Onsets in ms on the audio output's timeline; tick 1 = first tick after the\n"
                "timer started, minus the period (measured when soundPlaying(1) is emitted,\n"
                "after the output has been started); IOI = inter-onset interval; latency =\n"
                "soundPlaying(k) to the first sample out; end->clock = end of sound 4 to the\n"
                "reaction-time clock.\n\n");
    std::printf("%5s %3s %10s %7s %9s %9s %9s   %-27s %10s %5s\n", "trial", "dev", "onset 1",
                "tick 1", "IOI 1-2", "IOI 2-3", "IOI 3-4", "latency 1/2/3/4 (ms)", "end->clock",
                "exact");
    const QByteArray captured = capture.captured();
    Summary ioiError, firstTick, lateTicks, latency, endToClock;
    int exact = 0;
    int intervals = 0;
    qint64 firstOnset = -1;
    for (int t = 0; t < participant.trials.size(); ++t) {
        const RunHarness::Trial &trial = participant.trials[t];
        const QVector<RunHarness::Interval> played = participant.intervalsOf(t);
        if (played.size() != 4 || trial.endNs < 0)
            continue;
        qint64 onset[4];
        bool allExact = true;
        QByteArray lastSound;
        for (int k = 0; k < 4; ++k) {
            const QByteArray sound =
                float32LittleEndian(k + 1 == trial.stimPosition ? trial.deviant : trial.standard);
            onset[k] = onsetOf(captured, sound, played[k].capturePosition - PulseServer::rate / 100,
                               PulseServer::rate);
            const bool same = onset[k] >= 0 &&
                              captured.mid(static_cast<int>(4 * onset[k]), sound.size()) == sound;
            allExact = allExact && same;
            exact += same;
            ++intervals;
            if (onset[k] >= 0)
                latency.add((capture.arrivalNs(onset[k]) - played[k].startNs) / 1e6);
            lastSound = sound;
        }
        if (firstOnset < 0)
            firstOnset = onset[0];
        double ioi[3];
        for (int k = 0; k < 3; ++k) {
            ioi[k] = (onset[k + 1] - onset[k]) * 1000.0 / PulseServer::rate;
            ioiError.add(ioi[k] - period);
        }
        const qint64 endSample = onset[3] + lastSound.size() / 4 - 1;
        const double delay = (trial.endNs - capture.arrivalNs(endSample)) / 1e6;
        endToClock.add(delay);
        const double tick1 =
            t < timerStarts.size() ? (played[0].startNs - timerStarts[t]) / 1e6 - period : 0.0;
        firstTick.add(tick1);
        for (int k = 0; k < 4 && t < timerStarts.size(); ++k)
            lateTicks.add((played[k].startNs - timerStarts[t]) / 1e6 - (k + 1.0) * period);
        QString lat;
        for (int k = 0; k < 4; ++k)
            lat +=
                QString::number((capture.arrivalNs(onset[k]) - played[k].startNs) / 1e6, 'f', 1) +
                (k < 3 ? "/" : "");
        std::printf("%5d %3d %10.1f %+7.1f %9.1f %9.1f %9.1f   %-27s %+10.1f %5s\n", t + 1,
                    trial.stimPosition, (onset[0] - firstOnset) * 1000.0 / PulseServer::rate, tick1,
                    ioi[0], ioi[1], ioi[2], qPrintable(lat), delay, allExact ? "yes" : "NO");
    }
    if (ioiError.values.isEmpty()) {
        std::fprintf(stderr, "timing_report: no complete trial was captured\n");
        return 1;
    }
    std::printf("\nIOI minus period: mean %+.2f ms, largest deviation %.1f ms (%d IOIs)\n",
                ioiError.mean(), ioiError.maxAbs(), ioiError.values.size());
    std::printf("First tick minus period: mean %+.2f ms, largest deviation %.1f ms\n",
                firstTick.mean(), firstTick.maxAbs());
    std::printf("soundPlaying(k) after its due time (timer and output start): mean %+.2f ms, "
                "min %+.1f, max %+.1f\n",
                lateTicks.mean(), lateTicks.min(), lateTicks.max());
    std::printf("Latency soundPlaying(k) to sound: mean %.1f ms, min %.1f, max %.1f\n",
                latency.mean(), latency.min(), latency.max());
    std::printf("End of sound 4 to reaction-time clock: mean %+.1f ms, min %+.1f, max %+.1f\n",
                endToClock.mean(), endToClock.min(), endToClock.max());
    std::printf("Intervals identical bit for bit to their sound: %d of %d\n", exact, intervals);
    return exact == intervals ? 0 : 1;
}
