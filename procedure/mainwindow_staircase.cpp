#include "../app/mainwindow.h"
#include "staircase.h"

#include <QLineEdit>

void MainWindow::applyStep() {}

void MainWindow::resetStartValues()
{
    Staircase::resetStartValues(params);
    lineEditModDepthDev->setText(QString::number(100 * params.modulationDepth[1], 'f', 4));
    lineEditFreqDiffDev->setText(
        QString::number(params.frequencyDifference[1] * params.carrierFrequency[0], 'f', 4));
    lineEditCarrierFreqDev->setText(QString::number(params.carrierFrequency[1], 'f', 2));
}

void MainWindow::computeResults() {}
