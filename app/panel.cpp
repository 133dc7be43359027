#include "../stimulus/synthesis.h"
#include "../subject/subjectwindow.h"
#include "mainwindow.h"

#include <QCheckBox>
#include <QComboBox>
#include <QLineEdit>
#include <QMessageBox>
#include <QPushButton>

void MainWindow::readPanel()
{
    params.sessionType = comboBoxSesType->currentIndex();
    params.soundType = comboBoxSoundType->currentIndex();
    params.mainParameter = comboBoxMainParameter->currentIndex();
    params.trialCount = 0;
    params.duration[0] = lineEditDurationStd->text().toDouble() / 1000;
    params.carrierFrequency[0] = lineEditCarrierFreqStd->text().toDouble();
    params.modulationFrequency[0] = lineEditModFreqStd->text().toDouble();
    params.modulationDepth[0] = lineEditModDepthStd->text().toDouble() / 100;
    params.frequencyDifference[0] =
        lineEditFreqDiffStd->text().toDouble() / params.carrierFrequency[0];
    params.duration[1] = lineEditDurationDev->text().toDouble() / 1000;
    params.carrierFrequency[1] = lineEditCarrierFreqDev->text().toDouble();
    params.modulationFrequency[1] = lineEditModFreqDev->text().toDouble();
    params.resetMdFd = checkBoxResetMdFd->isChecked();
    if (params.resetMdFd) {
        resetStartValues();
    } else {
        params.modulationDepth[1] = lineEditModDepthDev->text().toDouble() / 100;
        params.frequencyDifference[1] =
            lineEditFreqDiffDev->text().toDouble() / params.carrierFrequency[0];
    }
    params.saveData = checkBoxSaveData->isChecked();
    params.numberOfReversals = lineEditNumReversals->text().toInt(nullptr, 10);
    params.reversalValues.resize(qMax(0, params.numberOfReversals));
    params.reversalsToCalculate = lineEditRevToCalc->text().toInt(nullptr, 10);
    if (params.reversalsToCalculate > params.numberOfReversals) {
        params.reversalsToCalculate = params.numberOfReversals;
        lineEditRevToCalc->setText(QString::number(params.reversalsToCalculate));
    }
    params.silentInterval = lineEditSilentInterval->text().toDouble() / 1000;
    params.samplingRate = lineEditSamplingRate->text().toDouble();
    params.subjectCode = lineEditSubCode->text();
    params.sessionNumber = lineEditSesNum->text().toInt(nullptr, 10);
    params.filePath = lineEditFilePath->text();
    params.fileName = lineEditFileName->text();
    for (int i = 0; i < 2; ++i)
        params.nSamples[i] = Synthesis::secondsToSamples(params.samplingRate, params.duration[i]);
    updateDisplaySamples();
}

void MainWindow::composeFileName()
{
    params.fileName = params.subjectCode + "_" + params.sessionTypes.value(params.sessionType) +
                      QString("%1").arg(params.sessionNumber, 3, 10, QChar('0')) + "_" +
                      params.soundTypes.value(params.soundType) + "_" +
                      params.mainParameters.value(params.mainParameter) + ".txt";
    lineEditFileName->setText(params.fileName);
}

void MainWindow::on_comboBoxSesType_currentIndexChanged(int index)
{
    params.sessionType = index;
    composeFileName();
}

void MainWindow::on_comboBoxSoundType_currentIndexChanged(int index)
{
    params.soundType = index;
    if (index == 1 && params.mainParameter == 0) {
        QMessageBox::warning(this, "Conflicting Parameters",
                             "The sound type 'noise' is incompatible with the internal parameter "
                             "'carrier frequency'. Sound type will be changed to 'sinusoid'",
                             QMessageBox::Ok, QMessageBox::NoButton);
        comboBoxSoundType->setCurrentIndex(0);
    }
    composeFileName();
}

void MainWindow::on_comboBoxMainParameter_currentIndexChanged(int index)
{
    const int soundType = params.soundType;
    params.mainParameter = index;
    if (soundType == 1 && index == 0) {
        QMessageBox::warning(this, "Conflicting Parameters",
                             "The sound type 'noise' is incompatible with the internal parameter "
                             "'carrier frequency'. Internal parameter will be changed to "
                             "'modulation depth'",
                             QMessageBox::Ok, QMessageBox::NoButton);
        comboBoxMainParameter->setCurrentIndex(1);
    }
    resetStartValues();
    composeFileName();
}

void MainWindow::on_lineEditSubCode_textChanged(const QString &arg1)
{
    params.subjectCode = arg1;
    composeFileName();
}

void MainWindow::on_lineEditSesNum_textChanged(const QString &arg1)
{
    params.sessionNumber = arg1.toInt(nullptr, 10);
    composeFileName();
}

void MainWindow::on_pushButtonView_clicked()
{
    readPanel();
    pushButtonGo->setEnabled(true);
    generateSounds();
    createWaveformCharts();
    computeSpectra();
    createSpectrumCharts();
    resetRun();
    createTrendChart();
}

void MainWindow::on_pushButtonGo_clicked()
{
    pushButtonGo->setEnabled(false);
    pushButtonView->setEnabled(true);
    setEnabled(false);
    readPanel();
    subjectWindow = new SubjectWindow(this);
    connect(subjectWindow, SIGNAL(subjectResponded(int)), this, SLOT(updateMainwindow(int)));
    connect(subjectWindow, SIGNAL(subjectWindowClosed()), this, SLOT(refreshMainWindow()));
    connect(this, SIGNAL(soundPlaying(int)), subjectWindow, SLOT(updateSubjectWindow(int)));
    connect(this, SIGNAL(doneDataCollection(qreal, qreal, qint32, qreal)), subjectWindow,
            SLOT(finishExperiment(qreal, qreal, qint32, qreal)));
    subjectWindow->show();
}

void MainWindow::refreshMainWindow()
{
    setEnabled(true);
    pushButtonView->setEnabled(true);
    pushButtonGo->setEnabled(false);
}
