#include "../app/mainwindow.h"
#include "resultsfile.h"

#include <QFileDialog>
#include <QMessageBox>

namespace
{

// The save dialog, starting at `proposed`; returns the chosen name, or an
// empty name when it is cancelled. The toolkit's own dialog rather than the
// platform's: it behaves the same on every desktop and can be filled in by the
// tests.
QString chooseFileName(QWidget *parent, const QString &proposed)
{
    QFileDialog dialog(parent, "Save a file", proposed, "All files (*.*);; Text files (*.txt)");
    dialog.setAcceptMode(QFileDialog::AcceptSave);
    dialog.setOptions(QFileDialog::DontUseNativeDialog | QFileDialog::DontConfirmOverwrite);
    dialog.selectNameFilter("Text files (*.txt)");
    if (dialog.exec() == QDialog::Accepted && !dialog.selectedFiles().isEmpty())
        return dialog.selectedFiles().constFirst();
    return QString();
}

} // namespace

void MainWindow::saveResults()
{
    QString name = chooseFileName(this, params.filePath + "/" + params.fileName);
    for (;;) {
        const ResultsFile::SaveOutcome outcome = ResultsFile::save(
            name, params.trials, params.mainParameter, params.carrierFrequency[0]);
        if (outcome == ResultsFile::SaveOutcome::Saved)
            return;
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
