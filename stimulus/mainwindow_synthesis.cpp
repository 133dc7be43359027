// SPDX-License-Identifier: GPL-3.0-or-later
#include "../app/mainwindow.h"
#include "synthesis.h"

void MainWindow::generateSounds()
{
    if (params.trialCount == 0) {
        waveformTime = Synthesis::timeAxis(qMax(params.displaySamples[0], params.displaySamples[1]),
                                           params.samplingRate);
        standardSound = Synthesis::synthesise(params, 0);
        standardSoundRate = params.samplingRate;
    }
    deviantSound = Synthesis::synthesise(params, 1);
    // Playback sets the output's rate from these, so a sound keeps its pitch
    // even when the panel's rate changed after it was built.
    deviantSoundRate = params.samplingRate;
    if (params.equaliseRms)
        Synthesis::equaliseRms(standardSound, deviantSound);
}

void MainWindow::updateDisplaySamples()
{
    for (int i = 0; i < 2; ++i)
        params.displaySamples[i] = Synthesis::displaySampleCount(params, i);
}
