// SPDX-License-Identifier: GPL-3.0-or-later
#include "../app/mainwindow.h"
#include "../stimulus/randomsource.h"
#include "staircase.h"

#include <QDebug>
#include <QElapsedTimer>
#include <QMessageBox>
#include <QTimer>

#include <climits>

namespace
{
// The timer period in ms: the longer sound plus the silent interval, truncated
// toward zero and kept within what a timer accepts.
int periodMs(const SessionParameters &params)
{
    const double ms =
        1000 * qMax(params.duration[0], params.duration[1]) + 1000 * params.silentInterval;
    if (!(ms > 0.0))
        return 0;
    return ms >= static_cast<double>(INT_MAX) ? INT_MAX : static_cast<int>(ms);
}
} // namespace

void MainWindow::updateMainwindow(int response)
{
    sequenceIndex = 0;
    if (response == 0) {
        qDebug() << "Test just started";
        noteRunStart();
        startTrial();
        return;
    }
    if (response < 1 || response > 4) {
        QMessageBox::warning(nullptr, "Warning", "Invalid response");
        return;
    }
    // An answer before any trial has ended has no clock to read; it counts 0 ms.
    const double reactionTime =
        reactionClock->isValid() ? static_cast<double>(reactionClock->elapsed()) : 0.0;
    qDebug().nospace() << "response: " << response;
    TrialRecord record;
    record.value = Staircase::trackedValue(params);
    record.stimPosition = params.stimPosition;
    record.responsePosition = response;
    record.correct = params.stimPosition == response;
    record.reactionTime = reactionTime;
    params.trials.append(record);
    appendTrendPoint();
    nextTrial();
}

void MainWindow::startTrial()
{
    chooseStimPosition();
    if (params.reversalCount < params.numberOfReversals) {
        // A precise timer: a coarse one may fire up to 5 % of its period early
        // or late, which would make the four onsets of a trial irregular.
        soundTimer->setTimerType(Qt::PreciseTimer);
        soundTimer->start(periodMs(params));
    }
    ++params.trialCount;
}

void MainWindow::chooseStimPosition()
{
    params.stimPosition = randomInteger(2, 3);
    qDebug().nospace() << "stimPosition: " << params.stimPosition;
    deviantFlags.fill(false);
    if (params.stimPosition >= 1 && params.stimPosition <= deviantFlags.size())
        deviantFlags[params.stimPosition - 1] = true;
}

int MainWindow::randomInteger(int min, int max)
{
    if (min > max) {
        QMessageBox::warning(nullptr, "Warning", "min cannot be larger than max");
        // Nothing is drawn, so the noise that follows is the same as without the call.
        return min;
    }
    const qint64 span = static_cast<qint64>(max) - min + 1;
    return static_cast<int>(RandomSource::next() % span + min);
}

void MainWindow::nextTrial()
{
    if (Staircase::applyReversalRule(params)) {
        finishRun();
        return;
    }
    applyStep();
    generateSounds();
    updateWaveformCharts();
    computeSpectra();
    updateSpectrumCharts();
    startTrial();
}

void MainWindow::finishRun()
{
    computeResults();
    emit doneDataCollection(params.threshold, params.reactionTime, params.mainParameter,
                            params.carrierFrequency[0]);
    settleOvertakenIntervals();
    if (!runFacts.faultyIntervals.isEmpty() || !runFacts.silentTrials.isEmpty())
        warnFaultyRun();
    if (params.saveData)
        saveResults();
}
