#pragma once

#include <QAbstractButton>
#include <QApplication>
#include <QDialogButtonBox>
#include <QFileDialog>
#include <QLineEdit>
#include <QMessageBox>
#include <QPushButton>
#include <QTest>
#include <QTimer>

// Answers the save dialogs of one save, in turn, like an experimenter who
// tries several names: each time a save dialog shows (a new one, or the same
// one still open because the name typed was a folder it went into), the next
// name is typed and Save pressed; an empty name, or none left, cancels it.
// Message boxes are noted and closed with OK. The shared SaveDialogFiller
// answers one dialog with one name; a save that fails and asks again needs a
// sequence.
class SaveDialogScript
{
public:
    struct Answer {
        QString proposed;  // the name the dialog showed
        QString directory; // the folder it showed
        QString typed;
    };
    struct Box {
        QString title;
        QString text;
    };

    explicit SaveDialogScript(const QStringList &names) : names(names) { poll(); }

    QList<Answer> answers;
    QList<Box> boxes;

private:
    void poll()
    {
        QTimer::singleShot(10, &context, [this] {
            QWidget *modal = QApplication::activeModalWidget();
            // The next poll is scheduled first: the click below may run the
            // rest of the save, with further boxes, in nested event loops.
            poll();
            if (auto *dialog = qobject_cast<QFileDialog *>(modal)) {
                if (dialog->isVisible())
                    answer(dialog);
            } else if (auto *box = qobject_cast<QMessageBox *>(modal)) {
                boxes.append({box->windowTitle(), box->text()});
                if (QAbstractButton *ok = box->button(QMessageBox::Ok))
                    ok->click();
                else
                    box->reject();
            }
        });
    }

    void answer(QFileDialog *dialog)
    {
        auto *edit = dialog->findChild<QLineEdit *>("fileNameEdit");
        auto *buttons = dialog->findChild<QDialogButtonBox *>("buttonBox");
        // While its name box has no focus, the dialog writes the file selected
        // in its list into the box whenever the list changes, and its list is
        // filled in the background: a typed name would be overwritten. So the
        // box gets the focus first, and the name is typed at a later poll.
        if (edit && !edit->hasFocus() && ++focusTries < maxFocusTries) {
            dialog->activateWindow();
            edit->setFocus(Qt::OtherFocusReason);
            return;
        }
        focusTries = 0;
        const QString typed = names.value(answers.size());
        answers.append(
            {dialog->selectedFiles().value(0), dialog->directory().absolutePath(), typed});
        if (typed.isEmpty() || !edit || !buttons) {
            dialog->reject();
            return;
        }
        edit->clear();
        QTest::keyClicks(edit, typed);
        buttons->button(QDialogButtonBox::Save)->click();
    }

    static constexpr int maxFocusTries = 100;
    int focusTries = 0;
    QObject context; // ends the polling with the script
    QStringList names;
};
