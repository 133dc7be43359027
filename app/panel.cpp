// SPDX-License-Identifier: GPL-3.0-or-later
#include "../procedure/staircase.h"
#include "../stimulus/synthesis.h"
#include "../subject/subjectwindow.h"
#include "mainwindow.h"
#include "panelguard.h"

#include <QCheckBox>
#include <QComboBox>
#include <QLabel>
#include <QLineEdit>
#include <QMessageBox>
#include <QPushButton>

namespace
{

// Locale-independent conversions: a text that is not a number gives 0.
double number(const QLineEdit *edit)
{
    return edit->text().toDouble();
}

int integer(const QLineEdit *edit)
{
    return edit->text().toInt(nullptr, 10);
}

// A frequency difference in Hz as a fraction of the standard carrier. A 0 Hz
// carrier has no fractions, so the difference is stored as 0 instead of an
// infinite or undefined value.
double fractionOfCarrier(double hz, double carrier)
{
    return carrier == 0.0 ? 0.0 : hz / carrier;
}

// The record the panel reader makes from the panel, built on a copy of the
// current record without touching any widget, so that it can be checked before
// the window takes it over. The display lengths, which the check does not
// need, are recomputed by readPanel once the record is taken over.
SessionParameters panelRecord(const MainWindow &w, SessionParameters p)
{
    p.sessionType = w.comboBoxSesType->currentIndex();
    p.soundType = w.comboBoxSoundType->currentIndex();
    p.mainParameter = w.comboBoxMainParameter->currentIndex();
    p.trialCount = 0;
    p.duration[0] = number(w.lineEditDurationStd) / 1000;
    p.carrierFrequency[0] = number(w.lineEditCarrierFreqStd);
    p.modulationFrequency[0] = number(w.lineEditModFreqStd);
    p.modulationDepth[0] = number(w.lineEditModDepthStd) / 100;
    p.frequencyDifference[0] =
        fractionOfCarrier(number(w.lineEditFreqDiffStd), p.carrierFrequency[0]);
    p.duration[1] = number(w.lineEditDurationDev) / 1000;
    p.carrierFrequency[1] = number(w.lineEditCarrierFreqDev);
    p.modulationFrequency[1] = number(w.lineEditModFreqDev);
    p.resetMdFd = w.checkBoxResetMdFd->isChecked();
    if (p.resetMdFd) {
        Staircase::resetStartValues(p);
    } else {
        p.modulationDepth[1] = number(w.lineEditModDepthDev) / 100;
        p.frequencyDifference[1] =
            fractionOfCarrier(number(w.lineEditFreqDiffDev), p.carrierFrequency[0]);
    }
    p.saveData = w.checkBoxSaveData->isChecked();
    p.numberOfReversals = integer(w.lineEditNumReversals);
    // A count the guard refuses is never taken over; the bound keeps such a
    // count from allocating gigabytes in the copy that is checked.
    p.reversalValues.resize(qBound(0, p.numberOfReversals, PanelGuard::maxReversals));
    p.reversalsToCalculate = qMin(integer(w.lineEditRevToCalc), p.numberOfReversals);
    p.silentInterval = number(w.lineEditSilentInterval) / 1000;
    p.samplingRate = number(w.lineEditSamplingRate);
    p.subjectCode = w.lineEditSubCode->text();
    p.sessionNumber = integer(w.lineEditSesNum);
    p.filePath = w.lineEditFilePath->text();
    p.fileName = w.lineEditFileName->text();
    for (int i = 0; i < 2; ++i)
        p.nSamples[i] = Synthesis::secondsToSamples(p.samplingRate, p.duration[i]);
    return p;
}

// The panel widget whose accessible name is the given field name, or null.
QWidget *panelField(const MainWindow &w, const QString &field)
{
    for (QWidget *widget : w.centralWidget->findChildren<QWidget *>())
        if (widget->accessibleName() == field)
            return widget;
    return nullptr;
}

// Refuses a panel from which no session can be made: one warning names every
// offending field with its accepted values, and the first of them gets the
// focus. The record and the panel stay as they were.
bool panelAccepted(MainWindow &w)
{
    const QVector<PanelGuard::Problem> problems = PanelGuard::check(panelRecord(w, w.params));
    if (problems.isEmpty())
        return true;
    QMessageBox::warning(&w, "Warning", PanelGuard::describe(problems), QMessageBox::Ok,
                         QMessageBox::NoButton);
    if (QWidget *field = panelField(w, problems.first().field)) {
        field->setFocus();
        if (auto *edit = qobject_cast<QLineEdit *>(field))
            edit->selectAll();
    }
    return false;
}

} // namespace

