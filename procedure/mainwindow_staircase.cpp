// SPDX-License-Identifier: GPL-3.0-or-later
#include "../app/mainwindow.h"
#include "staircase.h"

#include <QLineEdit>

namespace
{
QString fixed(double value, int decimals)
{
    return QString::number(value, 'f', decimals);
}
} // namespace

void MainWindow::applyStep()
{
    Staircase::applyStep(params);
    if (params.mainParameter == 0) {
        lineEditFreqDiffDev->setText(
            fixed(params.carrierFrequency[0] * params.frequencyDifference[1], 4));
        lineEditCarrierFreqDev->setText(fixed(params.carrierFrequency[1], 2));
    } else if (params.mainParameter == 1) {
        lineEditModDepthDev->setText(fixed(100 * params.modulationDepth[1], 4));
    }
}

void MainWindow::resetStartValues()
{
    Staircase::resetStartValues(params);
    lineEditModDepthDev->setText(fixed(100 * params.modulationDepth[1], 4));
    lineEditFreqDiffDev->setText(
        fixed(params.frequencyDifference[1] * params.carrierFrequency[0], 4));
    lineEditCarrierFreqDev->setText(fixed(params.carrierFrequency[1], 2));
}

void MainWindow::computeResults()
{
    Staircase::computeResults(params);
}
