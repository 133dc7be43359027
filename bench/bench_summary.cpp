// SPDX-License-Identifier: GPL-3.0-or-later
// Times veltrane-summary on a study of 1000 simulated runs: 20 participants,
// two conditions (modulation depth on noise, frequency difference on a
// 1000 Hz tone), 25 runs each, saved as the program saves them. The tool
// runs with its defaults (1000 bootstrap replicates per fit, the report
// included), three times; the median is the figure.
#include "listener.h"
#include "runfiles.h"
#include "simulation.h"

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QProcess>
#include <QTemporaryDir>
#include <QTextStream>

#include <algorithm>

int main(int argc, char **argv)
{
    QCoreApplication application(argc, argv);
    QTextStream out(stdout);
    QTemporaryDir temp;
    const QString data = temp.filePath("study");
    constexpr int participants = 20;
    constexpr int runsEach = 25;
    for (int mainParameter : {0, 1}) {
        SimulationSettings settings;
        settings.start = Simulation::startRecord(mainParameter);
        settings.runs = participants * runsEach;
        settings.seed = 100 + mainParameter;
        const Listener listener = Listener::logistic(mainParameter == 0 ? -46 : -20, 2, 0.02);
        const QVector<RunOutcome> runs = Simulation::runMany(settings, listener);
        for (int i = 0; i < runs.size(); ++i)
            if (!RunFiles::save(data, settings.start, runs[i], i, runsEach, settings.seed)
                     .isEmpty())
                return 1;
    }
    out << "1000 runs of " << participants << " participants in 2 conditions written\n";

    QVector<double> seconds;
    for (int repetition = 0; repetition < 3; ++repetition) {
        QProcess tool;
        QElapsedTimer clock;
        clock.start();
        tool.start(VELTRANE_SUMMARY_PATH, {"--seed", "1", "--out", temp.filePath("out"), data});
        if (!tool.waitForFinished(600000) || tool.exitCode() != 0) {
            out << "veltrane-summary failed: " << tool.readAllStandardError() << '\n';
            return 1;
        }
        seconds.append(clock.nsecsElapsed() / 1e9);
        out << "run " << repetition + 1 << ": " << QString::number(seconds.last(), 'f', 2)
            << " s\n";
    }
    std::sort(seconds.begin(), seconds.end());
    out << "median: " << QString::number(seconds[1], 'f', 2) << " s\n";
    return 0;
}