void MainWindow::readPanel()
{
    const int typedReversalsToCalculate = integer(lineEditRevToCalc);
    params = panelRecord(*this, params);
    updateDisplaySamples();
    // The reset shows the start values in the Deviant column; it sets the same
    // values the record already holds, since it depends only on the main
    // parameter and the standard carrier.
    if (params.resetMdFd)
        resetStartValues();
    if (typedReversalsToCalculate > params.reversalsToCalculate)
        lineEditRevToCalc->setText(QString::number(params.reversalsToCalculate));
}

void MainWindow::composeFileName()
{
    params.fileName = params.composedFileName();
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
    if (!panelAccepted(*this))
        return;
    readPanel();
    pushButtonGo->setEnabled(true);
    buildSounds();
    resetRun();
    createTrendChart();
}

void MainWindow::on_pushButtonGo_clicked()
{
    // The output is checked before anything changes, so that Cancel on its
    // warning leaves the panel, the record, the sounds and Go as they were.
    if (!panelAccepted(*this) || !outputAccepted())
        return;
    pushButtonGo->setEnabled(false);
    pushButtonView->setEnabled(true);
    setEnabled(false);
    readPanel();
    // The panel may have changed since View: every sound of the run is built
    // from the settings the run starts with, which its sidecar records.
    buildSounds();
    subjectWindow = new SubjectWindow(this);
    connect(subjectWindow, SIGNAL(subjectResponded(int)), this, SLOT(updateMainwindow(int)));
    connect(subjectWindow, SIGNAL(subjectWindowClosed()), this, SLOT(refreshMainWindow()));
    connect(this, SIGNAL(soundPlaying(int)), subjectWindow, SLOT(updateSubjectWindow(int)));
    connect(this, SIGNAL(doneDataCollection(qreal, qreal, qint32, qreal)), subjectWindow,
            SLOT(finishExperiment(qreal, qreal, qint32, qreal)));
    subjectWindow->show();
}

void MainWindow::buildSounds()
{
    generateSounds();
    createWaveformCharts();
    computeSpectra();
    createSpectrumCharts();
}

void MainWindow::refreshMainWindow()
{
    setEnabled(true);
    pushButtonView->setEnabled(true);
    pushButtonGo->setEnabled(false);
}

void MainWindow::setPanelAccessibleNames()
{
    // Names come from the labels on screen, so a screen reader reads what a
    // sighted user sees. The Standard and Deviant boxes are named where the
    // layout places them, with their column heading.
    const QList<QPair<QLabel *, QWidget *>> rows{{labelSesType, comboBoxSesType},
                                                 {labelSoundType, comboBoxSoundType},
                                                 {labelMainParameter, comboBoxMainParameter},
                                                 {labelNumReversals, lineEditNumReversals},
                                                 {labelRevToCalc, lineEditRevToCalc},
                                                 {labelSilentInterval, lineEditSilentInterval},
                                                 {labelSamplingRate, lineEditSamplingRate},
                                                 {labelSubCode, lineEditSubCode},
                                                 {labelSesNum, lineEditSesNum},
                                                 {labelFilePath, lineEditFilePath},
                                                 {labelFileName, lineEditFileName}};
    for (const auto &row : rows) {
        row.second->setAccessibleName(row.first->text());
        row.first->setBuddy(row.second);
    }
    for (QCheckBox *box : {checkBoxSaveData, checkBoxResetMdFd})
        box->setAccessibleName(box->text());
}
