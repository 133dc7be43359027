#include "../app/mainwindow.h"
#include "resultsfile.h"

#include <QDir>
#include <QFile>
#include <QFileDialog>
#include <QFileInfo>
#include <QMessageBox>
#include <QTextStream>

void MainWindow::saveResults()
{
    // The toolkit's own dialog rather than the platform's: it behaves the same
    // on every desktop and can be filled in by the tests.
    QFileDialog dialog(this, "Save a file", params.filePath + "/" + params.fileName,
                       "All files (*.*);; Text files (*.txt)");
    dialog.setAcceptMode(QFileDialog::AcceptSave);
    dialog.setOptions(QFileDialog::DontUseNativeDialog | QFileDialog::DontConfirmOverwrite);
    dialog.selectNameFilter("Text files (*.txt)");
    QString name;
    if (dialog.exec() == QDialog::Accepted && !dialog.selectedFiles().isEmpty())
        name = dialog.selectedFiles().constFirst();

    QFile file(name);
    if (!name.isEmpty()) {
        const QString folder = QFileInfo(name).absolutePath();
        if (!QFileInfo::exists(folder))
            QDir().mkpath(folder);
    }
    if (name.isEmpty() ||
        !file.open(QIODevice::WriteOnly | QIODevice::Text | QIODevice::Truncate)) {
        QMessageBox::warning(this, "Warning", "could not open file for writing \r\n" + name);
        return;
    }
    QTextStream out(&file);
    ResultsFile::write(out, params.trials, params.mainParameter, params.carrierFrequency[0]);
    out.flush();
    file.close();
}
