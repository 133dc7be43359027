// SPDX-License-Identifier: GPL-3.0-or-later
#include "../app/mainwindow.h"
#include "../stimulus/randomsource.h"
#include "resultsfile.h"
#include "sidecar.h"

#include <QFile>
#include <QFileDialog>
#include <QMessageBox>

namespace
{

// The save dialog, starting at `proposed`; returns the chosen name, or an
// empty name when it is cancelled. The toolkit's own dialog rather than the
// platform's: it behaves the same on every desktop and can be filled in by the
// tests. A results file's name always ends in ".txt" ("S1" saves "S1.txt"),
// so that its sidecar, the same name with ".json", belongs to no other table.
QString chooseFileName(QWidget *parent, const QString &proposed)
{
    QFileDialog dialog(parent, "Save a file", proposed, "All files (*.*);; Text files (*.txt)");
    dialog.setAcceptMode(QFileDialog::AcceptSave);
    dialog.setOptions(QFileDialog::DontUseNativeDialog | QFileDialog::DontConfirmOverwrite);
    dialog.selectNameFilter("Text files (*.txt)");
    if (dialog.exec() != QDialog::Accepted || dialog.selectedFiles().isEmpty())
        return QString();
    const QString name = dialog.selectedFiles().constFirst();
    return name.endsWith(".txt") ? name : name + ".txt";
}

} // namespace

void MainWindow::saveResults()
{
    QString name = chooseFileName(this, params.filePath + "/" + params.fileName);
    for (;;) {
        // The sidecar of an earlier table of this name goes once the new table
        // is open, before its first line: a table whose write fails half-way
        // must not sit beside it, while a table that cannot be opened at all
        // stays as it was, with its sidecar. The new sidecar is written only
        // once the table is whole.
        const ResultsFile::SaveOutcome outcome =
            ResultsFile::save(name, params.trials, params.mainParameter, params.carrierFrequency[0],
                              [&name] { QFile::remove(Sidecar::path(name)); });
        if (outcome == ResultsFile::SaveOutcome::Saved) {
            saveSidecar(name);
            return;
        }
        if (outcome == ResultsFile::SaveOutcome::NotOpened) {
            QMessageBox::warning(this, "Warning", "could not open file for writing \r\n" + name);
            return;
        }
        // A write failed after the file was opened (a full disk, a removed
        // stick): the run's data are still in memory, so the experimenter is
        // told and asked for another file, starting at the one that failed.
        QMessageBox::warning(this, "Warning",
                             "The data were not completely saved to \r\n" + name +
                                 "\r\nWriting to the file failed (the disk may be full or "
                                 "gone). Choose another file in the next dialog to keep them.");
        name = chooseFileName(this, name);
    }
}

void MainWindow::noteRunStart()
{
    ++runNumber;
    runSettings = params;
    runFacts = RunFacts();
    runFacts.started = QDateTime::currentDateTime();
    runFacts.randomSeed = RandomSource::lastSeed();
}

void MainWindow::noteOutputDevice(const QString &device, const OutputLevel &level)
{
    const QVector<OutputDevice> &devices = runFacts.outputDevices;
    if (!device.isEmpty() && (devices.isEmpty() || devices.constLast().device != device ||
                              devices.constLast().level != level))
        runFacts.outputDevices.append({device, params.trialCount, level});
    QVector<int> &silent = runFacts.silentTrials;
    if (level.silent() && (silent.isEmpty() || silent.constLast() != params.trialCount))
        silent.append(params.trialCount);
}

void MainWindow::warnFaultyRun()
{
    QStringList text;
    if (!runFacts.faultyIntervals.isEmpty())
        text << QString("%1 of the %2 sounds of this run did not play: the audio output "
                        "stopped or never reported their end.")
                    .arg(runFacts.faultyIntervals.size())
                    .arg(sequenceLength * params.trials.size());
    if (!runFacts.silentTrials.isEmpty()) {
        QStringList trials;
        for (int trial : runFacts.silentTrials)
            trials << QString::number(trial);
        text << QString("%1 %2 played on a muted output (or one at 0 %).")
                    .arg(trials.size() == 1 ? "Trial" : "Trials", trials.join(", "));
    }
    text << "The answers to them are not valid; the run should be repeated.";
    QMessageBox::warning(this, "Warning", text.join(' '));
}

void MainWindow::saveSidecar(const QString &resultsPath)
{
    // The format the run's sounds were played with; each output is made with it.
    runFacts.sampleRate = audioFormat.sampleRate();
    runFacts.channels = audioFormat.channelCount();
    const QString type = audioFormat.sampleType() == QAudioFormat::Float ? "float" : "integer";
    runFacts.sampleType =
        QString("%1-bit %2, %3")
            .arg(audioFormat.sampleSize())
            .arg(type)
            .arg(audioFormat.byteOrder() == QAudioFormat::LittleEndian ? "little-endian"
                                                                       : "big-endian");
    // A save without a run (no "I am ready" yet) describes the current record.
    const bool started = runFacts.started.isValid();
    const QString path = Sidecar::path(resultsPath);
    if (!Sidecar::save(path, Sidecar::content(started ? runSettings : params, params, runFacts)))
        QMessageBox::warning(this, "Warning",
                             "The settings and result of the run could not be saved to \r\n" +
                                 path + "\r\nThe results file was saved.");
}
