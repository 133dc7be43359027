#pragma once

#include <QApplication>
#include <QDialogButtonBox>
#include <QFileDialog>
#include <QLineEdit>
#include <QMessageBox>
#include <QPushButton>
#include <QTest>
#include <QTimer>

// Answers the save dialog like an experimenter: notes what it shows, types a
// name into its file name box and presses Save, or cancels it when the name is
// empty. Every other modal box that comes while the filler lives (a question
// before replacing a file, the program's warnings) is noted with its title
// and text and closed, so that a test never hangs on it.
class SaveDialogFiller
{
public:
    struct Box {
        QString title;
        QString text;
    };

    explicit SaveDialogFiller(const QString &typed) : typed(typed) { poll(); }

    int dialogs = 0;
    QString title;
    QStringList filters;
    QString selectedFilter;
    QString proposed;
    bool confirmsOverwrite = true;
    bool nativeDialog = true;
    QList<Box> otherBoxes;

private:
    void poll()
    {
        QTimer::singleShot(10, &context, [this] {
            QWidget *modal = QApplication::activeModalWidget();
            if (auto *dialog = qobject_cast<QFileDialog *>(modal)) {
                if (dialog != answered)
                    answer(dialog);
            } else if (auto *box = qobject_cast<QMessageBox *>(modal)) {
                otherBoxes.append({box->windowTitle(), box->text()});
                box->reject();
            } else if (auto *other = qobject_cast<QDialog *>(modal)) {
                otherBoxes.append({other->windowTitle(), QString()});
                other->reject();
            }
            poll();
        });
    }

    void answer(QFileDialog *dialog)
    {
        answered = dialog;
        ++dialogs;
        title = dialog->windowTitle();
        filters = dialog->nameFilters();
        selectedFilter = dialog->selectedNameFilter();
        proposed = dialog->selectedFiles().value(0);
        confirmsOverwrite = !dialog->testOption(QFileDialog::DontConfirmOverwrite);
        nativeDialog = !dialog->testOption(QFileDialog::DontUseNativeDialog);
        auto *edit = dialog->findChild<QLineEdit *>("fileNameEdit");
        auto *buttons = dialog->findChild<QDialogButtonBox *>("buttonBox");
        if (typed.isEmpty() || !edit || !buttons) {
            dialog->reject();
            return;
        }
        edit->clear();
        QTest::keyClicks(edit, typed);
        // A question about replacing the file would open inside this click;
        // the polling already scheduled deals with it.
        poll();
        buttons->button(QDialogButtonBox::Save)->click();
    }

    QObject context; // ends the polling with the filler
    QString typed;
    QFileDialog *answered = nullptr;
};
